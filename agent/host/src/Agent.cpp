#include "Agent.h"

#include <cstdlib>

#include <wx/init.h>

#include "DomBinding.h"
#include "FileText.h"
#include "KdiBinding.h"
#include "LuaBinding.h"
#include "Message.h"
#include "SyslogBinding.h"
#include "TestingBinding.h"
#include "ThreadBinding.h"
#include "kdi/ssl.h"
#include "velm/Trace.h"

namespace {

// os.exit([code]): ends the process, but only after the finalisers have run and settings and events
// are written. A `pcall` on the way can't hold it up, since nothing is unwound.
int Exit(lua_State* L) {
    auto* agent = static_cast<Agent*>(lua_touserdata(L, lua_upvalueindex(1)));
    int status = EXIT_SUCCESS;
    if (lua_isboolean(L, 1))
        status = lua_toboolean(L, 1) ? EXIT_SUCCESS : EXIT_FAILURE;
    else
        status = luaL_optint(L, 1, EXIT_SUCCESS);
    if (agent->IsShutDown()) return luaL_error(L, "the agent is ending already");
    agent->Shutdown();
    wxUninitialize();  // main's own end is not reached
    std::exit(status);
}

void ReplaceExit(lua_State* L, Agent* agent) {
    lua_getglobal(L, "os");
    lua_pushlightuserdata(L, agent);
    lua_pushcclosure(L, Guarded<Exit>, 1);
    lua_setfield(L, -2, "exit");
    lua_pop(L, 1);
}

int Bind(lua_State* L) {
    auto* agent = static_cast<Agent*>(lua_touserdata(L, 1));
    RegisterDom(L, agent->Dom());
    RegisterKdi(L);
    RegisterThreads(L);
    ReplaceExit(L, agent);
    return 0;
}

bool Report(const std::string& path, const wxString& reason) {
    if (reason.empty()) return true;
    PrintError(path, reason.utf8_string());
    return false;
}

bool ReadPolicy(VelmCore::CDom& dom, const std::string& path) {
    std::string xml, reason;
    if (!ReadFileText(path, xml, reason)) {
        PrintError(path, reason);
        return false;
    }
    return Report(path, dom.ConfigSetXml(xml));
}

}  // namespace

Agent::Agent(const AgentOptions& options)
    : m_Dom(std::make_unique<VelmCore::CDom>()), m_Lua(std::make_unique<LuaState>()) {
    lua_State* L = Lua();
    SetSearchPaths(L, FindFolders(), options.scriptFolder);
    Preload(L, "velm.syslog", OpenSyslog);
    if (options.testing) Preload(L, "velm.testing", OpenTesting);
    lua_pushcfunction(L, Bind);
    lua_pushlightuserdata(L, this);
    lua_call(L, 1, 0);
}

bool Agent::Prepare(const AgentOptions& options) {
    for (const std::string& component : options.trace)
        VelmCore::EnableTrace(wxString::FromUTF8(component), true);
    if (!options.trace.empty()) VelmCore::SetTraceTarget("-");
    if (!options.settings.empty() &&
        !Report(options.settings, m_Dom->OpenSettings(wxString::FromUTF8(options.settings))))
        return false;
    if (!options.events.empty() &&
        !Report(options.events, m_Dom->OpenEventFile(wxString::FromUTF8(options.events))))
        return false;
    return options.policy.empty() || ReadPolicy(*m_Dom, options.policy);
}

void Agent::Shutdown() {
    if (m_ShutDown) return;
    m_ShutDown = true;
    m_Dom->RequestExit();
    kdi_wake_ssl_readers();
    m_Lua->Close();
    m_Dom.reset();
}
