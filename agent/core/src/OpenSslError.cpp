#include <vector>

#include <openssl/err.h>

#include "velm/Text.h"

namespace VelmCore {
namespace {

struct QueuedError {
    unsigned long code;
    std::string file;
    int line;
    std::string function;
    std::string data;
};

// Takes the oldest entry off the queue.
QueuedError TakeOldest() {
    const char* file = "";
    const char* function = "";
    const char* data = "";
    int flags = 0;
    QueuedError error;
    error.code = ERR_get_error_all(&file, &error.line, &function, &data, &flags);
    error.file = file ? file : "";
    error.function = function ? function : "";
    if (data && (flags & ERR_TXT_STRING)) error.data = data;
    return error;
}

void PutBack(const QueuedError& error) {
    ERR_new();
    ERR_set_debug(error.file.c_str(), error.line, error.function.c_str());
    if (error.data.empty()) {
        ERR_set_error(ERR_GET_LIB(error.code), ERR_GET_REASON(error.code), nullptr);
    } else {
        ERR_set_error(ERR_GET_LIB(error.code), ERR_GET_REASON(error.code), "%s",
                      error.data.c_str());
    }
}

}  // namespace

// The library pops only at the old end of its queue, so the older entries are taken out and put
// back.
wxString OpenSSLError() {
    std::vector<QueuedError> errors;
    while (ERR_peek_error() != 0)
        errors.push_back(TakeOldest());
    if (errors.empty()) return wxString();
    for (size_t i = 0; i + 1 < errors.size(); ++i)
        PutBack(errors[i]);
    char text[256];
    ERR_error_string_n(errors.back().code, text, sizeof(text));
    return wxString::FromUTF8(text);
}

}  // namespace VelmCore
