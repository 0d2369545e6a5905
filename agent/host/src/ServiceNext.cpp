#include "ServiceNext.h"

#include <algorithm>

#include "KdiBinding.h"
#include "LuaBinding.h"
#include "Service.h"
#include "ServiceManager.h"
#include "ServiceSignals.h"

namespace {

constexpr std::chrono::seconds kSecond{1};
constexpr std::chrono::milliseconds kControlStep{50};

int PushState(lua_State* L, const char* state) {
    lua_pushnil(L);
    lua_pushstring(L, state);
    return 2;
}

// Until there is something to do, and not beyond the next second.
void Wait(Service& service) {
    service.waiting.assign(1, {SignalDescriptor(), POLLIN, 0});
    service.sources.AppendDescriptors(service.waiting);
    service.control.AppendDescriptors(service.waiting);
    const auto rest = std::chrono::ceil<std::chrono::milliseconds>(
        (service.watchdog ? std::min(service.nextSecond, service.nextAlive) : service.nextSecond) -
        Service::Clock::now());
    poll(service.waiting.data(), service.waiting.size(),
         std::max(0, static_cast<int>(rest.count())));
    TakeSignals();
    service.nextControl = Service::Clock::now();
}

int PushEnd(lua_State* L, const SourceRound::Result& next) {
    if (next.result == KDI_END) return PushState(L, "ended");
    char error[512] = "";
    kdi_get_error(next.handle, error, sizeof(error));
    PushState(L, "failed");
    lua_pushstring(L, error);
    return 3;
}

int PushRequest(lua_State* L, const ControlServer::Request& request) {
    PushState(L, "request");
    lua_createtable(L, 0, 2);
    lua_pushnumber(L, request.id);
    lua_setfield(L, -2, "id");
    PushString(L, request.line);
    lua_setfield(L, -2, "line");
    return 3;
}

// A second that was missed is not made up for.
bool IsDue(Service::Clock::time_point& next, Service::Clock::duration interval,
           Service::Clock::time_point now) {
    if (now < next) return false;
    next = now + interval;
    return true;
}

// Half the interval: one call may be late.
void TellAlive(Service& service, Service::Clock::time_point now) {
    if (service.watchdog && IsDue(service.nextAlive, *service.watchdog / 2, now))
        ServiceManager::TellAlive();
}

}  // namespace

int NextOfService(lua_State* L) {
    Service& service = *static_cast<Service*>(lua_touserdata(L, lua_upvalueindex(1)));
    for (;;) {
        const Service::Clock::time_point now = Service::Clock::now();
        if (StopWanted()) return PushState(L, "stop");
        if (TakeReload()) return PushState(L, "reload");
        if (IsDue(service.nextSecond, kSecond, now)) return PushState(L, "second");
        TellAlive(service, now);
        if (IsDue(service.nextControl, kControlStep, now)) service.control.Step();
        if (service.control.Take(service.request)) return PushRequest(L, service.request);
        const SourceRound::Result next = service.sources.Next();
        if (next.result == KDI_ENTRY) {
            ++service.entries;
            return PushEntry(L, *next.entry);
        }
        if (next.result != KDI_TIMEOUT) return PushEnd(L, next);
        Wait(service);
    }
}
