// The text of a record, next to a chain of snprintf calls that makes the same bytes.

#include <benchmark/benchmark.h>

#include <cstdlib>
#include <memory>
#include <string>

#include "Entries.h"
#include "LogData.h"
#include "ReferenceText.h"
#include "WorkingRecord.h"
#include "velm/Dom.h"

namespace {

Reference::RecordBytes BytesOf(const velm_log_entry_s& entry) {
    return {reinterpret_cast<const unsigned char*>(&entry), nullptr, 0, nullptr, 0};
}

void RecordText(benchmark::State& state) {
    VelmCore::CDom dom;
    OSTREL::LogData log(dom);
    const velm_log_entry_s entry = Bench::MakeEntry(7);
    const auto record = std::make_unique<OSTREL::WorkingRecord>();
    record->Assign(entry, nullptr, 0, nullptr, 0);
    std::string text;
    long long firstTime;
    long long lastTime;
    for (auto _ : state) {
        log.BinaryToAscii(record.get(), text, firstTime, lastTime);
        benchmark::DoNotOptimize(text.data());
    }
    if (text != Reference::RecordText(BytesOf(entry), -1)) abort();
    state.counters["bytes"] = static_cast<double>(text.size());
}
BENCHMARK(RecordText);

void RecordTextSnprintf(benchmark::State& state) {
    const velm_log_entry_s entry = Bench::MakeEntry(7);
    for (auto _ : state) {
        benchmark::DoNotOptimize(Reference::RecordText(BytesOf(entry), -1));
    }
}
BENCHMARK(RecordTextSnprintf);

}  // namespace
