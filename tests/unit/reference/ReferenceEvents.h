#pragma once

#include <ostream>
#include <string>
#include <vector>

namespace VelmCore {
class CDom;
}

namespace Reference {

// An agent event, as bytes.
struct Event {
    int number;
    std::string text;

    bool operator==(const Event& other) const {
        return number == other.number && text == other.text;
    }
};

inline std::ostream& operator<<(std::ostream& out, const Event& event) {
    return out << event.number << " \"" << event.text << '"';
}

// The events that the agent got since the last call.
std::vector<Event> TakeEvents(VelmCore::CDom& dom);

}  // namespace Reference
