#pragma once

#include <wx/sstream.h>

#include "LogDataFixture.h"

// Retrieval from planted files. Lines name themselves with a tag, and their times are small.
class RetrievalTest : public LogDataTest {
protected:
    static std::string Line(const char* kind, const std::string& tag, long seconds) {
        const std::string usec = std::to_string(seconds) + "000000";
        return std::string("2025/11/13, 21:35:29, ") + kind + ", " + tag + ", 1, " + usec + ", " +
               usec + "\n";
    }
    static std::string Fw(const std::string& tag, long seconds) { return Line("f", tag, seconds); }
    static std::string Dpi(const std::string& tag, long seconds) { return Line("d", tag, seconds); }

    struct Delivered {
        Texts texts;
        std::vector<long> times;
        long slack = -1;
        size_t limit = ~size_t{0};  // the delivery that ends the retrieval
    };
    static bool Collect(void* context, long lineTime, long slack, const std::string& line) {
        Delivered& delivered = *static_cast<Delivered*>(context);
        delivered.texts.push_back(line);
        delivered.times.push_back(lineTime);
        delivered.slack = slack;
        return delivered.texts.size() < delivered.limit;
    }

    bool Retrieve(Delivered& delivered, long from, long to,
                  OSTREL::_Driver which = OSTREL::DriverFirewall) {
        return log.GetLogData(which, from, to, "agent", Collect, &delivered);
    }
    // The tags of the lines that were delivered.
    Texts Tags(long from, long to, OSTREL::_Driver which = OSTREL::DriverFirewall) {
        Delivered delivered;
        EXPECT_TRUE(Retrieve(delivered, from, to, which));
        Texts tags;
        for (const std::string& text : delivered.texts)
            tags.push_back(text.substr(3, text.find(", ", 3) - 3));
        return tags;
    }
    // Brings the log behind its first retrieval, with the bookmarks at 0.
    void PassFirstRetrieval() {
        peer.firstRetrieval[0] = false;
        peer.firstRetrieval[1] = false;
    }
    void SetSlack(unsigned int seconds) { peer.cacheLifetimeMsec = seconds * 1000; }
    long long Bookmark() const { return Setting("plg.ostrel.lastline.packet"); }
};
