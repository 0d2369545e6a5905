#pragma once

#include <chrono>
#include <cstring>
#include <memory>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "Credentials.h"
#include "SSLCertThreadPeer.h"
#include "kdi/ssl.h"
#include "kdi/testing.h"
#include "velm/Dom.h"

constexpr const wchar_t* kServiceTrace = L"plg.ostrel.SSLCertThread";
constexpr uint16_t kSsl3 = 0x0003;   // version bytes 3, 0
constexpr uint16_t kTls12 = 0x0303;  // 3, 3

// Waits for what another thread does. The limit is far beyond what a slow machine needs.
template <typename Condition>
bool Becomes(const Condition& condition) {
    for (int i = 0; i < 6000; ++i) {
        if (condition()) return true;
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return false;
}

// An encrypted secret and what it decrypts to.
struct Vector {
    std::string encrypted;
    std::string secret;
};

inline Vector FindVector(const std::string& name) {
    std::ifstream file(CredentialPath("premaster-vectors.txt"));
    for (std::string line; std::getline(file, line);) {
        std::istringstream fields(line);
        std::string found, key, secret, encrypted;
        std::getline(fields, found, '|');
        std::getline(fields, key, '|');
        std::getline(fields, secret, '|');
        std::getline(fields, encrypted, '|');
        if (found == name) return {FromHex(encrypted), FromHex(secret)};
    }
    ADD_FAILURE() << "no vector " << name;
    return {};
}

// A request's header with its data behind it, as an item of the queue has them.
struct Request {
    ssl_request_st header;
    std::string data;

    // `context` is cut or filled with dots.
    Request(int configuration, const std::string& bytes, const std::string& context = "context",
            uint16_t version = kTls12)
        : data(bytes) {
        memset(&header, 0, sizeof header);
        header.preMasterLen = static_cast<uint32_t>(data.size());
        header.sslConfigurationId = configuration;
        header.keyExchangeMethod = 1;
        header.protocolVersion = version;
        memset(header.connectionContext, '.', sizeof header.connectionContext);
        memcpy(header.connectionContext, context.data(),
               std::min(context.size(), sizeof header.connectionContext));
    }
    // As TLS sends a secret: behind its length in two bytes, which nobody reads.
    static Request Tls(int configuration, const std::string& encrypted,
                       const std::string& context = "context") {
        return Request(configuration, "??" + encrypted, context);
    }

    std::string Item() const {
        return std::string(reinterpret_cast<const char*>(&header), sizeof header) + data;
    }
    // The response with that secret; without one, the failure.
    std::string Response(const std::string& secret = "") const {
        const uint32_t length = static_cast<uint32_t>(secret.size());
        return std::string(reinterpret_cast<const char*>(&length), sizeof length) +
               std::string(reinterpret_cast<const char*>(header.connectionContext), 52) + secret +
               std::string(4, '\0');
    }
};

// The service with a policy of the test keys: host configuration 1 has the key of 2048 bits, 2 that
// of 4096, 3 that of 1024, 4 a credential that is not there, 5 no credential, 6 a key larger than
// any answer.
class SSLServiceTest : public ::testing::Test {
protected:
    SSLServiceTest() {
        kdi_testing_keep_ssl_responses(1);
        SetPolicy(Policy());
        VelmCore::TakeLog();
        VelmCore::TakeTrace();
        ERR_clear_error();
    }
    ~SSLServiceTest() override {
        Stop();
        VelmCore::EnableTrace(kServiceTrace, false);
        VelmCore::UseSystemClock();
        kdi_testing_keep_ssl_responses(0);
        kdi_testing_fail_open(0);
        kdi_testing_fail_ssl_response(0);
    }

    static std::string Host(int id, int credential, const std::string& name = "host") {
        return "<SSLHostConfiguration id=\"" + std::to_string(id) + "\" name=\"" + name +
               "\" sslCredentialId=\"" + std::to_string(credential) + "\"/>";
    }
    static std::string Pem(int id, const std::string& path) {
        return "<SSLCredential id=\"" + std::to_string(id) +
               "\" credentialType=\"PEM\" identifier=\"" + path + "\"/>";
    }
    static std::string Document(const std::string& credentials, const std::string& hosts) {
        return "<SecurityConfiguration><SSLCredentials>" + credentials +
               "</SSLCredentials><SSLHostConfigurations>" + hosts +
               "</SSLHostConfigurations></SecurityConfiguration>";
    }
    static std::string Policy() {
        return Document(Pem(11, CredentialPath("rsa2048.key.pem")) +
                            Pem(12, CredentialPath("rsa4096.key.pem")) +
                            Pem(13, CredentialPath("rsa1024.key.pem")) +
                            Pem(14, CredentialPath("none.pem")) +
                            Pem(16, CredentialPath("rsa8448.key.pem")),
                        Host(1, 11) + Host(2, 12) + Host(3, 13) + Host(4, 14) +
                            Host(5, 99, "lonely") + Host(6, 16));
    }
    void SetPolicy(const std::string& xml) { ASSERT_EQ(m_Dom.ConfigSetXml(xml), ""); }

    OSTREL::CSSLCertThread& Service() {
        if (!m_Service) m_Service = std::make_unique<OSTREL::CSSLCertThread>(m_Dom);
        return *m_Service;
    }
    OSTREL::SSLCertThreadPeer Peer() { return {Service()}; }
    // Reads the policy, as the service does when it starts.
    void ReadPolicy() { Service().OnSecurityConfigurationChanged(); }
    void Start() { ASSERT_TRUE(Service().start(50, true, 0)); }
    // Ends the agent, and the service with it.
    void Stop() {
        m_Dom.RequestExit();
        kdi_wake_ssl_readers();
        if (!m_Service) return;
        m_Service->join();
        m_Service->ShutdownWorkerThreads();  // of a service that was never started
        m_Service.reset();
    }

    static void Post(const Request& request) {
        ASSERT_EQ(kdi_testing_post_ssl_request(&request.header, request.data.data(),
                                               static_cast<unsigned int>(request.data.size())),
                  0);
    }
    // The oldest response that was not taken yet, or nothing.
    static std::string TakeResponse() {
        std::string response(kdi_testing_take_ssl_response(nullptr, 0), '\0');
        if (!response.empty())
            kdi_testing_take_ssl_response(response.data(),
                                          static_cast<unsigned int>(response.size()));
        return response;
    }
    // The responses so far.
    static Texts Responses() {
        Texts responses;
        for (std::string next = TakeResponse(); !next.empty(); next = TakeResponse())
            responses.push_back(std::move(next));
        return responses;
    }
    // The next response, for which it waits.
    static std::string NextResponse() {
        std::string response;
        Becomes([&] {
            response = TakeResponse();
            return !response.empty();
        });
        return response;
    }
    static Texts TraceMessages() {
        Texts messages;
        for (const VelmCore::TraceLine& line : VelmCore::TakeTrace())
            messages.push_back(Utf8(line.message));
        return messages;
    }
    static void TraceOn() { VelmCore::EnableTrace(kServiceTrace, true); }

    VelmCore::CDom m_Dom;

private:
    std::unique_ptr<OSTREL::CSSLCertThread> m_Service;
};

// A worker of the service that has no thread: the test calls its operations.
class SSLWorkerTest : public SSLServiceTest {
protected:
    SSLWorkerTest() : m_Handle(kdi_open()) {
        ReadPolicy();
        OSTREL::SSLCertThreadPeer::SetHandle(m_Worker, m_Handle);
    }
    ~SSLWorkerTest() override { kdi_close(m_Handle); }

    bool Process(const Request& request) {
        const std::string item = request.Item();
        return m_Worker.ProcessSSLCertRequest(reinterpret_cast<const ssl_request_st*>(item.data()));
    }

    const kdi_handle_t m_Handle;
    OSTREL::CSSLCertThreadWorker m_Worker{Service(), 0, 0};
};
