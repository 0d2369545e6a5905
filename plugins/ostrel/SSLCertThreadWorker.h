#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <unordered_map>

#include "RSAKey.h"
#include "kdi/ssl.h"
#include "velm/Runnable.h"

namespace OSTREL {

class CSSLCertThread;

// A key in a worker's cache.
struct RSAKeyPtr {
    uint32_t m_LastUsedTicks;
    std::unique_ptr<CRSAKey> m_Key;
};

// By the id of a host configuration.
typedef std::unordered_map<int, RSAKeyPtr> IntToRSAKeyPtrMap;

// A thread of the pool: takes items off the owner's queue and answers them, with keys of its own.
// Ends by itself when there has been no work for five minutes. All but the constructor and
// InvalidateKeyCache runs on its own thread.
class CSSLCertThreadWorker : public VelmCore::CRunnable {
public:
    // `id` is the slot in the pool. The owner outlives the worker.
    CSSLCertThreadWorker(CSSLCertThread& owner, int id, int processor);
    ~CSSLCertThreadWorker() override;

    const char* GetThreadName() const override { return m_Name; }
    void OnRun() override;

    // Answers one request, whose preMasterLen bytes of data lie right behind the header. False if
    // there is no key for it.
    bool ProcessSSLCertRequest(const ssl_request_st* request);
    // The key, which stays the cache's, or null.
    CRSAKey* GetKey(int configurationId);
    void ClearKeyCache();
    // Drops keys that were not used for a minute.
    void CullKeyCache();
    // Makes the worker drop its keys before it uses one again. Any thread.
    void InvalidateKeyCache();

protected:
    void OnExit() override;

private:
    friend struct SSLCertThreadPeer;  // tests
    // What the queue has for this worker.
    enum class Fetched { Nothing, Item, StopMark };
    Fetched Fetch(std::string& item);
    // Serves the queue until it is empty or the worker is to end. False if it is to end at once.
    bool ServeQueue(uint32_t& lastWork);
    bool ShouldLeave();
    void WaitForWork();
    bool IsAcceptable(const CRSAKey& key, const ssl_request_st* request, unsigned int len);
    bool Answer(CRSAKey& key, const ssl_request_st* request);

    std::atomic<bool> m_KeyCacheInvalid{false};
    CSSLCertThread& m_Owner;
    kdi_handle_t m_Handle = nullptr;
    IntToRSAKeyPtrMap m_KeyCache;
    char m_Name[32];
    const int m_Id;
};

}  // namespace OSTREL
