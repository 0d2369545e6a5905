#include "CaptureFile.h"

#include <fcntl.h>
#include <stdio_ext.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace Kdi {

CaptureFile::~CaptureFile() {
    CloseReader();
    if (m_Descriptor >= 0) close(m_Descriptor);
}

void CaptureFile::CloseReader() {
    if (m_Reader) pcap_close(m_Reader);
    m_Reader = nullptr;
}

bool CaptureFile::Fail(const std::string& reason) {
    m_Error = "cannot read capture " + m_Path + ": " + reason;
    return false;
}

bool CaptureFile::Open() {
    // Without O_NONBLOCK the opening of a named pipe would wait for its writer.
    m_Descriptor = open(m_Path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (m_Descriptor < 0) return Fail(std::strerror(errno));
    return CheckFile() && Rewind() && CheckLink();
}

bool CaptureFile::CheckFile() {
    struct stat status = {};
    if (fstat(m_Descriptor, &status) != 0) return Fail(std::strerror(errno));
    if (!S_ISREG(status.st_mode)) return Fail("it is no regular file");
    if (status.st_size == 0) return Fail("it is empty");
    return true;
}

bool CaptureFile::Rewind() {
    CloseReader();
    m_Count = 0;
    m_Error.clear();
    if (lseek(m_Descriptor, 0, SEEK_SET) != 0) return Fail(std::strerror(errno));
    const int copy = fcntl(m_Descriptor, F_DUPFD_CLOEXEC, 0);
    FILE* file = copy < 0 ? nullptr : fdopen(copy, "rb");
    if (!file) return Fail(std::strerror(errno));
    // Records are small and this thread alone reads them: larger reads, and no lock for each.
    std::setvbuf(file, nullptr, _IOFBF, 1 << 18);
    __fsetlocking(file, FSETLOCKING_BYCALLER);
    char reason[PCAP_ERRBUF_SIZE] = "";
    m_Reader = pcap_fopen_offline_with_tstamp_precision(file, PCAP_TSTAMP_PRECISION_MICRO, reason);
    if (m_Reader) return true;
    std::fclose(file);
    return Fail(reason);
}

bool FindLinkType(int type, LinkType& linkType) {
    switch (type) {
        case DLT_EN10MB:
            linkType = LinkType::Ethernet;
            return true;
        case DLT_LINUX_SLL:
            linkType = LinkType::Cooked;
            return true;
        case DLT_LINUX_SLL2:
            linkType = LinkType::Cooked2;
            return true;
        case DLT_RAW:
        case DLT_IPV4:
        case DLT_IPV6:
            linkType = LinkType::RawIp;
            return true;
        case DLT_NULL:
        case DLT_LOOP:
            linkType = LinkType::BsdLoopback;
            return true;
    }
    return false;
}

bool CaptureFile::CheckLink() {
    const int type = pcap_datalink(m_Reader);
    if (FindLinkType(type, m_LinkType)) return true;
    const char* name = pcap_datalink_val_to_name(type);
    return Fail("link type " + (name ? std::string(name) : std::to_string(type)) +
                " is not supported (Ethernet, Linux cooked and raw IP are)");
}

bool CaptureFile::Next() {
    const int result = pcap_next_ex(m_Reader, &m_Header, &m_Bytes);
    if (result == 1) {
        ++m_Count;
        return true;
    }
    if (result == PCAP_ERROR) {
        Fail(std::string(pcap_geterr(m_Reader)) + " (behind packet " + std::to_string(m_Count) +
             ")");
    }
    return false;
}

int64_t CaptureFile::TimeUsec() const {
    // The file's seconds are unsigned 32 bits; a damaged microseconds field may hold any number.
    return int64_t{static_cast<uint32_t>(m_Header->ts.tv_sec)} * 1000000 +
           static_cast<uint32_t>(m_Header->ts.tv_usec);
}

}  // namespace Kdi
