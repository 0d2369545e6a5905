#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <functional>
#include <iterator>
#include <string>
#include <thread>
#include <vector>

#include "TlsBuilder.h"
#include "kdi/log_entry.h"
#include "kdi/ssl.h"
#include "kdi/tls.h"

using namespace KdiTest;

namespace {

using Answer = std::function<Bytes(const ssl_request_st& request, const Bytes& data)>;

// A reader of SSL requests with an answer of the test's own, on a thread of its own.
class Reader {
public:
    explicit Reader(Answer answer) : m_Answer(std::move(answer)), m_Handle(kdi_open()) {
        m_Thread = std::thread([this] { Run(); });
    }
    ~Reader() { Stop(); }
    void Stop() {
        if (!m_Thread.joinable()) return;
        kdi_wake_ssl_readers();
        m_Thread.join();
        kdi_close(m_Handle);
    }
    // Once stopped.
    const std::vector<ssl_request_st>& Requests() const { return m_Requests; }

private:
    void Run() {
        ssl_request_st request;
        unsigned char* data = nullptr;
        unsigned int length = 0;
        while (kdi_get_ssl_request(m_Handle, &request, &data, &length) == 0) {
            m_Requests.push_back(request);
            const Bytes secret = m_Answer(request, Bytes(data, data + length));
            Bytes record(60 + secret.size());
            record[0] = static_cast<uint8_t>(secret.size());
            std::memcpy(&record[4], request.connectionContext, 52);
            std::copy(secret.begin(), secret.end(), record.begin() + 56);
            EXPECT_EQ(
                kdi_ssl_response(m_Handle, reinterpret_cast<const ssl_response_st*>(record.data()),
                                 static_cast<unsigned int>(record.size())),
                0);
        }
    }

    const Answer m_Answer;
    kdi_handle_t m_Handle;
    std::vector<ssl_request_st> m_Requests;
    std::thread m_Thread;
};

Bytes Secret(uint8_t minor = 3) {
    return Bytes{3, minor} + Bytes(46, 0x77);
}

class TlsSourceConcurrencyTest : public testing::Test {
protected:
    TlsSourceConcurrencyTest() : m_KeyLog(m_Capture.Path() + ".keys") {}
    ~TlsSourceConcurrencyTest() override {
        if (m_Tls) kdi_tls_close(m_Tls);
        std::remove(m_KeyLog.c_str());
    }

    void Packet(const std::string& source, uint16_t sourcePort, const std::string& destination,
                uint16_t destinationPort, const Bytes& data) {
        const Bytes tcp = Big16(sourcePort) + Big16(destinationPort) + Big32(1) + Big32(1) +
                          Bytes{0x50, TCP_FLAG_ACK} + Big16(1024) + Big16(0) + Big16(0) + data;
        m_Capture.Add(1700000000000000 + ++m_Packets,
                      Ethernet(HOST_HW, PEER_HW, IpPacket(source, destination, {6, tcp})));
    }
    void Handshake(uint16_t port) {
        Packet("198.51.100.66", port, "198.51.100.10", 443, ClientSide());
        Packet("198.51.100.10", 443, "198.51.100.66", port, ServerSide());
    }

    void Open(unsigned int timeoutMsec = 30000) {
        const kdi_tls_server_s server = {"198.51.100.10", 443, -5};
        const std::string source = "pcap:" + m_Capture.Write();
        kdi_tls_options_s options;
        options.source = source.c_str();
        options.servers = &server;
        options.server_count = 1;
        options.key_log = m_KeyLog.c_str();
        options.answer_timeout_msec = timeoutMsec;
        char error[256];
        m_Tls = kdi_tls_open(&options, error, sizeof error);
        ASSERT_NE(m_Tls, nullptr) << error;
    }
    kdi_tls_statistics_s Finish() {
        EXPECT_EQ(kdi_tls_wait(m_Tls, 120000), KDI_TLS_DONE);
        kdi_tls_statistics_s statistics;
        kdi_tls_get_statistics(m_Tls, &statistics);
        return statistics;
    }
    static std::string OpenError(const char* source, const kdi_tls_server_s* server) {
        kdi_tls_options_s options;
        options.source = source;
        options.servers = server;
        options.server_count = server ? 1 : 0;
        char error[256] = "";
        EXPECT_EQ(kdi_tls_open(&options, error, sizeof error), nullptr);
        return error;
    }
    std::vector<std::string> KeyLogLines() const {
        std::ifstream file(m_KeyLog);
        std::vector<std::string> lines;
        for (std::string line; std::getline(file, line);)
            lines.push_back(line);
        return lines;
    }

    CaptureBuilder m_Capture;
    const std::string m_KeyLog;
    kdi_tls_t m_Tls = nullptr;
    int64_t m_Packets = 0;
};

}  // namespace

TEST_F(TlsSourceConcurrencyTest, RequestIsAsTheRecordHasIt) {
    Handshake(40000);
    Reader reader([](const ssl_request_st&, const Bytes& data) {
        EXPECT_EQ(data, KeyExchangeBody());
        return Secret();
    });
    Open();
    const kdi_tls_statistics_s statistics = Finish();
    reader.Stop();
    EXPECT_EQ(statistics.decrypted, 1u);
    ASSERT_EQ(reader.Requests().size(), 1u);
    const ssl_request_st& request = reader.Requests()[0];
    EXPECT_EQ(request.preMasterLen, 130u);
    EXPECT_EQ(request.sslConfigurationId, -5);
    EXPECT_EQ(request.keyExchangeMethod, 1u);
    EXPECT_EQ(request.protocolVersion, 0x0303);
    const std::string key = "7777777777777777777777777777777777777777777777777777777777777777";
    const std::vector<std::string> lines = KeyLogLines();
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(lines[0], "RSA 0102030405060708 0303" + key + key.substr(0, 28));
    EXPECT_EQ(lines[1].substr(0, 26), "PMS_CLIENT_RANDOM c1c1c1c1");
}

TEST_F(TlsSourceConcurrencyTest, AnswersThatFitNotAreFailures) {
    for (uint16_t port = 40000; port < 40006; ++port)
        Handshake(port);
    const std::vector<Bytes> answers = {{},
                                        Secret(2),
                                        Bytes{2, 3} + Bytes(46, 1),
                                        Bytes{3, 3} + Bytes(45, 1),
                                        Bytes{3, 3} + Bytes(47, 1),
                                        Secret()};
    size_t next = 0;
    Reader reader([&](const ssl_request_st&, const Bytes&) { return answers[next++]; });
    Open();
    const kdi_tls_statistics_s statistics = Finish();
    EXPECT_EQ(statistics.rsa, 6u);
    EXPECT_EQ(statistics.failed, 5u);
    EXPECT_EQ(statistics.decrypted, 1u);
    EXPECT_EQ(KeyLogLines().size(), 2u);
}

TEST_F(TlsSourceConcurrencyTest, MoreHandshakesThanMayWaitAreAllAnswered) {
    for (uint16_t port = 40000; port < 40300; ++port)
        Handshake(port);
    Reader reader([](const ssl_request_st&, const Bytes&) { return Secret(); });
    Open();
    const kdi_tls_statistics_s statistics = Finish();
    EXPECT_EQ(statistics.decrypted, 300u);
    EXPECT_EQ(statistics.unanswered + statistics.dropped, 0u);
    EXPECT_EQ(KeyLogLines().size(), 600u);
}

TEST_F(TlsSourceConcurrencyTest, WithoutAReaderTheEndComesAllTheSame) {
    for (uint16_t port = 40000; port < 40100; ++port)
        Handshake(port);
    Open(50);
    const kdi_tls_statistics_s statistics = Finish();
    EXPECT_EQ(statistics.rsa, 100u);
    EXPECT_EQ(statistics.unanswered, 100u);
    EXPECT_TRUE(KeyLogLines().empty());
    // Readers that come now find requests of nobody; their answers do no harm.
    Reader reader([](const ssl_request_st&, const Bytes&) { return Secret(); });
    kdi_ssl_statistics_s exchange;
    do {
        std::this_thread::yield();
        kdi_get_ssl_statistics(&exchange);
    } while (exchange.unclaimed < 100);
    EXPECT_TRUE(KeyLogLines().empty());
}

TEST_F(TlsSourceConcurrencyTest, CloseEndsTheWaitingForAnswers) {
    for (uint16_t port = 40000; port < 40100; ++port)
        Handshake(port);
    Open(3600000);
    EXPECT_EQ(kdi_tls_wait(m_Tls, 10), KDI_TLS_RUNNING);
    kdi_tls_close(m_Tls);
    m_Tls = nullptr;
    Reader reader([](const ssl_request_st&, const Bytes&) { return Secret(); });
}

TEST_F(TlsSourceConcurrencyTest, DamagedCaptureFailsBehindWhatIsSound) {
    Handshake(40000);
    Handshake(40001);
    Bytes content = m_Capture.Content();
    content.resize(content.size() - 10);
    Reader reader([](const ssl_request_st&, const Bytes&) { return Secret(); });
    const std::string path = m_Capture.Write(content);
    const kdi_tls_server_s server = {"198.51.100.10", 443, 1};
    const std::string source = "pcap:" + path;
    kdi_tls_options_s options;
    options.source = source.c_str();
    options.servers = &server;
    options.server_count = 1;
    m_Tls = kdi_tls_open(&options, nullptr, 0);
    ASSERT_NE(m_Tls, nullptr);
    EXPECT_EQ(kdi_tls_wait(m_Tls, 120000), KDI_TLS_FAILED);
    char error[256];
    kdi_tls_get_error(m_Tls, error, sizeof error);
    EXPECT_EQ(std::string(error).find("cannot read capture " + path + ": truncated"), 0u) << error;
    kdi_tls_statistics_s statistics;
    kdi_tls_get_statistics(m_Tls, &statistics);
    EXPECT_EQ(statistics.decrypted, 1u);
    EXPECT_EQ(statistics.incomplete, 1u);
}

TEST_F(TlsSourceConcurrencyTest, OtherKeyExchangesHaveNames) {
    Packet("198.51.100.66", 40000, "198.51.100.10", 443, ClientSide());
    Packet("198.51.100.10", 443, "198.51.100.66", 40000, ServerSide(SUITE_ECDHE));
    Open();
    EXPECT_EQ(Finish().other, 1u);
    uint64_t count = 0, all = 0;
    for (unsigned int i = 0; const char* name = kdi_tls_get_other(m_Tls, i, &count); ++i) {
        EXPECT_STRNE(name, "RSA");
        EXPECT_EQ(count, std::string(name) == "ECDHE" ? 1u : 0u) << name;
        all += count;
    }
    EXPECT_EQ(all, 1u);
}

TEST_F(TlsSourceConcurrencyTest, WhatCannotBeOpenedIsNamed) {
    const kdi_tls_server_s good = {"198.51.100.10", 443, 1};
    const kdi_tls_server_s name = {"server", 443, 1};
    const kdi_tls_server_s noPort = {"2001:db8::1", 0, 1};
    EXPECT_EQ(OpenError("pcap:x", nullptr), "no server was named");
    EXPECT_EQ(OpenError("pcap:x", &name),
              "server \"server\" port 443 is no address with a port from 1 to 65535");
    EXPECT_EQ(OpenError("pcap:x", &noPort),
              "server \"2001:db8::1\" port 0 is no address with a port from 1 to 65535");
    EXPECT_EQ(OpenError("pcap:/nonexistent/x", &good),
              "cannot read capture /nonexistent/x: No such file or directory");
    EXPECT_EQ(OpenError("x", &good),
              "cannot open TLS source \"x\": it is none of pcap:FILE, interface:NAME");
    EXPECT_EQ(OpenError(nullptr, &good),
              "cannot open TLS source \"\": it is none of pcap:FILE, interface:NAME");
    const std::string error = OpenError("interface:nonexistent0", &good);
    EXPECT_EQ(error.find("cannot read interface nonexistent0: "), 0u) << error;
}
