#pragma once

#include <string>

// Passphrases come from the terminal or from a file, never from the command line, which every user
// of the host can read. The callers wipe `passphrase`.

// Reads the first line of a file, without its line end; "-" is standard input. False with the
// reason if it cannot be read, or is longer than a passphrase may be.
bool ReadPassphrase(const std::string& path, std::string& passphrase, std::string& reason);
// True if there is a terminal to ask at.
bool CanAskPassphrase();
// Asks at the terminal, without echo. False if the user ends the question.
bool AskPassphrase(const std::string& prompt, std::string& passphrase);
