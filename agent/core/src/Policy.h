#pragma once

#include <memory>
#include <mutex>
#include <string>

#include <wx/string.h>

class wxXmlDocument;

namespace VelmCore {

class XMLObject;

// The policy: one parsed document, replaced as a whole. Any thread.
class Policy {
public:
    Policy();
    ~Policy();

    // Empty, or why the document was refused: the former one then stays.
    wxString Replace(const std::string& xml);
    // Empties `object` and fills it from the first element at "/Root/Element...". False if there is
    // none, or it cannot be read.
    bool Read(const std::string& path, XMLObject& object) const;

private:
    // Held while an element is read: a wx string keeps its conversions in itself, so even reading
    // it is for one thread at a time.
    mutable std::mutex m_Mutex;
    std::unique_ptr<wxXmlDocument> m_Document;  // guarded by m_Mutex
};

}  // namespace VelmCore
