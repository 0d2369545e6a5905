#pragma once

#include <cstdint>
#include <deque>
#include <memory>
#include <string>
#include <vector>

#include <wx/thread.h>

#include "kdi/ssl.h"
#include "policy/SSLCredential.h"
#include "policy/SSLHostConfiguration.h"
#include "velm/Runnable.h"

namespace VelmCore {
class CDom;
}

namespace OSTREL {

class CSSLCertThreadWorker;

// The SSL key service: the thread that takes the driver's requests into a bounded queue, and the
// owner of the pool of workers that answer them. It ends when the agent does.
//
// Locks: m_WorkersMutex before m_QueueMutex or m_ConditionMutex; m_ConfigMutex is taken alone.
class CSSLCertThread : public VelmCore::CRunnable {
public:
    explicit CSSLCertThread(VelmCore::CDom& dom);
    // Does not stop workers: that is OnExit's task.
    ~CSSLCertThread() override;

    const char* GetThreadName() const override { return "CSSLCertThread"; }
    void interrupt() override { CRunnable::interrupt(); }
    void OnRun() override;
    // Reader: queues one request of the driver, whose `dataLen` bytes of `data` stay the driver's.
    // True to go on reading.
    virtual bool ProcessDriverData(kdi_handle_t handle, ssl_request_st* request,
                                   unsigned char* data, unsigned int dataLen);

    // Reads credentials and host configurations from the policy; workers then drop their keys. Any
    // thread.
    void OnSecurityConfigurationChanged();

    // Joins workers that have left, and starts new ones if the queue calls for them: one for eight
    // items.
    void ManageWorkerThreads(unsigned int queueLength);
    // Stops all workers and waits for them, at most as long as a worker waits for work.
    void ShutdownWorkerThreads();

    // Copies a host configuration and its credential. False if there are no such two; `host` may be
    // filled even so. Any thread.
    bool GetSSLCredential(int configurationId, CSSLHostConfiguration& host,
                          CSSLCredential& credential);
    // Answers a request on the calling thread's own handle. Without data it tells the driver that
    // the request failed. False if the driver did not take it. Any thread.
    bool SendSSLCertResponse(kdi_handle_t handle, const ssl_request_st* request, const void* data,
                             unsigned int dataLen);

protected:
    void OnExit() override;

private:
    friend class CSSLCertThreadWorker;
    friend struct SSLCertThreadPeer;  // tests
    // Serves one driver handle: until the agent ends or the driver fails.
    void ServeConnection();
    void RegisterEvent(kdi_handle_t handle);
    void ReadRequests(kdi_handle_t handle);
    // The queue's new length, or 0 for a request that was refused because it is full.
    unsigned int QueueRequest(kdi_handle_t handle, const ssl_request_st* request,
                              const unsigned char* data, unsigned int dataLen);
    void SignalWorker();
    void TraceQueue(unsigned int addedCount);
    unsigned int ReapWorkers();
    bool IsServing(unsigned int slot) const;

    const bool m_TraceEnabled;
    VelmCore::CDom& m_Dom;
    unsigned long m_EventHandle = 0;  // nothing sets it
    uint32_t m_MaxWorkers;
    uint32_t m_CpuCount;
    std::unique_ptr<std::unique_ptr<CSSLCertThreadWorker>[]> m_Workers;  // m_MaxWorkers slots
    wxMutex m_WorkersMutex{wxMUTEX_RECURSIVE};                           // guards m_Workers
    wxMutex m_ConfigMutex{wxMUTEX_RECURSIVE};                            // guards the lists below
    CSSLCredentials m_Credentials;
    CSSLHostConfigurations m_HostConfigurations;
    // A request's header with its data behind it. An empty item is the stop mark.
    std::deque<std::string> m_WorkQueue;
    wxMutex m_QueueMutex{wxMUTEX_RECURSIVE};  // guards m_WorkQueue
    wxMutex m_ConditionMutex;
    std::unique_ptr<wxCondition> m_Condition;  // signalled for an item in the queue
    uint32_t m_QueueSizeMax;
};

}  // namespace OSTREL
