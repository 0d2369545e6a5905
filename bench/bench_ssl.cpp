// The SSL key service: requests a second with keys of 2048 bits, and what the way through queue and
// threads adds to the time of one decryption.

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <benchmark/benchmark.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/rsa.h>
#include <wx/init.h>

#include "RSAKey.h"
#include "SSLCertThread.h"
#include "kdi/ssl.h"
#include "kdi/testing.h"
#include "policy/SSLCredential.h"
#include "velm/Dom.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr size_t kSecretSize = 48;
constexpr int kKeySize = 256;  // bytes
constexpr int kRequests = 2000;
constexpr int kAhead = 200;  // requests under way; less than the queue holds

void Require(bool holds) {
    if (!holds) abort();
}

// A key, its credential, and a secret that it decrypts.
struct Key {
    std::string credential;  // PEM, base64 on one line
    std::string encrypted;

    Key() {
        EVP_PKEY* key = EVP_RSA_gen(8 * kKeySize);
        BIO* memory = BIO_new(BIO_s_mem());
        PEM_write_bio_PrivateKey(memory, key, nullptr, nullptr, 0, nullptr, nullptr);
        char* pem = nullptr;
        const long length = BIO_get_mem_data(memory, &pem);
        credential.resize(static_cast<size_t>(length) * 2);
        credential.resize(static_cast<size_t>(EVP_EncodeBlock(
            reinterpret_cast<unsigned char*>(credential.data()),
            reinterpret_cast<const unsigned char*>(pem), static_cast<int>(length))));
        BIO_free_all(memory);
        Encrypt(key);
        EVP_PKEY_free(key);
    }

private:
    void Encrypt(EVP_PKEY* key) {
        const unsigned char secret[kSecretSize] = {3, 3};
        encrypted.resize(kKeySize);
        size_t length = encrypted.size();
        EVP_PKEY_CTX* context = EVP_PKEY_CTX_new(key, nullptr);
        Require(EVP_PKEY_encrypt_init(context) == 1 &&
                EVP_PKEY_encrypt(context, reinterpret_cast<unsigned char*>(encrypted.data()),
                                 &length, secret, sizeof secret) == 1);
        EVP_PKEY_CTX_free(context);
    }
};

const Key& TheKey() {
    static const Key key;
    return key;
}

// The running service, and the driver's side of it.
class Service {
public:
    Service() {
        m_Dom.ConfigSetXml(
            "<SecurityConfiguration><SSLCredentials><SSLCredential id='1' credentialType='PEM' "
            "credential='" +
            TheKey().credential +
            "'/></SSLCredentials><SSLHostConfigurations><SSLHostConfiguration id='1' "
            "sslCredentialId='1'/></SSLHostConfigurations></SecurityConfiguration>");
        kdi_testing_keep_ssl_responses(1);
        m_Thread = std::make_unique<OSTREL::CSSLCertThread>(m_Dom);
        Require(m_Thread->start(50, true, 0));
        Post();
        while (!Take())
            std::this_thread::yield();
    }
    ~Service() {
        m_Dom.RequestExit();
        kdi_wake_ssl_readers();
        m_Thread->join();
        kdi_testing_keep_ssl_responses(0);
    }

    static void Post() {
        ssl_request_st request{};
        const std::string data = "??" + TheKey().encrypted;
        request.preMasterLen = static_cast<uint32_t>(data.size());
        request.sslConfigurationId = 1;
        request.keyExchangeMethod = SSL_KEY_EXCHANGE_RSA;
        request.protocolVersion = 0x0303;
        Require(kdi_testing_post_ssl_request(&request, data.data(),
                                             static_cast<unsigned int>(data.size())) == 0);
    }
    // Takes an answer if one is there. It must be a secret.
    static bool Take() {
        char response[sizeof(ssl_response_st) + kSecretSize];
        const unsigned int size = kdi_testing_take_ssl_response(response, sizeof response);
        Require(size == 0 || size == sizeof response);
        return size != 0;
    }

private:
    wxInitializer m_Wx;
    VelmCore::CDom m_Dom;
    std::unique_ptr<OSTREL::CSSLCertThread> m_Thread;
};

void SslThroughput(benchmark::State& state) {
    const Service service;
    for (auto _ : state) {
        int posted = 0;
        for (int answered = 0; answered < kRequests;) {
            for (; posted < kRequests && posted - answered < kAhead; ++posted)
                Service::Post();
            if (Service::Take())
                ++answered;
            else  // leaves the processors to the service
                std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
    }
    state.SetItemsProcessed(state.iterations() * kRequests);
}
BENCHMARK(SslThroughput)->UseRealTime()->Unit(benchmark::kMillisecond);

double MedianMicroseconds(std::vector<Clock::duration>& samples) {
    const auto middle = samples.begin() + static_cast<std::ptrdiff_t>(samples.size() / 2);
    std::nth_element(samples.begin(), middle, samples.end());
    return std::chrono::duration<double, std::micro>(*middle).count();
}

std::vector<Clock::duration> DecryptDirectly(int count) {
    OSTREL::CSSLCredential credential;
    credential.m_CredentialType = "PEM";
    credential.m_Credential = TheKey().credential;
    const std::unique_ptr<OSTREL::CRSAKey> key(OSTREL::CRSAKey::Create(credential, nullptr));
    std::vector<Clock::duration> samples;
    for (int i = 0; i < count; ++i) {
        unsigned char secret[kKeySize];
        unsigned int length = 0;
        const Clock::time_point begin = Clock::now();
        Require(key->Decrypt(kKeySize, TheKey().encrypted.data(), secret, sizeof secret, length));
        samples.push_back(Clock::now() - begin);
    }
    return samples;
}

// One request at a time. `added_us`: its median time from post to answer, less that of a bare
// decryption.
void SslLatency(benchmark::State& state) {
    const Service service;
    std::vector<Clock::duration> samples;
    for (auto _ : state) {
        const Clock::time_point begin = Clock::now();
        Service::Post();
        while (!Service::Take())
            std::this_thread::yield();
        samples.push_back(Clock::now() - begin);
    }
    std::vector<Clock::duration> direct = DecryptDirectly(200);
    state.counters["added_us"] = MedianMicroseconds(samples) - MedianMicroseconds(direct);
}
BENCHMARK(SslLatency)->UseRealTime()->Unit(benchmark::kMicrosecond);

}  // namespace
