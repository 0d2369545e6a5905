#include "ReferenceFiles.h"

#include <cstdlib>

namespace Reference {

namespace {

std::string Cut(const std::string& text) {
    return text.substr(0, 128);
}

long NumberOf(const std::string& name) {
    const size_t dot = name.rfind('.');
    return dot == std::string::npos ? 0 : strtol(name.c_str() + dot + 1, nullptr, 10);
}

}  // namespace

bool Files::Initialize() {
    if (m_Open) return true;
    if (place == Blocked) {
        Report(6003, Cut(m_Directory));
        return false;
    }
    if (place == Missing) {
        place = Present;
        m_Traces.secured.push_back(m_Directory);
    }
    if (folders.count(name) > 0) {
        Report(6001, Cut(Path(name)));
        return false;
    }
    std::shared_ptr<std::string>& file = files[name];
    if (!file) file = std::make_shared<std::string>();
    m_Open = file;
    if (file->empty()) m_Traces.secured.push_back(Path(name));
    return true;
}

bool Files::WriteLine(const std::string& line) {
    if (!Initialize()) return false;
    *m_Open += line;
    return true;
}

bool Files::CloseAndRotate() {
    if (!m_Open) return true;
    const long long length = static_cast<long long>(m_Open->size());
    m_Open.reset();
    return length / 1024 < sizeKB || Rotate();
}

bool Files::Rotate() {
    if (!RemoveOld()) return false;
    m_Traces.settings["plg.ostrel.lastline.packet"] = 0;
    m_Traces.settings["plg.ostrel.lastline.payload"] = 0;
    for (int i = copies - 1; i >= 0; --i) {
        const std::string from = i == 0 ? name : name + "." + std::to_string(i);
        if (files.count(from) > 0) Rename(from, name + "." + std::to_string(i + 1));
    }
    return true;
}

void Files::Rename(const std::string& from, const std::string& to) {
    if (folders.count(to) > 0) {
        Report(6007, Cut(Path(from)) + "|" + Cut(Path(to)) + "|Is a directory");
        return;
    }
    files[to] = files[from];
    files.erase(from);
    m_Traces.secured.push_back(Path(to));
}

bool Files::RemoveOld() {
    if (place != Present) {
        const std::string reason =
            place == Missing ? "No such file or directory" : "Not a directory";
        Report(6005, Cut(m_Directory) + "|" + reason);
        Report(3300, reason);
        return false;
    }
    for (auto file = files.begin(); file != files.end();) {
        const bool isOfSet = file->first.compare(0, name.size(), name) == 0;
        file = isOfSet && NumberOf(file->first) >= copies ? files.erase(file) : std::next(file);
    }
    return true;
}

}  // namespace Reference
