#include "velm/Runnable.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <exception>
#include <mutex>

#include <pthread.h>
#include <sched.h>
#include <wx/log.h>

#include "TraceSelf.h"
#include "velm/Log.h"

namespace VelmCore {

struct CRunnable::State {
    explicit State(int boundTo) : processor(boundTo) {}

    const int processor;  // -1: not bound
    std::atomic<bool> running{false};
    bool started = false;  // the owner's
    bool joined = false;   // the owner's

    std::mutex mutex;
    std::condition_variable changed;
    bool exitRequested = false;  // guarded by mutex
    bool awakened = false;       // guarded by mutex; taken back by the wait that it ends

    void Wake(bool& mark) {
        {
            std::lock_guard<std::mutex> lock(mutex);
            mark = true;
        }
        changed.notify_all();
    }
};

CRunnable::CRunnable(bool, int processor, bool)
    : wxThread(wxTHREAD_JOINABLE), m_State(std::make_unique<State>(processor)) {}

CRunnable::~CRunnable() {
    wxASSERT_MSG(!isRunning(), "a thread object is deleted while its thread runs");
    if (!isRunning()) join();
}

bool CRunnable::start(unsigned int priority, bool, unsigned int stackSize) {
    if (m_State->started) {
        wxLogError("%s: the thread was started before", GetThreadName());
        return false;
    }
    m_State->started = true;
    m_State->joined = true;  // until there is something to join
    if (Create(stackSize) != wxTHREAD_NO_ERROR) return false;
    if (priority != wxPRIORITY_DEFAULT) SetPriority(priority);
    m_State->running = true;
    m_State->joined = false;
    if (Run() == wxTHREAD_NO_ERROR) return true;
    m_State->running = false;
    m_State->joined = true;
    return false;
}

bool CRunnable::isRunning() const {
    return m_State->running;
}

void CRunnable::join() {
    if (!m_State->started || m_State->joined) return;
    Wait();
    m_State->joined = true;
}

void CRunnable::StopThread(const wchar_t*) {
    requestExit();
    interrupt();
    join();
}

wxThreadError CRunnable::Delete(void** exitCode) {
    StopThread(nullptr);
    if (exitCode) *exitCode = nullptr;
    return wxTHREAD_NO_ERROR;
}

const char* CRunnable::GetThreadName() const {
    return "CRunnable";
}

void CRunnable::Awaken() {
    m_State->Wake(m_State->awakened);
}

void CRunnable::interrupt() {
    m_State->Wake(m_State->awakened);
}

void CRunnable::requestExit() {
    m_State->Wake(m_State->exitRequested);
}

bool CRunnable::TestDestroy(unsigned int waitMsec, bool*) {
    std::unique_lock<std::mutex> lock(m_State->mutex);
    if (waitMsec > 0) {
        m_State->changed.wait_for(lock, std::chrono::milliseconds(waitMsec),
                                  [this] { return m_State->exitRequested || m_State->awakened; });
        m_State->awakened = false;
    }
    return m_State->exitRequested;
}

void CRunnable::OnRun() {}

void CRunnable::OnExit() {
    m_State->running = false;
}

void CRunnable::BindToProcessor() {
    if (m_State->processor < 0) return;
    const auto processor = static_cast<size_t>(m_State->processor);
    cpu_set_t set;
    CPU_ZERO(&set);
    if (processor < CPU_SETSIZE) CPU_SET(processor, &set);
    const int error = pthread_setaffinity_np(pthread_self(), sizeof(set), &set);
    if (error != 0)
        VELM_CORE_TRACE("%s: not bound to processor %d: error %d", GetThreadName(),
                        m_State->processor, error);
}

void* CRunnable::Entry() {
    AttachThreadToLog();
    BindToProcessor();
    try {
        OnRun();
    } catch (const std::exception& error) {
        wxLogError("%s: ended by a fault: %s", GetThreadName(), error.what());
    }
    return nullptr;
}

}  // namespace VelmCore
