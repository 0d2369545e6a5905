#pragma once

#include <string>

// Gives up every privilege that the service does not need, for good: what stays is the capability
// to talk to the packet filter and, if `rawSockets`, to listen on an interface; programs that it
// might start get none. Comes before the process has a second thread. Empty, or why it failed.
// A process without privileges has none to give up.
std::string DropPrivileges(bool rawSockets);
