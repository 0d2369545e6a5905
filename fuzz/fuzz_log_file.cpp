// Bytes as the files of a log: retrieved twice, as the plain reference does it. The first line
// sets the window, the files follow, each behind a line "%%".

#include <sys/stat.h>

#include <fcntl.h>

#include <cstdint>
#include <string>
#include <vector>

#include "Input.h"
#include "LogData.h"
#include "ReferenceRetrieval.h"
#include "TempDirectory.h"
#include "velm/Dom.h"
#include "velm/Log.h"

namespace {

using Fuzz::Input;
using Fuzz::Require;
using Reference::Delivery;
using Reference::Window;

constexpr long kLogTime = 1750000000;  // seconds; where the seeds' lines lie
constexpr int kMostFiles = 4;
const char* const kBookmarks[] = {"plg.ostrel.lastline.packet", "plg.ostrel.lastline.payload",
                                  "plg.ostrel.lastline.pcap"};

struct Collector {
    std::vector<Delivery> found;
    size_t most;
};

bool Collect(void* context, long lineTime, long slack, const std::string& line) {
    Collector& collector = *static_cast<Collector*>(context);
    collector.found.push_back({lineTime, slack, line});
    return collector.found.size() < collector.most;
}

// Any time, one near the lines, or no bound.
long TakeTime(Input& input) {
    const uint8_t choice = input.Take<uint8_t>();
    if (choice < 0x40) return 0;
    if (choice >= 0xF0) return input.Take<long>();
    return kLogTime + input.Take<int16_t>();
}

void PlantFiles(const std::string& directory, const std::string& bytes, long changed) {
    size_t begin = 0;
    for (int i = 0; i < kMostFiles; ++i) {
        const std::string path = directory + "/log" + (i > 0 ? "." + std::to_string(i) : "");
        if (begin == std::string::npos) {
            unlink(path.c_str());
            continue;
        }
        const size_t end = i + 1 < kMostFiles ? bytes.find("%%\n", begin) : std::string::npos;
        Reference::WriteFile(path, bytes.substr(begin, end - begin));
        const timespec times[2] = {{changed, 0}, {changed + i, 0}};
        utimensat(AT_FDCWD, path.c_str(), times, 0);
        begin = end == std::string::npos ? end : end + 3;
    }
}

void Retrieve(OSTREL::LogData& log, Reference::Retrieval& reference, const Window& window) {
    Collector collector = {{}, window.most};
    const auto driver = static_cast<OSTREL::_Driver>(window.driver);
    Require(log.GetLogData(driver, window.startTime, window.endTime, "me", Collect, &collector),
            "the files are listed");
    Require(collector.found == reference.Run(window), "same records");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static VelmCore::CDom dom;
    static const Reference::TempDirectory directory;
    VelmCore::InstallLog("");
    OSTREL::LogData log(dom);
    log.SetLogFilePath(directory.Path());
    log.SetLogFileName("log");
    Reference::Retrieval reference(directory.Path(), "log");

    Input input(data, size);
    Window window;
    const uint8_t choice = input.Take<uint8_t>();
    window.driver = choice % 3;
    window.most = choice & 0x80 ? 2 : SIZE_MAX;
    window.startTime = TakeTime(input);
    window.endTime = TakeTime(input);
    const unsigned int bookmark = input.Take<uint8_t>() % 8;
    const long changed = kLogTime + input.Take<int16_t>();
    PlantFiles(directory.Path(), input.TakeRest(), changed);
    for (int i = 0; i < 3; ++i) {
        dom.Set(kBookmarks[i], static_cast<long long>(bookmark));
        reference.bookmarks[i] = bookmark;
    }
    Retrieve(log, reference, window);
    Retrieve(log, reference, window);
    for (int i = 0; i < 3; ++i) {
        long long line = -1;
        Require(dom.Get(kBookmarks[i], line) && line == reference.bookmarks[i], "same bookmarks");
    }
    dom.TakeEvents();
    VelmCore::TakeLog();
    return 0;
}
