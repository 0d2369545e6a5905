#pragma once

#include <functional>
#include <string>

#include "Socket.h"
#include "SyslogTarget.h"

// Waits until a connection has been made or has failed: true if the descriptor is writable, false
// if the wait ended before.
using WritableWait = std::function<bool(int descriptor)>;

// A non-blocking socket that is connected to the target. A name is looked up anew, which may block
// for as long as the resolver does, and each of its addresses is tried in turn. Without success the
// socket is not open and `why` tells the last reason.
Socket ConnectTo(const SyslogTarget& target, const WritableWait& wait, std::string& why);
