// The module's entry point.

#include <wx/dynlib.h>
#include <wx/log.h>
#include <lua.hpp>

#include "LogDataScript.h"
#include "RSAKeyScript.h"
#include "SSLCertThreadScript.h"
#include "Trace.h"

namespace {

// A reference of the module to itself, never released: objects of its classes and threads of its
// own may outlive the Lua state's handle.
struct Pin {
    Pin() {
        // Nothing to tell where there is no such library: the sources are part of a test then.
        wxLogNull quiet;
        wxDynamicLibrary library;
        if (library.Load("ostrel", wxDL_NOW)) handle = library.Detach();
    }
    wxDllType handle = nullptr;
};

const Pin s_Pin;

}  // namespace

extern "C" __attribute__((visibility("default"))) int luaopen_ostrel(lua_State* L) {
    OSTREL_TRACE(L"ostrel", "luaopen_ostrel");
    OSTREL::RegisterRSAKey(L);
    OSTREL::RegisterLogData(L);
    OSTREL::RegisterSSLCertThread(L);
    OSTREL::RegisterPlatformCredentials(L);
    lua_pushboolean(L, true);
    return 1;
}
