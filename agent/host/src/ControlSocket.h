#pragma once

#include <sys/socket.h>
#include <sys/un.h>

#include <string>

// The address of the service's control socket. False if the path does not fit into one.
bool MakeControlAddress(const std::string& path, sockaddr_un& address);

constexpr const char* kControlPathTooLong = "the path is too long for a socket";
