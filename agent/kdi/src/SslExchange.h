#pragma once

#include <array>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <mutex>
#include <vector>

#include "kdi/ssl.h"

namespace Kdi {

using SslContext = std::array<uint8_t, sizeof(ssl_request_st::connectionContext)>;

struct SslRequest {
    ssl_request_st header;
    std::vector<uint8_t> data;
};

// Who posts requests and waits for their answers.
class SslPoster {
public:
    virtual ~SslPoster() = default;
    // An answer came, on the answering thread. `secret` is valid during the call; `length` 0 says
    // that the request failed. False if no request of this poster has the context. Must not call
    // the exchange.
    virtual bool OnResponse(const SslContext& context, const uint8_t* secret, size_t length) = 0;
};

// Where requests wait for a reader, and where answers find whoever posted. One for the process; all
// operations may be called on any thread.
class SslExchange {
public:
    // A queue that no reader empties takes no more than this.
    static constexpr size_t MAX_REQUESTS = 1024;
    static constexpr size_t MAX_BYTES = 8u << 20;
    static constexpr size_t MAX_KEPT_RESPONSES = 10000;

    static SslExchange& Get();

    void AddPoster(SslPoster& poster);
    // No call of the poster is running any more when this returns.
    void RemovePoster(SslPoster& poster);

    // False if the queue has no room.
    bool Post(SslRequest request);

    // What Take compares: waits that began under an older number are over.
    uint64_t WakeNumber();
    // Waits for a request; false once the readers were woken after `wakeNumber` was read.
    bool Take(uint64_t wakeNumber, SslRequest& request);
    void WakeReaders();

    // `record`: a whole response record.
    void Answer(const uint8_t* record, size_t size);

    // `owner` stands for the handle; descriptor 0 takes it back.
    void SetEvent(const void* owner, int descriptor);

    kdi_ssl_statistics_s Statistics();

    // For tests.
    void KeepResponses(bool on);
    size_t TakeResponse(uint8_t* buffer, size_t capacity);

private:
    SslExchange() = default;
    void Signal();
    void Keep(const uint8_t* record, size_t size);
    bool Deliver(const uint8_t* record);

    std::mutex m_Mutex;  // guards all but the posters; taken alone
    std::condition_variable m_Posted;
    std::deque<SslRequest> m_Requests;
    size_t m_Bytes = 0;  // of the queued requests
    uint64_t m_WakeNumber = 0;
    std::map<const void*, int> m_Events;
    kdi_ssl_statistics_s m_Statistics = {};
    bool m_KeepResponses = false;
    std::deque<std::vector<uint8_t>> m_Responses;

    std::mutex m_PosterMutex;  // taken alone, but for what a poster takes
    std::vector<SslPoster*> m_Posters;
};

}  // namespace Kdi
