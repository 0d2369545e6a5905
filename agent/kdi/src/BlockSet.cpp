#include "BlockSet.h"

#include <arpa/inet.h>
#include <nftables/libnftables.h>

#include <cerrno>
#include <cstring>
#include <mutex>
#include <stdexcept>

namespace Kdi {

namespace {

// The library keeps tables of its own that all contexts share.
std::mutex s_Library;

std::string AddressText(uint32_t address) {
    char text[INET_ADDRSTRLEN] = "";
    inet_ntop(AF_INET, &address, text, sizeof text);
    return text;
}

// A command on elements of the set.
class ElementCommand {
public:
    explicit ElementCommand(const char* verb)
        : m_Text(std::string(verb) + " inet velm blocked4 {") {}
    void Put(uint32_t address) {
        m_Text += m_Empty ? " " : ", ";
        m_Text += AddressText(address);
        m_Empty = false;
    }
    void Put(uint32_t address, uint32_t msec) {
        Put(address);
        m_Text += " timeout " + std::to_string(msec) + "ms";
    }
    std::string Text() const { return m_Text + " }\n"; }

private:
    std::string m_Text;
    bool m_Empty = true;
};

// The library tells errors in words only.
int ErrorNumber(const std::string& text) {
    for (const int error : {EPERM, ENOENT, ENFILE, ENOMEM, ENOBUFS, ENOSPC, EBUSY, EMSGSIZE, EEXIST,
                            EINVAL, EOPNOTSUPP, EAFNOSUPPORT}) {
        if (text.find(std::strerror(error)) != std::string::npos) return error;
    }
    return EIO;
}

// The first line says what is wrong, the others where.
std::string FirstLine(const std::string& text) {
    const size_t start = text.find("Error: ");
    const std::string line = start == std::string::npos ? text : text.substr(start + 7);
    return line.substr(0, line.find('\n'));
}

}  // namespace

void BlockSet::Freer::operator()(nft_ctx* context) const {
    const std::lock_guard<std::mutex> lock(s_Library);
    nft_ctx_free(context);
}

BlockSet::BlockSet() {
    const std::lock_guard<std::mutex> lock(s_Library);
    m_Context.reset(nft_ctx_new(NFT_CTX_DEFAULT));
    if (!m_Context) throw std::runtime_error("cannot use nftables");
    nft_ctx_buffer_output(m_Context.get());
    nft_ctx_buffer_error(m_Context.get());
    nft_ctx_output_set_flags(m_Context.get(), NFT_CTX_OUTPUT_JSON);
}

int BlockSet::Run(const std::string& command) {
    const std::lock_guard<std::mutex> lock(s_Library);
    m_Error.clear();
    if (nft_run_cmd_from_buffer(m_Context.get(), command.c_str()) == 0) return 0;
    const std::string text = nft_ctx_get_error_buffer(m_Context.get());
    m_Error = std::string(NAME) + ": " + FirstLine(text);
    return ErrorNumber(text);
}

// The time of an element that is there does not change by adding it, so it goes and comes back; it
// cannot be taken away when it is not there, so it is added first. Packets see none of the steps.
int BlockSet::Add(const std::vector<kdi_block_s>& blocks) {
    if (blocks.empty()) return 0;
    ElementCommand present("add element"), absent("delete element"), timed("add element");
    for (const kdi_block_s& block : blocks) {
        present.Put(block.ipv4_addr);
        absent.Put(block.ipv4_addr);
        timed.Put(block.ipv4_addr, block.remaining_msec);
    }
    return Run(present.Text() + absent.Text() + timed.Text());
}

int BlockSet::Remove(const std::vector<uint32_t>& addresses) {
    if (addresses.empty()) return 0;
    ElementCommand present("add element"), absent("delete element");
    for (const uint32_t address : addresses) {
        present.Put(address);
        absent.Put(address);
    }
    return Run(present.Text() + absent.Text());
}

int BlockSet::Read(std::vector<SetElement>& elements) {
    const int error = Run(std::string("list ") + NAME + "\n");
    if (error != 0) return error;
    std::string reason;
    if (ParseSetListing(nft_ctx_get_output_buffer(m_Context.get()), elements, reason)) return 0;
    m_Error = std::string(NAME) + ": its listing is not readable: " + reason;
    return EBADMSG;
}

}  // namespace Kdi
