#pragma once

#include <pcap/pcap.h>

#include <cstdint>
#include <string>

#include "FrameParser.h"

namespace Kdi {

// Pcap's number of a link type. False if it is none that is understood.
bool FindLinkType(int type, LinkType& linkType);

// A capture file that is read more than once. The file stays open, so that every reading sees the
// same one, whatever happens to its name.
class CaptureFile {
public:
    explicit CaptureFile(std::string path) : m_Path(std::move(path)) {}
    ~CaptureFile();
    CaptureFile(const CaptureFile&) = delete;
    CaptureFile& operator=(const CaptureFile&) = delete;

    // False, with the reason in Error(), if it cannot be opened or is no capture of ours.
    bool Open();
    // Begins again with the first record.
    bool Rewind();
    // Reads the next record; false at the end of the file, or with Error() set at what cannot be
    // read. The bytes are valid until the next call.
    bool Next();

    LinkType Link() const { return m_LinkType; }
    const uint8_t* Bytes() const { return m_Bytes; }
    uint32_t Captured() const { return m_Header->caplen; }
    uint32_t WireLen() const { return m_Header->len; }
    int64_t TimeUsec() const;
    // How many records were read since the last beginning.
    uint64_t Count() const { return m_Count; }
    // "cannot read capture FILE: reason", or empty.
    const std::string& Error() const { return m_Error; }

private:
    bool Fail(const std::string& reason);
    bool CheckFile();
    bool CheckLink();
    void CloseReader();

    std::string m_Path;
    int m_Descriptor = -1;
    pcap_t* m_Reader = nullptr;
    pcap_pkthdr* m_Header = nullptr;
    const uint8_t* m_Bytes = nullptr;
    LinkType m_LinkType = LinkType::Ethernet;
    uint64_t m_Count = 0;
    std::string m_Error;
};

}  // namespace Kdi
