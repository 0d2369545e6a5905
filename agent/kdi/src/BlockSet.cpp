#include "BlockSet.h"

#include <arpa/inet.h>

#include <cerrno>

namespace Kdi {

namespace {

// A command on elements of the set.
class ElementCommand {
public:
    explicit ElementCommand(const char* verb)
        : m_Text(std::string(verb) + " inet velm blocked4 {") {}
    void Put(uint32_t address) {
        char text[INET_ADDRSTRLEN] = "";
        m_Text += m_Empty ? " " : ", ";
        m_Text += inet_ntop(AF_INET, &address, text, sizeof text);
        m_Empty = false;
    }
    void Put(const kdi_block_s& block) {
        Put(block.ipv4_addr);
        m_Text += " timeout " + std::to_string(block.remaining_msec) + "ms";
    }
    std::string Text() const { return m_Text + " }\n"; }

private:
    std::string m_Text;
    bool m_Empty = true;
};

}  // namespace

int BlockSet::Run(const std::string& commands) {
    const int error = m_Nftables.Run(commands);
    const bool full = error == ENFILE;
    m_Error = std::string(NAME) + ": " + (full ? "it is full" : m_Nftables.Error());
    return full ? ENOSPC : error;
}

int BlockSet::Add(const std::vector<kdi_block_s>& blocks) {
    if (blocks.empty()) return 0;
    ElementCommand timed("add element");
    for (const kdi_block_s& block : blocks)
        timed.Put(block);
    return Run(timed.Text());
}

// Not every kernel changes the time of an element by adding it again, so it goes and comes back; it
// cannot be taken away when it is not there, so it is added first. Packets see none of the steps.
int BlockSet::Renew(const std::vector<kdi_block_s>& blocks) {
    if (blocks.empty()) return 0;
    ElementCommand present("add element"), absent("delete element"), timed("add element");
    for (const kdi_block_s& block : blocks) {
        present.Put(block.ipv4_addr);
        absent.Put(block.ipv4_addr);
        timed.Put(block);
    }
    return Run(present.Text() + absent.Text() + timed.Text());
}

int BlockSet::Remove(uint32_t address) {
    ElementCommand present("add element"), absent("delete element");
    present.Put(address);
    absent.Put(address);
    return Run(present.Text() + absent.Text());
}

int BlockSet::Read(std::vector<SetElement>& elements) {
    const int error = Run(std::string("list ") + NAME + "\n");
    if (error != 0) return error;
    std::string reason;
    if (ParseSetListing(m_Nftables.Output(), elements, reason)) return 0;
    m_Error = std::string(NAME) + ": its listing is not readable: " + reason;
    return EBADMSG;
}

}  // namespace Kdi
