#pragma once

#include <string>

#include "LogDataFixture.h"

// The core's part of a CEF message.
#define CEF_HEADER "CEF:0|Zellora|Velm Agent|0.1.0|"
#define CEF_HOST "cn1=7 dvchost=web1"
#define CEF_HOST_LABELLED "cn1=7 cn1Label=Host ID dvchost=web1"

constexpr const char* kSyslogConfiguration = R"({
    agentConfiguration = {hostID = 7, hostname = "elsewhere"},
    packetFilterMap = {
        [20] = {name = "Watch Only", filterAction = 0},
        [21] = {name = "Allow Web", filterAction = 1},
        [33] = {name = "Trusted Host", filterAction = 3},
        [34] = {name = "Odd Action", filterAction = 77},
        [35] = {name = "No Action"},
        [1234] = {name = "Deny Web", filterAction = 2},
    },
    payloadFilterMap = {
        [1004] = {name = "Some Rule", severity = 3, identifier = "1000552", incoming = true},
        [1005] = {name = "Leak", severity = 1, identifier = "1000600", incoming = false},
        [1006] = {name = "Nameless"},
    },
    interfaceMap = {["00:0c:29:11:22:33"] = {name = "eth0"}},
})";

// A log whose host is number 7 with the name "web1" and has the interface eth0.
class SyslogTest : public LogDataTest {
protected:
    SyslogTest() {
        configuration.Set(kSyslogConfiguration);
        dom.Set("velm.host.id", 7);
        dom.SetText("velm.host.name", "web1");
    }

    void Choose(bool cef, int format) {
        dom.SetText("velm.syslog.cef", cef ? "true" : "false");
        dom.Set("velm.syslog.format", format);
    }
    // The message of an entry, as a script call would get it formatted.
    std::string Message(const velm_log_entry_s& entry, const std::string& packetData = "") {
        OSTREL::WorkingRecord record;
        record.Assign(entry, reinterpret_cast<const unsigned char*>(packetData.data()),
                      packetData.size(), nullptr, 0);
        OSTREL::ConfigUtils utils(configuration.State(), ConfigurationTable::kIndex);
        log.SetConfigUtils(&utils);
        std::string message = "what was there before";
        EXPECT_TRUE(log.SyslogFormat(&record, message));
        log.SetConfigUtils(nullptr);
        configuration.EndCall();
        return message;
    }
    std::string Cef(int format, const velm_log_entry_s& entry, const std::string& packetData = "") {
        Choose(true, format);
        return Message(entry, packetData);
    }
    std::string Plain(int format, const velm_log_entry_s& entry,
                      const std::string& packetData = "") {
        Choose(false, format);
        return Message(entry, packetData);
    }
};

// A packet log, or a payload log, that holds neither frame nor addresses: nothing but the length
// and the count stands behind the host's identity.
inline velm_log_entry_s BarePacketLog(uint32_t filter, int16_t reason, uint16_t action) {
    velm_log_entry_s entry = {};
    entry.log_filter_id = filter;
    entry.log_reason = reason;
    entry.log_action = action;
    return entry;
}

inline velm_log_entry_s BarePayloadLog(uint32_t filter, int16_t reason, uint16_t action) {
    return BarePacketLog(filter, reason, action);
}
