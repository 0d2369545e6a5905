// The retrieval against a plain reader, on random files.

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>

#include <iterator>

#include <wx/sstream.h>

#include "LogData.h"
#include "RandomLogFile.h"
#include "ReferenceRetrieval.h"
#include "TempDirectory.h"
#include "velm/Dom.h"
#include "velm/Log.h"

namespace {

using Reference::Delivery;
using Reference::kLogTime;
using Reference::Random;
using Reference::Window;

constexpr uint64_t kBase = 2600000;
constexpr uint64_t kCases = 3000;
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

unsigned int CorruptFileWarnings() {
    unsigned int count = 0;
    for (const VelmCore::LogLine& line : VelmCore::TakeLog()) {
        if (line.text.StartsWith("!6001!Non-printable data encountered in log file '")) ++count;
    }
    return count;
}

// One log with planted files, and a few retrievals with changes in between.
class Case {
public:
    Case(VelmCore::CDom& dom, uint64_t seed)
        : m_Random(seed), m_Dom(dom), m_Log(dom), m_Reference(m_Temp.Path(), "log") {
        m_Log.SetLogFilePath(m_Temp.Path());
        m_Log.SetLogFileName("log");
        for (int driver = 0; driver < 3; ++driver)
            SetBookmark(driver, m_Random.OneIn(2) ? 0 : m_Random.Below(20));
        ChooseLifetime();
        for (uint32_t files = m_Random.Below(6); files > 0; --files)
            Plant();
    }

    void Run() {
        for (uint32_t calls = 1 + m_Random.Below(5); calls > 0; --calls) {
            Retrieve(MakeWindow());
            if (testing::Test::HasFailure()) return;
            Disturb();
        }
    }

private:
    void SetBookmark(int driver, unsigned int line) {
        m_Dom.Set(kBookmarks[driver], static_cast<long long>(line));
        m_Reference.bookmarks[driver] = line;
    }

    // The slack is the cache's lifetime, rounded to whole seconds; a cache that is off has none.
    void ChooseLifetime() {
        static const struct {
            unsigned int size, msec;
            long slack;
        } kLifetimes[] = {{9, 60000, 60},     {9, 60499, 60},     {9, 60500, 61},
                          {9, 1000000, 1000}, {9, 3600000, 3600}, {0, 60000, 0}};
        const auto& lifetime = kLifetimes[m_Random.Below(std::size(kLifetimes))];
        m_Log.SetCacheParameters(lifetime.size, lifetime.msec, 0);
        m_Reference.slack = lifetime.slack;
    }

    void Plant() {
        std::string name = "log";
        if (!m_Random.OneIn(3)) name += "." + std::to_string(1 + m_Random.Below(12));
        if (m_Random.OneIn(12)) name = "logs.77";
        const std::string path = m_Temp.Path(name);
        std::filesystem::remove(path);
        if (m_Random.OneIn(25)) {
            std::filesystem::create_symlink("nowhere", path);
            return;
        }
        Reference::WriteFile(path, Reference::RandomLogFile(m_Random));
        const time_t changed = Reference::RandomSecond(m_Random) + (m_Random.OneIn(3) ? 4000 : 0);
        const timespec times[2] = {{changed, 0}, {changed, 0}};
        utimensat(AT_FDCWD, path.c_str(), times, 0);
    }

    Window MakeWindow() {
        Window window = {static_cast<int>(m_Random.Below(3)), 0, 0, 1000000};
        if (!m_Random.OneIn(4)) window.startTime = Reference::RandomSecond(m_Random);
        if (!m_Random.OneIn(3)) window.endTime = Reference::RandomSecond(m_Random);
        if (m_Random.OneIn(30)) window.startTime = m_Random.Pick<long>({-1, 1, 0x7FFFFFFF});
        if (m_Random.OneIn(30)) window.endTime = m_Random.Pick<long>({-1, 1, 0x7FFFFFFF});
        if (m_Random.OneIn(8)) window.most = 1 + m_Random.Below(5);
        return window;
    }

    void Retrieve(const Window& window) {
        const std::vector<Delivery> expected = m_Reference.Run(window);
        const auto driver = static_cast<OSTREL::_Driver>(window.driver);
        if (window.most > 1000 && m_Random.OneIn(4)) {
            wxString text;
            wxStringOutputStream out(&text, wxConvISO8859_1);
            m_Log.GetLogDataStream(driver, window.startTime, window.endTime, "me", 1, out);
            std::string joined;
            for (const Delivery& delivery : expected)
                joined += delivery.text + "\n";
            EXPECT_EQ(std::string(text.mb_str(wxConvISO8859_1)), joined);
        } else {
            Collector collector = {{}, window.most};
            EXPECT_TRUE(m_Log.GetLogData(driver, window.startTime, window.endTime, "me", Collect,
                                         &collector));
            EXPECT_EQ(collector.found, expected);
        }
        CheckTraces();
    }

    void CheckTraces() {
        EXPECT_EQ(Reference::TakeEvents(m_Dom), m_Reference.events);
        EXPECT_EQ(CorruptFileWarnings(), m_Reference.corruptFiles);
        m_Reference.events.clear();
        m_Reference.corruptFiles = 0;
        for (int i = 0; i < 3; ++i) {
            long long line = -1;
            EXPECT_TRUE(m_Dom.Get(kBookmarks[i], line));
            EXPECT_EQ(line, m_Reference.bookmarks[i]) << kBookmarks[i];
        }
    }

    void Disturb() {
        switch (m_Random.Below(5)) {
            case 0:
                std::ofstream(m_Temp.Path("log"), std::ios::app | std::ios::binary)
                    << Reference::RandomLogFile(m_Random);
                break;
            case 1:
                EXPECT_TRUE(m_Log.RotateFiles());
                m_Reference.bookmarks[0] = 0;
                m_Reference.bookmarks[1] = 0;
                break;
            case 2:
                Plant();
                break;
            case 3:
                SetBookmark(static_cast<int>(m_Random.Below(3)), m_Random.Below(20));
                break;
            default:
                break;
        }
    }

    Random m_Random;
    VelmCore::CDom& m_Dom;
    Reference::TempDirectory m_Temp;
    OSTREL::LogData m_Log;
    Reference::Retrieval m_Reference;
};

TEST(RetrievalReference, RandomFilesGiveTheSameRecordsBookmarksAndEvents) {
    VelmCore::InstallLog("");
    VelmCore::CDom dom;
    const Reference::Seeds seeds(kBase, kCases);
    for (uint64_t seed = seeds.first; seed < seeds.last && !HasFailure(); ++seed) {
        VelmCore::TakeLog();
        Case(dom, seed).Run();
        if (HasFailure()) ADD_FAILURE() << "OSTREL_REFERENCE_SEED=" << seed;
    }
}

}  // namespace
