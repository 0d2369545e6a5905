#include "Settings.h"

#include <chrono>
#include <utility>

#include <wx/log.h>

#include "velm/Log.h"

namespace VelmCore {
namespace {

// How long changes are collected: leaves half a second of the promised one for writing them.
constexpr std::chrono::milliseconds BATCH_TIME(500);

}  // namespace

uint64_t Settings::NextGeneration() {
    static std::atomic<uint64_t> s_Last{0};
    return ++s_Last;
}

Settings::~Settings() {
    {
        std::lock_guard<std::mutex> lock(m_Mutex);
        m_Stop = true;
    }
    m_Wake.notify_all();
    if (m_Writer.joinable()) m_Writer.join();
}

wxString Settings::Open(const wxString& path) {
    std::lock_guard<std::mutex> lock(m_Mutex);
    if (m_File.IsOpen()) return wxString::Format("settings file %s: one is open already", path);
    SettingValues stored;
    const wxString reason = m_File.Open(path, stored);
    if (!reason.empty()) return reason;
    m_Values.insert(stored.begin(), stored.end());
    m_Generation.store(NextGeneration(), std::memory_order_release);
    m_Writer = std::thread(&Settings::Run, this);
    return wxString();
}

bool Settings::Find(const std::string& key, std::string& value) const {
    std::lock_guard<std::mutex> lock(m_Mutex);
    const auto found = m_Values.find(key);
    if (found == m_Values.end()) return false;
    value = found->second;
    return true;
}

void Settings::Set(const std::string& key, const std::string& value) {
    std::lock_guard<std::mutex> lock(m_Mutex);
    const auto [place, isNew] = m_Values.try_emplace(key, value);
    if (!isNew && place->second == value) return;
    place->second = value;
    m_Generation.store(NextGeneration(), std::memory_order_release);
    if (m_Pending.empty()) m_Wake.notify_all();
    m_Pending[key] = value;
    ++m_Changes;
}

bool Settings::Flush() {
    std::unique_lock<std::mutex> lock(m_Mutex);
    if (!m_Writer.joinable()) return true;
    const uint64_t upTo = m_Changes;
    const uint64_t failures = m_Failures;
    ++m_Hurry;
    m_Wake.notify_all();
    m_Ended.wait(lock, [&] { return m_Durable >= upTo || m_Failures != failures; });
    --m_Hurry;
    return m_Durable >= upTo;
}

void Settings::Run() {
    AttachThreadToLog();
    std::unique_lock<std::mutex> lock(m_Mutex);
    bool isLast = false;
    while (!isLast) {
        m_Wake.wait(lock, [this] { return m_Stop || !m_Pending.empty(); });
        m_Wake.wait_for(lock, BATCH_TIME, [this] { return m_Stop || m_Hurry != 0; });
        isLast = m_Stop;
        if (!m_Pending.empty()) WriteBatchLocked(lock);
    }
    if (!m_Pending.empty()) wxLogError("%zu settings could not be written", m_Pending.size());
}

void Settings::WriteBatchLocked(std::unique_lock<std::mutex>& lock) {
    SettingValues batch;
    batch.swap(m_Pending);
    const uint64_t upTo = m_Changes;
    lock.unlock();
    const wxString reason = m_File.Write(batch);
    Report(reason);
    lock.lock();
    if (reason.empty()) {
        m_Durable = upTo;
    } else {
        ++m_Failures;
        m_Pending.merge(batch);  // newer changes stand
    }
    m_Ended.notify_all();
}

// Once for a row of failures, and once when it is over.
void Settings::Report(const wxString& reason) {
    const bool failed = !reason.empty();
    if (failed && !m_Failing) wxLogError("%s; trying again", reason);
    if (!failed && m_Failing) wxLogMessage("settings are written again");
    m_Failing = failed;
}

}  // namespace VelmCore
