// Bytes as driver log entries through a script's WriteLogData. The file must hold what the plain
// reference writes for the same entries, and each line must be one that a reader can take apart.

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <string>

#include "Input.h"
#include "LogDataPeer.h"
#include "LuaConfiguration.h"
#include "ReferenceLog.h"
#include "ScriptHost.h"
#include "TempDirectory.h"
#include "velm/Clock.h"
#include "velm/Dom.h"
#include "velm/Log.h"

namespace {

using Fuzz::Input;
using Fuzz::Require;

constexpr int kColumns = 31;

struct World {
    World() {
        setenv("TZ", "CET-1CEST,M3.5.0,M10.5.0/3", 1);
        VelmCore::InstallLog("");
    }
    VelmCore::CDom dom;
    Reference::TempDirectory directory;
};

World& TheWorld() {
    static World world;
    return world;
}

// A log that writes each entry at once, or one with a small cache.
Reference::Configuration MakeConfiguration(uint8_t choice) {
    Reference::Configuration configuration;
    configuration.size = 1000000;
    configuration.cacheSize = choice % 4;
    configuration.cacheLifetime = 60000;
    configuration.cacheStaletime = 10000;
    configuration.interfaceIds = {{1, 17}, {2, -5}};
    if (choice & 0x80) configuration.ignoredItems = "10.0.0.0/8";
    return configuration;
}

// A string of any length, as a script might pass it; the reference gets the padded form.
std::string TakeEntry(Input& input, Reference::Entry& entry) {
    const uint8_t length = input.Take<uint8_t>();
    const std::string bytes = input.TakeBytes(length == 0 ? sizeof entry.fixed : length);
    entry.fixed = {};
    memcpy(&entry.fixed, bytes.data(), std::min(bytes.size(), sizeof entry.fixed));
    entry.packetData = input.TakeBytes(input.Take<uint16_t>());
    entry.logData = input.TakeBytes(input.Take<uint16_t>());
    return bytes;
}

bool WriteLogData(Fuzz::ScriptHost& host, const Reference::Configuration& configuration,
                  const std::string& bytes, const Reference::Entry& entry) {
    lua_State* L = host.State();
    host.PushMethod("WriteLogData");
    lua_pushlstring(L, bytes.data(), bytes.size());
    lua_pushlstring(L, entry.packetData.data(), entry.packetData.size());
    Reference::PushConfiguration(L, configuration);
    lua_pushlstring(L, entry.logData.data(), entry.logData.size());
    Require(lua_pcall(L, 5, 1, 0) == LUA_OK, "no error is raised");
    const bool result = lua_toboolean(L, -1) != 0;
    lua_settop(L, 0);
    return result;
}

void CheckLine(const std::string& line) {
    int separators = 0;
    for (size_t i = 0; i < line.size(); ++i) {
        Require(line[i] >= 0x20 && line[i] <= 0x7E, "a line is printable");
        if (line[i] != ',') continue;
        ++separators;
        Require(i + 1 < line.size() && line[i + 1] == ' ', "a blank follows each comma");
    }
    Require(separators == kColumns - 1, "a line has its columns");
    const size_t third = line.find(',', line.find(',', line.find(',') + 1) + 1);
    Require(third == 23 && (line[22] == 'f' || line[22] == 'd'), "the kind has its place");
}

void CheckFile(const std::string& actual, const std::string& expected) {
    Require(actual == expected, "the file is that of the reference");
    Require(actual.empty() || actual.back() == '\n', "the last line is whole");
    for (size_t begin = 0; begin < actual.size();) {
        const size_t end = actual.find('\n', begin);
        CheckLine(actual.substr(begin, end - begin));
        begin = end + 1;
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    World& world = TheWorld();
    const std::string directory = world.directory.Path("log");
    Input input(data, size);
    const Reference::Configuration configuration = MakeConfiguration(input.Take<uint8_t>());
    Fuzz::ScriptHost host(world.dom, directory);
    Reference::Log reference(directory);
    reference.files.name = "log";
    uint32_t ticks = input.Take<uint32_t>();
    while (!input.IsEmpty()) {
        VelmCore::SetTickCount(ticks += input.Take<uint16_t>());
        Reference::Entry entry;
        const std::string bytes = TakeEntry(input, entry);
        Require(WriteLogData(host, configuration, bytes, entry) ==
                    reference.Write(entry, configuration, ticks),
                "the result is that of the reference");
    }
    Require(host.Log().FlushBufferedData(true) == reference.Flush(true, ticks), "the flush works");
    const auto expected = reference.files.files.find("log");
    CheckFile(Reference::ReadFile(directory + "/log"),
              expected == reference.files.files.end() ? "" : *expected->second);
    std::filesystem::remove(directory + "/log");
    OSTREL::LogDataPeer::FreeLists(host.Log());
    world.dom.TakeEvents();
    VelmCore::TakeLog();
    return 0;
}
