#pragma once

#include <string>

#include <gtest/gtest.h>

#include "ConfigUtils.h"
#include "ConfigurationTable.h"
#include "CoreEnvironment.h"
#include "Entries.h"
#include "LogData.h"
#include "LogDataPeer.h"
#include "TempDirectory.h"
#include "WorkingRecord.h"

// The defaults written out, and the interface of the entries: the driver's 2 is number 3.
constexpr const char* kConfiguration = R"({
    packetFilterLog = {size = 1024, keep = 8, cacheSize = 128, cacheLifetime = 1800000,
                       cacheStaletime = 900000},
    trafficAnalysisConfiguration = {},
    probeConfigurationMap = {},
    driverInterfaceMap = {{id = 2, mac = "\0\12\41\17\34\51"}},
    interfaceMap = {["00:0c:29:11:22:33"] = {id = 3}},
})";

// One log with the name "fw" in a directory of its own, and a clock that only the test moves.
class LogDataTest : public ::testing::Test {
protected:
    LogDataTest() : log(dom), peer(log) {
        log.SetLogFilePath(directory.Path());
        log.SetLogFileName("fw");
        configuration.Set(kConfiguration);
        VelmCore::SetTickCount(1000);
        VelmCore::TakeLog();
    }
    ~LogDataTest() override {
        peer.FreeLists();
        VelmCore::UseSystemClock();
    }

    // Hands an entry over as a script call would.
    bool Write(const velm_log_entry_s& entry, const std::string& packetData = "",
               const std::string& logData = "") {
        OSTREL::ConfigUtils utils(configuration.State(), ConfigurationTable::kIndex);
        log.SetConfigUtils(&utils);
        const bool result = log.WriteLogData(&entry, Bytes(packetData), Length(packetData),
                                             Bytes(logData), Length(logData));
        log.SetConfigUtils(nullptr);
        configuration.EndCall();
        return result;
    }
    // The text of an entry.
    std::string Text(const velm_log_entry_s& entry, const std::string& packetData = "",
                     const std::string& logData = "") {
        OSTREL::WorkingRecord record;
        record.Assign(entry, Bytes(packetData), packetData.size(), Bytes(logData), logData.size());
        OSTREL::ConfigUtils utils(configuration.State(), ConfigurationTable::kIndex);
        log.SetConfigUtils(&utils);
        std::string text;
        EXPECT_TRUE(log.BinaryToAscii(&record, text, firstTime, lastTime));
        log.SetConfigUtils(nullptr);
        configuration.EndCall();
        return text;
    }
    // Counts a text at the present tick. The times stand for 1970/01/01, 00:00:01.
    bool Cache(const std::string& text, unsigned int count = 1) {
        return log.CacheRecord(text, 1000000, 1000000, count);
    }
    // A new configuration, which the next entry reads.
    void Configure(const std::string& expression) {
        configuration.Set(expression);
        dom.ConditionRaise("app.configUpdated");
    }

    static void Advance(unsigned int msec) { VelmCore::AdvanceTickCount(msec); }
    std::string File(const std::string& name = "fw") const { return directory.Read(name); }
    Texts Events() { return TakeEvents(dom); }
    long long Setting(const std::string& key) const {
        long long value = -1;
        dom.Get(key, value);
        return value;
    }
    unsigned long long Condition(const std::string& name) {
        unsigned long long value = 0;
        dom.ConditionQuery(name, value, nullptr, nullptr);
        return value;
    }

    TempDirectory directory;
    VelmCore::CDom dom;
    ConfigurationTable configuration;
    OSTREL::LogData log;
    OSTREL::LogDataPeer peer;
    long long firstTime = 0;  // of the last Text
    long long lastTime = 0;

private:
    static const unsigned char* Bytes(const std::string& bytes) {
        return reinterpret_cast<const unsigned char*>(bytes.data());
    }
    static unsigned int Length(const std::string& bytes) {
        return static_cast<unsigned int>(bytes.size());
    }
};

// The line of a text that was cached with the fixture's Cache.
inline std::string CachedLine(const std::string& text, const std::string& count = "1") {
    return "1970/01/01, 00:00:01, " + text + ", " + count + ", 1000000, 1000000\n";
}
