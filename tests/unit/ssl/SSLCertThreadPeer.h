#pragma once

#include <deque>
#include <string>

#include "SSLCertThread.h"
#include "SSLCertThreadWorker.h"

namespace OSTREL {

// Looks into the service, for tests.
struct SSLCertThreadPeer {
    CSSLCertThread& thread;

    uint32_t MaxWorkers() const { return thread.m_MaxWorkers; }
    uint32_t CpuCount() const { return thread.m_CpuCount; }
    uint32_t QueueSizeMax() const { return thread.m_QueueSizeMax; }
    void SetMaxWorkers(uint32_t count) { thread.m_MaxWorkers = count; }
    void SetQueueSizeMax(uint32_t size) { thread.m_QueueSizeMax = size; }
    void SetEvent(unsigned long event) { thread.m_EventHandle = event; }

    bool HasSlots() const { return thread.m_Workers != nullptr; }
    CSSLCertThreadWorker* Worker(uint32_t slot) const { return thread.m_Workers[slot].get(); }
    uint32_t RunningWorkers() const {
        const wxMutexLocker lock(thread.m_WorkersMutex);
        uint32_t running = 0;
        if (thread.m_Workers == nullptr) return 0;
        for (uint32_t slot = 0; slot < thread.m_MaxWorkers; ++slot)
            running += thread.IsServing(slot) ? 1 : 0;
        return running;
    }

    size_t QueueLength() const {
        const wxMutexLocker lock(thread.m_QueueMutex);
        return thread.m_WorkQueue.size();
    }
    std::string Item(size_t index) const {
        const wxMutexLocker lock(thread.m_QueueMutex);
        return thread.m_WorkQueue.at(index);
    }
    void Append(const std::string& item) {
        const wxMutexLocker lock(thread.m_QueueMutex);
        thread.m_WorkQueue.push_back(item);
    }
    // Takes the oldest item off the queue; empty if there is none.
    std::string TakeItem() {
        const wxMutexLocker lock(thread.m_QueueMutex);
        if (thread.m_WorkQueue.empty()) return std::string();
        const std::string item = thread.m_WorkQueue.front();
        thread.m_WorkQueue.pop_front();
        return item;
    }
    // Ends the workers' wait for work.
    void WakeWorkers() {
        const wxMutexLocker lock(thread.m_ConditionMutex);
        thread.m_Condition->Broadcast();
    }

    static void SetHandle(CSSLCertThreadWorker& worker, kdi_handle_t handle) {
        worker.m_Handle = handle;
    }
    static size_t KeyCount(const CSSLCertThreadWorker& worker) { return worker.m_KeyCache.size(); }
    static bool HasKey(const CSSLCertThreadWorker& worker, int configurationId) {
        return worker.m_KeyCache.count(configurationId) != 0;
    }
    static bool IsCacheInvalid(const CSSLCertThreadWorker& worker) {
        return worker.m_KeyCacheInvalid;
    }
};

}  // namespace OSTREL
