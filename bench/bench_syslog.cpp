// Syslog messages of both families, next to chains of snprintf appends that make the same bytes.

#include <arpa/inet.h>

#include <benchmark/benchmark.h>

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <lua.hpp>
#include <memory>
#include <string>

#include "ConfigUtils.h"
#include "Entries.h"
#include "LogData.h"
#include "WorkingRecord.h"
#include "velm/Dom.h"

namespace {

constexpr size_t kBufferSize = 65536;

// A log with the settings of a family, and a configuration that names interface and host.
class Formatter {
public:
    Formatter(bool cef, int format) : m_State(luaL_newstate(), lua_close), m_Log(m_Dom) {
        m_Dom.SetText("velm.syslog.cef", cef ? "true" : "false");
        m_Dom.Set("velm.syslog.format", format);
        m_Dom.Set("velm.host.id", 7);
        m_Dom.SetText("velm.host.name", "web1");
        luaL_dostring(m_State.get(),
                      "return {agentConfiguration = {hostID = 7, hostname = 'web1'},"
                      "  packetFilterMap = {[17] = {name = 'Deny', filterAction = 2}},"
                      "  interfaceMap = {['0c:1d:2e:3f:50:61'] = {name = 'eth0'}}}");
    }

    void Format(const OSTREL::WorkingRecord& record, std::string& text) {
        OSTREL::ConfigUtils utils(m_State.get(), 1);
        m_Log.SetConfigUtils(&utils);
        m_Log.SyslogFormat(&record, text);
        m_Log.SetConfigUtils(nullptr);
        lua_settop(m_State.get(), 1);
    }

private:
    VelmCore::CDom m_Dom;
    std::unique_ptr<lua_State, decltype(&lua_close)> m_State;
    OSTREL::LogData m_Log;
};

__attribute__((format(printf, 2, 3))) void Append(char* buffer, const char* format, ...) {
    const size_t used = strlen(buffer);
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(buffer + used, kBufferSize - used, format, arguments);
    va_end(arguments);
}

void AppendMac(char* buffer, const uint8_t* address) {
    Append(buffer, "%02x:%02x:%02x:%02x:%02x:%02x", address[0], address[1], address[2], address[3],
           address[4], address[5]);
}

void AppendAddress(char* buffer, const char* key, uint32_t address) {
    uint8_t bytes[4];
    memcpy(bytes, &address, sizeof bytes);
    Append(buffer, " %s=%d.%d.%d.%d", key, bytes[0], bytes[1], bytes[2], bytes[3]);
}

void AppendFlags(char* buffer, const char* key, uint8_t flags) {
    static const char* const kWords[] = {" URG", " ACK", " PSH", " RST", " SYN", " FIN"};
    Append(buffer, " %s=0x%02X", key, flags >> 6);
    for (int i = 0; i < 6; ++i) {
        if (flags & (0x20 >> i)) Append(buffer, "%s", kWords[i]);
    }
}

std::string CefBySnprintf(const velm_log_entry_s& entry) {
    char buffer[kBufferSize];
    buffer[0] = '\0';
    const unsigned int fragments = ntohs(entry.log_ip.v4.iph_frag);
    const velm_log_transport_u& transport = entry.log_transport;
    Append(buffer, "CEF:0|%s|%s|%s|", "Zellora", "Velm Agent", "0.1.0");
    Append(buffer, "%d|%u|%d|", 21, entry.log_filter_id, 5);
    Append(buffer, "cn1=%d cn1Label=Host ID dvchost=%s", 7, "web1");
    Append(buffer, " act=%.32s", "Deny");
    Append(buffer, " dmac=");
    AppendMac(buffer, entry.log_eth.eth_dest);
    Append(buffer, " smac=");
    AppendMac(buffer, entry.log_eth.eth_src);
    Append(buffer, " ZelloraFrameType=%s", "IP");
    AppendAddress(buffer, "src", entry.log_ip.v4.iph_src);
    AppendAddress(buffer, "dst", entry.log_ip.v4.iph_dest);
    Append(buffer, " in=%u", entry.log_packet_len & 0xFFFF);
    Append(buffer, " cs3=DF %u cs3Label=%s", (fragments << 3) & 0xFFF8, "Fragmentation Bits");
    Append(buffer, " proto=%s", "TCP");
    Append(buffer, " spt=%d", ntohs(transport.tcp.tcph_sport));
    Append(buffer, " dpt=%d", ntohs(transport.tcp.tcph_dport));
    AppendFlags(buffer, "cs2", transport.tcp.tcph_flags);
    Append(buffer, " cs2Label=%s", "TCP Flags");
    Append(buffer, " cnt=%u", entry.log_repeat_count);
    return buffer;
}

std::string PlainBySnprintf(const velm_log_entry_s& entry) {
    char buffer[kBufferSize];
    buffer[0] = '\0';
    const unsigned int fragments = ntohs(entry.log_ip.v4.iph_frag);
    const velm_log_transport_u& transport = entry.log_transport;
    const unsigned int type = ntohs(entry.log_eth.eth_type);
    Append(buffer, "REASON=PKT:%u", entry.log_filter_id);
    Append(buffer, " HOSTID=%d", 7);
    Append(buffer, " act=%.32s", "Deny");
    Append(buffer, " IN=%s OUT=%s MAC=", "eth0", "");
    AppendMac(buffer, entry.log_eth.eth_dest);
    Append(buffer, ":");
    AppendMac(buffer, entry.log_eth.eth_src);
    Append(buffer, ":%02x:%02x", type >> 8 & 0x0F, type & 0x0F);
    AppendAddress(buffer, "SRC", entry.log_ip.v4.iph_src);
    AppendAddress(buffer, "DST", entry.log_ip.v4.iph_dest);
    Append(buffer, " LEN=%u", entry.log_packet_len & 0xFFFF);
    Append(buffer, " DF FRAG=%u", (fragments << 3) & 0xFFF8);
    Append(buffer, " PROTO=%s", "TCP");
    Append(buffer, " SPT=%d", ntohs(transport.tcp.tcph_sport));
    Append(buffer, " DPT=%d", ntohs(transport.tcp.tcph_dport));
    AppendFlags(buffer, "RES", transport.tcp.tcph_flags);
    Append(buffer, " CNT=%u", entry.log_repeat_count);
    return buffer;
}

void RunFormatter(benchmark::State& state, bool cef, int format,
                  std::string (*reference)(const velm_log_entry_s&)) {
    Formatter formatter(cef, format);
    const velm_log_entry_s entry = Bench::MakeEntry(7);
    const auto record = std::make_unique<OSTREL::WorkingRecord>();
    record->Assign(entry, nullptr, 0, nullptr, 0);
    std::string text;
    for (auto _ : state) {
        formatter.Format(*record, text);
        benchmark::DoNotOptimize(text.data());
    }
    if (text != reference(entry)) {
        fprintf(stderr, "%s\n%s\n", text.c_str(), reference(entry).c_str());
        abort();
    }
    state.SetItemsProcessed(state.iterations());
    state.counters["bytes"] = static_cast<double>(text.size());
}

void RunSnprintf(benchmark::State& state, std::string (*reference)(const velm_log_entry_s&)) {
    const velm_log_entry_s entry = Bench::MakeEntry(7);
    for (auto _ : state)
        benchmark::DoNotOptimize(reference(entry));
    state.SetItemsProcessed(state.iterations());
}

void SyslogCef(benchmark::State& state) {
    RunFormatter(state, true, 2, CefBySnprintf);
}
BENCHMARK(SyslogCef);

void SyslogCefSnprintf(benchmark::State& state) {
    RunSnprintf(state, CefBySnprintf);
}
BENCHMARK(SyslogCefSnprintf);

void SyslogPlain(benchmark::State& state) {
    RunFormatter(state, false, 0, PlainBySnprintf);
}
BENCHMARK(SyslogPlain);

void SyslogPlainSnprintf(benchmark::State& state) {
    RunSnprintf(state, PlainBySnprintf);
}
BENCHMARK(SyslogPlainSnprintf);

}  // namespace
