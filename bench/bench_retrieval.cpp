// A window that few lines match, out of big log files: the retrieval, a plain reader with fgets,
// and a bare search for line feeds in the same files.

#include <benchmark/benchmark.h>

#include <fcntl.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "LogData.h"
#include "ReferenceRetrieval.h"
#include "TempDirectory.h"
#include "velm/Dom.h"

namespace {

constexpr long kFirstSecond = 1763069729;
constexpr int kFiles = 8;
constexpr int kLinesOfFile = 50000;
constexpr int kLinesInSecond = 10;
// The window begins with the last second, so that every line is looked at.
constexpr long kWindow = kFirstSecond + kFiles * kLinesOfFile / kLinesInSecond - 1;

// A file set on disk; the highest number holds the oldest lines.
class LogFiles {
public:
    LogFiles() {
        int line = 0;
        for (int number = kFiles - 1; number >= 0; --number) {
            std::string bytes;
            for (int i = 0; i < kLinesOfFile; ++i)
                bytes += MakeLine(line++);
            Reference::WriteFile(
                m_Directory.Path("log" + (number > 0 ? "." + std::to_string(number) : "")), bytes);
            m_Size += static_cast<int64_t>(bytes.size());
        }
    }

    const std::string& Path() const { return m_Directory.Path(); }
    int64_t Size() const { return m_Size; }

private:
    static std::string MakeLine(int number) {
        const std::string usec =
            std::to_string((kFirstSecond + number / kLinesInSecond) * 1000000LL + number % 1000);
        return "2025/11/13, 21:35:29, f, 0, 0, 0C 1D 2E 3F 50 61, IP, 4A 53 5C 65 6E 77, "
               "0C 1D 2E 3F 50 61, TCP, SYN DF=1, 10.0.0.0, " +
               std::to_string(1024 + number % 50000) +
               ", 192.168.1.9, 443, 60, 1, 0, 17, -1, , 0, 0, 0, 0, , , , 1, " + usec + ", " +
               usec + "\n";
    }

    Reference::TempDirectory m_Directory;
    int64_t m_Size = 0;
};

bool Count(void* context, long, long, const std::string&) {
    ++*static_cast<size_t*>(context);
    return true;
}

void RetrieveWindow(benchmark::State& state) {
    const LogFiles files;
    VelmCore::CDom dom;
    OSTREL::LogData log(dom);
    log.SetLogFilePath(files.Path());
    log.SetLogFileName("log");
    for (auto _ : state) {
        size_t found = 0;
        log.GetLogData(OSTREL::DriverFirewall, kWindow, 0, "", Count, &found);
        if (found != kLinesInSecond) abort();
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * files.Size());
}
BENCHMARK(RetrieveWindow)->Unit(benchmark::kMillisecond);

void RetrieveWindowFgets(benchmark::State& state) {
    const LogFiles files;
    for (auto _ : state) {
        Reference::Retrieval reference(files.Path(), "log");
        if (reference.Run({0, kWindow, 0, SIZE_MAX}).size() != kLinesInSecond) abort();
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * files.Size());
}
BENCHMARK(RetrieveWindowFgets)->Unit(benchmark::kMillisecond);

// What reading the files and finding their lines costs at least.
int64_t CountLines(const std::string& path, std::vector<char>& buffer) {
    const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    int64_t lines = 0;
    ssize_t got;
    while ((got = read(fd, buffer.data(), buffer.size())) > 0) {
        const char* const end = buffer.data() + got;
        for (const char* c = buffer.data(); c < end; ++c, ++lines) {
            c = static_cast<const char*>(memchr(c, '\n', static_cast<size_t>(end - c)));
            if (c == nullptr) break;
        }
    }
    close(fd);
    return lines;
}

void CountLineFeeds(benchmark::State& state) {
    const LogFiles files;
    std::vector<char> buffer(128 * 1024);
    for (auto _ : state) {
        int64_t lines = CountLines(files.Path() + "/log", buffer);
        for (int number = 1; number < kFiles; ++number)
            lines += CountLines(files.Path() + "/log." + std::to_string(number), buffer);
        if (lines != int64_t{kFiles} * kLinesOfFile) abort();
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * files.Size());
}
BENCHMARK(CountLineFeeds)->Unit(benchmark::kMillisecond);

}  // namespace
