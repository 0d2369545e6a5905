#pragma once

#include <functional>

#include <wx/string.h>

#include "velm/Export.h"

namespace VelmCore {

// Applies the agent's permissions to a file or directory that was just made: nobody but the owner
// and the group has access. Owner and group stay those of the process that made it; a symbolic link
// is left alone. The flag is reserved; callers pass false. A failure is traced and changes nothing
// else. Any thread.
VELM_API void SecureFileOrDirectory(const wxString& path, bool reserved);

// Called for each path that is handed to SecureFileOrDirectory, on the calling thread, after the
// permissions were set; an empty function removes the observer. A call that has begun still ends
// with the former one.
using FileObserver = std::function<void(const wxString& path)>;
VELM_API void SetFileObserver(FileObserver observer);

}  // namespace VelmCore
