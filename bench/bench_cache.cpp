// What an entry costs on its way through WriteLogData: one that repeats a cached record while
// nothing is due, and one that evicts the oldest record from a full cache. The latter stands next
// to the system calls alone that write its line.

#include <benchmark/benchmark.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <random>
#include <string>
#include <vector>

#include "Entries.h"
#include "LogData.h"
#include "TempDirectory.h"
#include "velm/Clock.h"
#include "velm/Dom.h"

namespace {

constexpr unsigned int kLongestMsec = 3600000;
constexpr uint32_t kEntriesInMsec = 4;

// A log with a full cache of records, of which none is due for an hour.
class FullLog {
public:
    explicit FullLog(uint32_t records) : m_Log(m_Dom) {
        VelmCore::SetTickCount(0);
        m_Log.SetLogFilePath(m_Directory.Path());
        // The first entry asks for a configuration. There is none, and it is not asked for again.
        m_Log.WriteLogData(&m_Entry, nullptr, 0, nullptr, 0);
        m_Log.SetLogFileSizeKB(1 << 30);
        m_Log.SetCacheParameters(records, kLongestMsec, kLongestMsec);
        for (uint32_t number = 0; number < records; ++number)
            Write(Bench::MakeEntry(number));
    }
    ~FullLog() { VelmCore::UseSystemClock(); }

    void Write(const velm_log_entry_s& entry) {
        if (!m_Log.WriteLogData(&entry, nullptr, 0, nullptr, 0)) abort();
    }
    bool HasWritten() { return access(m_Log.GetLogFileFullPath().utf8_str(), F_OK) == 0; }

private:
    VelmCore::CDom m_Dom;
    Reference::TempDirectory m_Directory;
    OSTREL::LogData m_Log;
    velm_log_entry_s m_Entry = Bench::MakeEntry(0);
};

void RepeatCached(benchmark::State& state) {
    const auto records = static_cast<uint32_t>(state.range(0));
    FullLog log(records);
    std::vector<velm_log_entry_s> entries;
    std::mt19937 random(1);
    for (int i = 0; i < 4096; ++i)
        entries.push_back(Bench::MakeEntry(static_cast<uint32_t>(random()) % records));
    uint32_t count = 0;
    for (auto _ : state) {
        if (++count % kEntriesInMsec == 0) VelmCore::AdvanceTickCount(1);
        log.Write(entries[count % entries.size()]);
    }
    if (log.HasWritten()) state.SkipWithError("records became due");
}
BENCHMARK(RepeatCached)->Arg(16)->Arg(1024);

void Evict(benchmark::State& state, bool clockRuns) {
    const auto records = static_cast<uint32_t>(state.range(0));
    FullLog log(records);
    uint32_t number = records;
    velm_log_entry_s entry = Bench::MakeEntry(number);
    for (auto _ : state) {
        if (clockRuns && number % kEntriesInMsec == 0) VelmCore::AdvanceTickCount(1);
        Bench::SetSource(entry, number++);
        log.Write(entry);
    }
}

void EvictOldest(benchmark::State& state) {
    Evict(state, true);
}
BENCHMARK(EvictOldest)->Arg(128)->Arg(1024);

// All records entered the cache at one tick.
void EvictOldestOneTick(benchmark::State& state) {
    Evict(state, false);
}
BENCHMARK(EvictOldestOneTick)->Arg(128)->Arg(1024);

void OpenWriteClose(benchmark::State& state) {
    static const std::string kLine =
        "2025/11/13, 21:35:29, f, 0, 0, 0C 1D 2E 3F 50 61, IP, 4A 53 5C 65 6E 77, "
        "0C 1D 2E 3F 50 61, TCP, SYN DF=1, 10.0.0.0, 1031, 192.168.1.9, 443, 60, 1, 0, 17, -1, , "
        "0, 0, 0, 0, , , , 1, 1763069729000500, 1763069729000500\n";
    const Reference::TempDirectory directory;
    const std::string path = directory.Path("log");
    for (auto _ : state) {
        const int fd = open(path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0600);
        struct stat status;
        if (fstat(fd, &status) != 0) abort();
        if (write(fd, kLine.data(), kLine.size()) != static_cast<ssize_t>(kLine.size())) abort();
        close(fd);
    }
}
BENCHMARK(OpenWriteClose);

}  // namespace
