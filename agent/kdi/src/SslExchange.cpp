#include "SslExchange.h"

#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <utility>

namespace Kdi {

namespace {

void Wipe(std::vector<uint8_t>& bytes) {
    explicit_bzero(bytes.data(), bytes.size());
}

}  // namespace

// Never destroyed: a reader may still wait in it when the process ends.
SslExchange& SslExchange::Get() {
    static SslExchange& exchange = *new SslExchange;
    return exchange;
}

void SslExchange::AddPoster(SslPoster& poster) {
    const std::lock_guard<std::mutex> lock(m_PosterMutex);
    m_Posters.push_back(&poster);
}

void SslExchange::RemovePoster(SslPoster& poster) {
    const std::lock_guard<std::mutex> lock(m_PosterMutex);
    m_Posters.erase(std::remove(m_Posters.begin(), m_Posters.end(), &poster), m_Posters.end());
}

bool SslExchange::Post(SslRequest request) {
    const std::lock_guard<std::mutex> lock(m_Mutex);
    const size_t size = request.data.size();
    if (m_Requests.size() == MAX_REQUESTS || size > MAX_BYTES - m_Bytes) {
        ++m_Statistics.dropped;
        return false;
    }
    m_Requests.push_back(std::move(request));
    m_Bytes += size;
    ++m_Statistics.posted;
    Signal();
    return true;
}

// A counter that can hold no more says already what it has to.
void SslExchange::Signal() {
    m_Posted.notify_one();
    const uint64_t one = 1;
    for (const auto& event : m_Events) {
        if (write(event.second, &one, sizeof one) < 0) continue;
    }
}

uint64_t SslExchange::WakeNumber() {
    const std::lock_guard<std::mutex> lock(m_Mutex);
    return m_WakeNumber;
}

bool SslExchange::Take(uint64_t wakeNumber, SslRequest& request) {
    std::unique_lock<std::mutex> lock(m_Mutex);
    m_Posted.wait(lock, [&] { return m_WakeNumber != wakeNumber || !m_Requests.empty(); });
    if (m_WakeNumber != wakeNumber) return false;
    request = std::move(m_Requests.front());
    m_Requests.pop_front();
    m_Bytes -= request.data.size();
    ++m_Statistics.taken;
    return true;
}

void SslExchange::WakeReaders() {
    const std::lock_guard<std::mutex> lock(m_Mutex);
    ++m_WakeNumber;
    m_Posted.notify_all();
}

bool SslExchange::Deliver(const uint8_t* record) {
    ssl_response_st head;
    std::memcpy(&head, record, sizeof head);
    SslContext context;
    std::memcpy(context.data(), head.connectionContext, context.size());
    const uint8_t* secret = record + offsetof(ssl_response_st, data);
    const std::lock_guard<std::mutex> lock(m_PosterMutex);
    return std::any_of(m_Posters.begin(), m_Posters.end(), [&](SslPoster* poster) {
        return poster->OnResponse(context, secret, head.dataLen);
    });
}

void SslExchange::Answer(const uint8_t* record, size_t size) {
    const bool claimed = Deliver(record);
    const std::lock_guard<std::mutex> lock(m_Mutex);
    ++(size > sizeof(ssl_response_st) ? m_Statistics.answered : m_Statistics.failed);
    if (!claimed) ++m_Statistics.unclaimed;
    if (m_KeepResponses) Keep(record, size);
}

void SslExchange::SetEvent(const void* owner, int descriptor) {
    const std::lock_guard<std::mutex> lock(m_Mutex);
    m_Events.erase(owner);
    if (descriptor != 0) m_Events[owner] = descriptor;
}

kdi_ssl_statistics_s SslExchange::Statistics() {
    const std::lock_guard<std::mutex> lock(m_Mutex);
    return m_Statistics;
}

void SslExchange::Keep(const uint8_t* record, size_t size) {
    if (m_Responses.size() == MAX_KEPT_RESPONSES) {
        Wipe(m_Responses.front());
        m_Responses.pop_front();
    }
    m_Responses.emplace_back(record, record + size);
}

void SslExchange::KeepResponses(bool on) {
    const std::lock_guard<std::mutex> lock(m_Mutex);
    m_KeepResponses = on;
    if (on) return;
    for (std::vector<uint8_t>& response : m_Responses)
        Wipe(response);
    m_Responses.clear();
}

size_t SslExchange::TakeResponse(uint8_t* buffer, size_t capacity) {
    const std::lock_guard<std::mutex> lock(m_Mutex);
    if (m_Responses.empty()) return 0;
    std::vector<uint8_t>& response = m_Responses.front();
    const size_t size = response.size();
    if (size > capacity) return size;
    std::memcpy(buffer, response.data(), size);
    Wipe(response);
    m_Responses.pop_front();
    return size;
}

}  // namespace Kdi
