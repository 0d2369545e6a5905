#pragma once

#include <bitset>
#include <list>
#include <string>

#include <wx/string.h>
#include <lua.hpp>

#include "IpSpace.h"
#include "TableReader.h"

struct kdi_handle_ops_s;

namespace OSTREL {

// Reader of the agent's configuration table, which lies on the Lua stack. Lives for one script call
// and is used on its thread only.
//
// Every method returns true on success and writes to its reference arguments only then, unless told
// otherwise. On failure the values pushed so far stay on the Lua stack until the script call
// returns. A Lua error inside is thrown as ScriptError. A missing field of a table that exists is
// no failure: it reads as 0, empty or false.
class ConfigUtils {
public:
    // `index` is that of the configuration table.
    ConfigUtils(lua_State* L, int index) : m_Reader(L), m_Index(index) {}

    bool getPacketFilterInfo(int id, wxString& name, int& filterAction);
    bool getPayloadFilterInfo(int id, wxString& name, bool& incoming, int& severity,
                              wxString& identifier);
    // A failure shows only in the arguments being left alone.
    void getAgentConfigurationHostIdentity(wxString& hostname, int& hostId);

    // `mac` is the hardware address in hexadecimal text.
    bool getInterfaceName(const std::string& mac, wxString& name);
    // The same into texts that need no heap as long as they are short.
    bool getPacketFilterInfo(int id, ShortText& name, int& filterAction);
    bool getPayloadFilterInfo(int id, ShortText& name, bool& incoming, int& severity,
                              ShortText& identifier);
    void getAgentConfigurationHostIdentity(ShortText& hostname, int& hostId);
    bool getInterfaceName(const char* mac, ShortText& name);

    bool getInterfaceConfigID(const std::string& mac, int& id);
    // The interface ID that is configured for the driver's interface index.
    bool getInterfaceID(int driverIndex, int& id);

    // A list that is absent, or that holds a bad token, becomes null; the list that the pointer
    // held is not deleted.
    bool getAgentConfigurationPacketFilterLog(int& size, int& keep, IpSpaceList*& ignoreIpList,
                                              unsigned int& cacheSize, int& cacheLifetime,
                                              int& cacheStaletime);
    // `blockAttackerSeconds` has an element for each probe type. Clears both sets and element 0
    // first, whatever follows. Throws std::out_of_range for a negative probe type.
    bool getAgentConfigurationTrafficAnalysis(IpSpaceList*& destIpList,
                                              IpSpaceList*& whitelistIpList,
                                              int* blockAttackerSeconds, std::bitset<5>& enabled,
                                              std::bitset<5>& notifyImmediately);

    // Asks the driver to block `ip` (network byte order, `ipText` its dotted form). True if the
    // driver accepted. `skipped` says that the address is exempt, loopback or this host's own, and
    // nothing was sent.
    bool BlacklistIp(kdi_handle_ops_s* handle, unsigned int ip, const wxString& ipText, int seconds,
                     bool& skipped);

    // Fills `out` with the address text's entries. False if any token was bad; the good ones are
    // there.
    static bool ParseIpRange(const wxString& items, const wxString& listName, const wchar_t* kind,
                             IpSpaceList& out);
    // The mask part of a token: a dotted mask or a prefix length of 1 to 32. `mask` in network
    // order.
    static bool ToIPMask(const wxString& maskText, const wxString& token, const wxString& listName,
                         const wchar_t* kind, unsigned int& mask);

    static const wchar_t* const s_Trace;

private:
    bool PushTopTable(const FieldName& key, const wchar_t* failure);
    bool PushFilter(const FieldName& map, const wchar_t* failure, int id);
    bool PushInterface(const char* mac);
    bool GetHostIdentity(ShortText& hostname, int& hostId);
    IpSpaceList* ReadIpList(const FieldName& key);

    TableReader m_Reader;
    int m_Index;
};

}  // namespace OSTREL
