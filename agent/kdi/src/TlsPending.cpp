#include "TlsPending.h"

#include <algorithm>
#include <atomic>
#include <cstring>
#include <utility>

namespace Kdi {

namespace {

constexpr size_t PRE_MASTER_LEN = 48;

// A number that no other request of the process has, the greater the later, and the connection.
SslContext NewContext(const TlsStreamKey& key) {
    static std::atomic<uint64_t> s_Number{0};
    const uint64_t number = ++s_Number;
    SslContext context = {};
    auto at = context.begin();
    for (int shift = 56; shift >= 0; shift -= 8)
        *at++ = static_cast<uint8_t>(number >> shift);
    at = std::copy(key.client.begin(), key.client.end(), at);
    std::copy(key.server.begin(), key.server.end(), at);
    return context;
}

SslRequest MakeRequest(const TlsSecret& secret, const SslContext& context,
                       int32_t hostConfiguration) {
    SslRequest request = {};
    request.header.preMasterLen = static_cast<uint32_t>(secret.encrypted.size());
    request.header.sslConfigurationId = hostConfiguration;
    std::copy(context.begin(), context.end(), request.header.connectionContext);
    request.header.keyExchangeMethod = SSL_KEY_EXCHANGE_RSA;
    std::memcpy(&request.header.protocolVersion, secret.version, sizeof secret.version);
    request.data = secret.encrypted;
    return request;
}

}  // namespace

TlsPending::TlsPending(std::chrono::milliseconds timeout) : m_Timeout(timeout) {
    SslExchange::Get().AddPoster(*this);
}

TlsPending::~TlsPending() {
    SslExchange::Get().RemovePoster(*this);
}

// Kept before it is posted: the answer may be here before Post returns.
void TlsPending::Post(const TlsSecret& secret, const TlsStreamKey& key, int32_t hostConfiguration) {
    const SslContext context = NewContext(key);
    Request request = {};
    std::memcpy(request.offeredVersion, secret.offeredVersion, sizeof request.offeredVersion);
    std::memcpy(request.encrypted, &secret.encrypted[secret.PrefixLen()], sizeof request.encrypted);
    request.clientRandom = secret.clientRandom;
    request.posted = Clock::now();
    if (Keep(context, request) &&
        SslExchange::Get().Post(MakeRequest(secret, context, hostConfiguration)))
        return;
    const std::lock_guard<std::mutex> lock(m_Mutex);
    m_Requests.erase(context);
    ++m_Answers.dropped;
}

bool TlsPending::Keep(const SslContext& context, const Request& request) {
    GiveUpOld();
    const std::lock_guard<std::mutex> lock(m_Mutex);
    if (m_Requests.size() == MAX_PENDING) return false;
    m_Requests.emplace(context, request);
    return true;
}

void TlsPending::GiveUpOld() {
    const Clock::time_point now = Clock::now();
    const std::lock_guard<std::mutex> lock(m_Mutex);
    while (!m_Requests.empty() && now - m_Requests.begin()->second.posted > m_Timeout) {
        m_Requests.erase(m_Requests.begin());
        ++m_Answers.unanswered;
    }
}

void TlsPending::WaitForAnswers(size_t count) {
    std::unique_lock<std::mutex> lock(m_Mutex);
    while (!m_Stopped && !m_NobodyAnswers && m_Requests.size() > count) {
        const uint64_t before = m_AnswerCount;
        const bool heard = m_Answered.wait_for(
            lock, m_Timeout, [&] { return m_Stopped || m_AnswerCount != before; });
        m_NobodyAnswers = !heard;
    }
    if (!m_NobodyAnswers) return;
    m_Answers.unanswered += m_Requests.size();
    m_Requests.clear();
}

void TlsPending::Stop() {
    const std::lock_guard<std::mutex> lock(m_Mutex);
    m_Stopped = true;
    m_Answered.notify_all();
}

TlsAnswers TlsPending::Answers() {
    const std::lock_guard<std::mutex> lock(m_Mutex);
    return m_Answers;
}

bool TlsPending::Take(const SslContext& context, Request& request) {
    const std::lock_guard<std::mutex> lock(m_Mutex);
    const auto found = m_Requests.find(context);
    if (found == m_Requests.end()) return false;
    request = found->second;
    return true;
}

// The request leaves only when its line is written, so that whoever waits for the answers finds
// them in the key log.
bool TlsPending::OnResponse(const SslContext& context, const uint8_t* secret, size_t length) {
    Request request;
    if (!Take(context, request)) return false;
    Note(request, secret, length);
    const std::lock_guard<std::mutex> lock(m_Mutex);
    m_Requests.erase(context);
    ++m_AnswerCount;
    m_Answered.notify_all();
    return true;
}

// A key that does not fit gives other bytes rather than an error, as protection against those who
// would learn from the difference; so only what begins with the version that the client offered is
// taken for a secret.
void TlsPending::Note(const Request& request, const uint8_t* secret, size_t length) {
    const bool good = length == PRE_MASTER_LEN && std::memcmp(secret, request.offeredVersion,
                                                              sizeof request.offeredVersion) == 0;
    const bool noted = !good || !m_KeyLog.IsOpen() ||
                       m_KeyLog.Append(request.encrypted, request.clientRandom.data(), secret);
    const std::lock_guard<std::mutex> lock(m_Mutex);
    ++(good ? m_Answers.decrypted : m_Answers.failed);
    if (!noted) ++m_Answers.keyLogFailures;
}

}  // namespace Kdi
