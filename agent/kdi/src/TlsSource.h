#pragma once

#include <atomic>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "PacketReader.h"
#include "TlsPending.h"
#include "TlsStreams.h"
#include "kdi/tls.h"

namespace Kdi {

// Reads packets on a thread of its own, follows the connections to the servers in them and posts
// the encrypted secrets.
class TlsSource {
public:
    // Null on failure, with the reason in `error`.
    static std::unique_ptr<TlsSource> Open(const kdi_tls_options_s& options, std::string& error);
    ~TlsSource();
    TlsSource(const TlsSource&) = delete;
    TlsSource& operator=(const TlsSource&) = delete;

    kdi_tls_state Wait(unsigned int timeoutMsec);
    std::string Error();
    void GetStatistics(kdi_tls_statistics_s& statistics);
    // Handshakes by their kind of key exchange, RSA left out.
    const char* Other(unsigned int index, uint64_t& count);

private:
    explicit TlsSource(const kdi_tls_options_s& options);
    bool SetUp(const kdi_tls_options_s& options, std::string& error);
    bool AddServers(const kdi_tls_options_s& options, std::string& error);
    bool OpenReader(const std::string& source, std::string& error);
    void Run();
    void Read();
    bool ReadPacket();

    std::string m_Filter;  // that lets the servers' packets through, in pcap's language
    bool m_Live = false;
    std::unique_ptr<PacketReader> m_Reader;  // used by the thread alone, but for Stop
    TlsPending m_Pending;
    std::atomic<bool> m_Stopping{false};

    std::mutex m_Mutex;  // guards what follows
    std::condition_variable m_Changed;
    TlsStreams m_Streams;
    uint64_t m_Lost = 0;
    kdi_tls_state m_State = KDI_TLS_RUNNING;
    std::string m_Error;

    std::thread m_Thread;
};

}  // namespace Kdi
