// The text of a record, column by column. Columns are counted as in the line: 3 is the kind.

#include <cstddef>

#include "LogDataFixture.h"
#include "RecordText.h"

namespace {

using namespace std::string_literals;

class RecordTextTest : public LogDataTest {
protected:
    std::string Column(int number, const velm_log_entry_s& entry,
                       const std::string& packetData = "", const std::string& logData = "") {
        const std::string text = Text(entry, packetData, logData) + ", ";
        size_t begin = 0;
        for (int i = 3; i < number; ++i)
            begin = text.find(", ", begin) + 2;
        return text.substr(begin, text.find(", ", begin) - begin);
    }
    std::string Details(const velm_log_entry_s& entry) { return Column(11, entry); }
};

constexpr const char* kPacketLine =
    "2025/11/13, 21:35:29, f, 0, 1, 00 0C 29 11 22 33, IP, 00 0C 29 44 55 66, 00 0C 29 11 22 33, "
    "TCP, ACK PSH DF=1, 10.0.0.5, 51000, 10.0.0.9, 443, 60, 1, 0, 17, 3, , 0, 0, 0, 0, , , , 1, "
    "1763069729000500, 1763069729000500\n";
constexpr const char* kPayloadLine =
    "2025/11/13, 21:35:30, d, 0, 0, 00 0C 29 11 22 33, IP, 00 0C 29 44 55 66, 00 0C 29 11 22 33, "
    "TCP, ACK , 10.0.0.5, 51000, 10.0.0.9, 80, 1500, 1, -1, 1004, 3, 2F6574632F706173, 120, 8840, "
    "8, 0, 2, 45000034, , 2, 1763069731000100, 1763069730000200\n";
constexpr const char* kPacketLineInBerlin =
    "2025/11/13, 22:35:29, f, 0, 1, 00 0C 29 11 22 33, IP, 00 0C 29 44 55 66, 00 0C 29 11 22 33, "
    "TCP, ACK PSH DF=1, 10.0.0.5, 51000, 10.0.0.9, 443, 60, 1, 0, 17, 3, , 0, 0, 0, 0, , , , 1, "
    "1763069729000500, 1763069729000500\n";

TEST_F(RecordTextTest, PacketLogLineByteForByte) {
    const std::string text = Text(TcpEntry());
    ASSERT_TRUE(log.WriteRecord(text, {0, firstTime, 0, lastTime, 1}));
    EXPECT_EQ(File(), kPacketLine);
}

TEST_F(RecordTextTest, PayloadLogLineByteForByte) {
    const std::string text = Text(PayloadEntry(), "\x45\x00\x00\x34"s);
    ASSERT_TRUE(log.WriteRecord(text, {0, firstTime, 0, lastTime, 2}));
    EXPECT_EQ(File(), kPayloadLine);
}

TEST_F(RecordTextTest, BothLinesComeOutOfThePipeline) {
    Write(TcpEntry());
    Write(PayloadEntry(), "\x45\x00\x00\x34"s);
    ASSERT_TRUE(log.FlushBufferedData(true));
    EXPECT_EQ(File(), std::string(kPayloadLine) + kPacketLine);  // in the order of the texts
}

TEST_F(RecordTextTest, DateAndTimeAreThoseOfTheMachinesZone) {
    SetTimeZone("Europe/Berlin");
    const std::string text = Text(TcpEntry());
    log.WriteRecord(text, {0, firstTime, 0, lastTime, 1});
    SetTimeZone("UTC");
    EXPECT_EQ(File(), kPacketLineInBerlin);
}

TEST_F(RecordTextTest, DaylightSavingMovesTheTimeByAnotherHour) {
    SetTimeZone("Europe/Berlin");
    log.WriteRecord("x", {0, 1752441329000500, 0, 1752441329000500, 1});
    SetTimeZone("UTC");
    EXPECT_EQ(File(), "2025/07/13, 23:15:29, x, 1, 1752441329000500, 1752441329000500\n");
}

TEST_F(RecordTextTest, TimesAreMicrosecondsInSixtyFourBits) {
    velm_log_entry_s entry = TcpEntry();
    entry.log_first_sec = 4294967295;
    entry.log_first_usec = 999999;
    entry.log_last_sec = 4294967295;
    entry.log_last_usec = 4294967295;
    Text(entry);
    EXPECT_EQ(firstTime, 4294967295999999);
    EXPECT_EQ(lastTime, 4294967295000000 + 4294967295);
}

TEST_F(RecordTextTest, TextHoldsNoTimeAndNoCount) {
    const std::string text = Text(TcpEntry());
    velm_log_entry_s later = TcpEntry();
    later.log_first_sec = 1;
    later.log_last_sec = 2;
    later.log_first_usec = 3;
    later.log_last_usec = 4;
    later.log_repeat_count = 5;
    EXPECT_EQ(Text(later), text);
}

TEST_F(RecordTextTest, FormerTextIsReplaced) {
    OSTREL::WorkingRecord record;
    record.Assign(TcpEntry(), nullptr, 0, nullptr, 0);
    std::string text = "former text";
    log.BinaryToAscii(&record, text, firstTime, lastTime);
    EXPECT_EQ(text.substr(0, 9), "f, 0, 1, ");
}

TEST_F(RecordTextTest, KindFollowsTheSignOfTheReason) {
    velm_log_entry_s entry = TcpEntry();
    EXPECT_EQ(Column(3, entry), "f");
    entry.log_reason = 152;
    EXPECT_EQ(Column(3, entry), "f");
    entry.log_reason = -1;
    EXPECT_EQ(Column(3, entry), "d");
    entry.log_reason = -32768;
    EXPECT_EQ(Column(3, entry), "d");
}

TEST_F(RecordTextTest, OutgoingAndReverseHaveOppositeSenses) {
    velm_log_entry_s entry = TcpEntry();
    EXPECT_EQ(Column(4, entry), "0");
    EXPECT_EQ(Column(5, entry), "1");
    entry.log_flags |= 0x03;
    EXPECT_EQ(Column(4, entry), "1");
    EXPECT_EQ(Column(5, entry), "0");
}

TEST_F(RecordTextTest, InterfaceAddressHasAtMostEightBytes) {
    velm_log_entry_s entry = TcpEntry();
    const uint8_t address[8] = {1, 2, 3, 4, 5, 6, 0xAB, 0xCD};
    memcpy(entry.log_if_addr, address, sizeof address);
    entry.log_if_addr_len = 4000000000;
    EXPECT_EQ(Column(6, entry), "01 02 03 04 05 06 AB CD");
    entry.log_if_addr_len = 1;
    EXPECT_EQ(Column(6, entry), "01");
    entry.log_if_addr_len = 0;
    EXPECT_EQ(Column(6, entry), "");
}

TEST_F(RecordTextTest, FrameTypeByItsNumber) {
    const struct {
        uint16_t type;
        const char* text;
    } rows[] = {{0x0800, "IP"},   {0x0806, "ARP"},    {0x8035, "RevARP"}, {0x8191, "NetBEUI"},
                {0x86DD, "IPv6"}, {0x88CC, "0x88cc"}, {0x0005, "0x5"},    {0x0000, "0"}};
    velm_log_entry_s entry = TcpEntry();
    for (const auto& row : rows) {
        entry.log_eth.eth_type = htons(row.type);
        EXPECT_EQ(Column(7, entry), row.text);
    }
}

TEST_F(RecordTextTest, FrameTypeWithoutAFrameFollowsTheIpHeader) {
    velm_log_entry_s entry = TcpEntry();
    entry.log_flags = 0x10;
    EXPECT_EQ(Column(7, entry), "IP");
    entry.log_flags = 0x20;
    EXPECT_EQ(Column(7, entry), "IPv6");
    entry.log_flags = 0x30;
    EXPECT_EQ(Column(7, entry), "IP");
    entry.log_flags = 0x40;
    EXPECT_EQ(Column(7, entry), "");
}

TEST_F(RecordTextTest, HardwareAddressesNeedAFrame) {
    velm_log_entry_s entry = TcpEntry();
    EXPECT_EQ(Column(8, entry), "00 0C 29 44 55 66");
    EXPECT_EQ(Column(9, entry), "00 0C 29 11 22 33");
    entry.log_flags &= ~0x08;
    EXPECT_EQ(Column(8, entry), "");
    EXPECT_EQ(Column(9, entry), "");
}

TEST_F(RecordTextTest, ProtocolByItsNumber) {
    const struct {
        uint8_t protocol;
        const char* text;
    } rows[] = {{1, "ICMP"}, {2, "IGMP"},    {3, "GGP"}, {6, "TCP"}, {12, "PUP"},  {17, "UDP"},
                {22, "IDP"}, {58, "ICMPv6"}, {77, "ND"}, {0, "0"},   {132, "132"}, {255, "255"}};
    velm_log_entry_s entry = TcpEntry();
    for (const auto& row : rows) {
        entry.log_ip.v4.iph_proto = row.protocol;
        EXPECT_EQ(Column(10, entry), row.text);
        EXPECT_EQ(Column(10, Ipv6Entry(row.protocol)), row.text);
    }
}

TEST_F(RecordTextTest, WithoutFlagsTheColumnsFromFrameTypeToPortsAreEmpty) {
    velm_log_entry_s entry = TcpEntry();
    entry.log_flags = 0;
    EXPECT_EQ(Text(entry),
              "f, 0, 1, 00 0C 29 11 22 33, , , , , , , , , , 60, 1, 0, 17, 3, , 0, 0, 0, 0, , , ");
}

TEST_F(RecordTextTest, BothIpFlagsMakeAnIpv4Record) {
    velm_log_entry_s entry = TcpEntry();
    entry.log_flags |= 0x20;
    EXPECT_EQ(Column(10, entry), "TCP");
    EXPECT_EQ(Column(12, entry), "10.0.0.5");
}

TEST_F(RecordTextTest, ProtocolOfAnIpv6RecordIsItsNextHeader) {
    velm_log_entry_s entry = Ipv6Entry(17);
    entry.log_ip.v4.iph_proto = 6;  // a byte of the source address
    EXPECT_EQ(Column(10, entry), "UDP");
}

TEST_F(RecordTextTest, Ipv6AddressesHaveEightGroupsWithoutCompression) {
    const velm_log_entry_s entry = Ipv6Entry(6);
    EXPECT_EQ(Column(12, entry), "2001:db8:0:0:0:0:0:5");
    EXPECT_EQ(Column(14, entry), "fe80:0:0:0:0:0:0:ab01");
}

TEST_F(RecordTextTest, PortsStandForTcpAndUdpOnly) {
    velm_log_entry_s entry = TcpEntry();
    EXPECT_EQ(Column(13, entry), "51000");
    EXPECT_EQ(Column(15, entry), "443");
    entry.log_ip.v4.iph_proto = 17;
    EXPECT_EQ(Column(13, entry), "51000");
    entry.log_ip.v4.iph_proto = 132;
    EXPECT_EQ(Column(13, entry), "");
    EXPECT_EQ(Column(15, entry), "");
    EXPECT_EQ(Column(13, Ipv6Entry(17)), "51000");
}

TEST_F(RecordTextTest, HasPortsNeedsProtocolAndTransportHeader) {
    velm_log_entry_s entry = TcpEntry();
    EXPECT_TRUE(OSTREL::HasPorts(&entry));
    entry.log_flags = 0x40;
    EXPECT_FALSE(OSTREL::HasPorts(&entry));
    entry.log_flags = 0x10;
    EXPECT_FALSE(OSTREL::HasPorts(&entry));
}

TEST_F(RecordTextTest, Icmpv6HasNoDetailsAndNoPorts) {
    const velm_log_entry_s entry = Ipv6Entry(58);
    EXPECT_EQ(Column(10, entry), "ICMPv6");
    EXPECT_EQ(Column(11, entry), "");
    EXPECT_EQ(Column(13, entry), "");
    EXPECT_EQ(Column(15, entry), "");
}

TEST_F(RecordTextTest, TcpWithoutTransportHeaderHasNoFlagsAndNoPorts) {
    velm_log_entry_s entry = TcpEntry();
    entry.log_flags &= ~0x40;
    entry.log_ip.v4.iph_frag = 0;
    EXPECT_EQ(Column(10, entry), "TCP");
    EXPECT_EQ(Column(11, entry), "");
    EXPECT_EQ(Column(13, entry), "");
    EXPECT_EQ(Column(15, entry), "");
}

TEST_F(RecordTextTest, EachTcpFlagHasItsWordAndItsBlank) {
    const struct {
        uint8_t flags;
        const char* text;
    } rows[] = {{0x80, "CWR "}, {0x40, "ECE "}, {0x20, "URG "},
                {0x10, "ACK "}, {0x08, "PSH "}, {0x04, "RST "},
                {0x02, "SYN "}, {0x01, "FIN "}, {0xFF, "CWR ECE URG ACK PSH RST SYN FIN "},
                {0x00, ""}};
    velm_log_entry_s entry = TcpEntry();
    entry.log_ip.v4.iph_frag = 0;
    velm_log_entry_s ipv6 = Ipv6Entry(6);
    for (const auto& row : rows) {
        entry.log_transport.tcp.tcph_flags = row.flags;
        ipv6.log_transport.tcp.tcph_flags = row.flags;
        EXPECT_EQ(Details(entry), row.text);
        EXPECT_EQ(Details(ipv6), row.text);
    }
}

TEST_F(RecordTextTest, BlankBetweenAckAndDfComesFromTheFlagWord) {
    velm_log_entry_s entry = TcpEntry();
    entry.log_transport.tcp.tcph_flags = 0x10;
    EXPECT_EQ(Details(entry), "ACK DF=1");
}

TEST_F(RecordTextTest, IcmpShowsTypeAndCode) {
    velm_log_entry_s entry = TcpEntry();
    entry.log_ip.v4.iph_proto = 1;
    entry.log_ip.v4.iph_frag = 0;
    entry.log_transport = {};
    entry.log_transport.icmp = {3, 255};
    EXPECT_EQ(Details(entry), "Type:3 Code:255");
    entry.log_ip.v4.iph_frag = htons(0x4000);
    EXPECT_EQ(Details(entry), "Type:3 Code:255DF=1");
    entry.log_flags &= ~0x40;
    EXPECT_EQ(Details(entry), "DF=1");
}

TEST_F(RecordTextTest, IcmpInIpv6HasNoTypeAndCode) {
    EXPECT_EQ(Details(Ipv6Entry(1)), "");
}

TEST_F(RecordTextTest, FragmentReasonsShowEverything) {
    velm_log_entry_s entry = TcpEntry();
    entry.log_flags &= ~0x40;
    entry.log_ip.v4.iph_len = htons(1500);
    entry.log_ip.v4.iph_frag = htons(185);
    entry.log_reason = 109;
    EXPECT_EQ(Details(entry), "DF=0 MF=0 FragOffs=1480 IPTotalLen=1500");
    entry.log_ip.v4.iph_frag = htons(0xFFFF);
    EXPECT_EQ(Details(entry), "DF=1 MF=1 FragOffs=65528 IPTotalLen=1500");
}

TEST_F(RecordTextTest, FragmentReasonsReachFrom108To112) {
    velm_log_entry_s entry = TcpEntry();
    entry.log_flags &= ~0x40;
    entry.log_ip.v4.iph_frag = htons(185);
    for (int16_t reason : {108, 109, 110, 111, 112}) {
        entry.log_reason = reason;
        EXPECT_EQ(Details(entry), "DF=0 MF=0 FragOffs=1480 IPTotalLen=1500");
    }
    for (int16_t reason : {107, 113, 0, -1}) {
        entry.log_reason = reason;
        EXPECT_EQ(Details(entry), "");
    }
}

TEST_F(RecordTextTest, OtherReasonsShowOnlyTheFragmentBitsThatAreSet) {
    velm_log_entry_s entry = TcpEntry();
    entry.log_flags &= ~0x40;
    entry.log_ip.v4.iph_frag = htons(0x2000);
    EXPECT_EQ(Details(entry), "MF=1");
    entry.log_ip.v4.iph_frag = htons(0x6000);
    EXPECT_EQ(Details(entry), "DF=1 MF=1");
    entry.log_ip.v4.iph_frag = htons(0x8000);
    EXPECT_EQ(Details(entry), "");
}

TEST_F(RecordTextTest, FragmentDetailsNeedIpv4) {
    velm_log_entry_s entry = Ipv6Entry(17);
    entry.log_reason = 109;
    EXPECT_EQ(Details(entry), "");
}

TEST_F(RecordTextTest, PacketLengthShowsAllThirtyTwoBits) {
    velm_log_entry_s entry = TcpEntry();
    entry.log_packet_len = 4294967295;
    EXPECT_EQ(Column(16, entry), "4294967295");
}

TEST_F(RecordTextTest, ActionIsSignedAndKeepsTheDetectOnlyBit) {
    velm_log_entry_s entry = TcpEntry();
    entry.log_action = 0x81;
    EXPECT_EQ(Column(17, entry), "129");
    entry.log_action = 0xFFFF;
    EXPECT_EQ(Column(17, entry), "-1");
}

TEST_F(RecordTextTest, ReasonIsSigned) {
    velm_log_entry_s entry = TcpEntry();
    entry.log_reason = -4999;
    EXPECT_EQ(Column(18, entry), "-4999");
    entry.log_reason = 32767;
    EXPECT_EQ(Column(18, entry), "32767");
}

TEST_F(RecordTextTest, FilterNumberIsSigned) {
    velm_log_entry_s entry = TcpEntry();
    entry.log_filter_id = 0x7FFFFFFF;
    EXPECT_EQ(Column(19, entry), "2147483647");
    entry.log_filter_id = 0x80000000;
    EXPECT_EQ(Column(19, entry), "-2147483648");
    entry.log_filter_id = 0xFFFFFFFF;
    EXPECT_EQ(Column(19, entry), "-1");
}

TEST_F(RecordTextTest, NoteHasAtMostSixteenBytes) {
    velm_log_entry_s entry = TcpEntry();
    memcpy(entry.log_note,
           "\x00\x01\xFF"
           "ABCDEFGHIJKLM",
           16);
    entry.log_note_len = 40;
    EXPECT_EQ(Column(21, entry), "0001FF4142434445464748494A4B4C4D");
    entry.log_note_len = 3;
    EXPECT_EQ(Column(21, entry), "0001FF");
    entry.log_note_len = 0;
    EXPECT_EQ(Column(21, entry), "");
}

TEST_F(RecordTextTest, PositionsAndExtraValueAreUnsigned) {
    velm_log_entry_s entry = TcpEntry();
    entry.log_packet_pos = 65535;
    entry.log_stream_pos = 4294967295;
    entry.log_extra_value = 65535;
    EXPECT_EQ(Column(22, entry), "65535");
    EXPECT_EQ(Column(23, entry), "4294967295");
    EXPECT_EQ(Column(25, entry), "65535");
}

TEST_F(RecordTextTest, DpiFlagsAreRemapped) {
    const struct {
        uint8_t flags;
        const char* text;
    } rows[] = {{0x01, "32"}, {0x02, "8"}, {0x04, "16"}, {0x08, "1"},  {0x10, "2"},
                {0x20, "4"},  {0x40, "0"}, {0x80, "0"},  {0xFF, "63"}, {0x00, "0"}};
    velm_log_entry_s entry = TcpEntry();
    for (const auto& row : rows) {
        entry.log_dpi_flags = row.flags;
        EXPECT_EQ(Column(24, entry), row.text);
    }
}

TEST_F(RecordTextTest, DataTagNeedsOneOfItsBits) {
    velm_log_entry_s entry = TcpEntry();
    entry.log_data_tag = 65535;
    for (uint8_t flags : {0x02, 0x04, 0x06}) {
        entry.log_dpi_flags = flags;
        EXPECT_EQ(Column(26, entry), "65535");
    }
    entry.log_dpi_flags = 0xF9;
    EXPECT_EQ(Column(26, entry), "");
}

TEST_F(RecordTextTest, TagBitAloneLeavesThePacketDataEmpty) {
    velm_log_entry_s entry = TcpEntry();
    entry.log_dpi_flags = 0x04;
    entry.log_packet_data_len = 2;
    EXPECT_EQ(Column(26, entry, "\xAB\xCD"), "0");
    EXPECT_EQ(Column(27, entry, "\xAB\xCD"), "");
}

TEST_F(RecordTextTest, PacketDataIsDumpedUpToTheLengthThatTheEntryNames) {
    velm_log_entry_s entry = TcpEntry();
    entry.log_dpi_flags = 0x02;
    entry.log_packet_data_len = 3;
    EXPECT_EQ(Column(27, entry, "\x01\x9A\xFF\x04"), "019AFF");
    entry.log_packet_data_len = 0;
    EXPECT_EQ(Column(27, entry, "\x01\x9A\xFF\x04"), "");
}

TEST_F(RecordTextTest, LogDataIsDumpedUpToTheLengthThatTheEntryNames) {
    velm_log_entry_s entry = TcpEntry();
    entry.log_data_len = 2;
    EXPECT_EQ(Column(28, entry, "", "\xDE\xAD\xBE\xEF"), "DEAD");
    entry.log_data_len = 0;
    EXPECT_EQ(Column(28, entry, "", "\xDE\xAD\xBE\xEF"), "");
}

TEST_F(RecordTextTest, DumpsOfAnyLengthAreWhole) {
    velm_log_entry_s entry = TcpEntry();
    entry.log_dpi_flags = 0x02;
    entry.log_packet_data_len = 65000;
    entry.log_data_len = 65535;
    std::string dump;
    for (int i = 0; i < 65000; ++i)
        dump += "5A";
    EXPECT_EQ(Column(27, entry, std::string(65000, '\x5A'), std::string(65535, '\x77')), dump);
    EXPECT_EQ(Column(28, entry, std::string(65000, '\x5A'), std::string(65535, '\x77')),
              std::string(131070, '7'));
}

TEST_F(RecordTextTest, TheWidestRecordStaysFarBelowTheBuffer) {
    velm_log_entry_s entry;
    memset(&entry, 0xFF, sizeof entry);
    entry.log_flags = 0xEF;  // the IPv6 view
    entry.log_packet_data_len = 0;
    entry.log_data_len = 0;
    const unsigned int failed = VelmCore::FailedAssertions();
    EXPECT_EQ(Text(entry),
              "d, 1, 0, FF FF FF FF FF FF FF FF, 0xffff, FF FF FF FF FF FF, FF FF FF FF FF FF, "
              "255, , ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff, , "
              "ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff, , 4294967295, -1, -1, -1, -1, "
              "FFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFF, 65535, 4294967295, 63, 65535, 65535, , ");
    EXPECT_EQ(VelmCore::FailedAssertions(), failed);
}

// Whatever the line shows makes a record of its own: each of these changes one field.
TEST_F(RecordTextTest, EveryShownFieldMakesTheTextDiffer) {
    const std::string text = Text(PayloadEntry(), "\x45\x00\x00\x34"s, "log");
    const size_t offsets[] = {
        offsetof(velm_log_entry_s, log_action),
        offsetof(velm_log_entry_s, log_reason),
        offsetof(velm_log_entry_s, log_filter_id),
        offsetof(velm_log_entry_s, log_stream_pos),
        offsetof(velm_log_entry_s, log_packet_pos),
        offsetof(velm_log_entry_s, log_flags),
        offsetof(velm_log_entry_s, log_if_addr),
        offsetof(velm_log_entry_s, log_packet_len),
        offsetof(velm_log_entry_s, log_note),
        offsetof(velm_log_entry_s, log_data_tag),
        offsetof(velm_log_entry_s, log_dpi_flags),
        offsetof(velm_log_entry_s, log_extra_value),
        0x66,  // hardware addresses
        0x6C,
        0x72,  // frame type
        0x7D,  // protocol
        0x80,  // addresses
        0x84,
        0x9C,  // ports
        0x9E,
        0xA9,  // TCP flags
    };
    for (size_t offset : offsets) {
        velm_log_entry_s entry = PayloadEntry();
        reinterpret_cast<unsigned char*>(&entry)[offset] ^= 0x01;
        EXPECT_NE(Text(entry, "\x45\x00\x00\x34"s, "log"), text) << "offset " << offset;
    }
    EXPECT_NE(Text(PayloadEntry(), "\x45\x00\x00\x35"s, "log"), text);
}

TEST_F(RecordTextTest, InterfaceIdComesFromTheConfiguration) {
    EXPECT_EQ(Column(20, TcpEntry()), "3");
    EXPECT_EQ(peer.lastInterfaceIndex, 2);
    EXPECT_EQ(peer.lastInterfaceId, 3);
}

TEST_F(RecordTextTest, UnknownInterfaceShowsTheIdOfTheOneBefore) {
    velm_log_entry_s entry = TcpEntry();
    Column(20, entry);
    entry.log_if_index = 99;
    EXPECT_EQ(Column(20, entry), "3");
    EXPECT_EQ(peer.lastInterfaceIndex, 99);
}

TEST_F(RecordTextTest, UnknownInterfaceIsNotLookedUpAgainUntilTheIndexChanges) {
    velm_log_entry_s entry = TcpEntry();
    entry.log_if_index = 7;
    EXPECT_EQ(Column(20, entry), "-1");
    configuration.Set(R"({driverInterfaceMap = {{id = 7, mac = "A"}, {id = 8, mac = "B"}},
                          interfaceMap = {["41"] = {id = 70}, ["42"] = {id = 80}}})");
    EXPECT_EQ(Column(20, entry), "-1");
    entry.log_if_index = 8;
    EXPECT_EQ(Column(20, entry), "80");
    entry.log_if_index = 7;
    EXPECT_EQ(Column(20, entry), "70");
}

TEST_F(RecordTextTest, IndexMinusOneBeforeAnyOtherIsNeverLookedUp) {
    configuration.Set(R"({driverInterfaceMap = {{id = -1, mac = "A"}},
                          interfaceMap = {["41"] = {id = 70}}})");
    velm_log_entry_s entry = TcpEntry();
    entry.log_if_index = 0xFFFFFFFF;
    EXPECT_EQ(Column(20, entry), "-1");
}

TEST_F(RecordTextTest, LookupIsTraced) {
    TraceScope trace;
    Column(20, TcpEntry());
    EXPECT_TRUE(
        trace.Has("getInterfaceId returned 1, interfaceIndex was 2, Last interface ID was 3"));
}

TEST_F(RecordTextTest, TextIsTracedUpToTwoHundredCharacters) {
    TraceScope trace;
    velm_log_entry_s entry = TcpEntry();
    entry.log_dpi_flags = 0x02;
    entry.log_packet_data_len = 200;
    const std::string text = Text(entry, std::string(200, 'A'));
    EXPECT_EQ(trace.Take().back(), text.substr(0, 200));
}

}  // namespace
