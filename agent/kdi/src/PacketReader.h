#pragma once

#include <pcap/pcap.h>

#include <cstdint>
#include <string>

#include "CaptureFile.h"
#include "WakeUp.h"

namespace Kdi {

// Whole packets, one after the other.
class PacketReader {
public:
    virtual ~PacketReader() = default;

    // Reads the next packet. False at the end, after Stop, or with Error() set at a failure.
    virtual bool Next() = 0;
    // Ends the waiting in Next, on any thread.
    virtual void Stop() = 0;
    // The packet, valid until the next call, and its time in microseconds since the epoch.
    virtual Frame Parse() const = 0;
    virtual int64_t TimeUsec() const = 0;
    // Packets that the kernel had no room for.
    virtual uint64_t Lost() const { return 0; }
    virtual const std::string& Error() const = 0;
};

class FileReader : public PacketReader {
public:
    explicit FileReader(const std::string& path) : m_File(path) {}

    bool Open() { return m_File.Open(); }
    bool Next() override { return m_File.Next(); }
    void Stop() override {}
    Frame Parse() const override;
    int64_t TimeUsec() const override { return m_File.TimeUsec(); }
    const std::string& Error() const override { return m_File.Error(); }

private:
    CaptureFile m_File;
};

// The packets of a network interface, as they come.
class InterfaceReader : public PacketReader {
public:
    explicit InterfaceReader(std::string name) : m_Name(std::move(name)) {}
    ~InterfaceReader() override;
    InterfaceReader(const InterfaceReader&) = delete;
    InterfaceReader& operator=(const InterfaceReader&) = delete;

    // `filter`: in pcap's language.
    bool Open(const std::string& filter);
    bool Next() override;
    void Stop() override { m_Wake.Raise(); }
    Frame Parse() const override;
    int64_t TimeUsec() const override;
    uint64_t Lost() const override;
    const std::string& Error() const override { return m_Error; }

private:
    bool Fail(const std::string& reason);
    bool SetUp();
    bool SetFilter(const std::string& filter);
    bool CheckLink();
    bool Wait();

    const std::string m_Name;
    const WakeUp m_Wake;
    pcap_t* m_Pcap = nullptr;
    LinkType m_Link = LinkType::Ethernet;
    pcap_pkthdr* m_Header = nullptr;
    const uint8_t* m_Bytes = nullptr;
    std::string m_Error;
};

}  // namespace Kdi
