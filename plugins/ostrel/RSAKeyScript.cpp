// The script face of keys and credentials: argument handling, and nothing else.

#include "RSAKeyScript.h"

#include <wx/string.h>

#include "RSAKey.h"
#include "ScriptClass.h"
#include "ScriptGuard.h"
#include "policy/SSLCredential.h"

namespace OSTREL {

namespace {

constexpr const char* kClassName = "SLB.ostrel.RSAKey";
constexpr int kBadRequest = 400;

constexpr CRSAKey::FailureReason kReasons[] = {
    CRSAKey::BadIdentifierFormat,   CRSAKey::IdentifierNotFound, CRSAKey::ImproperKeyUsage,
    CRSAKey::IncorrectPassphrase,   CRSAKey::KeyNotFound,        CRSAKey::UnableToLoadCredentials,
    CRSAKey::UnableToOpenContainer, CRSAKey::UnableToOpenFile,   CRSAKey::UnsupportedCredentialType,
};

void PushText(lua_State* L, const wxString& text) {
    const wxScopedCharBuffer utf8 = text.utf8_str();
    PushStringSafely(L, utf8.data(), utf8.length());
}

// The three results of a failure.
int PushFailure(lua_State* L, int code, const wxString& message) {
    lua_pushnil(L);
    lua_pushinteger(L, code);
    PushText(L, message);
    return 3;
}

// The key's userdata, which owns no key yet, lies on top.
int CreateKey(lua_State* L, VelmCore::ScriptObject* object, const wxString& xml) {
    CSSLCredential credential;
    if (credential.FromXML(xml, nullptr) != 0 || !credential.ParseComplete())
        return PushFailure(L, kBadRequest, "XML parsing of <SSLCredential> failed");
    CRSAKey::FailureReason reason = CRSAKey::UnableToLoadCredentials;
    object->object = CRSAKey::Create(credential, &reason);
    if (object->object == nullptr) return PushFailure(L, reason, CRSAKey::toString(reason));
    return 1;
}

int Create(lua_State* L) {
    size_t length = 0;
    const char* xml = luaL_checklstring(L, 1, &length);
    // The owner is there before the key, so that no error can leak one.
    VelmCore::ScriptObject* object = NewObject(L, 0);
    luaL_getmetatable(L, kClassName);
    lua_setmetatable(L, -2);
    return CreateKey(L, object, wxString::FromUTF8(xml, length));
}

int Destroy(lua_State* L) {
    // A script can reach this function with any value.
    void* key = TestObject(L, 1, kClassName);
    if (key == nullptr) return 0;
    static_cast<VelmCore::ScriptObject*>(lua_touserdata(L, 1))->object = nullptr;
    delete static_cast<CRSAKey*>(key);
    return 0;
}

int PushReasons(lua_State* L) {
    lua_newtable(L);
    for (const CRSAKey::FailureReason reason : kReasons) {
        PushText(L, CRSAKey::toString(reason));
        lua_pushinteger(L, reason);
        lua_rawset(L, -3);
    }
    return 1;
}

int PlatformCredentials(lua_State* L) {
    lua_toboolean(L, 1);  // read, and without meaning
    CSSLCredentials credentials;
    int code = 0;
    wxString message;
    if (!GetPlatformCredentials(credentials, code, message)) return PushFailure(L, code, message);
    PushSafely(
        L,
        [](lua_State* state, const void* list) {
            static_cast<const CSSLCredentials*>(list)->toLua(state);
        },
        &credentials);
    return 1;
}

}  // namespace

void RegisterRSAKey(lua_State* L) {
    if (!BeginClass(L, kClassName, nullptr, Guarded<Destroy>)) return;
    AddMethod(L, "Create", Guarded<Create>);
    lua_pushcfunction(L, Guarded<PushReasons>);
    lua_call(L, 0, 1);
    lua_setfield(L, -2, "FailureReason");
    lua_pop(L, 1);
}

void RegisterPlatformCredentials(lua_State* L) {
    PushNamedTable(L, "SLB.ostrel");
    AddMethod(L, "GetPlatformCredentials", Guarded<PlatformCredentials>);
    lua_pop(L, 1);
}

}  // namespace OSTREL
