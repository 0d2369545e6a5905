#include "ConfigUtils.h"

#include <memory>

#include "Trace.h"
#include "velm/Text.h"

namespace OSTREL {

namespace {

constexpr int kProbeTypes = 5;

const FieldName kName = {"name"};
const FieldName kFilterAction = {"filterAction"};
const FieldName kSeverity = {"severity"};
const FieldName kIdentifier = {"identifier"};
const FieldName kIncoming = {"incoming"};
const FieldName kHostID = {"hostID"};
const FieldName kHostname = {"hostname"};
const FieldName kId = {"id"};
const FieldName kMac = {"mac"};
const FieldName kItems = {"items"};
const FieldName kSize = {"size"};
const FieldName kKeep = {"keep"};
const FieldName kCacheSize = {"cacheSize"};
const FieldName kCacheLifetime = {"cacheLifetime"};
const FieldName kCacheStaletime = {"cacheStaletime"};
const FieldName kBlockAttackerSeconds = {"blockAttackerSeconds"};
const FieldName kNotifyImmediately = {"notifyImmediately"};
const FieldName kAgentConfiguration = {"agentConfiguration"};
const FieldName kInterfaceMap = {"interfaceMap"};
const FieldName kPacketFilterLog = {"packetFilterLog"};
const FieldName kTrafficAnalysisConfiguration = {"trafficAnalysisConfiguration"};
const FieldName kProbeConfigurationMap = {"probeConfigurationMap"};
const FieldName kIgnoreIpList = {"ignoreIpList"};
const FieldName kDestIpList = {"destIpList"};
const FieldName kWhitelistIpList = {"whitelistIpList"};
const FieldName kDriverInterfaceMap = {"driverInterfaceMap"};
const FieldName kPacketFilterMap = {"packetFilterMap"};
const FieldName kPayloadFilterMap = {"payloadFilterMap"};

wxString FromUtf8(const ShortText& text) {
    return wxString::FromUTF8(text.data(), text.size());
}

}  // namespace

const wchar_t* const ConfigUtils::s_Trace = L"ostrel";

// Pushes a field of the configuration table that must be a table itself.
bool ConfigUtils::PushTopTable(const FieldName& key, const wchar_t* failure) {
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
bool ConfigUtils::PushFilter(const FieldName& map, const wchar_t* failure, int id) {
    if (!PushTopTable(map, failure)) return false;
    m_Reader.PushRawItem(-1, id);
    if (m_Reader.IsTable(-1)) return true;
    OSTREL_TRACE(s_Trace, "Filter ID %d was not found in the %s", id, map.text);
    return false;
}

bool ConfigUtils::getPacketFilterInfo(int id, wxString& name, int& filterAction) {
    ShortTextRoom room;
    ShortText text = room.Make();
    if (!getPacketFilterInfo(id, text, filterAction)) return false;
    name = FromUtf8(text);
    return true;
}

bool ConfigUtils::getPacketFilterInfo(int id, ShortText& name, int& filterAction) {
    if (!PushFilter(kPacketFilterMap, L"Could not get packetFilterMap", id)) return false;
    m_Reader.TextField(kName, name);
    filterAction = m_Reader.IntegerField(kFilterAction);
    m_Reader.Pop(2);
    return true;
}

bool ConfigUtils::getPayloadFilterInfo(int id, wxString& name, bool& incoming, int& severity,
                                       wxString& identifier) {
    ShortTextRoom room;
    ShortText nameText = room.Make();
    ShortText identifierText = room.Make();
    if (!getPayloadFilterInfo(id, nameText, incoming, severity, identifierText)) return false;
    name = FromUtf8(nameText);
    identifier = FromUtf8(identifierText);
    return true;
}

bool ConfigUtils::getPayloadFilterInfo(int id, ShortText& name, bool& incoming, int& severity,
                                       ShortText& identifier) {
    if (!PushFilter(kPayloadFilterMap, L"Could not get payloadFilterMap", id)) return false;
    m_Reader.TextField(kName, name);
    severity = m_Reader.IntegerField(kSeverity);
    m_Reader.TextField(kIdentifier, identifier);
    incoming = m_Reader.BooleanField(kIncoming);
    m_Reader.Pop(2);
    return true;
}

void ConfigUtils::getAgentConfigurationHostIdentity(wxString& hostname, int& hostId) {
    ShortTextRoom room;
    ShortText text = room.Make();
    if (GetHostIdentity(text, hostId)) hostname = FromUtf8(text);
}

void ConfigUtils::getAgentConfigurationHostIdentity(ShortText& hostname, int& hostId) {
    GetHostIdentity(hostname, hostId);
}

bool ConfigUtils::GetHostIdentity(ShortText& hostname, int& hostId) {
    if (!PushTopTable(kAgentConfiguration, L"Could not agentConfiguration map")) return false;
    hostId = m_Reader.IntegerField(kHostID);
    m_Reader.TextField(kHostname, hostname);
    m_Reader.Pop(1);
    return true;
}

// Pushes the map of interfaces and the one with this hardware address.
bool ConfigUtils::PushInterface(const char* mac) {
    if (!PushTopTable(kInterfaceMap, L"Could not get interface map")) return false;
    m_Reader.PushField(-1, mac);
    if (m_Reader.IsTable(-1)) return true;
    OSTREL_TRACE(s_Trace, "Could not look up interface given mac %s", mac);
    return false;
}

bool ConfigUtils::getInterfaceName(const std::string& mac, wxString& name) {
    ShortTextRoom room;
    ShortText text = room.Make();
    if (!getInterfaceName(mac.c_str(), text)) return false;
    name = FromUtf8(text);
    return true;
}

bool ConfigUtils::getInterfaceName(const char* mac, ShortText& name) {
    if (!PushInterface(mac)) return false;
    m_Reader.TextField(kName, name);
    m_Reader.Pop(2);
    return true;
}

bool ConfigUtils::getInterfaceConfigID(const std::string& mac, int& id) {
    if (!PushInterface(mac.c_str())) return false;
    id = m_Reader.NumberField(kId);
    m_Reader.Pop(2);
    return true;
}

bool ConfigUtils::getInterfaceID(int driverIndex, int& id) {
    m_Reader.Reserve();
    m_Reader.PushField(m_Index, kDriverInterfaceMap);
    if (!m_Reader.IsTable(-1)) {
        OSTREL_TRACE(s_Trace, "Could not get driverInterfaceMap");
        return false;
    }
    lua_State* L = m_Reader.State();
    lua_pushnil(L);
    while (m_Reader.Next(-2)) {
        if (m_Reader.IsTable(-1) && m_Reader.NumberField(kId) == driverIndex) {
            const std::string mac = m_Reader.BytesField(kMac);
            m_Reader.Pop(1);
            // The walk ends here: its key and the map stay on the stack.
            return getInterfaceConfigID(VelmCore::toHexString(mac, false).ToStdString(), id);
        }
        m_Reader.Pop(1);
    }
    return false;
}

// Reads an address list from a field of the table on top. Null if there is none or a token is bad.
IpSpaceList* ConfigUtils::ReadIpList(const FieldName& key) {
    m_Reader.PushField(-1, key);
    std::unique_ptr<IpSpaceList> list;
    if (m_Reader.IsTable(-1)) {
        list = std::make_unique<IpSpaceList>();
        const wxString items = m_Reader.TextField(kItems);
        const wxString name = m_Reader.TextField(kName);
        if (!ParseIpRange(items, name, L"ipList", *list)) list.reset();
    }
    m_Reader.Pop(1);
    return list.release();
}

bool ConfigUtils::getAgentConfigurationPacketFilterLog(int& size, int& keep,
                                                       IpSpaceList*& ignoreIpList,
                                                       unsigned int& cacheSize, int& cacheLifetime,
                                                       int& cacheStaletime) {
    if (!PushTopTable(kPacketFilterLog, L"Could not get packet filter log map")) return false;
    size = m_Reader.IntegerField(kSize);
    keep = m_Reader.IntegerField(kKeep);
    cacheSize = static_cast<unsigned int>(m_Reader.IntegerField(kCacheSize));
    cacheLifetime = m_Reader.IntegerField(kCacheLifetime);
    cacheStaletime = m_Reader.IntegerField(kCacheStaletime);
    ignoreIpList = ReadIpList(kIgnoreIpList);
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
    if (!PushTopTable(kTrafficAnalysisConfiguration,
                      L"Could not get trafficAnalysisConfiguration map")) {
        return false;
    }
    destIpList = ReadIpList(kDestIpList);
    whitelistIpList = ReadIpList(kWhitelistIpList);
    m_Reader.Pop(1);
    if (!PushTopTable(kProbeConfigurationMap, L"Could not get probeConfigurationMap")) return false;
    lua_State* L = m_Reader.State();
    lua_pushnil(L);
    while (m_Reader.Next(-2)) {
        const lua_Integer type = lua_tointegerx(L, -2, nullptr);
        if (m_Reader.IsTable(-1) && type < kProbeTypes) {
            const size_t bit = static_cast<size_t>(type);
            enabled.set(bit);  // throws for a negative type
            blockAttackerSeconds[bit] = m_Reader.IntegerField(kBlockAttackerSeconds);
            notifyImmediately.set(bit, m_Reader.BooleanField(kNotifyImmediately));
        }
        m_Reader.Pop(1);
    }
    m_Reader.Pop(1);
    return true;
}

}  // namespace OSTREL
