#pragma once

#include <cstddef>
#include <cstdint>
#include <mutex>
#include <string>

namespace Kdi {

// A file of decrypted pre-master secrets in the form that packet analysers read. May be used on any
// thread.
class KeyLog {
public:
    KeyLog() = default;
    ~KeyLog();
    KeyLog(const KeyLog&) = delete;
    KeyLog& operator=(const KeyLog&) = delete;

    // Opens the file, or makes it for its owner alone. False, with the reason in `error`, if it is
    // a symbolic link or no regular file or cannot be written.
    bool Open(const std::string& path, std::string& error);
    bool IsOpen() const { return m_Descriptor >= 0; }

    // Appends "RSA" and "PMS_CLIENT_RANDOM", each line with one write. `encrypted`: the first 8
    // bytes of the encrypted secret; `clientRandom`: 32 bytes. False, with errno, if a line could
    // not be written whole.
    bool Append(const uint8_t* encrypted, const uint8_t* clientRandom, const uint8_t* preMaster);

private:
    bool CheckFile(const std::string& path, std::string& error);
    bool Write(const char* line, size_t length);

    int m_Descriptor = -1;
    std::mutex m_Mutex;
    bool m_MidLine = false;  // the file does not end with a line's end
};

}  // namespace Kdi
