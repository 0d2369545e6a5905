#include "TlsSource.h"

#include <arpa/inet.h>

#include <chrono>
#include <exception>
#include <utility>

namespace Kdi {

namespace {

// A capture is read faster than secrets are decrypted: so many may wait at a time.
constexpr size_t MAX_WAITING = 32;
// Counters of the kernel are asked for every so many packets.
constexpr uint64_t LOST_PERIOD = 1024;

bool ParseServer(const kdi_tls_server_s& server, Endpoint& endpoint) {
    uint8_t bytes[16];
    if (!server.address) return false;
    if (inet_pton(AF_INET, server.address, bytes) == 1)
        endpoint = MakeEndpoint(4, bytes, server.port);
    else if (inet_pton(AF_INET6, server.address, bytes) == 1)
        endpoint = MakeEndpoint(6, bytes, server.port);
    else
        return false;
    return true;
}

}  // namespace

std::unique_ptr<TlsSource> TlsSource::Open(const kdi_tls_options_s& options, std::string& error) {
    std::unique_ptr<TlsSource> source(new TlsSource(options));
    if (!source->SetUp(options, error)) return nullptr;
    source->m_Thread = std::thread([raw = source.get()] { raw->Run(); });
    return source;
}

TlsSource::TlsSource(const kdi_tls_options_s& options)
    : m_Pending(std::chrono::milliseconds(options.answer_timeout_msec)),
      m_Streams([this](const TlsSecret& secret, const TlsStreamKey& key, int32_t id) {
          m_Pending.Post(secret, key, id);
      }) {}

TlsSource::~TlsSource() {
    m_Stopping = true;
    m_Pending.Stop();
    if (m_Reader) m_Reader->Stop();
    if (m_Thread.joinable()) m_Thread.join();
}

bool TlsSource::SetUp(const kdi_tls_options_s& options, std::string& error) {
    return AddServers(options, error) && OpenReader(options.source ? options.source : "", error) &&
           (!options.key_log || m_Pending.OpenKeyLog(options.key_log, error));
}

bool TlsSource::AddServers(const kdi_tls_options_s& options, std::string& error) {
    if (options.server_count == 0) {
        error = "no server was named";
        return false;
    }
    for (unsigned int i = 0; i < options.server_count; ++i) {
        const kdi_tls_server_s& server = options.servers[i];
        const std::string address = server.address ? server.address : "";
        Endpoint endpoint;
        if (!ParseServer(server, endpoint) || server.port == 0) {
            error = "server \"" + address + "\" port " + std::to_string(server.port) +
                    " is no address with a port from 1 to 65535";
            return false;
        }
        m_Streams.AddServer(endpoint, server.host_configuration);
        m_Filter += (i == 0 ? "" : " or ") + ("(host " + address) + " and tcp port " +
                    std::to_string(server.port) + ")";
    }
    return true;
}

bool TlsSource::OpenReader(const std::string& source, std::string& error) {
    if (source.rfind("pcap:", 0) == 0) {
        auto reader = std::make_unique<FileReader>(source.substr(5));
        if (!reader->Open()) error = reader->Error();
        m_Reader = std::move(reader);
    } else if (source.rfind("interface:", 0) == 0) {
        m_Live = true;
        auto reader = std::make_unique<InterfaceReader>(source.substr(10));
        if (!reader->Open(m_Filter)) error = reader->Error();
        m_Reader = std::move(reader);
    } else {
        error =
            "cannot open TLS source \"" + source + "\": it is none of pcap:FILE, interface:NAME";
    }
    return error.empty();
}

void TlsSource::Run() {
    std::string error;
    try {
        Read();
        error = m_Reader->Error();
    } catch (const std::exception& exception) {
        error = exception.what();
    }
    const std::lock_guard<std::mutex> lock(m_Mutex);
    m_Error = error;
    m_State = error.empty() ? KDI_TLS_DONE : KDI_TLS_FAILED;
    m_Changed.notify_all();
}

void TlsSource::Read() {
    while (ReadPacket())
        continue;
    {
        const std::lock_guard<std::mutex> lock(m_Mutex);
        m_Streams.Finish();
    }
    if (!m_Live) m_Pending.WaitForAnswers(0);
}

bool TlsSource::ReadPacket() {
    if (!m_Live) m_Pending.WaitForAnswers(MAX_WAITING);
    if (m_Stopping || !m_Reader->Next()) return false;
    const Frame frame = m_Reader->Parse();
    const std::lock_guard<std::mutex> lock(m_Mutex);
    m_Streams.Process(frame, m_Reader->TimeUsec());
    if (m_Streams.Counts().packets % LOST_PERIOD == 0) m_Lost = m_Reader->Lost();
    return true;
}

kdi_tls_state TlsSource::Wait(unsigned int timeoutMsec) {
    std::unique_lock<std::mutex> lock(m_Mutex);
    m_Changed.wait_for(lock, std::chrono::milliseconds(timeoutMsec),
                       [this] { return m_State != KDI_TLS_RUNNING; });
    return m_State;
}

std::string TlsSource::Error() {
    const std::lock_guard<std::mutex> lock(m_Mutex);
    return m_Error;
}

void TlsSource::GetStatistics(kdi_tls_statistics_s& statistics) {
    m_Pending.GiveUpOld();
    statistics = {};
    const TlsAnswers answers = m_Pending.Answers();
    statistics.decrypted = answers.decrypted;
    statistics.failed = answers.failed;
    statistics.unanswered = answers.unanswered;
    statistics.dropped = answers.dropped;
    statistics.key_log_failures = answers.keyLogFailures;
    const std::lock_guard<std::mutex> lock(m_Mutex);
    const TlsCounts& counts = m_Streams.Counts();
    statistics.packets = counts.packets;
    statistics.connections = counts.connections;
    statistics.handshakes = counts.handshakes;
    statistics.rsa = counts.rsa;
    statistics.resumed = counts.resumed;
    for (const uint64_t count : counts.other)
        statistics.other += count;
    statistics.incomplete = counts.incomplete;
    statistics.malformed = counts.malformed;
    statistics.renegotiations = counts.renegotiations;
    statistics.not_tls = counts.notTls;
    statistics.gaps = counts.gaps;
    statistics.evicted = counts.evicted;
    statistics.fragments = counts.fragments;
    statistics.lost = m_Lost;
}

// Index 0 is RSA, which is never among the others.
const char* TlsSource::Other(unsigned int index, uint64_t& count) {
    if (index >= KEY_EXCHANGE_COUNT - 1) return nullptr;
    const std::lock_guard<std::mutex> lock(m_Mutex);
    count = m_Streams.Counts().other[index + 1];
    return NameOf(static_cast<KeyExchange>(index + 1));
}

}  // namespace Kdi
