#pragma once

#include <memory>
#include <string>

#include "DetectionFixture.h"
#include "ReferenceDetector.h"
#include "reference/Random.h"

namespace Reference {

// One random sequence of entries, ticks, bins, configuration changes and refused blocks, given to
// the module and to the reference alike.
class DetectorSequence {
public:
    explicit DetectorSequence(uint64_t seed);
    ~DetectorSequence();

    // Runs it. Returns the first difference, or "".
    std::string Run();
    size_t Events() const { return m_EventCount; }
    size_t Blocks() const { return m_BlockCount; }

private:
    DetectorSettings ChooseSettings();
    void Configure();
    void Take(const Packet& packet);
    void TakeOne();
    void TakeBurst();
    void NoteLists();
    void Maintain();
    void Pass();
    void RefuseBlock();
    void Step();
    void Compare();

    uint32_t AnyHost();
    Packet AnyPacket();

    template <class Call>
    auto InCall(Call call);

    Random m_Random;
    VelmCore::CDom m_Dom;
    ConfigurationTable m_Table;
    kdi_handle_t m_Driver;
    std::unique_ptr<Detector> m_Reference;
    std::unique_ptr<OSTREL::LogData> m_Log;
    std::set<OSTREL::IpSpaceList*> m_Lists;  // all that the log ever had: it frees none
    uint32_t m_Now = 0;
    unsigned long long m_Heartbeat = 0;  // the condition's last value
    std::string m_Difference;
    size_t m_EventCount = 0;
    size_t m_BlockCount = 0;
};

}  // namespace Reference
