#include "DetectorSequence.h"

#include <cerrno>

#include "kdi/testing.h"

namespace Reference {

namespace {

constexpr int kSteps = 80;
constexpr uint32_t kSources[] = {0xC0000207u, 0x09010203u, 0x03020109u, 0x7F000001u};

struct Choice {
    const char* text;
    double value;
};

std::string Dotted(uint32_t address) {
    char text[16];
    snprintf(text, sizeof text, "%u.%u.%u.%u", address >> 24, address >> 16 & 255,
             address >> 8 & 255, address & 255);
    return text;
}

std::string ListField(const char* name, const std::optional<std::set<uint32_t>>& list) {
    if (!list) return "";
    std::string items;
    for (const uint32_t address : *list)
        items += Dotted(address) + ", ";
    return std::string(name) + " = {items = '" + items + "', name = 'list'}, ";
}

std::string AsLua(const DetectorConfiguration& configuration) {
    std::string text = "{packetFilterLog = {cacheSize = 16}, ";
    if (configuration.hasAnalysis) {
        text += "trafficAnalysisConfiguration = {" +
                ListField("destIpList", configuration.watched) +
                ListField("whitelistIpList", configuration.exempt) + "}, ";
    }
    if (configuration.hasProbes) {
        text += "probeConfigurationMap = {";
        for (const auto& [type, probe] : configuration.probes) {
            text += "[" + std::to_string(type) +
                    "] = {blockAttackerSeconds = " + std::to_string(probe.seconds) +
                    ", notifyImmediately = " + (probe.notify ? "true" : "false") + "}, ";
        }
        text += "}, ";
    }
    if (configuration.hasOwn) {
        text += "platformInterfaceMap = {";
        for (const uint32_t address : configuration.own)
            text += "['" + Dotted(address) + "'] = {}, ";
        text += "}, ";
    }
    return text + "}";
}

velm_log_entry_s AsEntry(const Packet& packet) {
    velm_log_entry_s entry = {};
    entry.log_repeat_count = 1;
    entry.log_reason = static_cast<int16_t>(packet.reason);
    entry.log_action = static_cast<uint16_t>(packet.action);
    entry.log_flags =
        static_cast<uint8_t>((packet.outgoing ? 0x01 : 0) | (packet.isV6 ? 0x20 : 0x10) |
                             (packet.hasTransport ? 0x40 : 0));
    entry.log_flags2 = packet.inHistory ? 0x01 : 0x00;
    if (packet.isV6) {
        entry.log_ip.v6.ipv6h_next = static_cast<uint8_t>(packet.protocol);
        entry.log_ip.v6.ipv6h_src.bytes[15] = 1;
    } else {
        entry.log_ip.v4.iph_proto = static_cast<uint8_t>(packet.protocol);
        entry.log_ip.v4.iph_src = htonl(packet.source);
        entry.log_ip.v4.iph_dest = htonl(packet.destination);
        entry.log_ip.v4.iph_frag = htons(packet.dontFragment ? 0x4000 : 0);
    }
    entry.log_transport.tcp.tcph_sport = htons(static_cast<uint16_t>(packet.sourcePort));
    entry.log_transport.tcp.tcph_dport = htons(static_cast<uint16_t>(packet.destinationPort));
    entry.log_transport.tcp.tcph_flags = static_cast<uint8_t>(packet.flags);
    return entry;
}

}  // namespace

DetectorSequence::DetectorSequence(uint64_t seed) : m_Random(seed) {
    char error[64];
    m_Driver = kdi_open_source("null", nullptr, error, sizeof error);
    // A clock near its wrap as often as not.
    m_Now = m_Random.OneIn(2) ? 0u - m_Random.Below(700000) : m_Random.Below(700000);
    VelmCore::SetTickCount(m_Now);
    m_Reference = std::make_unique<Detector>(ChooseSettings());
    m_Log = std::make_unique<OSTREL::LogData>(m_Dom);
    m_Log->SetKdi(m_Driver);
    m_Dom.ConditionQuery("velm.HeartbeatNow", m_Heartbeat, nullptr, nullptr);
    Configure();
}

DetectorSequence::~DetectorSequence() {
    kdi_testing_fail_blacklist(0);
    for (OSTREL::IpSpaceList* list : m_Lists)
        delete list;
    kdi_close(m_Driver);
    VelmCore::UseSystemClock();
}

DetectorSettings DetectorSequence::ChooseSettings() {
    DetectorSettings settings;
    const auto choose = [this](const char* key, double& target,
                               std::initializer_list<Choice> choices) {
        if (!m_Random.OneIn(8)) return;
        const Choice choice = m_Random.Pick(choices);
        m_Dom.SetText(std::string("plg.ostrel.analysis.") + key, choice.text);
        target = choice.value;
    };
    choose("ScanPrY0H0", settings.harmlessIfHarmless,
           {{"0.75", 0.75}, {"0.9", 0.9}, {"1", 1.0}, {"0", 0.0}});
    choose("ScanPrY0H1", settings.harmlessIfScanner, {{"0.5", 0.5}, {"0.1", 0.1}, {"0", 0.0}});
    choose("ScanIpsPerPort", settings.addressesPerPort, {{"1", 1.0}, {"2.5", 2.5}, {"0", 0.0}});
    choose("ScanPortsPerIp", settings.portsPerAddress, {{"1", 1.0}, {"5", 5.0}, {"0.1", 0.1}});
    choose("ScanPortsPerIpFlagNow", settings.atOnce, {{"1.5", 1.5}, {"8", 8.0}, {"1000", 1000.0}});
    choose("ScanLikelihoodRatioFloor", settings.floor, {{"0.3", 0.3}, {"1", 1.0}, {"0", 0.0}});
    choose("ScanLikelihoodRatioCeiling", settings.ceiling, {{"3", 3.0}, {"16", 16.0}});
    if (m_Random.OneIn(8)) {
        m_Dom.SetText("plg.ostrel.analysis.ScanTimeBinMillisec", "500");
        settings.bin = 500;
    }
    if (m_Random.OneIn(8)) {
        m_Dom.SetText("plg.ostrel.analysis.ScanningIpsRetentionMsec", "20000");
        settings.retention = 20000;
    }
    if (m_Random.OneIn(4)) {
        m_Dom.SetText("plg.ostrel.analysis.IgnoreTcpFlags", "0x10, 41");
        settings.ignoredFlags = {0x10, 0x29};
    }
    return settings;
}

uint32_t DetectorSequence::AnyHost() {
    return 0x0A000001u + m_Random.Below(6);
}

void DetectorSequence::Configure() {
    DetectorConfiguration configuration;
    configuration.hasAnalysis = !m_Random.OneIn(12);
    configuration.hasProbes = !m_Random.OneIn(12);
    configuration.hasOwn = !m_Random.OneIn(6);
    for (int type = 0; type < 5; ++type) {
        if (m_Random.OneIn(5)) continue;
        const int seconds = m_Random.Pick({0, 20, 600, 600, -3});
        configuration.probes[type] = {seconds, m_Random.OneIn(3)};
    }
    if (m_Random.OneIn(6)) configuration.exempt = {kSources[m_Random.Below(4)]};
    if (m_Random.OneIn(6)) configuration.watched = {AnyHost(), AnyHost(), AnyHost()};
    if (m_Random.OneIn(12)) configuration.watched = std::set<uint32_t>();
    if (m_Random.OneIn(4)) configuration.own = {kSources[m_Random.Below(4)]};
    m_Table.Set(AsLua(configuration));
    m_Dom.ConditionRaise("app.configUpdated");
    m_Reference->Configure(configuration);
}

Packet DetectorSequence::AnyPacket() {
    Packet packet;
    packet.reason = m_Random.Pick({0, 0, 0, 0, 100, 101, 139, 10000, 10001, 10001, -1});
    packet.action = m_Random.Pick({1, 1, 1, 1, 0x81, 0, 6, 0x86});
    packet.outgoing = m_Random.OneIn(12);
    packet.isV6 = m_Random.OneIn(12);
    packet.hasTransport = !m_Random.OneIn(12);
    packet.inHistory = m_Random.OneIn(12);
    packet.dontFragment = m_Random.OneIn(2);
    packet.protocol = m_Random.Pick({6, 6, 6, 17, 17, 1});
    packet.source = m_Random.OneIn(40) ? 0 : kSources[m_Random.Below(4)];
    packet.destination = m_Random.OneIn(40) ? 0 : AnyHost();
    packet.sourcePort = m_Random.Pick({0, 40000});
    packet.destinationPort = m_Random.Pick({0, 80, 443});
    packet.flags = m_Random.Pick({0x02, 0x02, 0x02, 0x2B, 0x29, 0xFF, 0x03, 0x13, 0, 0x10,
                                  static_cast<int>(m_Random.Below(256))});
    return packet;
}

// Lends the table to the log for one call.
template <class Call>
auto DetectorSequence::InCall(Call call) {
    OSTREL::ConfigUtils utils(m_Table.State(), ConfigurationTable::kIndex);
    m_Log->SetConfigUtils(&utils);
    const auto result = call();
    m_Log->SetConfigUtils(nullptr);
    m_Table.EndCall();
    return result;
}

void DetectorSequence::Take(const Packet& packet) {
    OSTREL::WorkingRecord record;
    record.Assign(AsEntry(packet), nullptr, 0, nullptr, 0);
    InCall([&] { return m_Log->ProcessLogData("text", 0, &record); });
    m_Reference->Take(packet, m_Now);
    NoteLists();
}

void DetectorSequence::NoteLists() {
    const OSTREL::LogDataPeer inside(*m_Log);
    m_Lists.insert({inside.destIpList, inside.whitelistIpList});
}

void DetectorSequence::TakeOne() {
    Take(AnyPacket());
}

// A sweep over ports or hosts, of a size around the limits.
void DetectorSequence::TakeBurst() {
    Packet packet;
    packet.protocol = m_Random.Pick({6, 17});
    packet.source = kSources[m_Random.Below(4)];
    packet.flags = 0x02;
    packet.sourcePort = 40000;
    packet.destination = AnyHost();
    packet.destinationPort = 100;
    const bool overPorts = m_Random.OneIn(2);
    const uint32_t size = m_Random.Pick({2u, 3u, 4u, 5u, 9u, 64u, 65u, 70u});
    for (uint32_t i = 0; i < size; ++i) {
        Take(packet);
        if (overPorts) {
            ++packet.destinationPort;
        } else {
            ++packet.destination;
        }
    }
}

void DetectorSequence::Maintain() {
    const bool holdsFlows = InCall([&] { return m_Log->CacheMaintenance(); });
    if (holdsFlows != m_Reference->Maintain(m_Now)) m_Difference += "CacheMaintenance's result; ";
}

void DetectorSequence::Pass() {
    m_Now += m_Random.Pick({1u, 499u, 3000u, 10000u, 10001u, 10001u, 10001u, 20000u, 300000u,
                            600000u, m_Random.OneIn(50) ? 0x80000000u : 5000u});
    VelmCore::SetTickCount(m_Now);
}

void DetectorSequence::RefuseBlock() {
    kdi_testing_fail_blacklist(EIO);
    m_Reference->RefuseNextBlock(EIO, "Input/output error");
}

void DetectorSequence::Step() {
    switch (m_Random.Below(16)) {
        case 0:
            return Configure();
        case 1:
            return RefuseBlock();
        case 2:
        case 3:
        case 4:
        case 5:
            return TakeOne();
        case 6:
        case 7:
        case 8:
            return TakeBurst();
        case 9:
        case 10:
        case 11:
            return Pass();
        default:
            return Maintain();
    }
}

void DetectorSequence::Compare() {
    const Texts events = TakeEvents(m_Dom);
    m_EventCount += events.size();
    if (events != m_Reference->events) {
        m_Difference += "events: " + ::testing::PrintToString(events) + " instead of " +
                        ::testing::PrintToString(m_Reference->events) + "; ";
    }
    kdi_blacklist_s records[64];
    std::vector<BlockRequest> blocks;
    const unsigned int count = kdi_take_blacklist(m_Driver, records, 64);
    for (unsigned int i = 0; i < count; ++i)
        blocks.push_back({ntohl(records[i].bl_ipv4_addr), records[i].bl_duration_msec});
    m_BlockCount += count;
    if (!(blocks == m_Reference->blocks)) m_Difference += "blocks; ";
    unsigned long long heartbeat = 0;
    m_Dom.ConditionQuery("velm.HeartbeatNow", heartbeat, nullptr, nullptr);
    if ((heartbeat != m_Heartbeat) != (m_Reference->heartbeats > 0)) m_Difference += "heartbeat; ";
    m_Heartbeat = heartbeat;
    m_Reference->events.clear();
    m_Reference->blocks.clear();
    m_Reference->heartbeats = 0;
}

std::string DetectorSequence::Run() {
    for (int step = 0; step < kSteps && m_Difference.empty(); ++step) {
        Step();
        Compare();
        if (!m_Difference.empty()) m_Difference += "at step " + std::to_string(step);
    }
    return m_Difference;
}

}  // namespace Reference
