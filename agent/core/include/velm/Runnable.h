#pragma once

#include <memory>

#include <wx/thread.h>

#include "velm/Export.h"

namespace VelmCore {

// A thread of the agent. Life: make it, `start`; the thread runs OnRun and then OnExit; the owner
// sees `isRunning` false, calls `join` and deletes the object. To end it early the owner calls
// `requestExit`, wakes the thread from whatever it waits for, and calls `StopThread`. An object
// whose thread runs must not be deleted: the parts of it that the thread uses would go first.
//
// The owner's operations may be called on any thread but the object's own, one at a time;
// isRunning, requestExit, Awaken and interrupt on any thread at any time.
class VELM_API CRunnable : public wxThread {
public:
    // `processor` is the index of the one that the thread is bound to, -1 for none; one that is not
    // there is no error. The flags are reserved: a service's main thread passes true and false, a
    // worker false and false.
    CRunnable(bool reserved1, int processor, bool reserved2);
    ~CRunnable() override;

    using wxThread::TestDestroy;
    // Ends the thread as StopThread does. The exit code is always null.
    virtual wxThreadError Delete(void** exitCode);
    // A short name for trace lines and debuggers. Valid as long as the object.
    virtual const char* GetThreadName() const;
    // Ends the thread's wait in TestDestroy, or its next one, without asking it to end.
    virtual void Awaken();
    // Wakes the thread from what it is blocked on, as far as this class knows of it: TestDestroy.
    virtual void interrupt();
    // Asks the thread to end and wakes it: TestDestroy gives true from now on.
    virtual void requestExit();
    // On the object's own thread: true if it has been told to end. Waits at most `waitMsec` for
    // that. `reserved` is null.
    virtual bool TestDestroy(unsigned int waitMsec, bool* reserved);
    // The thread's work. An exception ends it with an error line.
    virtual void OnRun();

    // Starts the thread, once in an object's life; false, with an error line, if it cannot be.
    // `priority` is wx's, 0 to 100 (50 is the system's own); `stackSize` in bytes, 0 for the
    // system's own. `reserved` is true.
    bool start(unsigned int priority, bool reserved, unsigned int stackSize);
    // True from `start` until the end of OnExit.
    bool isRunning() const;
    // Waits for the end of the thread. At once if it was never started, or joined before.
    void join();
    // Asks the thread to end and waits until it has. `name` is reserved; callers pass null.
    void StopThread(const wchar_t* name);

protected:
    // Runs on the thread as it ends. Overrides call this one last.
    void OnExit() override;

private:
    void* Entry() override;
    void BindToProcessor();

    struct State;
    const std::unique_ptr<State> m_State;
};

}  // namespace VelmCore
