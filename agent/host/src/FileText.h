#pragma once

#include <string>

// Reads a whole file of at most 64 MiB. False with the reason if that fails.
bool ReadFileText(const std::string& path, std::string& text, std::string& reason);
// Empty if the file can be opened for reading, else the reason.
std::string WhyUnreadable(const std::string& path);
// Tries to make the directory and to open its file for writing. Empty if that works, else the
// reason.
std::string WhyUnwritable(const std::string& directory, const std::string& name);
// Why the directory gives no log: it can't be read, or holds no file of the name, plain or
// numbered. Empty if there is one.
std::string WhyNoLog(const std::string& directory, const std::string& name);
