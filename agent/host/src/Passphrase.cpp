#include "Passphrase.h"

#include <cerrno>
#include <cstring>

#include <fcntl.h>
#include <openssl/evp.h>
#include <sys/stat.h>
#include <unistd.h>

#include "Message.h"

namespace {

constexpr size_t kMaxLength = 1023;

// A buffer that is wiped at the end of its scope.
struct Buffer {
    char text[kMaxLength + 1];
    size_t length = 0;

    ~Buffer() { explicit_bzero(text, sizeof text); }
};

// Reads up to the first line end or the end of the file. A byte at a time, since what stands behind
// the line on standard input is not ours.
bool ReadLine(int file, Buffer& buffer, std::string& reason) {
    for (;;) {
        char byte = 0;
        const ssize_t got = read(file, &byte, 1);
        if (got < 0 && errno == EINTR) continue;
        if (got < 0) {
            reason = std::strerror(errno);
            return false;
        }
        if (got == 0 || byte == '\n') return true;
        if (buffer.length == kMaxLength) {
            reason = "the first line is longer than a passphrase may be";
            return false;
        }
        buffer.text[buffer.length++] = byte;
    }
}

void WarnOfReaders(int file, const std::string& path) {
    struct stat status {};
    if (fstat(file, &status) != 0 || !S_ISREG(status.st_mode)) return;
    if ((status.st_mode & (S_IRGRP | S_IROTH)) != 0)
        PrintError(path, "other users can read the passphrase; chmod 600 keeps them out");
}

}  // namespace

bool ReadPassphrase(const std::string& path, std::string& passphrase, std::string& reason) {
    const bool isInput = path == "-";
    const int file = isInput ? STDIN_FILENO : open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (file < 0) {
        reason = std::strerror(errno);
        return false;
    }
    Buffer buffer;
    const bool done = ReadLine(file, buffer, reason);
    if (!isInput) {
        WarnOfReaders(file, path);
        close(file);
    }
    if (done) passphrase.assign(buffer.text, buffer.length);
    return done;
}

bool CanAskPassphrase() {
    const int terminal = open("/dev/tty", O_RDWR | O_NOCTTY | O_CLOEXEC);
    if (terminal < 0) return false;
    close(terminal);
    return true;
}

bool AskPassphrase(const std::string& prompt, std::string& passphrase) {
    Buffer buffer;
    constexpr int kWithoutRepetition = 0;
    if (EVP_read_pw_string(buffer.text, static_cast<int>(sizeof buffer.text), prompt.c_str(),
                           kWithoutRepetition) != 0)
        return false;
    passphrase = buffer.text;
    return true;
}
