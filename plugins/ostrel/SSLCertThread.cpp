#include "SSLCertThread.h"

#include <wx/log.h>

#include "DriverHandle.h"
#include "SSLCertThreadWorker.h"
#include "Trace.h"
#include "velm/Dom.h"

namespace OSTREL {

namespace {

const wchar_t* const s_Trace = L"plg.ostrel.SSLCertThread";

constexpr unsigned int kOpenRetryMsec = 10000;
constexpr unsigned int kReopenMsec = 250;
constexpr long long kThreadsPerCpu = 2;
constexpr uint32_t kItemsPerSlot = 128;  // of the queue
constexpr unsigned int kItemsPerWorker = 8;
constexpr unsigned int kPriority = 50;

}  // namespace

CSSLCertThread::CSSLCertThread(VelmCore::CDom& dom)
    : CRunnable(true, -1, false),
      m_TraceEnabled(VelmCore::LogTraceIsEnabled(s_Trace)),
      m_Dom(dom),
      m_Condition(std::make_unique<wxCondition>(m_ConditionMutex)) {
    const int processors = wxThread::GetCPUCount();
    m_CpuCount = processors > 0 ? static_cast<uint32_t>(processors) : 1;
    long long threadsPerCpu = kThreadsPerCpu;
    m_Dom.Get("plg.ostrel.SSL.ThreadsPerCpu", threadsPerCpu);
    m_MaxWorkers = static_cast<uint32_t>(threadsPerCpu) * m_CpuCount;
    if (m_MaxWorkers == 0) m_MaxWorkers = 1;
    long long queueSizeMax = m_MaxWorkers * kItemsPerSlot;
    m_Dom.Get("plg.ostrel.SSL.QueueSizeMax", queueSizeMax);
    m_QueueSizeMax = static_cast<uint32_t>(queueSizeMax);
    OSTREL_TRACE(s_Trace, "CSSLCertThread::Settings Cpu=%u TPC=%u MaxWorkers=%u QMax=%u",
                 m_CpuCount, static_cast<uint32_t>(threadsPerCpu), m_MaxWorkers, m_QueueSizeMax);
}

CSSLCertThread::~CSSLCertThread() = default;

void CSSLCertThread::OnRun() {
    OSTREL_TRACE(s_Trace, "CSSLCertThread::OnRun()");
    bool loadTest = false;
    m_Dom.Get("velm.mode.loadtest", loadTest);
    if (loadTest) return;
    ManageWorkerThreads(0);
    OnSecurityConfigurationChanged();
    while (!m_Dom.ShouldExit(0, nullptr))
        ServeConnection();
}

void CSSLCertThread::ServeConnection() {
    const kdi_handle_t handle = kdi_open();
    if (handle == nullptr) {
        wxLogError("kdi_open(): %s", DriverError(nullptr));
        m_Dom.ShouldExit(kOpenRetryMsec, nullptr);
        return;
    }
    const DriverHandle owner(handle);
    RegisterEvent(handle);
    ReadRequests(handle);
}

void CSSLCertThread::RegisterEvent(kdi_handle_t handle) {
    if (m_EventHandle == 0) return;
    if (kdi_register_event(handle, KDI_EVENT_SSL_REQUEST, m_EventHandle) != 0)
        wxLogError("kdi_register_event(): %s", DriverError(handle));
}

void CSSLCertThread::ReadRequests(kdi_handle_t handle) {
    while (!m_Dom.ShouldExit(0, nullptr)) {
        ssl_request_st request;
        unsigned char* data = nullptr;
        unsigned int dataLen = 0;
        if (kdi_get_ssl_request(handle, &request, &data, &dataLen) != 0) {
            m_Dom.ShouldExit(kReopenMsec, nullptr);
            return;
        }
        if (!ProcessDriverData(handle, &request, data, dataLen)) return;
    }
}

void CSSLCertThread::OnExit() {
    OSTREL_TRACE(s_Trace, "CSSLCertThread::OnExit()");
    ShutdownWorkerThreads();
    CRunnable::OnExit();
}

bool CSSLCertThread::IsServing(unsigned int slot) const {
    return m_Workers[slot] != nullptr && m_Workers[slot]->isRunning();
}

unsigned int CSSLCertThread::ReapWorkers() {
    unsigned int running = 0;
    for (uint32_t slot = 0; slot < m_MaxWorkers; ++slot) {
        if (IsServing(slot)) {
            ++running;
        } else if (m_Workers[slot] != nullptr) {
            m_Workers[slot]->join();
            m_Workers[slot].reset();
        }
    }
    return running;
}

void CSSLCertThread::ManageWorkerThreads(unsigned int queueLength) {
    const wxMutexLocker lock(m_WorkersMutex);
    if (m_Workers == nullptr)
        m_Workers = std::make_unique<std::unique_ptr<CSSLCertThreadWorker>[]>(m_MaxWorkers);
    unsigned int running = ReapWorkers();
    if (running * kItemsPerWorker < queueLength) {
        const unsigned int needed = (queueLength + kItemsPerWorker - 1) / kItemsPerWorker;
        for (uint32_t slot = 0; slot < m_MaxWorkers && running < needed; ++slot) {
            if (m_Workers[slot] != nullptr) continue;
            m_Workers[slot] = std::make_unique<CSSLCertThreadWorker>(
                *this, static_cast<int>(slot), static_cast<int>(slot % m_CpuCount));
            m_Workers[slot]->start(kPriority, true, 0);
            ++running;
        }
    }
    OSTREL_TRACE(s_Trace, "CSSLCertThread::Managing runningWorkers=%u", running);
}

void CSSLCertThread::ShutdownWorkerThreads() {
    const wxMutexLocker lock(m_WorkersMutex);
    if (m_Workers == nullptr) return;
    for (uint32_t slot = 0; slot < m_MaxWorkers; ++slot)
        if (IsServing(slot)) m_Workers[slot]->requestExit();
    {
        const wxMutexLocker queueLock(m_QueueMutex);
        m_WorkQueue.emplace_back();
    }
    {
        const wxMutexLocker conditionLock(m_ConditionMutex);
        if (m_Condition->Broadcast() != wxCOND_NO_ERROR) {
            wxLogSysError(
                "CSSLCertThread::ShutdownWorkerThreads() - error broadcasting to condition "
                "variable.");
        }
    }
    OSTREL_TRACE(s_Trace, "Waiting for %u worker threads to shut down.", m_MaxWorkers);
    for (uint32_t slot = 0; slot < m_MaxWorkers; ++slot) {
        if (m_Workers[slot] == nullptr) continue;
        m_Workers[slot]->StopThread(nullptr);
        m_Workers[slot].reset();
    }
    m_Workers.reset();
}

void CSSLCertThread::OnSecurityConfigurationChanged() {
    OSTREL_TRACE(s_Trace, "CSSLCertThread::OnSecurityConfigurationChanged()");
    {
        const wxMutexLocker lock(m_ConfigMutex);
        m_Dom.ConfigGetXml("/SecurityConfiguration/SSLCredentials", m_Credentials);
        m_Dom.ConfigGetXml("/SecurityConfiguration/SSLHostConfigurations", m_HostConfigurations);
    }
    const wxMutexLocker lock(m_WorkersMutex);
    if (m_Workers == nullptr) return;
    for (uint32_t slot = 0; slot < m_MaxWorkers; ++slot)
        if (IsServing(slot)) m_Workers[slot]->InvalidateKeyCache();
}

bool CSSLCertThread::GetSSLCredential(int configurationId, CSSLHostConfiguration& host,
                                      CSSLCredential& credential) {
    host.SetToDefaults();
    credential.SetToDefaults();
    const wxMutexLocker lock(m_ConfigMutex);
    for (const VelmCore::XMLObject* element : m_HostConfigurations.Children()) {
        const auto* candidate = static_cast<const CSSLHostConfiguration*>(element);
        if (candidate->m_Id != configurationId) continue;
        host.CopyFrom(*candidate);
        for (const VelmCore::XMLObject* key : m_Credentials.Children()) {
            const auto* keyCandidate = static_cast<const CSSLCredential*>(key);
            if (keyCandidate->m_Id != candidate->m_SSLCredentialId) continue;
            credential.CopyFrom(*keyCandidate);
            return true;
        }
    }
    return false;
}

}  // namespace OSTREL
