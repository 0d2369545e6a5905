#include "LogSequence.h"

#include <gtest/gtest.h>

#include <arpa/inet.h>

#include <iostream>

#include "ConfigUtils.h"
#include "LogDataPeer.h"
#include "LuaConfiguration.h"
#include "velm/Clock.h"
#include "velm/Dom.h"
#include "velm/Files.h"
#include "velm/Log.h"

namespace Reference {

namespace {

constexpr uint32_t kEpoch = 1750000000;  // seconds, in the summer of 2025
const char* const kSettings[] = {"plg.ostrel.lastline.packet", "plg.ostrel.lastline.payload",
                                 "plg.ostrel.lastline.pcap", "VmProtection"};

unsigned long long ConditionValue(VelmCore::CDom& dom, const char* name) {
    unsigned long long value = 0;
    dom.ConditionQuery(name, value, nullptr, nullptr);
    return value;
}

unsigned int LostOldestWarnings() {
    unsigned int count = 0;
    for (const VelmCore::LogLine& line : VelmCore::TakeLog()) {
        if (line.text ==
            "FlushBufferedData() -  cache is too big, but we didn't locate the oldest record!") {
            ++count;
        }
    }
    return count;
}

}  // namespace

LogSequence::LogSequence(VelmCore::CDom& dom, uint64_t seed, bool tell)
    : m_Random(seed),
      m_Tell(tell),
      m_Dom(dom),
      // A path that event texts cut, once in a while.
      m_Directory(m_Temp.Path(std::string(m_Random.OneIn(10) ? 110 : 3, 'd'))),
      m_Log(dom),
      m_Reference(m_Directory),
      m_Ticks(
          static_cast<uint32_t>(m_Random.OneIn(2) ? m_Random.Bits() : 0 - m_Random.Below(9999))) {
    m_Reference.files.name = "log";
    m_Reference.files.place = Files::Missing;
    m_Log.SetLogFilePath(m_Directory);
    m_Log.SetLogFileName("log");
    for (const char* key : kSettings) {
        m_Dom.Set(key, 77LL);
        m_Reference.traces.settings[key] = 77;
    }
    UseConfiguration();
    for (uint32_t kinds = m_Random.Pick({1, 2, 4, 10, 30, 140}); kinds > 0; --kinds)
        m_Kinds.push_back(MakeEntry());
    m_Heartbeat = ConditionValue(m_Dom, "velm.HeartbeatNow");
    VelmCore::SetTickCount(m_Ticks);
    VelmCore::SetFileObserver(
        [this](const wxString& path) { m_Secured.push_back(path.utf8_string()); });
    m_Dom.TakeEvents();
    VelmCore::TakeLog();
}

LogSequence::~LogSequence() {
    VelmCore::SetFileObserver({});
    VelmCore::UseSystemClock();
}

void LogSequence::Run() {
    const uint32_t steps = 20 + m_Random.Below(181);
    for (uint32_t step = 0; step < steps && !testing::Test::HasFailure(); ++step) {
        Step();
        CheckTraces();
        if (m_Random.OneIn(16)) CheckFiles();
        if (testing::Test::HasFailure()) ADD_FAILURE() << "at step " << step;
    }
    if (!testing::Test::HasFailure()) Flush(true);
    CheckTraces();
    CheckFiles();
}

void LogSequence::Step() {
    const uint32_t choice = m_Random.Below(100);
    if (choice < 55) return WriteEntry();
    if (choice < 60) return CacheDirectly();
    if (choice < 83) return MoveClock();
    if (choice < 86) return Flush(m_Random.OneIn(3));
    if (choice < 89) return Reconfigure();
    if (choice < 90) return RaiseUpdate();
    if (choice < 93) return ChangeSettings();
    if (choice < 96) return InitializeLogFile();
    DisturbFiles();
}

void LogSequence::Tell(const std::string& step) {
    if (m_Tell) std::cerr << m_Ticks << ": " << step << '\n';
}

// --- Calls --------------------------------------------------------------------------------------

Entry LogSequence::MakeEntry() {
    Entry entry = RandomEntry(m_Random);
    entry.fixed.log_if_index = static_cast<uint32_t>(m_Random.Pick({-1, 3, 4, 5}));
    entry.fixed.log_ip.v4.iph_src = htonl(0x0A000000 + m_Random.Below(8));
    if (!m_Random.OneIn(8)) entry.fixed.log_dpi_flags &= 0x3F;
    if (m_Random.OneIn(12)) {
        entry.fixed.log_reason = m_Random.Pick<int16_t>({-5000, -5010, 10000, 10001});
    }
    return entry;
}

void LogSequence::WriteEntry() {
    Entry& entry = m_Kinds[m_Random.Below(static_cast<uint32_t>(m_Kinds.size()))];
    entry.fixed.log_first_sec = kEpoch + m_Random.Below(200);
    entry.fixed.log_first_usec = m_Random.Below(m_Random.OneIn(20) ? 2000000000 : 1000000);
    entry.fixed.log_last_sec = kEpoch + m_Random.Below(200);
    entry.fixed.log_last_usec = m_Random.Below(1000000);
    entry.fixed.log_repeat_count =
        static_cast<uint32_t>(m_Random.OneIn(20) ? m_Random.Bits() : m_Random.Below(4));
    Tell("entry with reason " + std::to_string(entry.fixed.log_reason));
    lua_settop(m_State.get(), 1);
    OSTREL::ConfigUtils utils(m_State.get(), 1);
    m_Log.SetConfigUtils(&utils);
    const bool result = m_Log.WriteLogData(
        &entry.fixed, entry.PacketBytes(), static_cast<unsigned int>(entry.packetData.size()),
        entry.LogBytes(), static_cast<unsigned int>(entry.logData.size()));
    m_Log.SetConfigUtils(nullptr);
    CheckResult(result, m_Reference.Write(entry, m_Configuration, m_Ticks));
}

// Texts and times that no entry gives.
void LogSequence::CacheDirectly() {
    static const std::string kTexts[] = {"", "a", "ab", "b", std::string("\0x", 2), "\xFF"};
    const std::string& text = kTexts[m_Random.Below(std::size(kTexts))];
    const long long range = m_Random.OneIn(4) ? 1000000000000000000 : 3000000000000000;
    const long long firstTime = m_Random.Between(-range, range);
    const long long lastTime = m_Random.Between(-range, range);
    const uint32_t count = m_Random.Below(3);
    Tell("cache \"" + text + "\"");
    CheckResult(m_Log.CacheRecord(text, firstTime, lastTime, count),
                m_Reference.CacheRecord(text, firstTime, lastTime, count, m_Ticks));
}

void LogSequence::Flush(bool force) {
    Tell(force ? "flush all" : "flush");
    CheckResult(m_Log.FlushBufferedData(force), m_Reference.Flush(force, m_Ticks));
}

void LogSequence::InitializeLogFile() {
    Tell("initialize");
    CheckResult(m_Log.InitializeLogFile(), m_Reference.files.Initialize());
}

Configuration LogSequence::MakeConfiguration() {
    Configuration made;
    made.hasPacketFilterLog = !m_Random.OneIn(12);
    made.hasTrafficAnalysis = !m_Random.OneIn(12);
    made.hasProbes = !m_Random.OneIn(12);
    if (!m_Random.OneIn(4)) made.size = m_Random.Pick({-1, 0, 1, 1, 2, 4, 100});
    if (!m_Random.OneIn(4)) made.keep = m_Random.Pick({-1, 0, 1, 2, 3, 5, 8});
    if (!m_Random.OneIn(6)) {
        made.cacheSize = m_Random.Pick({0, 1, 2, 3, 5, 9, 20, 128, 1024, 5000, -1});
    }
    if (!m_Random.OneIn(6)) {
        made.cacheLifetime = m_Random.Pick({0, 59999, 60000, 61000, 100000, 3600000, 4000000, -1});
    }
    if (!m_Random.OneIn(6)) {
        made.cacheStaletime = m_Random.Pick({0, 9999, 10000, 12000, 60000, 80000, 4000000, -1});
    }
    if (m_Random.OneIn(3)) {
        made.ignoredItems = m_Random.Pick({"10.0.0.1", "10.0.0.2-10.0.0.4", "10.0.0.0/30", "",
                                           "10.0.0.1 x/0", "10.0.0.5,10.*.*.6"});
    }
    if (!m_Random.OneIn(5)) made.interfaceIds = {{3, 17}, {4, -8}};
    return made;
}

void LogSequence::UseConfiguration() {
    m_Configuration = MakeConfiguration();
    lua_settop(m_State.get(), 0);
    PushConfiguration(m_State.get(), m_Configuration);
}

void LogSequence::Reconfigure() {
    UseConfiguration();
    Tell("configuration with a cache of " + std::to_string(m_Configuration.cacheSize.value_or(0)));
    if (!m_Random.OneIn(5)) RaiseUpdate();
}

void LogSequence::RaiseUpdate() {
    Tell("update raised");
    m_Dom.ConditionRaise("app.configUpdated");
    m_Reference.isConfigurationNew = true;
}

void LogSequence::ChangeSettings() {
    const uint32_t choice = m_Random.Below(4);
    if (choice == 0) {
        const uint32_t size = m_Random.Below(10);
        const uint32_t lifetime = 50000 + m_Random.Below(100000);
        const uint32_t stale = m_Random.Below(100000);
        Tell("cache of " + std::to_string(size));
        m_Log.SetCacheParameters(size, lifetime, stale);
        m_Reference.SetCacheParameters(size, lifetime, stale, m_Ticks);
    } else if (choice == 1) {
        const int copies = m_Random.Pick({-1, 0, 1, 2, 3, 7});
        Tell("copies " + std::to_string(copies));
        m_Log.SetNumberOfOldCopies(copies);
        m_Reference.files.copies = copies;
    } else if (choice == 2) {
        const long size = m_Random.Pick<long>({-1, 0, 1, 3, 1024});
        Tell("size " + std::to_string(size));
        m_Log.SetLogFileSizeKB(size);
        m_Reference.files.sizeKB = size;
    } else {
        const std::string name = m_Random.Pick({"log", "log", "other", "lo"});
        Tell("name " + name);
        m_Log.SetLogFileName(name);
        m_Reference.files.name = name;
    }
}

// --- The world ----------------------------------------------------------------------------------

void LogSequence::MoveClock() {
    switch (m_Random.Below(24)) {
        case 0:
            m_Ticks += static_cast<uint32_t>(m_Random.Bits());
            break;
        case 1:
            m_Ticks -= m_Random.Below(5000);
            break;
        case 2:
            m_Ticks += 0x80000000u - 2 + m_Random.Below(4);
            break;
        case 3:
            m_Ticks += m_Random.Below(4000000);
            break;
        case 4:
            m_Ticks += m_Random.Pick({9999u, 10000u, 59999u, 60000u, 1u});
            break;
        case 5:
        case 6:
        case 7:
            m_Ticks += m_Random.Below(30000);
            break;
        default:
            m_Ticks += m_Random.Below(2000);
    }
    Tell("clock moved");
    VelmCore::SetTickCount(m_Ticks);
}

std::string LogSequence::MakeFileName() {
    const std::string name = m_Random.Pick({"log", "log", "log", "other", "lo"});
    switch (m_Random.Below(4)) {
        case 0:
            return name + m_Random.Pick({"", ".bak", "x", ".3x", "x.4", ".-1", ".007"});
        default:
            return name + "." + std::to_string(m_Random.Below(10));
    }
}

void LogSequence::DisturbFiles() {
    if (m_Random.OneIn(5)) return ReplaceDirectory();
    if (m_Reference.files.place != Files::Present) return;
    const std::string name = MakeFileName();
    if (m_Random.OneIn(3)) return ToggleFolder(name);
    PlantFile(name);
}

void LogSequence::PlantFile(const std::string& name) {
    Files& files = m_Reference.files;
    if (files.folders.count(name) > 0) return;
    if (files.files.count(name) > 0 && m_Random.OneIn(2)) {
        Tell("remove " + name);
        std::filesystem::remove(m_Directory + "/" + name);
        files.files.erase(name);
        return;
    }
    Tell("plant " + name);
    const std::string bytes(m_Random.Below(3000), 'p');
    WriteFile(m_Directory + "/" + name, bytes);
    std::shared_ptr<std::string>& file = files.files[name];
    if (!file) file = std::make_shared<std::string>();
    *file = bytes;
}

void LogSequence::ToggleFolder(const std::string& name) {
    Files& files = m_Reference.files;
    if (files.files.count(name) > 0) return;
    Tell("toggle folder " + name);
    if (files.folders.erase(name) > 0) {
        std::filesystem::remove(m_Directory + "/" + name);
    } else {
        files.folders.insert(name);
        std::filesystem::create_directory(m_Directory + "/" + name);
    }
}

// The directory goes; in its place comes nothing, a file, or an empty directory.
void LogSequence::ReplaceDirectory() {
    Files& files = m_Reference.files;
    files.place = m_Random.Pick({Files::Present, Files::Missing, Files::Blocked});
    Tell("directory becomes " + std::to_string(files.place));
    files.files.clear();
    files.folders.clear();
    std::filesystem::remove_all(m_Directory);
    if (files.place == Files::Present) std::filesystem::create_directory(m_Directory);
    if (files.place == Files::Blocked) WriteFile(m_Directory, "");
}

// --- Comparison ---------------------------------------------------------------------------------

void LogSequence::CheckResult(bool actual, bool expected) {
    EXPECT_EQ(actual, expected);
    EXPECT_EQ(OSTREL::LogDataPeer::CachedRecords(m_Log), m_Reference.CachedRecords());
}

void LogSequence::CheckTraces() {
    Traces& traces = m_Reference.traces;
    EXPECT_EQ(TakeEvents(m_Dom), traces.events);
    EXPECT_EQ(m_Secured, traces.secured);
    EXPECT_EQ(LostOldestWarnings(), traces.lostOldest);
    const unsigned long long heartbeat = ConditionValue(m_Dom, "velm.HeartbeatNow");
    EXPECT_EQ(heartbeat != m_Heartbeat, m_Reference.heartbeats > 0);
    m_Heartbeat = heartbeat;
    m_Reference.heartbeats = 0;
    traces.events.clear();
    traces.secured.clear();
    traces.lostOldest = 0;
    m_Secured.clear();
}

void LogSequence::CheckFiles() {
    std::map<std::string, std::string> expected;
    for (const auto& [name, bytes] : m_Reference.files.files)
        expected[name] = *bytes;
    std::map<std::string, std::string> actual;
    if (m_Reference.files.place == Files::Present) {
        for (const auto& file : std::filesystem::directory_iterator(m_Directory)) {
            if (file.is_regular_file()) {
                actual[file.path().filename()] = ReadFile(file.path());
            }
        }
    }
    EXPECT_EQ(actual, expected);
    for (const char* key : kSettings) {
        long long value = -1;
        EXPECT_TRUE(m_Dom.Get(key, value)) << key;
        EXPECT_EQ(value, m_Reference.traces.settings[key]) << key;
    }
}

}  // namespace Reference
