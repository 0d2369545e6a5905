#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <string>
#include <thread>

#include <wx/string.h>

#include "SettingsFile.h"

namespace VelmCore {

// The settings: in memory for readers, written to a file in batches by a thread of its own. Any
// thread, but for the constructor and the destructor.
class Settings {
public:
    Settings() = default;
    ~Settings();  // writes what is pending
    Settings(const Settings&) = delete;
    Settings& operator=(const Settings&) = delete;

    // Values set before stay, and are written; the file's others are added. Empty, or why not.
    wxString Open(const wxString& path);
    // False if there is no value; `value` is then untouched.
    bool Find(const std::string& key, std::string& value) const;
    void Set(const std::string& key, const std::string& value);
    // Blocks until all that was set before is durable. False if writing failed. True without a
    // file.
    bool Flush();
    // Another number after each change, and in each object: as long as it is the same, so are the
    // values.
    uint64_t Generation() const { return m_Generation.load(std::memory_order_acquire); }

private:
    void Run();
    void WriteBatchLocked(std::unique_lock<std::mutex>& lock);
    void Report(const wxString& reason);
    static uint64_t NextGeneration();

    mutable std::mutex m_Mutex;
    std::condition_variable m_Wake;   // for the writer
    std::condition_variable m_Ended;  // a batch has been written, or has failed
    std::thread m_Writer;             // runs while there is a file

    // The writer's, once it runs.
    SettingsFile m_File;
    bool m_Failing = false;  // the last batch failed

    std::atomic<uint64_t> m_Generation{NextGeneration()};

    // Guarded by m_Mutex.
    SettingValues m_Values;
    SettingValues m_Pending;   // changes that no batch has taken
    uint64_t m_Changes = 0;    // made so far
    uint64_t m_Durable = 0;    // of them, in order
    uint64_t m_Failures = 0;   // batches that failed
    unsigned int m_Hurry = 0;  // callers of Flush
    bool m_Stop = false;
};

}  // namespace VelmCore
