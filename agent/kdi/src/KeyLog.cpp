#include "KeyLog.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace Kdi {

namespace {

constexpr size_t ENCRYPTED_LEN = 8;
constexpr size_t RANDOM_LEN = 32;
constexpr size_t PRE_MASTER_LEN = 48;

// A line of text on the stack, wiped when it is given up.
class Line {
public:
    ~Line() { explicit_bzero(m_Text, sizeof m_Text); }

    Line& Text(const char* text) {
        m_Length = static_cast<size_t>(std::copy(text, text + std::strlen(text), End()) - m_Text);
        return *this;
    }
    Line& Hex(const uint8_t* bytes, size_t length) {
        static constexpr char DIGITS[] = "0123456789abcdef";
        for (size_t i = 0; i < length; ++i) {
            m_Text[m_Length++] = DIGITS[bytes[i] >> 4];
            m_Text[m_Length++] = DIGITS[bytes[i] & 15];
        }
        return *this;
    }
    const char* Data() const { return m_Text; }
    size_t Length() const { return m_Length; }

private:
    char* End() { return m_Text + m_Length; }

    char m_Text[256];  // the longest line takes 183
    size_t m_Length = 0;
};

}  // namespace

KeyLog::~KeyLog() {
    if (m_Descriptor >= 0) close(m_Descriptor);
}

bool KeyLog::Open(const std::string& path, std::string& error) {
    // Without O_NONBLOCK the opening of a named pipe would wait for its reader.
    m_Descriptor =
        open(path.c_str(), O_RDWR | O_APPEND | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, 0600);
    if (m_Descriptor >= 0) return CheckFile(path, error);
    const bool isLink = errno == ELOOP;
    error = "cannot write key log " + path + ": " +
            (isLink ? "it is a symbolic link" : std::strerror(errno));
    return false;
}

bool KeyLog::CheckFile(const std::string& path, std::string& error) {
    struct stat status = {};
    if (fstat(m_Descriptor, &status) != 0 || !S_ISREG(status.st_mode)) {
        error = "cannot write key log " + path + ": it is no regular file";
        return false;
    }
    char last = '\n';
    if (status.st_size > 0 && pread(m_Descriptor, &last, 1, status.st_size - 1) != 1) last = ' ';
    m_MidLine = last != '\n';
    return true;
}

bool KeyLog::Append(const uint8_t* encrypted, const uint8_t* clientRandom,
                    const uint8_t* preMaster) {
    const std::lock_guard<std::mutex> lock(m_Mutex);
    for (const bool byRandom : {false, true}) {
        Line line;
        if (m_MidLine) line.Text("\n");
        if (byRandom)
            line.Text("PMS_CLIENT_RANDOM ").Hex(clientRandom, RANDOM_LEN);
        else
            line.Text("RSA ").Hex(encrypted, ENCRYPTED_LEN);
        line.Text(" ").Hex(preMaster, PRE_MASTER_LEN).Text("\n");
        if (!Write(line.Data(), line.Length())) return false;
    }
    return true;
}

bool KeyLog::Write(const char* line, size_t length) {
    const ssize_t written = write(m_Descriptor, line, length);
    if (written == static_cast<ssize_t>(length)) {
        m_MidLine = false;
        return true;
    }
    if (written > 0) {
        m_MidLine = true;
        errno = ENOSPC;
    }
    return false;
}

}  // namespace Kdi
