// Records that reached the file only after their window was asked for: delivered once.

#include "RetrievalFixture.h"

namespace {

class LateLinesTest : public RetrievalTest {
protected:
    LateLinesTest() {
        PassFirstRetrieval();
        SetSlack(10);
    }
};

TEST_F(LateLinesTest, LateLineOfThePrimaryFileIsDeliveredOnce) {
    directory.Plant("fw", Fw("a", 100) + Fw("late", 99));
    EXPECT_EQ(Tags(100, 200), Texts({"a", "late"}));
    EXPECT_EQ(Bookmark(), 1);
    EXPECT_EQ(Tags(100, 200), Texts({"a"}));
}

TEST_F(LateLinesTest, LateLineOfARotatedFileIsNot) {
    directory.Plant("fw.1", Fw("a", 100) + Fw("late", 99));
    EXPECT_EQ(Tags(100, 200), Texts({"a"}));
}

TEST_F(LateLinesTest, SlackIsTheLimitOfLateness) {
    directory.Plant("fw", Fw("a", 100) + Fw("too late", 89) + Fw("late", 90));
    EXPECT_EQ(Tags(100, 200), Texts({"a", "late"}));
}

TEST_F(LateLinesTest, WithoutSlackNothingIsLate) {
    SetSlack(0);
    directory.Plant("fw", Fw("a", 100) + Fw("b", 99));
    EXPECT_EQ(Tags(100, 200), Texts({"a"}));
}

TEST_F(LateLinesTest, LineThatIsTooOldDoesNotMoveTheBookmark) {
    directory.Plant("fw", Fw("a", 50) + Fw("b", 50));
    EXPECT_EQ(Tags(100, 200), Texts());
    EXPECT_EQ(Bookmark(), -1);
}

TEST_F(LateLinesTest, LineAtNumberZeroIsNeverLate) {
    directory.Plant("fw", Fw("late", 99));
    EXPECT_EQ(Tags(100, 200), Texts());
}

TEST_F(LateLinesTest, DeliveryOfLineZeroLeavesTheBookmark) {
    directory.Plant("fw", Fw("a", 100));
    EXPECT_EQ(Tags(100, 200), Texts({"a"}));
    EXPECT_EQ(Bookmark(), -1);
}

TEST_F(LateLinesTest, BookmarkNeverMovesBack) {
    directory.Plant("fw", Fw("a", 100) + Fw("b", 101));
    dom.Set("plg.ostrel.lastline.packet", 50);
    EXPECT_EQ(Tags(100, 200), Texts({"a", "b"}));
    EXPECT_EQ(Bookmark(), 50);
}

TEST_F(LateLinesTest, BookmarkOfTheSettingsIsUsed) {
    directory.Plant("fw", Fw("a", 99) + Fw("b", 99) + Fw("c", 99) + Fw("d", 99));
    dom.Set("plg.ostrel.lastline.packet", 2);
    EXPECT_EQ(Tags(100, 200), Texts({"d"}));
    EXPECT_EQ(Bookmark(), 3);
}

TEST_F(LateLinesTest, LinesOfBothKindsAreCounted) {
    directory.Plant("fw", Dpi("x", 99) + Dpi("y", 99) + Fw("late", 99));
    EXPECT_EQ(Tags(100, 200), Texts({"late"}));
    EXPECT_EQ(Bookmark(), 2);
}

TEST_F(LateLinesTest, KindsDoNotDisturbEachOther) {
    directory.Plant("fw", Fw("a", 100) + Fw("b", 99) + Dpi("c", 99));
    EXPECT_EQ(Tags(100, 200), Texts({"a", "b"}));
    EXPECT_EQ(Tags(100, 200, OSTREL::DriverDpi), Texts({"c"}));
    EXPECT_EQ(Tags(100, 200, OSTREL::PseudoDriverPcap), Texts({"c"}));
    EXPECT_EQ(Tags(100, 200, OSTREL::PseudoDriverPcap), Texts());
}

TEST_F(LateLinesTest, LateLineIsStillHeldAgainstTheEndOfTheWindow) {
    directory.Plant("fw", Fw("a", 5) + Fw("b", 95) + Fw("c", 6));
    EXPECT_EQ(Tags(100, 80), Texts());
    EXPECT_EQ(Bookmark(), -1);
}

TEST_F(LateLinesTest, FirstRetrievalMovesTheBookmarkAndDeliversNoLateLine) {
    peer.firstRetrieval[0] = true;
    directory.Plant("fw", Fw("a", 100) + Fw("late", 99) + Fw("later", 98));
    EXPECT_EQ(Tags(100, 200), Texts({"a"}));
    EXPECT_EQ(Bookmark(), 2);
    EXPECT_FALSE(peer.firstRetrieval[0]);
    EXPECT_EQ(Tags(100, 200), Texts({"a"}));
}

TEST_F(LateLinesTest, FirstRetrievalIsCountedByKind) {
    peer.firstRetrieval[0] = true;
    peer.firstRetrieval[1] = true;
    directory.Plant("fw", Dpi("a", 100) + Dpi("late", 99));
    Tags(100, 200, OSTREL::DriverFirewall);
    EXPECT_TRUE(peer.firstRetrieval[1]);
    EXPECT_EQ(Tags(100, 200, OSTREL::DriverDpi), Texts({"a"}));
}

TEST_F(LateLinesTest, PseudoDriverHasNoFirstRetrieval) {
    OSTREL::LogData fresh(dom);
    EXPECT_FALSE(OSTREL::LogDataPeer(fresh).firstRetrieval[OSTREL::PseudoDriverPcap]);
    directory.Plant("fw", Dpi("a", 100) + Dpi("late", 99));
    EXPECT_EQ(Tags(100, 200, OSTREL::PseudoDriverPcap), Texts({"a", "late"}));
}

TEST_F(LateLinesTest, LineAppendedLaterIsDeliveredByALaterWindow) {
    directory.Plant("fw", Fw("a", 100) + Fw("b", 110));
    EXPECT_EQ(Tags(100, 120), Texts({"a", "b"}));
    directory.Plant("fw", Fw("a", 100) + Fw("b", 110) + Fw("late", 115) + Fw("c", 121));
    EXPECT_EQ(Tags(121, 140), Texts({"late", "c"}));
    EXPECT_EQ(Tags(121, 140), Texts({"c"}));
}

TEST_F(LateLinesTest, RotationDuringARetrievalIsSeenByTheNextLine) {
    directory.Plant("fw", Fw("a", 100) + Fw("b", 101) + Fw("c", 99));
    dom.Set("plg.ostrel.lastline.packet", 50);
    struct Context {
        VelmCore::CDom& dom;
        int count;
    } context = {dom, 0};
    const auto reset = [](void* data, long, long, const std::string&) {
        Context& seen = *static_cast<Context*>(data);
        if (++seen.count == 2) seen.dom.Set("plg.ostrel.lastline.packet", 0LL);
        return true;
    };
    log.GetLogData(OSTREL::DriverFirewall, 100, 200, "agent", reset, &context);
    EXPECT_EQ(context.count, 3);
    EXPECT_EQ(Bookmark(), 2);
}

TEST_F(LateLinesTest, RetrievalDoesNotTouchTheOpenFile) {
    log.InitializeLogFile();
    Tags(0, 0);
    EXPECT_TRUE(peer.logFile.IsOpened());
}

}  // namespace
