#pragma once

#include <errno.h>
#include <sched.h>
#include <string.h>
#include <sys/mount.h>

#include <string>
#include <vector>

// Mounts that only this process sees, and that end with the object. Needs root.
class MountNamespace {
public:
    MountNamespace() {
        m_IsUsable = unshare(CLONE_NEWNS) == 0 &&
                     mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
        if (!m_IsUsable) m_WhyNot = std::string("skipped: no mount namespace: ") + strerror(errno);
    }
    ~MountNamespace() {
        for (const std::string& path : m_Mounted)
            umount2(path.c_str(), MNT_DETACH);
    }
    MountNamespace(const MountNamespace&) = delete;
    MountNamespace& operator=(const MountNamespace&) = delete;

    bool IsUsable() const { return m_IsUsable; }
    const std::string& WhyNot() const { return m_WhyNot; }

    // Both say whether it worked.
    bool Bind(const std::string& from, const std::string& to) {
        return Note(to, mount(from.c_str(), to.c_str(), nullptr, MS_BIND, nullptr));
    }
    bool SmallDisk(const std::string& to, const std::string& size) {
        return Note(to, mount("none", to.c_str(), "tmpfs", 0, ("size=" + size).c_str()));
    }

private:
    bool Note(const std::string& path, int result) {
        if (result == 0) m_Mounted.push_back(path);
        return result == 0;
    }

    bool m_IsUsable;
    std::string m_WhyNot;
    std::vector<std::string> m_Mounted;
};
