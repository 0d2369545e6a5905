#pragma once

#include <string>
#include <vector>

struct CheckCredentialOptions {
    std::string type;  // "PEM" or "P12"
    std::string file;
    std::string passphraseFile;  // "-": standard input; empty: the terminal, if one is needed
    std::vector<std::string> trace;
};

// Loads a key as the SSL key service would. Returns the exit status.
int RunCheckCredential(const CheckCredentialOptions& options);
