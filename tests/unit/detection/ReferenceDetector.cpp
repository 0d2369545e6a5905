#include "ReferenceDetector.h"

namespace Reference {

namespace {

const char* const kTypes[] = {"FingerprintScan", "HostOrPortScan", "NullScan", "SynFinScan",
                              "XmasScan"};

uint32_t Swap(uint32_t value) {
    return value << 24 | (value << 8 & 0xFF0000u) | (value >> 8 & 0xFF00u) | value >> 24;
}

std::string Dotted(uint32_t address) {
    return std::to_string(address >> 24) + "." + std::to_string(address >> 16 & 255) + "." +
           std::to_string(address >> 8 & 255) + "." + std::to_string(address & 255);
}

std::string Tail(size_t addresses, size_t ports) {
    return "|" + std::to_string(addresses) + "|" + std::to_string(ports);
}

}  // namespace

void Detector::Configure(const DetectorConfiguration& configuration) {
    m_Offered = configuration;
    m_IsOffered = true;
}

void Detector::ReadConfiguration(bool isPacketLog) {
    if (!m_IsOffered) return;
    m_IsOffered = false;
    if (!isPacketLog) return;
    m_Present.probes.clear();
    if (!m_Offered.hasAnalysis) return;
    m_Present.watched = m_Offered.watched;
    m_Present.exempt = m_Offered.exempt;
    if (m_Offered.hasProbes) m_Present.probes = m_Offered.probes;
}

void Detector::RefuseNextBlock(int error, const std::string& words) {
    m_Refusal = error;
    m_RefusalWords = words;
}

bool Detector::IsForAnalysis(const Packet& packet) const {
    if (packet.reason < 0 || packet.outgoing) return false;
    if (!packet.hasTransport || (packet.protocol != 6 && packet.protocol != 17)) return false;
    if (packet.sourcePort == 0 && packet.destinationPort == 0) return false;
    if (packet.isV6) return false;  // goes some way further, and to no end
    if (packet.source == 0 && packet.destination == 0) return false;
    if (m_Present.probes.empty()) return false;
    if (m_Present.exempt && m_Present.exempt->count(packet.source)) return false;
    if (m_Present.watched && !m_Present.watched->count(packet.destination)) return false;
    return packet.reason != 10000;
}

int Detector::SignatureOf(const Packet& packet) const {
    if (packet.reason == 10001 || packet.protocol != 6) return -1;
    if (packet.flags == 0x2B) return 0;
    if (packet.flags == 0) return packet.dontFragment ? 0 : 2;
    if (packet.flags == 0xFF || packet.flags == 0x29) return 4;
    return (packet.flags & 1) && (packet.flags & 2) ? 3 : -1;
}

bool Detector::IsFlow(const Packet& packet) const {
    return packet.action % 128 != 6 && packet.reason != 139 && !packet.inHistory;
}

void Detector::Take(const Packet& packet, uint32_t now) {
    ReadConfiguration(packet.reason >= 0);
    if (!IsForAnalysis(packet)) return;
    const int signature = SignatureOf(packet);
    if (signature >= 0) {
        if (Report(signature, packet.source, packet.protocol, "", now)) return;
    } else if (packet.reason != 10001 && packet.protocol == 6 &&
               m_Settings.ignoredFlags.count(packet.flags)) {
        return;
    }
    if (!IsFlow(packet)) return;
    Touched& touched = m_Bin[Source(Swap(packet.source), packet.protocol)];
    touched.addresses.insert(packet.destination);
    touched.ports.insert(packet.destinationPort);
}

bool Detector::Report(int type, uint32_t address, int protocol, const std::string& tail,
                      uint32_t now) {
    const auto probe = m_Present.probes.find(type);
    if (probe == m_Present.probes.end()) return false;
    if (m_Known.count({address, type})) return true;
    if ((type == 2 || type == 4) && m_Known.count({address, 0})) return true;
    const int seconds = probe->second.seconds;
    const uint32_t stay =
        seconds > 0 ? static_cast<uint32_t>(seconds) * 1000 : m_Settings.retention;
    m_Known[{address, type}] = now + stay;
    const bool isExempt = seconds > 0 && Block(address, seconds);
    events.push_back(std::to_string(7000 + type) + ": " + kTypes[type] + "|" + Dotted(address) +
                     "|" + std::to_string(protocol) + "|" + std::to_string(isExempt ? 0 : seconds) +
                     tail);
    if (probe->second.notify) ++heartbeats;
    return true;
}

// True if the address is exempt. The table that is looked at is the one of the present call, not
// the one that the settings were read from.
bool Detector::Block(uint32_t address, int seconds) {
    if (address >> 24 == 127 || !m_Offered.hasOwn || m_Offered.own.count(address)) return true;
    if (m_Refusal != 0) {
        events.push_back("1001: BLACKLIST_ADD|" + std::to_string(m_Refusal) + " (" +
                         m_RefusalWords + ")");
        m_Refusal = 0;
    } else {
        blocks.push_back({address, static_cast<uint32_t>(seconds) * 1000});
    }
    return false;
}

bool Detector::Maintain(uint32_t now) {
    if (now - m_BinBegan > m_Settings.bin) {
        if (m_Bin.empty()) {
            for (auto candidate = m_Candidates.begin(); candidate != m_Candidates.end();) {
                const bool goes = Step(candidate->first, candidate->second, false, now);
                candidate = goes ? m_Candidates.erase(candidate) : std::next(candidate);
            }
        }
        for (const auto& [source, touched] : m_Bin)
            CloseSource(source, touched, now);
        m_Bin.clear();
        m_BinBegan = now;
    }
    for (auto known = m_Known.begin(); known != m_Known.end();) {
        const uint32_t left = known->second - now;
        const bool isOver = left == 0 || left >= 0x80000000u;
        known = isOver ? m_Known.erase(known) : std::next(known);
    }
    return !m_Bin.empty();
}

void Detector::CloseSource(const Source& source, const Touched& touched, uint32_t now) {
    const uint32_t address = Swap(source.first);
    if (!m_Present.probes.count(1)) {
        m_Candidates.clear();
        return;
    }
    if (m_Known.count({address, 1})) return;
    const double addresses = static_cast<double>(touched.addresses.size());
    const double ports = static_cast<double>(touched.ports.size());
    const bool scanLike = ports / addresses > m_Settings.portsPerAddress ||
                          addresses / ports > m_Settings.addressesPerPort;
    const auto candidate = m_Candidates.find(source);
    if (ports / addresses > m_Settings.atOnce) {
        Report(1, address, source.second, Tail(touched.addresses.size(), touched.ports.size()),
               now);
        m_Candidates.erase(source);
    } else if (candidate != m_Candidates.end()) {
        for (const uint32_t one : touched.addresses)
            candidate->second.touched.addresses.insert(one);
        for (const int one : touched.ports)
            candidate->second.touched.ports.insert(one);
        if (Step(source, candidate->second, scanLike, now)) m_Candidates.erase(candidate);
    } else if (scanLike) {
        const double first =
            (1 - m_Settings.harmlessIfScanner) / (1 - m_Settings.harmlessIfHarmless);
        m_Candidates[source] = {touched, first};
    }
}

bool Detector::Step(const Source& source, Candidate& candidate, bool scanLike, uint32_t now) {
    const double scanLikeFactor =
        (1 - m_Settings.harmlessIfScanner) / (1 - m_Settings.harmlessIfHarmless);
    const double harmlessFactor = m_Settings.harmlessIfScanner / m_Settings.harmlessIfHarmless;
    candidate.ratio = candidate.ratio * (scanLike ? scanLikeFactor : harmlessFactor);
    if (candidate.ratio > m_Settings.ceiling) {
        Report(1, Swap(source.first), source.second,
               Tail(candidate.touched.addresses.size(), candidate.touched.ports.size()), now);
        return true;
    }
    return candidate.ratio < m_Settings.floor;
}

}  // namespace Reference
