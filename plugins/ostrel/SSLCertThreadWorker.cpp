#include "SSLCertThreadWorker.h"

#include <cstdio>

#include <wx/log.h>

#include "DriverHandle.h"
#include "SSLCertThread.h"
#include "Trace.h"
#include "velm/Clock.h"
#include "velm/Dom.h"

namespace OSTREL {

namespace {

const wchar_t* const s_Trace = L"plg.ostrel.SSLCertThread";

constexpr unsigned long kQueueWaitMsec = 10000;
constexpr uint32_t kCullPeriodMsec = 10000;
constexpr uint32_t kKeyIdleMsec = 60000;
constexpr uint32_t kWorkerIdleMsec = 300000;

constexpr unsigned int kLastOldMajorVersion = 2;
constexpr uint16_t kVersionSsl3 = 3;          // major 3, minor 0, as a little-endian number
constexpr unsigned int kTlsLengthPrefix = 2;  // bytes
constexpr unsigned int kSecretSizeMax = 1024;

// Milliseconds since `ticks`, right across a wrap of the clock.
uint32_t Since(uint32_t ticks) {
    return VelmCore::SystemTickCount() - ticks;
}

}  // namespace

CSSLCertThreadWorker::CSSLCertThreadWorker(CSSLCertThread& owner, int id, int processor)
    : CRunnable(false, processor, false), m_Owner(owner), m_Id(id) {
    snprintf(m_Name, sizeof m_Name, "CSSLCertThreadWorker%d", m_Id);
}

CSSLCertThreadWorker::~CSSLCertThreadWorker() = default;

void CSSLCertThreadWorker::OnRun() {
    uint32_t lastCull = VelmCore::SystemTickCount();
    uint32_t lastWork = lastCull;
    OSTREL_TRACE(s_Trace, "%.64s::OnRun()", m_Name);
    m_Handle = kdi_open();
    if (m_Handle == nullptr) {
        wxLogError("%s shutting down since kdi_open() failed: %s", m_Name, DriverError(nullptr));
        return;
    }
    while (!ShouldLeave()) {
        if (Since(lastCull) > kCullPeriodMsec) {
            CullKeyCache();
            lastCull = VelmCore::SystemTickCount();
        }
        if (Since(lastWork) > kWorkerIdleMsec) {
            OSTREL_TRACE(s_Trace, "%.64s: shutting down since we're idle", m_Name);
            return;
        }
        if (!ServeQueue(lastWork)) return;
        if (!ShouldLeave()) WaitForWork();
    }
}

bool CSSLCertThreadWorker::ShouldLeave() {
    return m_Owner.m_Dom.ShouldExit(0, nullptr) || TestDestroy(0, nullptr);
}

bool CSSLCertThreadWorker::ServeQueue(uint32_t& lastWork) {
    std::string item;
    do {
        switch (Fetch(item)) {
            case Fetched::Nothing:
                return true;
            case Fetched::StopMark:
                OSTREL_TRACE(s_Trace, "%.64s: shutting down.", m_Name);
                return false;
            case Fetched::Item:
                break;
        }
        OSTREL_TRACE(s_Trace, "%.64s: pulled an item off the work queue.", m_Name);
        ProcessSSLCertRequest(reinterpret_cast<const ssl_request_st*>(item.data()));
        lastWork = VelmCore::SystemTickCount();
    } while (!ShouldLeave());
    return true;
}

CSSLCertThreadWorker::Fetched CSSLCertThreadWorker::Fetch(std::string& item) {
    item.clear();
    const wxMutexLocker lock(m_Owner.m_QueueMutex);
    if (m_Owner.m_WorkQueue.empty()) return Fetched::Nothing;
    item = std::move(m_Owner.m_WorkQueue.front());
    m_Owner.m_WorkQueue.pop_front();
    if (!item.empty()) return Fetched::Item;
    // The mark stays, for every other worker to see.
    m_Owner.m_WorkQueue.emplace_back();
    return Fetched::StopMark;
}

// An item that is queued between the look at the queue and this wait may not end it: the limit
// bounds that delay.
void CSSLCertThreadWorker::WaitForWork() {
    const wxMutexLocker lock(m_Owner.m_ConditionMutex);
    m_Owner.m_Condition->WaitTimeout(kQueueWaitMsec);
}

void CSSLCertThreadWorker::OnExit() {
    OSTREL_TRACE(s_Trace, "%.64s::OnExit()", m_Name);
    ClearKeyCache();
    if (m_Handle != nullptr) kdi_close(m_Handle);
    m_Handle = nullptr;
    CRunnable::OnExit();
}

bool CSSLCertThreadWorker::ProcessSSLCertRequest(const ssl_request_st* request) {
    CRSAKey* key = GetKey(request->sslConfigurationId);
    const bool answered = key != nullptr && Answer(*key, request);
    if (!answered) m_Owner.SendSSLCertResponse(m_Handle, request, nullptr, 0);
    return key != nullptr;
}

// `len` is what the request leaves for the secret.
bool CSSLCertThreadWorker::IsAcceptable(const CRSAKey& key, const ssl_request_st* request,
                                        unsigned int len) {
    if (request->keyExchangeMethod != SSL_KEY_EXCHANGE_RSA) {
        wxLogError("%.64s::ProcessSSLCertRequest() - Unsupported key exchange method = %d", m_Name,
                   static_cast<int>(request->keyExchangeMethod));
        return false;
    }
    if ((request->protocolVersion & 0xFF) <= kLastOldMajorVersion) {
        wxLogError("%.64s::ProcessSSLCertRequest() - Unsupported Protocol version", m_Name);
        return false;
    }
    // A key may be larger than the buffer for what it decrypts. Its secrets never fit either.
    const auto* sized = dynamic_cast<const CRSAOpenSSLKey*>(&key);
    if (len > kSecretSizeMax || (sized != nullptr && sized->GetModulusSize() > kSecretSizeMax)) {
        wxLogError("%.64s::ProcessSSLCertRequest() - premaster key too large", m_Name);
        return false;
    }
    return true;
}

bool CSSLCertThreadWorker::Answer(CRSAKey& key, const ssl_request_st* request) {
    const unsigned int skip = request->protocolVersion == kVersionSsl3 ? 0 : kTlsLengthPrefix;
    const unsigned int len = request->preMasterLen - skip;  // wraps for less than the prefix
    if (!IsAcceptable(key, request, len)) return false;
    const auto* data = reinterpret_cast<const unsigned char*>(request + 1);
    unsigned char secret[kSecretSizeMax];
    unsigned int secretLen = 0;
    return key.Decrypt(len, data + skip, secret, sizeof secret, secretLen) &&
           m_Owner.SendSSLCertResponse(m_Handle, request, secret, secretLen);
}

CRSAKey* CSSLCertThreadWorker::GetKey(int configurationId) {
    if (m_KeyCacheInvalid) ClearKeyCache();
    const auto found = m_KeyCache.find(configurationId);
    if (found != m_KeyCache.end()) {
        OSTREL_TRACE(s_Trace,
                     "%.64s: found existing key for SSL configuration %d in my private key cache",
                     m_Name, configurationId);
        found->second.m_LastUsedTicks = VelmCore::SystemTickCount();
        return found->second.m_Key.get();
    }
    CSSLCredential credential;
    CSSLHostConfiguration host;
    if (!m_Owner.GetSSLCredential(configurationId, host, credential)) {
        wxLogError(
            "%.64s::GetKey() - unable to locate SSL credential for SSL host configuration "
            "'%.128s' with ID %d",
            m_Name, host.m_Name.empty() ? wxString("<Not Found>") : host.m_Name, configurationId);
        return nullptr;
    }
    std::unique_ptr<CRSAKey> key(CRSAKey::Create(credential, nullptr));
    if (key == nullptr) return nullptr;
    OSTREL_TRACE(s_Trace, "%.64s: adding key for SSL configuration %d to my private key cache",
                 m_Name, configurationId);
    RSAKeyPtr& entry = m_KeyCache[configurationId];
    entry = RSAKeyPtr{VelmCore::SystemTickCount(), std::move(key)};
    return entry.m_Key.get();
}

void CSSLCertThreadWorker::ClearKeyCache() {
    OSTREL_TRACE(s_Trace, "%.64s::ClearKeyCache()", m_Name);
    m_KeyCache.clear();
    m_KeyCacheInvalid = false;
}

void CSSLCertThreadWorker::CullKeyCache() {
    if (m_KeyCacheInvalid) {
        ClearKeyCache();
        return;
    }
    const uint32_t now = VelmCore::SystemTickCount();
    for (auto entry = m_KeyCache.begin(); entry != m_KeyCache.end();) {
        if (now - entry->second.m_LastUsedTicks <= kKeyIdleMsec) {
            ++entry;
            continue;
        }
        OSTREL_TRACE(
            s_Trace,
            "%.64s: removing key for SSL configuration %d from my private key cache due to "
            "inactivity",
            m_Name, entry->first);
        entry = m_KeyCache.erase(entry);
    }
}

void CSSLCertThreadWorker::InvalidateKeyCache() {
    OSTREL_TRACE(s_Trace, "%.64s::InvalidateKeyCache()", m_Name);
    m_KeyCacheInvalid = true;
}

}  // namespace OSTREL
