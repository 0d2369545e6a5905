// Writes that the system cuts short or interrupts. The log file is a FIFO with a slow reader, the
// line is longer than the FIFO holds, and signals arrive while the writer waits for room.

#include <atomic>
#include <thread>

#include <errno.h>
#include <fcntl.h>
#include <pthread.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "LogDataFixture.h"

namespace {

std::atomic<bool> s_IsWatching{false};
std::atomic<int> s_ShortWrites{0};
std::atomic<int> s_InterruptedWrites{0};

bool IsWatched(int fd) {
    struct stat status;
    return s_IsWatching && fstat(fd, &status) == 0 && S_ISFIFO(status.st_mode);
}

}  // namespace

// The system call as it is, whose results are counted.
extern "C" ssize_t write(int fd, const void* data, size_t length) {
    const ssize_t written = syscall(SYS_write, fd, data, length);
    const int error = errno;
    if (IsWatched(fd)) {
        if (written == -1 && error == EINTR) ++s_InterruptedWrites;
        if (written >= 0 && static_cast<size_t>(written) < length) ++s_ShortWrites;
    }
    errno = error;
    return written;
}

namespace {

void OnSignal(int) {}

class InterruptedWriteTest : public LogDataTest {
protected:
    InterruptedWriteTest() {
        mkfifo(directory.Path("fw").c_str(), 0600);
        struct sigaction action = {};
        action.sa_handler = OnSignal;  // no SA_RESTART
        sigaction(SIGUSR1, &action, &m_Former);
        s_ShortWrites = 0;
        s_InterruptedWrites = 0;
        s_IsWatching = true;
    }
    ~InterruptedWriteTest() override {
        s_IsWatching = false;
        sigaction(SIGUSR1, &m_Former, nullptr);
    }

    // Interrupts the writer until `counter` has reached `count`.
    static void InterruptUntil(pthread_t writer, const std::atomic<int>& counter, int count) {
        while (counter < count) {
            pthread_kill(writer, SIGUSR1);
            usleep(1000);
        }
    }
    // Reads the FIFO to its end, after the writer was cut short once and interrupted three times,
    // and goes on interrupting it.
    std::string ReadSlowly(pthread_t writer) {
        const int fd = open(directory.Path("fw").c_str(), O_RDONLY);
        InterruptUntil(writer, s_ShortWrites, 1);
        InterruptUntil(writer, s_InterruptedWrites, 3);
        std::string content;
        char buffer[3000];
        ssize_t got;
        while ((got = read(fd, buffer, sizeof buffer)) != 0) {
            if (got == -1) continue;
            content.append(buffer, static_cast<size_t>(got));
            if (content.size() < 100000) pthread_kill(writer, SIGUSR1);
        }
        close(fd);
        return content;
    }

private:
    struct sigaction m_Former;
};

TEST_F(InterruptedWriteTest, ReaderGetsTheLineWhole) {
    velm_log_entry_s entry = TcpEntry();
    entry.log_dpi_flags = 0x02;
    entry.log_packet_data_len = 65000;
    entry.log_data_len = 65535;
    ASSERT_TRUE(Write(entry, std::string(65000, '\xAB'), std::string(65535, '\xCD')));

    const pthread_t writer = pthread_self();
    std::string content;
    std::thread reader([&] { content = ReadSlowly(writer); });
    const bool written = log.FlushBufferedData(true);
    reader.join();

    std::string dumps;
    for (int i = 0; i < 65000; ++i)
        dumps += "AB";
    dumps += ", ";
    for (int i = 0; i < 65535; ++i)
        dumps += "CD";
    EXPECT_TRUE(written);
    EXPECT_EQ(content,
              "2025/11/13, 21:35:29, f, 0, 1, 00 0C 29 11 22 33, IP, 00 0C 29 44 55 66, "
              "00 0C 29 11 22 33, TCP, ACK PSH DF=1, 10.0.0.5, 51000, 10.0.0.9, 443, 60, 1, 0, 17, "
              "3, , 0, 0, 8, 0, 0, " +
                  dumps + ", 1, 1763069729000500, 1763069729000500\n");
    EXPECT_GE(s_ShortWrites, 1);
    EXPECT_GE(s_InterruptedWrites, 3);
    EXPECT_EQ(Events(), Texts());
}

TEST_F(InterruptedWriteTest, ReaderThatGoesAwayIsAWriteError) {
    signal(SIGPIPE, SIG_IGN);
    const std::string path = directory.Path("fw");
    std::thread reader([&] { close(open(path.c_str(), O_RDONLY)); });
    ASSERT_TRUE(log.InitializeLogFile());
    reader.join();
    EXPECT_FALSE(log.WriteRecord("a", {0, 0, 0, 0, 1}));
    EXPECT_FALSE(peer.logFile.IsOpened());
    EXPECT_EQ(Events(), Texts({"6002: " + path}));
}

}  // namespace
