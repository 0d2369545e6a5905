#include <gtest/gtest.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "kdi/ssl.h"
#include "kdi/testing.h"

namespace {

using Bytes = std::vector<uint8_t>;

ssl_request_st Request(uint8_t mark, uint32_t preMasterLen = 3) {
    ssl_request_st request = {};
    request.preMasterLen = preMasterLen;
    request.sslConfigurationId = 7;
    std::memset(request.connectionContext, mark, sizeof request.connectionContext);
    request.keyExchangeMethod = SSL_KEY_EXCHANGE_RSA;
    request.protocolVersion = 0x0303;
    return request;
}

// A response record as its reader builds it.
Bytes Response(uint8_t mark, const Bytes& secret) {
    Bytes record(60 + secret.size());
    record[0] = static_cast<uint8_t>(secret.size());
    std::memset(&record[4], mark, 52);
    std::copy(secret.begin(), secret.end(), record.begin() + 56);
    return record;
}

int Send(kdi_handle_t handle, const Bytes& record) {
    return kdi_ssl_response(handle, reinterpret_cast<const ssl_response_st*>(record.data()),
                            static_cast<unsigned int>(record.size()));
}

std::string Error(kdi_handle_t handle) {
    char text[128];
    std::memset(text, 'x', sizeof text);
    kdi_get_error(handle, text, sizeof text);
    return text;
}

class SslExchangeTest : public testing::Test {
protected:
    void SetUp() override {
        kdi_testing_keep_ssl_responses(1);
        kdi_get_ssl_statistics(&m_Before);
        m_Handle = kdi_open();
        ASSERT_NE(m_Handle, nullptr);
    }
    void TearDown() override {
        kdi_close(m_Handle);
        kdi_testing_keep_ssl_responses(0);
        kdi_testing_fail_open(0);
        kdi_testing_fail_ssl_response(0);
    }
    static void Post(uint8_t mark, const Bytes& data = {1, 2, 3}) {
        const ssl_request_st request = Request(mark);
        ASSERT_EQ(kdi_testing_post_ssl_request(&request, data.data(),
                                               static_cast<unsigned int>(data.size())),
                  0);
    }
    int Take() { return kdi_get_ssl_request(m_Handle, &m_Request, &m_Data, &m_DataLen); }
    static Bytes TakeResponse() {
        Bytes record(kdi_testing_take_ssl_response(nullptr, 0));
        kdi_testing_take_ssl_response(record.data(), static_cast<unsigned int>(record.size()));
        return record;
    }
    // What has been added to the statistics since the test began.
    kdi_ssl_statistics_s Added() const {
        kdi_ssl_statistics_s now;
        kdi_get_ssl_statistics(&now);
        return {now.posted - m_Before.posted, now.dropped - m_Before.dropped,
                now.taken - m_Before.taken,   now.answered - m_Before.answered,
                now.failed - m_Before.failed, now.unclaimed - m_Before.unclaimed};
    }

    kdi_handle_t m_Handle = nullptr;
    kdi_ssl_statistics_s m_Before = {};
    ssl_request_st m_Request = {};
    unsigned char* m_Data = nullptr;
    unsigned int m_DataLen = 0;
};

}  // namespace

TEST_F(SslExchangeTest, RequestsComeInTheirOrderWithTheirData) {
    Post(1, {9, 8, 7});
    Post(2, {});
    ASSERT_EQ(Take(), 0);
    const ssl_request_st first = Request(1);
    EXPECT_EQ(std::memcmp(&m_Request, &first, sizeof first), 0);
    EXPECT_EQ(Bytes(m_Data, m_Data + m_DataLen), (Bytes{9, 8, 7}));
    ASSERT_EQ(Take(), 0);
    EXPECT_EQ(m_Request.connectionContext[51], 2);
    EXPECT_EQ(m_DataLen, 0u);
    EXPECT_EQ(Added().posted, 2u);
    EXPECT_EQ(Added().taken, 2u);
}

TEST_F(SslExchangeTest, FieldsStandWhereTheRecordHasThem) {
    uint8_t bytes[72] = {};
    bytes[0] = 0x02, bytes[1] = 0x01;  // preMasterLen
    bytes[4] = bytes[5] = 0xFF, bytes[6] = bytes[7] = 0xFF;
    bytes[8] = 0x11, bytes[59] = 0x22;  // connectionContext
    bytes[60] = 1;
    bytes[64] = 3, bytes[65] = 0;  // SSL 3.0
    ssl_request_st request;
    std::memcpy(&request, bytes, sizeof request);
    EXPECT_EQ(request.preMasterLen, 258u);
    EXPECT_EQ(request.sslConfigurationId, -1);
    EXPECT_EQ(request.connectionContext[0], 0x11);
    EXPECT_EQ(request.connectionContext[51], 0x22);
    EXPECT_EQ(request.keyExchangeMethod, 1u);
    EXPECT_EQ(request.protocolVersion, 3);
}

TEST_F(SslExchangeTest, ResponsesAreKeptAndCounted) {
    const Bytes good = Response(1, {4, 5}), failure = Response(2, {});
    EXPECT_EQ(Send(m_Handle, good), 0);
    EXPECT_EQ(Send(m_Handle, failure), 0);
    EXPECT_EQ(TakeResponse(), good);
    EXPECT_EQ(TakeResponse(), failure);
    EXPECT_EQ(kdi_testing_take_ssl_response(nullptr, 0), 0u);
    EXPECT_EQ(Added().answered, 1u);
    EXPECT_EQ(Added().failed, 1u);
    EXPECT_EQ(Added().unclaimed, 2u);
}

TEST_F(SslExchangeTest, ResponseWhoseSizesDisagreeIsRefused) {
    Bytes record = Response(1, {4, 5});
    record.push_back(0);
    EXPECT_EQ(Send(m_Handle, record), EINVAL);
    EXPECT_EQ(Error(m_Handle), "the response's sizes disagree");
    EXPECT_EQ(Send(m_Handle, Bytes(59)), EINVAL);
    EXPECT_EQ(kdi_ssl_response(m_Handle, nullptr, 60), EINVAL);
    EXPECT_EQ(kdi_testing_take_ssl_response(nullptr, 0), 0u);
}

TEST_F(SslExchangeTest, AnyHandleMayAnswer) {
    kdi_handle_t other = kdi_open();
    EXPECT_EQ(Send(other, Response(1, {1})), 0);
    kdi_close(other);
    EXPECT_EQ(TakeResponse(), Response(1, {1}));
}

TEST_F(SslExchangeTest, OpenFailsAsOftenAsAskedForAndTellsTheThread) {
    kdi_testing_fail_open(2);
    EXPECT_EQ(kdi_open(), nullptr);
    EXPECT_EQ(Error(nullptr), "failure asked for by a test");
    std::thread([] { EXPECT_EQ(Error(nullptr), ""); }).join();
    EXPECT_EQ(kdi_open(), nullptr);
    kdi_handle_t handle = kdi_open();
    ASSERT_NE(handle, nullptr);
    kdi_close(handle);
}

TEST_F(SslExchangeTest, ResponseFailsAsOftenAsAskedForAndDeliversNothing) {
    kdi_testing_fail_ssl_response(1);
    EXPECT_EQ(Send(m_Handle, Response(1, {4})), EIO);
    EXPECT_EQ(Error(m_Handle), "failure asked for by a test");
    EXPECT_EQ(kdi_testing_take_ssl_response(nullptr, 0), 0u);
    EXPECT_EQ(Send(m_Handle, Response(2, {})), 0);
    EXPECT_EQ(TakeResponse(), Response(2, {}));
    EXPECT_EQ(Added().answered, 0u);
}

TEST_F(SslExchangeTest, ClosedHandleGivesAnErrorAndNoHarm) {
    kdi_handle_t closed = kdi_open();
    kdi_close(closed);
    EXPECT_EQ(kdi_get_ssl_request(closed, &m_Request, &m_Data, &m_DataLen), EBADF);
    EXPECT_EQ(Send(closed, Response(1, {})), EBADF);
    EXPECT_EQ(kdi_register_event(closed, 1, 0), EBADF);
    EXPECT_EQ(kdi_get_ssl_request(nullptr, &m_Request, &m_Data, &m_DataLen), EBADF);
}

TEST_F(SslExchangeTest, HandleHasNoLogEntries) {
    kdi_entry_s* entry = nullptr;
    EXPECT_EQ(kdi_next_entry(m_Handle, 0, &entry), KDI_TIMEOUT);
}

TEST_F(SslExchangeTest, QueueThatNobodyReadsTakesOnlySoMany) {
    const ssl_request_st request = Request(1);
    for (int i = 0; i < 1024; ++i)
        ASSERT_EQ(kdi_testing_post_ssl_request(&request, "abc", 3), 0);
    EXPECT_EQ(kdi_testing_post_ssl_request(&request, "abc", 3), ENOBUFS);
    EXPECT_EQ(Added().dropped, 1u);
    for (int i = 0; i < 1024; ++i)
        ASSERT_EQ(Take(), 0);
}

TEST_F(SslExchangeTest, QueueThatNobodyReadsTakesOnlySoManyBytes) {
    const ssl_request_st request = Request(1);
    const Bytes data(1u << 20);
    for (int i = 0; i < 8; ++i)
        ASSERT_EQ(kdi_testing_post_ssl_request(&request, data.data(), 1u << 20), 0);
    EXPECT_EQ(kdi_testing_post_ssl_request(&request, data.data(), 1), ENOBUFS);
    for (int i = 0; i < 8; ++i)
        ASSERT_EQ(Take(), 0);
    Post(1);
    EXPECT_EQ(Take(), 0);
}

TEST_F(SslExchangeTest, WakingEndsTheWaitingOfOpenHandlesOnly) {
    kdi_wake_ssl_readers();
    EXPECT_EQ(Take(), ECANCELED);
    Post(1);
    EXPECT_EQ(Take(), ECANCELED);
    EXPECT_EQ(Error(m_Handle), "the readers of SSL requests were told to leave");
    kdi_close(m_Handle);
    m_Handle = kdi_open();
    EXPECT_EQ(Take(), 0);
}

TEST_F(SslExchangeTest, EventCountsThePosts) {
    const int event = eventfd(0, EFD_NONBLOCK);
    ASSERT_GT(event, 0);
    ASSERT_EQ(kdi_register_event(m_Handle, 1, static_cast<unsigned long>(event)), 0);
    Post(1);
    Post(2);
    uint64_t count = 0;
    ASSERT_EQ(read(event, &count, sizeof count), 8);
    EXPECT_EQ(count, 2u);
    ASSERT_EQ(kdi_register_event(m_Handle, 1, 0), 0);
    Post(3);
    EXPECT_EQ(read(event, &count, sizeof count), -1);
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(Take(), 0);
    close(event);
}

TEST_F(SslExchangeTest, EventThatCannotServeIsRefused) {
    EXPECT_EQ(kdi_register_event(m_Handle, 2, 0), EINVAL);
    EXPECT_EQ(Error(m_Handle), "unknown kind of event");
    EXPECT_EQ(kdi_register_event(m_Handle, 1, 0x7FFFFFFF), EBADF);
    const int blocking = eventfd(0, 0);
    EXPECT_EQ(kdi_register_event(m_Handle, 1, static_cast<unsigned long>(blocking)), EINVAL);
    close(blocking);
}

TEST(SslExchangeConcurrency, WaitingReaderIsWokenByThePostAndByTheHost) {
    std::atomic<int> got{0}, left{-1};
    std::thread reader([&] {
        kdi_handle_t handle = kdi_open();
        ssl_request_st request;
        unsigned char* data = nullptr;
        unsigned int dataLen = 0;
        int result;
        while ((result = kdi_get_ssl_request(handle, &request, &data, &dataLen)) == 0) {
            Send(handle, Response(request.connectionContext[0], Bytes(data, data + dataLen)));
            ++got;
        }
        left = result;
        kdi_close(handle);
    });
    kdi_ssl_statistics_s before, now;
    kdi_get_ssl_statistics(&before);
    for (uint8_t i = 0; i < 100; ++i) {
        const ssl_request_st request = Request(i);
        ASSERT_EQ(kdi_testing_post_ssl_request(&request, &i, 1), 0);
    }
    while (got < 100)
        std::this_thread::yield();
    kdi_wake_ssl_readers();
    reader.join();
    kdi_get_ssl_statistics(&now);
    EXPECT_EQ(left, ECANCELED);
    EXPECT_EQ(now.answered - before.answered, 100u);
}

TEST(SslExchangeConcurrency, EachRequestGoesToOneReader) {
    constexpr int COUNT = 400;
    std::atomic<int> taken{0};
    std::vector<std::thread> readers;
    for (int i = 0; i < 3; ++i) {
        // Opened here: a handle that is opened behind the waking waits for ever.
        kdi_handle_t handle = kdi_open();
        readers.emplace_back([&taken, handle] {
            ssl_request_st request;
            unsigned char* data = nullptr;
            unsigned int dataLen = 0;
            while (kdi_get_ssl_request(handle, &request, &data, &dataLen) == 0)
                ++taken;
            kdi_close(handle);
        });
    }
    for (int i = 0; i < COUNT; ++i) {
        const ssl_request_st request = Request(1);
        ASSERT_EQ(kdi_testing_post_ssl_request(&request, "x", 1), 0);
    }
    while (taken < COUNT)
        std::this_thread::yield();
    kdi_wake_ssl_readers();
    for (std::thread& reader : readers)
        reader.join();
    EXPECT_EQ(taken, COUNT);
}
