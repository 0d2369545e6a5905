// Scan detection under a flood: what a flow costs, what a source weighs, what a bin's close takes.
// The plain form beside it is two bare std::set insertions, into sets that are already at hand.

#include <malloc.h>

#include <memory>
#include <set>
#include <vector>

#include <arpa/inet.h>
#include <benchmark/benchmark.h>
#include <wx/init.h>
#include <lua.hpp>

#include "ConfigUtils.h"
#include "LogData.h"
#include "WorkingRecord.h"
#include "velm/Clock.h"
#include "velm/ConnectionTableEntry.h"
#include "velm/Dom.h"

namespace {

using VelmCore::CConnectionTableEntry;

const char kConfiguration[] =
    "return {packetFilterLog = {cacheSize = 1}, trafficAnalysisConfiguration = {}, "
    "probeConfigurationMap = {[0] = {}, {}, {}, {}, {}}, platformInterfaceMap = {}}";

// A flood's source number `i`: distinct addresses, in no order.
uint32_t SourceNumber(uint32_t i) {
    return (i + 1) * 2654435761u;
}

CConnectionTableEntry FlowOf(uint32_t source) {
    CConnectionTableEntry flow;
    flow.srcAddress = source;
    flow.destAddress = htonl(0xC6336401u);
    flow.destPort = static_cast<uint16_t>(source >> 16);
    return flow;
}

size_t UsedMemory() {
    return mallinfo2().uordblks + mallinfo2().hblkhd;
}

// A log that looks for every type of probe.
class Detector {
public:
    Detector() : m_Lua(luaL_newstate()) {
        VelmCore::SetTickCount(1000);
        luaL_dostring(m_Lua, kConfiguration);
        Take(EntryOf(1));
        CloseBin();
    }
    ~Detector() { lua_close(m_Lua); }

    void Take(const velm_log_entry_s& entry) {
        static OSTREL::WorkingRecord record;
        record.Assign(entry, nullptr, 0, nullptr, 0);
        OSTREL::ConfigUtils utils(m_Lua, 1);
        m_Log.SetConfigUtils(&utils);
        m_Log.ProcessLogData("text", 0, &record);
        m_Log.SetConfigUtils(nullptr);
    }
    void CloseBin() {
        VelmCore::AdvanceTickCount(10001);
        m_Log.CacheMaintenance();
        m_Dom.TakeEvents();
    }
    void Flood(uint32_t sources) {
        for (uint32_t i = 0; i < sources; ++i)
            m_Log.HandleTerminatedFlow(FlowOf(SourceNumber(i)), 6);
    }
    static velm_log_entry_s EntryOf(uint32_t source) {
        velm_log_entry_s entry = {};
        entry.log_action = 1;
        entry.log_flags = 0x10 | 0x40;
        entry.log_ip.v4.iph_proto = 6;
        entry.log_ip.v4.iph_src = source;
        entry.log_ip.v4.iph_dest = htonl(0xC6336401u);
        entry.log_transport.tcp.tcph_sport = htons(40000);
        entry.log_transport.tcp.tcph_dport = htons(80);
        entry.log_transport.tcp.tcph_flags = 0x02;
        return entry;
    }
    OSTREL::LogData& Log() { return m_Log; }

private:
    VelmCore::CDom m_Dom;
    OSTREL::LogData m_Log{m_Dom};
    lua_State* m_Lua;
};

// One flow each of distinct sources, into a bin whose memory an earlier bin has left.
void BM_FlowOfNewSource(benchmark::State& state) {
    const uint32_t sources = static_cast<uint32_t>(state.range(0));
    Detector detector;
    for (auto _ : state) {
        detector.Flood(sources);
        state.PauseTiming();
        detector.CloseBin();
        state.ResumeTiming();
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

// The same with a new log each time, so that the memory is new too.
void BM_FlowOfNewSourceInNewLog(benchmark::State& state) {
    const uint32_t sources = static_cast<uint32_t>(state.range(0));
    double bytes = 0;
    for (auto _ : state) {
        state.PauseTiming();
        auto detector = std::make_unique<Detector>();
        const size_t before = UsedMemory();
        state.ResumeTiming();
        detector->Flood(sources);
        state.PauseTiming();
        bytes = static_cast<double>(UsedMemory()) - static_cast<double>(before);
        detector.reset();
        state.ResumeTiming();
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
    state.counters["bytes/source"] = bytes / static_cast<double>(sources);
}

// Two bare insertions for each flow, the sets of each source being made beforehand and found for
// nothing.
void BM_TwoBareSetInsertions(benchmark::State& state) {
    const uint32_t sources = static_cast<uint32_t>(state.range(0));
    double bytes = 0;
    for (auto _ : state) {
        state.PauseTiming();
        const size_t before = UsedMemory();
        std::vector<std::pair<std::set<uint32_t>, std::set<uint16_t>>> sets(sources);
        state.ResumeTiming();
        for (uint32_t i = 0; i < sources; ++i) {
            const CConnectionTableEntry flow = FlowOf(SourceNumber(i));
            sets[i].first.insert(flow.destAddress);
            sets[i].second.insert(flow.destPort);
        }
        state.PauseTiming();
        bytes = static_cast<double>(UsedMemory() - before);
        sets = {};
        state.ResumeTiming();
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
    state.counters["bytes/source"] = bytes / static_cast<double>(sources);
}

// One source over and over, as in a flood of one port: the bin must not grow.
void BM_RepeatedFlow(benchmark::State& state) {
    Detector detector;
    const CConnectionTableEntry flow = FlowOf(SourceNumber(1));
    const size_t before = UsedMemory();
    for (auto _ : state)
        detector.Log().HandleTerminatedFlow(flow, 6);
    state.SetItemsProcessed(state.iterations());
    state.counters["bytes"] = static_cast<double>(UsedMemory() - before);
}

// A scanner that goes over all ports, again and again.
void BM_FlowOfOneScanner(benchmark::State& state) {
    Detector detector;
    CConnectionTableEntry flow = FlowOf(SourceNumber(1));
    for (auto _ : state) {
        ++flow.destPort;
        detector.Log().HandleTerminatedFlow(flow, 6);
    }
    state.SetItemsProcessed(state.iterations());
}

// Closing the bin of a flood of harmless sources.
void BM_CloseBin(benchmark::State& state) {
    const uint32_t sources = static_cast<uint32_t>(state.range(0));
    Detector detector;
    for (auto _ : state) {
        state.PauseTiming();
        detector.Flood(sources);
        state.ResumeTiming();
        detector.CloseBin();
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
    state.SetComplexityN(state.range(0));
}

// The whole way of an entry through the analysis, without its text and its file.
void BM_EntryThroughAnalysis(benchmark::State& state) {
    Detector detector;
    const velm_log_entry_s entry = Detector::EntryOf(SourceNumber(1));
    for (auto _ : state)
        detector.Take(entry);
    state.SetItemsProcessed(state.iterations());
}

BENCHMARK(BM_FlowOfNewSource)->Arg(1000000)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_FlowOfNewSourceInNewLog)->Arg(1000000)->Unit(benchmark::kMillisecond)->Iterations(3);
BENCHMARK(BM_TwoBareSetInsertions)->Arg(1000000)->Unit(benchmark::kMillisecond)->Iterations(3);
BENCHMARK(BM_RepeatedFlow);
BENCHMARK(BM_FlowOfOneScanner);
BENCHMARK(BM_CloseBin)
    ->RangeMultiplier(10)
    ->Range(10000, 1000000)
    ->Unit(benchmark::kMillisecond)
    ->Complexity(benchmark::oN);
BENCHMARK(BM_EntryThroughAnalysis);

}  // namespace
