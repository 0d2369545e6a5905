#pragma once

#include "Conditions.h"
#include "EventLog.h"
#include "ExitFlag.h"
#include "Policy.h"
#include "Settings.h"
#include "velm/Dom.h"

namespace VelmCore {

// The services behind a CDom. Each locks itself.
struct CDom::State {
    Settings settings;
    Policy policy;
    Conditions conditions;
    ExitFlag exit;
    EventLog events;
};

// The process's CDom, or null.
CDom* ProcessDom();

}  // namespace VelmCore
