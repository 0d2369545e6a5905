#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

// Scan detection once more, in the plainest form: addresses are host-order numbers, states are
// small values in maps, and nothing is shared with the module.
namespace Reference {

struct Packet {
    int reason = 0;
    int action = 1;
    bool outgoing = false;
    bool isV6 = false;
    bool hasTransport = true;
    bool inHistory = false;
    bool dontFragment = false;
    int protocol = 6;
    uint32_t source = 0;
    uint32_t destination = 0;
    int sourcePort = 0;
    int destinationPort = 0;
    int flags = 0;
};

struct Probe {
    int seconds;
    bool notify;
};

struct DetectorConfiguration {
    bool hasAnalysis = true;  // the table of the lists
    bool hasProbes = true;    // the map of the probe types
    bool hasOwn = true;       // the map of the host's own addresses
    std::optional<std::set<uint32_t>> watched;
    std::optional<std::set<uint32_t>> exempt;
    std::map<int, Probe> probes;
    std::set<uint32_t> own;
};

struct DetectorSettings {
    double harmlessIfHarmless = 0.8;
    double harmlessIfScanner = 0.2;
    uint32_t retention = 300000;
    uint32_t bin = 10000;
    double addressesPerPort = 3.0;
    double portsPerAddress = 3.0;
    double atOnce = 64.0;
    double floor = 0.01;
    double ceiling = 99.0;
    std::set<int> ignoredFlags;
};

struct BlockRequest {
    uint32_t address;
    uint32_t milliseconds;

    bool operator==(const BlockRequest& other) const {
        return address == other.address && milliseconds == other.milliseconds;
    }
};

class Detector {
public:
    explicit Detector(const DetectorSettings& settings) : m_Settings(settings) {}

    // Takes effect with the next entry, and in full only if that is a packet log.
    void Configure(const DetectorConfiguration& configuration);
    void Take(const Packet& packet, uint32_t now);
    bool Maintain(uint32_t now);
    // The driver refuses the next block with this error.
    void RefuseNextBlock(int error, const std::string& words);

    std::vector<std::string> events;  // "number: text"
    std::vector<BlockRequest> blocks;
    int heartbeats = 0;

private:
    struct Touched {
        std::set<uint32_t> addresses;
        std::set<int> ports;
    };
    struct Candidate {
        Touched touched;
        double ratio;
    };
    // Sources come in the order of their last byte, then the third, and so on; then the protocol.
    using Source = std::pair<uint32_t, int>;  // byte-swapped address, protocol

    void ReadConfiguration(bool isPacketLog);
    bool IsForAnalysis(const Packet& packet) const;
    int SignatureOf(const Packet& packet) const;
    bool IsFlow(const Packet& packet) const;
    bool Report(int type, uint32_t address, int protocol, const std::string& tail, uint32_t now);
    bool Block(uint32_t address, int seconds);
    void CloseSource(const Source& source, const Touched& touched, uint32_t now);
    // True if the candidate is decided and must go.
    bool Step(const Source& source, Candidate& candidate, bool scanLike, uint32_t now);

    const DetectorSettings m_Settings;
    DetectorConfiguration m_Offered;
    bool m_IsOffered = false;
    DetectorConfiguration m_Present;  // what the analysis goes by
    std::map<Source, Touched> m_Bin;
    std::map<Source, Candidate> m_Candidates;
    std::map<std::pair<uint32_t, int>, uint32_t> m_Known;  // address and type; tick of expiry
    uint32_t m_BinBegan = 0;
    int m_Refusal = 0;
    std::string m_RefusalWords;
};

}  // namespace Reference
