#pragma once

#include <cstddef>
#include <string>

#include <wx/string.h>

#include "velm/Export.h"

class wxXmlDocument;

// The one place where XML from outside is parsed.
namespace VelmCore {

constexpr size_t XML_MAX_BYTES = 16 * 1024 * 1024;
// Elements open at the same time, the root included.
constexpr int XML_MAX_DEPTH = 64;
// Elements and attributes together: bounds the memory that small elements take as a tree.
constexpr size_t XML_MAX_NODES = 1000000;

// Parses a whole document in UTF-8, whatever encoding its declaration names. The tree holds
// elements and attributes only; text, comments and processing instructions are checked and left
// out. Refused are malformed XML, invalid UTF-8, duplicate attributes, any DOCTYPE (and so every
// entity but the five built-in ones and character references), and what exceeds the limits above.
// False on failure, with one line for people in `reason`; `document` then stays as it was. Nothing
// is logged. Any thread.
VELM_API bool ParseXml(const std::string& utf8, wxXmlDocument& document, wxString& reason);

}  // namespace VelmCore
