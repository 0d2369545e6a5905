#include "velm/Files.h"

#include <cerrno>
#include <memory>
#include <utility>

#include <sys/stat.h>

#include "TraceSelf.h"
#include "velm/Text.h"

namespace VelmCore {
namespace {

// Read and replaced with the atomic operations only.
std::shared_ptr<const FileObserver> s_Observer;

bool TakeAccessFromOthers(const char* path) {
    struct stat info;
    if (lstat(path, &info) != 0) return false;
    if (S_ISLNK(info.st_mode) || !(info.st_mode & S_IRWXO)) return true;
    return chmod(path, info.st_mode & 07770) == 0;
}

}  // namespace

void SecureFileOrDirectory(const wxString& path, bool) {
    if (!TakeAccessFromOthers(path.fn_str())) {
        const int error = errno;
        VELM_CORE_TRACE("cannot secure %s: %s", path, ErrnoToString(error));
    }
    const std::shared_ptr<const FileObserver> observer = std::atomic_load(&s_Observer);
    if (observer) (*observer)(path);
}

void SetFileObserver(FileObserver observer) {
    std::shared_ptr<const FileObserver> shared;
    if (observer) shared = std::make_shared<const FileObserver>(std::move(observer));
    std::atomic_store(&s_Observer, std::move(shared));
}

}  // namespace VelmCore
