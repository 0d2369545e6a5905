#include "LuaConfiguration.h"

#include <cstdio>

namespace Reference {

namespace {

void SetNumber(lua_State* L, const char* key, const std::optional<int>& value) {
    if (!value) return;
    lua_pushnumber(L, *value);
    lua_setfield(L, -2, key);
}

void SetEmptyTable(lua_State* L, const char* key) {
    lua_newtable(L);
    lua_setfield(L, -2, key);
}

void SetPacketFilterLog(lua_State* L, const Configuration& configuration) {
    lua_newtable(L);
    SetNumber(L, "size", configuration.size);
    SetNumber(L, "keep", configuration.keep);
    SetNumber(L, "cacheSize", configuration.cacheSize);
    SetNumber(L, "cacheLifetime", configuration.cacheLifetime);
    SetNumber(L, "cacheStaletime", configuration.cacheStaletime);
    if (configuration.ignoredItems) {
        lua_newtable(L);
        lua_pushstring(L, configuration.ignoredItems->c_str());
        lua_setfield(L, -2, "items");
        lua_pushliteral(L, "ignored");
        lua_setfield(L, -2, "name");
        lua_setfield(L, -2, "ignoreIpList");
    }
    lua_setfield(L, -2, "packetFilterLog");
}

// Each interface has a hardware address of one byte, its index.
void SetInterfaces(lua_State* L, const Configuration& configuration) {
    lua_newtable(L);  // driverInterfaceMap
    lua_newtable(L);  // interfaceMap
    int row = 0;
    for (const auto& [index, id] : configuration.interfaceIds) {
        const char mac = static_cast<char>(index);
        lua_newtable(L);
        lua_pushinteger(L, index);
        lua_setfield(L, -2, "id");
        lua_pushlstring(L, &mac, 1);
        lua_setfield(L, -2, "mac");
        lua_rawseti(L, -3, ++row);
        char hex[16];
        snprintf(hex, sizeof hex, "%02x", static_cast<unsigned>(index));
        lua_newtable(L);
        lua_pushinteger(L, id);
        lua_setfield(L, -2, "id");
        lua_setfield(L, -2, hex);
    }
    lua_setfield(L, -3, "interfaceMap");
    lua_setfield(L, -2, "driverInterfaceMap");
}

}  // namespace

void PushConfiguration(lua_State* L, const Configuration& configuration) {
    lua_newtable(L);
    if (configuration.hasPacketFilterLog) SetPacketFilterLog(L, configuration);
    SetInterfaces(L, configuration);
    if (configuration.hasTrafficAnalysis) SetEmptyTable(L, "trafficAnalysisConfiguration");
    if (configuration.hasProbes) SetEmptyTable(L, "probeConfigurationMap");
}

}  // namespace Reference
