#pragma once

#include <algorithm>
#include <array>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "ConfigUtils.h"
#include "LogData.h"
#include "LogDataPeer.h"
#include "Packets.h"
#include "WorkingRecord.h"
#include "kdi/kdi.h"
#include "module/ConfigurationTable.h"
#include "module/CoreEnvironment.h"
#include "velm/ConnectionTableEntry.h"

// A configuration with these entries of the map of probe types, these address lists, and `more`.
inline std::string Configuration(const std::string& probes, const std::string& lists = "",
                                 const std::string& more = "platformInterfaceMap = {}") {
    return "{packetFilterLog = {cacheSize = 128}, trafficAnalysisConfiguration = {" + lists +
           "}, probeConfigurationMap = {" + probes + "}, " + more + "}";
}

// All five types, none blocking and none notifying.
constexpr const char* kAllProbes = "[0] = {}, {}, {}, {}, {}";

// A log as a script would use it: the configuration stands on a Lua stack during each call, the
// driver is the one that only keeps what it is told, and the clock moves by the test alone.
class DetectionTest : public ::testing::Test {
protected:
    using Record = std::array<uint8_t, 12>;

    DetectionTest() {
        VelmCore::SetTickCount(1000);
        VelmCore::TakeLog();
        char error[64];
        m_Driver = kdi_open_source("null", nullptr, error, sizeof error);
        MakeLog();
        Configure(Configuration(kAllProbes));
    }
    ~DetectionTest() override {
        FreeLists();
        kdi_close(m_Driver);
        VelmCore::EnableTrace("LogScan", false);
        VelmCore::EnableTrace("ostrel", false);
        VelmCore::UseSystemClock();
    }

    // Settings are read when a log is made, so a test that sets some makes a new one.
    void MakeLog() {
        FreeLists();
        m_Log = std::make_unique<OSTREL::LogData>(dom);
        m_Peer = std::make_unique<OSTREL::LogDataPeer>(*m_Log);
        m_Log->SetKdi(m_Driver);
    }
    void MakeLogWith(const std::string& key, const std::string& value) {
        dom.SetText("plg.ostrel.analysis." + key, value);
        MakeLog();
    }
    OSTREL::LogData& Log() { return *m_Log; }
    OSTREL::LogDataPeer& Inside() { return *m_Peer; }
    kdi_handle_t Driver() { return m_Driver; }

    // A new configuration, which the next entry reads.
    void Configure(const std::string& table) {
        configuration.Set(table);
        dom.ConditionRaise("app.configUpdated");
    }
    // Hands the log one entry. The result tells whether it is to be logged.
    bool Take(const velm_log_entry_s& entry) {
        auto record = std::make_unique<OSTREL::WorkingRecord>();
        record->Assign(entry, nullptr, 0, nullptr, 0);
        const ScriptCall call(*this);
        return m_Log->ProcessLogData("text", 0, record.get());
    }
    bool Maintain() {
        const ScriptCall call(*this);
        return m_Log->CacheMaintenance();
    }
    // Lets the bin's 10 seconds pass, and closes it.
    bool CloseBin() {
        VelmCore::AdvanceTickCount(10001);
        return Maintain();
    }
    bool Report(int type, const char* source, uint8_t protocol = 6) {
        const ScriptCall call(*this);
        return m_Log->WriteProbeEvent(static_cast<OSTREL::CProbeConfiguration::_ProbeType>(type),
                                      Address(source), protocol, nullptr);
    }

    // The source touches `count` ports from `firstPort` on.
    void TouchPorts(const char* source, const char* destination, int count, int firstPort = 1) {
        for (int port = firstPort; port < firstPort + count; ++port) {
            Take(Syn(source, destination, static_cast<uint16_t>(port)));
        }
    }
    // The source touches one port of `count` hosts.
    void TouchHosts(const char* source, int count, uint16_t port = 22) {
        for (int host = 1; host <= count; ++host) {
            Take(Syn(source, ("10.0.0." + std::to_string(host)).c_str(), port));
        }
    }
    // A bin in which the source looks like a scanner.
    void ScanBin(const char* source) {
        TouchPorts(source, kHost, 4);
        CloseBin();
    }

    // The source's likelihood ratio; -1 if it is not under test.
    double Ratio(const char* source, uint8_t protocol = 6) {
        const auto found = Inside().candidates.find({Address(source), protocol});
        return found != Inside().candidates.end() ? found->second.second : -1;
    }
    // What the current bin holds of the source.
    OSTREL::FlowSets Touched(const char* source, uint8_t protocol = 6) {
        return Inside().flows.TouchedBy(Address(source), protocol);
    }
    size_t FlowCount(const char* source, uint8_t protocol = 6) {
        return Touched(source, protocol).second.size();
    }
    bool IsKnown(const char* source, uint8_t type) {
        return Inside().knownProbers.count({Address(source), type}) != 0;
    }

    Texts Events() { return TakeEvents(dom); }
    unsigned long long Heartbeats() {
        unsigned long long value = 0;
        dom.ConditionQuery("velm.HeartbeatNow", value, nullptr, nullptr);
        return value;
    }
    // What the driver was told since the last look.
    std::vector<Record> Blocks() {
        kdi_blacklist_s records[64];
        const unsigned int count = kdi_take_blacklist(m_Driver, records, 64);
        std::vector<Record> blocks(count);
        for (unsigned int i = 0; i < count; ++i)
            memcpy(blocks[i].data(), &records[i], 12);
        return blocks;
    }
    // Trace lines of scan detection since the last look, while it is traced.
    void TraceScans() {
        VelmCore::EnableTrace("LogScan", true);
        MakeLog();
        dom.ConditionRaise("app.configUpdated");
        VelmCore::TakeTrace();
    }
    Texts Trace() {
        Texts messages;
        for (const VelmCore::TraceLine& line : VelmCore::TakeTrace()) {
            messages.push_back(Utf8(line.message));
        }
        return messages;
    }
    bool HasTrace(const std::string& message) {
        const Texts messages = Trace();
        return std::find(messages.begin(), messages.end(), message) != messages.end();
    }

    VelmCore::CDom dom;
    ConfigurationTable configuration;
    int leftovers = 0;  // values that the last script call left on its stack

private:
    // Lends the configuration to the log for one call, as the script face does.
    class ScriptCall {
    public:
        explicit ScriptCall(DetectionTest& test)
            : m_Test(test), m_Utils(test.configuration.State(), ConfigurationTable::kIndex) {
            m_Test.m_Log->SetConfigUtils(&m_Utils);
        }
        ~ScriptCall() {
            m_Test.m_Log->SetConfigUtils(nullptr);
            m_Test.leftovers = m_Test.configuration.Leftovers();
            m_Test.configuration.EndCall();
        }
        ScriptCall(const ScriptCall&) = delete;
        ScriptCall& operator=(const ScriptCall&) = delete;

    private:
        DetectionTest& m_Test;
        OSTREL::ConfigUtils m_Utils;
    };

    // The log itself keeps its lists for good.
    void FreeLists() {
        if (m_Peer == nullptr) return;
        for (OSTREL::IpSpaceList** list :
             {&m_Peer->destIpList, &m_Peer->whitelistIpList, &m_Peer->ignoreIpList}) {
            delete *list;
            *list = nullptr;
        }
    }

    kdi_handle_t m_Driver;
    std::unique_ptr<OSTREL::LogData> m_Log;
    std::unique_ptr<OSTREL::LogDataPeer> m_Peer;
};
