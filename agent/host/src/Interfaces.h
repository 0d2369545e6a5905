#pragma once

#include <string>
#include <vector>

// A network interface of this host.
struct Interface {
    std::string name;
    unsigned int index = 0;              // the kernel's
    std::string mac;                     // raw bytes; empty if it has none
    std::vector<std::string> addresses;  // as text
};

// Those of this network namespace, by index. Empty if the kernel gives none.
std::vector<Interface> ListInterfaces();
