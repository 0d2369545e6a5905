#pragma once

#include <memory>
#include <string>
#include <vector>

#include "LuaState.h"
#include "velm/Dom.h"

// What `script` lets the user choose about the agent that his script sees.
struct AgentOptions {
    std::string settings;  // file; empty: in memory
    std::string events;    // file; empty: in memory
    std::string policy;    // file; empty: none
    std::vector<std::string> trace;
    bool testing = false;
    std::string scriptFolder;  // searched by `require`; empty: none
};

// The agent's core object with a Lua state that has the bindings. One for the process.
class Agent {
public:
    explicit Agent(const AgentOptions& options);
    ~Agent() { Shutdown(); }
    Agent(const Agent&) = delete;
    Agent& operator=(const Agent&) = delete;

    // Opens files and reads the policy. False after a message on standard error.
    bool Prepare(const AgentOptions& options);

    VelmCore::CDom& Dom() { return *m_Dom; }
    lua_State* Lua() { return m_Lua->Get(); }

    // Tells the threads to leave, runs the finalisers of the script's objects, then writes settings
    // and events. Only the first call does anything.
    void Shutdown();
    bool IsShutDown() const { return m_ShutDown; }

private:
    bool m_ShutDown = false;
    std::unique_ptr<VelmCore::CDom> m_Dom;
    std::unique_ptr<LuaState> m_Lua;
};
