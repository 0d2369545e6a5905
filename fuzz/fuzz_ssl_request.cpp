// Arbitrary bytes as a request of the driver: its header, then its data. It goes through reader and
// worker, and gets at most one answer, of its own.
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/rsa.h>
#include <sys/mman.h>
#include <wx/init.h>

#include "Input.h"
#include "SSLCertThread.h"
#include "SSLCertThreadPeer.h"
#include "SSLCertThreadWorker.h"
#include "kdi/ssl.h"
#include "kdi/testing.h"
#include "velm/Dom.h"
#include "velm/Log.h"

namespace {

using Fuzz::Require;
using OSTREL::SSLCertThreadPeer;

constexpr int kConfigurations = 3;  // 0 is missing, 1 has a key, 2 has a credential that is none

// PEM of a new key, base64 on one line.
std::string NewCredential() {
    EVP_PKEY* key = EVP_RSA_gen(1024);
    BIO* memory = BIO_new(BIO_s_mem());
    PEM_write_bio_PrivateKey(memory, key, nullptr, nullptr, 0, nullptr, nullptr);
    char* pem = nullptr;
    const long length = BIO_get_mem_data(memory, &pem);
    std::string text(static_cast<size_t>(length) * 2, '\0');
    text.resize(static_cast<size_t>(EVP_EncodeBlock(reinterpret_cast<unsigned char*>(text.data()),
                                                    reinterpret_cast<const unsigned char*>(pem),
                                                    static_cast<int>(length))));
    BIO_free_all(memory);
    EVP_PKEY_free(key);
    return text;
}

// A copy of bytes that ends where no memory follows: the sanitizers do not see what OpenSSL reads.
class GuardedCopy {
public:
    explicit GuardedCopy(const std::string& bytes)
        : m_Size((bytes.size() + PAGE - 1) / PAGE * PAGE + PAGE),
          m_Memory(
              mmap(nullptr, m_Size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0)) {
        Require(m_Memory != MAP_FAILED, "there is memory");
        char* const guard = static_cast<char*>(m_Memory) + m_Size - PAGE;
        Require(mprotect(guard, PAGE, PROT_NONE) == 0, "the guard is set");
        m_Data = guard - bytes.size();
        memcpy(m_Data, bytes.data(), bytes.size());
    }
    ~GuardedCopy() { munmap(m_Memory, m_Size); }
    GuardedCopy(const GuardedCopy&) = delete;
    GuardedCopy& operator=(const GuardedCopy&) = delete;

    const char* Data() const { return m_Data; }

private:
    static constexpr size_t PAGE = 4096;

    const size_t m_Size;
    void* const m_Memory;
    char* m_Data;
};

// A service without threads: the target does their work.
class Service {
public:
    Service() {
        VelmCore::InstallLog("");
        const wxString reason = m_Dom.ConfigSetXml(
            "<SecurityConfiguration><SSLCredentials><SSLCredential id='1' credentialType='PEM' "
            "credential='" +
            NewCredential() +
            "'/><SSLCredential id='2'/></SSLCredentials><SSLHostConfigurations>"
            "<SSLHostConfiguration id='1' sslCredentialId='1'/>"
            "<SSLHostConfiguration id='2' sslCredentialId='2'/>"
            "</SSLHostConfigurations></SecurityConfiguration>");
        Require(reason.empty(), "the policy is read");
        m_Thread = std::make_unique<OSTREL::CSSLCertThread>(m_Dom);
        m_Thread->OnSecurityConfigurationChanged();
        SSLCertThreadPeer{*m_Thread}.SetMaxWorkers(0);
        m_Worker = std::make_unique<OSTREL::CSSLCertThreadWorker>(*m_Thread, 0, 0);
        SSLCertThreadPeer::SetHandle(*m_Worker, m_Handle);
        kdi_testing_keep_ssl_responses(1);
    }

    void Read(ssl_request_st request, std::vector<unsigned char>& data) {
        Require(m_Thread->ProcessDriverData(m_Handle, &request, data.data(),
                                            static_cast<unsigned int>(data.size())),
                "reading goes on");
    }
    // The item that was queued, or nothing.
    std::string TakeItem() { return SSLCertThreadPeer{*m_Thread}.TakeItem(); }
    void Work(const std::string& item) {
        const GuardedCopy copy(item);
        m_Worker->ProcessSSLCertRequest(reinterpret_cast<const ssl_request_st*>(copy.Data()));
    }

private:
    wxInitializer m_Wx;
    VelmCore::CDom m_Dom;
    const kdi_handle_t m_Handle = kdi_open();
    std::unique_ptr<OSTREL::CSSLCertThread> m_Thread;
    std::unique_ptr<OSTREL::CSSLCertThreadWorker> m_Worker;
};

// Takes the one response that there must be.
void CheckResponse(const ssl_request_st& request) {
    std::string response(kdi_testing_take_ssl_response(nullptr, 0), '\0');
    Require(response.size() >= sizeof(ssl_response_st), "there is an answer");
    kdi_testing_take_ssl_response(response.data(), static_cast<unsigned int>(response.size()));
    ssl_response_st header;
    memcpy(&header, response.data(), sizeof header);
    Require(response.size() == sizeof header + header.dataLen, "its size is that of its parts");
    Require(memcmp(header.connectionContext, request.connectionContext,
                   sizeof header.connectionContext) == 0,
            "its context is the request's");
    Require(response.compare(response.size() - 4, 4, std::string(4, '\0')) == 0,
            "its tail is zero");
    Require(kdi_testing_take_ssl_response(nullptr, 0) == 0, "it is the only one");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
    static Service service;
    Fuzz::Input input(bytes, size);
    ssl_request_st request;
    std::string header = input.TakeBytes(sizeof request);
    header.resize(sizeof request);
    memcpy(&request, header.data(), sizeof request);
    request.sslConfigurationId =
        static_cast<int32_t>(static_cast<uint32_t>(request.sslConfigurationId) % kConfigurations);
    const std::string rest = input.TakeRest();
    std::vector<unsigned char> data(rest.begin(), rest.end());
    service.Read(request, data);
    const std::string item = service.TakeItem();
    if (!item.empty()) {
        Require(item.size() == sizeof request + data.size(), "an item is header and data");
        service.Work(item);
    }
    const bool isAnswered = data.size() >= request.preMasterLen;
    if (isAnswered)
        CheckResponse(request);
    else
        Require(kdi_testing_take_ssl_response(nullptr, 0) == 0, "bad data gets no answer");
    VelmCore::TakeLog();
    return 0;
}
