#include "ReferenceEvents.h"

#include "velm/Dom.h"

namespace Reference {

std::vector<Event> TakeEvents(VelmCore::CDom& dom) {
    std::vector<Event> events;
    for (const VelmCore::AgentEvent& event : dom.TakeEvents())
        events.push_back({event.number, event.text.utf8_string()});
    return events;
}

}  // namespace Reference
