#pragma once

#include <array>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <map>
#include <mutex>
#include <string>

#include "KeyLog.h"
#include "SslExchange.h"
#include "TlsStreams.h"

namespace Kdi {

// What became of the posted secrets.
struct TlsAnswers {
    uint64_t decrypted = 0;
    uint64_t failed = 0;
    uint64_t unanswered = 0;
    uint64_t dropped = 0;
    uint64_t keyLogFailures = 0;
};

// Posts encrypted secrets, waits for their answers and notes the good ones in the key log. All
// operations may be called on any thread.
class TlsPending : private SslPoster {
public:
    using Clock = std::chrono::steady_clock;

    static constexpr size_t MAX_PENDING = 1024;

    explicit TlsPending(std::chrono::milliseconds timeout);
    ~TlsPending() override;
    TlsPending(const TlsPending&) = delete;
    TlsPending& operator=(const TlsPending&) = delete;

    bool OpenKeyLog(const std::string& path, std::string& error) {
        return m_KeyLog.Open(path, error);
    }

    void Post(const TlsSecret& secret, const TlsStreamKey& key, int32_t hostConfiguration);
    // Waits until at most `count` requests wait for their answers; gives all of them up when none
    // was answered for the whole timeout, and then never waits again. Ends early after Stop.
    void WaitForAnswers(size_t count);
    // Gives up what has waited for longer than the timeout.
    void GiveUpOld();
    // Ends the waiting.
    void Stop();

    TlsAnswers Answers();

private:
    // What the answer is checked against and noted with.
    struct Request {
        uint8_t offeredVersion[2];
        uint8_t encrypted[8];  // its beginning
        std::array<uint8_t, 32> clientRandom;
        Clock::time_point posted;
    };

    bool OnResponse(const SslContext& context, const uint8_t* secret, size_t length) override;
    bool Take(const SslContext& context, Request& request);
    void Note(const Request& request, const uint8_t* secret, size_t length);
    bool Keep(const SslContext& context, const Request& request);

    const std::chrono::milliseconds m_Timeout;
    KeyLog m_KeyLog;
    std::mutex m_Mutex;  // guards the rest; nothing is called with it held
    std::condition_variable m_Answered;
    std::map<SslContext, Request> m_Requests;  // in the order of their posting
    TlsAnswers m_Answers;
    uint64_t m_AnswerCount = 0;
    bool m_NobodyAnswers = false;
    bool m_Stopped = false;
};

}  // namespace Kdi
