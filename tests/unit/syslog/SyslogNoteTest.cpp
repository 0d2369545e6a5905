// What an entry carries of the packet itself: the note and the packet data.

#include "SyslogFixture.h"

namespace {

class SyslogNoteTest : public SyslogTest {
protected:
    static velm_log_entry_s WithNote(const std::string& note) {
        velm_log_entry_s entry = BarePayloadLog(1004, -1, 1);
        entry.log_note_len = static_cast<uint16_t>(note.size());
        memcpy(entry.log_note, note.data(), std::min(note.size(), sizeof entry.log_note));
        return entry;
    }
    // Everything behind the stream position.
    std::string Cef2(const velm_log_entry_s& entry) {
        return Behind(Cef(2, entry), " cs5Label=DPI Stream Position ");
    }
    std::string Plain0(const velm_log_entry_s& entry) {
        return Behind(Plain(0, entry), " SPOS=0 ");
    }

private:
    static std::string Behind(const std::string& message, const std::string& mark) {
        const size_t at = message.find(mark);
        EXPECT_NE(at, std::string::npos) << message;
        return message.substr(at + mark.size());
    }
};

TEST_F(SyslogNoteTest, EmptyNoteHasNeitherKeyNorLabel) {
    EXPECT_EQ(Cef2(WithNote("")), "cs6=0 cs6Label=DPI Flags");
    EXPECT_EQ(Plain0(WithNote("")), "FLAGS=0");
}

TEST_F(SyslogNoteTest, PrintableNoteIsText) {
    EXPECT_EQ(Cef2(WithNote("GET /a b")),
              "cs1=GET /a b cs1Label=DPI Note cs6=0 cs6Label=DPI Flags");
    EXPECT_EQ(Plain0(WithNote("GET /a b")), "NOTE=GET_/a_b FLAGS=0");
}

TEST_F(SyslogNoteTest, LongNoteIsItsFirst16Bytes) {
    velm_log_entry_s entry = WithNote("0123456789abcdef");
    entry.log_note_len = 40;
    EXPECT_EQ(Plain0(entry), "NOTE=0123456789abcdef FLAGS=0");
    entry.log_note_len = 65535;
    EXPECT_EQ(Plain0(entry), "NOTE=0123456789abcdef FLAGS=0");
}

TEST_F(SyslogNoteTest, OneUnprintableByteTurnsTheWholeNoteIntoBase64) {
    EXPECT_EQ(Cef2(WithNote("GET /a b\n")),
              "cs1=R0VUIC9hIGIK cs1Label=DPI Note cs6=0 "
              "cs6Label=DPI Flags");
    EXPECT_EQ(Plain0(WithNote("GET /a b\n")), "NOTE=R0VUIC9hIGIK FLAGS=0");
}

TEST_F(SyslogNoteTest, ZeroByteIsUnprintable) {
    EXPECT_EQ(Plain0(WithNote(std::string("\0", 1))), "NOTE=AA== FLAGS=0");
    EXPECT_EQ(Plain0(WithNote(std::string("ab\0cd", 5))), "NOTE=YWIAY2Q= FLAGS=0");
}

TEST_F(SyslogNoteTest, Utf8IsUnprintable) {
    EXPECT_EQ(Plain0(WithNote("\xC3\xA4")), "NOTE=w6Q= FLAGS=0");
}

TEST_F(SyslogNoteTest, BytesBehindTheLengthDoNotCount) {
    velm_log_entry_s entry = WithNote("abc\n");
    entry.log_note_len = 3;
    EXPECT_EQ(Plain0(entry), "NOTE=abc FLAGS=0");
}

TEST_F(SyslogNoteTest, Base64IsEscapedInCefAlone) {
    EXPECT_EQ(Cef2(WithNote("\x01")), "cs1=AQ\\=\\= cs1Label=DPI Note cs6=0 cs6Label=DPI Flags");
    EXPECT_EQ(Plain0(WithNote("\x01")), "NOTE=AQ== FLAGS=0");
}

TEST_F(SyslogNoteTest, LongestBase64IsNotCut) {
    EXPECT_EQ(Cef2(WithNote(std::string(16, '\xFF'))),
              "cs1=/////////////////////w\\=\\= cs1Label=DPI Note cs6=0 cs6Label=DPI Flags");
}

TEST_F(SyslogNoteTest, TextIsEscapedInCef) {
    EXPECT_EQ(Cef2(WithNote("a=b\\c|d cs1=x")),
              "cs1=a\\=b\\\\c|d cs1\\=x cs1Label=DPI Note cs6=0 cs6Label=DPI Flags");
}

// The plain form knows no escapes: a receiver splits it at blanks, of which a value has none.
TEST_F(SyslogNoteTest, TextIsNotEscapedInThePlainFormBeyondItsBlanks) {
    EXPECT_EQ(Plain0(WithNote("a=b\\c|d FLAGS=9")), "NOTE=a=b\\c|d_FLAGS=9 FLAGS=0");
}

class SyslogPacketDataTest : public SyslogTest {
protected:
    static velm_log_entry_s WithData(uint16_t length) {
        velm_log_entry_s entry = BarePacketLog(0, 0, 0);
        entry.log_dpi_flags = 0x02;
        entry.log_packet_data_len = length;
        return entry;
    }
};

constexpr const char* kBare = "REASON= HOSTID=7 act=Deny LEN=0 cnt=0";

TEST_F(SyslogPacketDataTest, IsEscapedBase64InBothFamilies) {
    EXPECT_EQ(Plain(2, WithData(2), "\xFF\xFE"), std::string(kBare) + " ZelloraPacketData=//4\\=");
    EXPECT_EQ(Cef(2, WithData(2), "\xFF\xFE"),
              CEF_HEADER "0||5|" CEF_HOST_LABELLED " act=Deny in=0 cnt=0 ZelloraPacketData=//4\\=");
}

TEST_F(SyslogPacketDataTest, NeedsTheFlagOfTheEntry) {
    velm_log_entry_s entry = WithData(2);
    entry.log_dpi_flags = 0xFD;
    EXPECT_EQ(Plain(2, entry, "ab"), kBare);
}

TEST_F(SyslogPacketDataTest, NeedsALength) {
    EXPECT_EQ(Plain(2, WithData(0), "ab"), kBare);
}

TEST_F(SyslogPacketDataTest, NeedsFormat2) {
    EXPECT_EQ(Plain(1, WithData(2), "ab"), "REASON= HOSTID=7 LEN=0 cnt=0");
    EXPECT_EQ(Plain(0, WithData(2), "ab"), "REASON= HOSTID=7 act=Deny LEN=0 CNT=0");
}

TEST_F(SyslogPacketDataTest, LengthOfTheEntryCounts) {
    EXPECT_EQ(Plain(2, WithData(3), "abcdef"), std::string(kBare) + " ZelloraPacketData=YWJj");
}

TEST_F(SyslogPacketDataTest, WhatTheEntryClaimsBeyondTheDataReadsAsZero) {
    EXPECT_EQ(Plain(2, WithData(6), "abc"), std::string(kBare) + " ZelloraPacketData=YWJjAAAA");
    EXPECT_EQ(Plain(2, WithData(3)), std::string(kBare) + " ZelloraPacketData=AAAA");
}

// 65,536 bytes hold the entry and 65,356 bytes of data.
TEST_F(SyslogPacketDataTest, FullRecordIsNeverCut) {
    const std::string expected =
        std::string(kBare) + " ZelloraPacketData=" + std::string(87140, '/') + "/w\\=\\=";
    EXPECT_EQ(Plain(2, WithData(65356), std::string(65356, '\xFF')), expected);
}

TEST_F(SyslogPacketDataTest, DataBeyondTheRecordIsCutToItsRoom) {
    const std::string expected =
        std::string(kBare) + " ZelloraPacketData=" + std::string(87140, '/') + "/w\\=\\=";
    EXPECT_EQ(Plain(2, WithData(65535), std::string(70000, '\xFF')), expected);
    EXPECT_EQ(Plain(2, WithData(65535)).size(), expected.size());
}

}  // namespace
