#include "ConfigUtils.h"

#include <memory>

#include "Trace.h"
#include "velm/Text.h"

namespace OSTREL {

namespace {

constexpr int kProbeTypes = 5;

}  // namespace

const wchar_t* const ConfigUtils::s_Trace = L"ostrel";

// Pushes a field of the configuration table that must be a table itself.
bool ConfigUtils::PushTopTable(const char* key, const wchar_t* failure) {
    m_Reader.Reserve();
    if (!m_Reader.IsTable(m_Index)) {
        OSTREL_TRACE(s_Trace, "Could not get config map");
        return false;
    }
    m_Reader.PushField(m_Index, key);
    if (m_Reader.IsTable(-1)) return true;
    OSTREL_TRACE(s_Trace, failure);
    return false;
}

// Pushes a map of filters and the filter with this ID.
bool ConfigUtils::PushFilter(const char* map, const wchar_t* failure, int id) {
    if (!PushTopTable(map, failure)) return false;
    m_Reader.PushRawItem(-1, id);
    if (m_Reader.IsTable(-1)) return true;
    OSTREL_TRACE(s_Trace, "Filter ID %d was not found in the %s", id, map);
    return false;
}

bool ConfigUtils::getPacketFilterInfo(int id, wxString& name, int& filterAction) {
    if (!PushFilter("packetFilterMap", L"Could not get packetFilterMap", id)) return false;
    name = m_Reader.TextField("name");
    filterAction = m_Reader.IntegerField("filterAction");
    m_Reader.Pop(2);
    return true;
}

bool ConfigUtils::getPayloadFilterInfo(int id, wxString& name, bool& incoming, int& severity,
                                       wxString& identifier) {
    if (!PushFilter("payloadFilterMap", L"Could not get payloadFilterMap", id)) return false;
    name = m_Reader.TextField("name");
    severity = m_Reader.IntegerField("severity");
    identifier = m_Reader.TextField("identifier");
    incoming = m_Reader.BooleanField("incoming");
    m_Reader.Pop(2);
    return true;
}

void ConfigUtils::getAgentConfigurationHostIdentity(wxString& hostname, int& hostId) {
    if (!PushTopTable("agentConfiguration", L"Could not agentConfiguration map")) return;
    hostId = m_Reader.IntegerField("hostID");
    hostname = m_Reader.TextField("hostname");
    m_Reader.Pop(1);
}

// Pushes the map of interfaces and the one with this hardware address.
bool ConfigUtils::PushInterface(const std::string& mac) {
    if (!PushTopTable("interfaceMap", L"Could not get interface map")) return false;
    m_Reader.PushField(-1, mac.c_str());
    if (m_Reader.IsTable(-1)) return true;
    OSTREL_TRACE(s_Trace, "Could not look up interface given mac %s", mac);
    return false;
}

bool ConfigUtils::getInterfaceName(const std::string& mac, wxString& name) {
    if (!PushInterface(mac)) return false;
    name = m_Reader.TextField("name");
    m_Reader.Pop(2);
    return true;
}

bool ConfigUtils::getInterfaceConfigID(const std::string& mac, int& id) {
    if (!PushInterface(mac)) return false;
    id = m_Reader.NumberField("id");
    m_Reader.Pop(2);
    return true;
}

bool ConfigUtils::getInterfaceID(int driverIndex, int& id) {
    m_Reader.Reserve();
    m_Reader.PushField(m_Index, "driverInterfaceMap");
    if (!m_Reader.IsTable(-1)) {
        OSTREL_TRACE(s_Trace, "Could not get driverInterfaceMap");
        return false;
    }
    lua_State* L = m_Reader.State();
    lua_pushnil(L);
    while (m_Reader.Next(-2)) {
        if (m_Reader.IsTable(-1) && m_Reader.NumberField("id") == driverIndex) {
            const std::string mac = m_Reader.BytesField("mac");
            m_Reader.Pop(1);
            // The walk ends here: its key and the map stay on the stack.
            return getInterfaceConfigID(VelmCore::toHexString(mac, false).ToStdString(), id);
        }
        m_Reader.Pop(1);
    }
    return false;
}

// Reads an address list from a field of the table on top. Null if there is none or a token is bad.
IpSpaceList* ConfigUtils::ReadIpList(const char* key) {
    m_Reader.PushField(-1, key);
    std::unique_ptr<IpSpaceList> list;
    if (m_Reader.IsTable(-1)) {
        list = std::make_unique<IpSpaceList>();
        const wxString items = m_Reader.TextField("items");
        const wxString name = m_Reader.TextField("name");
        if (!ParseIpRange(items, name, L"ipList", *list)) list.reset();
    }
    m_Reader.Pop(1);
    return list.release();
}

bool ConfigUtils::getAgentConfigurationPacketFilterLog(int& size, int& keep,
                                                       IpSpaceList*& ignoreIpList,
                                                       unsigned int& cacheSize, int& cacheLifetime,
                                                       int& cacheStaletime) {
    if (!PushTopTable("packetFilterLog", L"Could not get packet filter log map")) return false;
    size = m_Reader.IntegerField("size");
    keep = m_Reader.IntegerField("keep");
    cacheSize = static_cast<unsigned int>(m_Reader.IntegerField("cacheSize"));
    cacheLifetime = m_Reader.IntegerField("cacheLifetime");
    cacheStaletime = m_Reader.IntegerField("cacheStaletime");
    ignoreIpList = ReadIpList("ignoreIpList");
    m_Reader.Pop(1);
    return true;
}

bool ConfigUtils::getAgentConfigurationTrafficAnalysis(IpSpaceList*& destIpList,
                                                       IpSpaceList*& whitelistIpList,
                                                       int* blockAttackerSeconds,
                                                       std::bitset<5>& enabled,
                                                       std::bitset<5>& notifyImmediately) {
    blockAttackerSeconds[0] = 0;
    enabled.reset();
    notifyImmediately.reset();
    if (!PushTopTable("trafficAnalysisConfiguration",
                      L"Could not get trafficAnalysisConfiguration map")) {
        return false;
    }
    destIpList = ReadIpList("destIpList");
    whitelistIpList = ReadIpList("whitelistIpList");
    m_Reader.Pop(1);
    if (!PushTopTable("probeConfigurationMap", L"Could not get probeConfigurationMap"))
        return false;
    lua_State* L = m_Reader.State();
    lua_pushnil(L);
    while (m_Reader.Next(-2)) {
        const lua_Integer type = lua_tointegerx(L, -2, nullptr);
        if (m_Reader.IsTable(-1) && type < kProbeTypes) {
            const size_t bit = static_cast<size_t>(type);
            enabled.set(bit);  // throws for a negative type
            blockAttackerSeconds[bit] = m_Reader.IntegerField("blockAttackerSeconds");
            notifyImmediately.set(bit, m_Reader.BooleanField("notifyImmediately"));
        }
        m_Reader.Pop(1);
    }
    m_Reader.Pop(1);
    return true;
}

}  // namespace OSTREL
