// The items of the body, which are pure functions of an entry.

#include <functional>

#include "SyslogFixture.h"
#include "SyslogText.h"

namespace {

using Helper = void (*)(int, OSTREL::TextCursor&, const velm_log_entry_s&);

std::string Item(Helper append, int format, const velm_log_entry_s& entry) {
    char buffer[512];
    OSTREL::TextCursor text(buffer, sizeof buffer);
    append(format, text, entry);
    return text.Terminate();
}

velm_log_entry_s IcmpEntry() {
    velm_log_entry_s entry = TcpEntry();
    entry.log_ip.v4.iph_proto = 1;
    entry.log_transport.icmp.icmph_type = 8;
    entry.log_transport.icmp.icmph_code = 0;
    return entry;
}

velm_log_entry_s Fragment(uint16_t bits) {
    velm_log_entry_s entry = TcpEntry();
    entry.log_ip.v4.iph_frag = htons(bits);
    return entry;
}

velm_log_entry_s TcpFlags(uint8_t flags) {
    velm_log_entry_s entry = TcpEntry();
    entry.log_transport.tcp.tcph_flags = flags;
    return entry;
}

TEST(SyslogItemsTest, Addresses) {
    EXPECT_EQ(Item(OSTREL::AppendIPsSyslog, 0, TcpEntry()), " SRC=10.0.0.5 DST=10.0.0.9");
    EXPECT_EQ(Item(OSTREL::AppendIPsSyslog, 1, TcpEntry()), " src=10.0.0.5 dst=10.0.0.9");
    EXPECT_EQ(Item(OSTREL::AppendIPsSyslog, 2, TcpEntry()), " src=10.0.0.5 dst=10.0.0.9");
}

TEST(SyslogItemsTest, Ipv6AddressesAreNotShortened) {
    EXPECT_EQ(Item(OSTREL::AppendIPsSyslog, 0, Ipv6Entry(6)),
              " SRC=2001:db8:0:0:0:0:0:5 DST=fe80:0:0:0:0:0:0:ab01");
    EXPECT_EQ(Item(OSTREL::AppendIPsSyslog, 2, Ipv6Entry(6)),
              " src=2001:db8:0:0:0:0:0:5 dst=fe80:0:0:0:0:0:0:ab01");
}

TEST(SyslogItemsTest, EntryWithBothIpViewsIsIpv4) {
    velm_log_entry_s entry = TcpEntry();
    entry.log_flags |= 0x20;
    EXPECT_EQ(Item(OSTREL::AppendIPsSyslog, 1, entry), " src=10.0.0.5 dst=10.0.0.9");
}

TEST(SyslogItemsTest, FragmentBits) {
    EXPECT_EQ(Item(OSTREL::AppendFragFlagsSyslog, 0, Fragment(0x4000)), " DF FRAG=0");
    EXPECT_EQ(Item(OSTREL::AppendFragFlagsSyslog, 0, Fragment(0x2000)), " MF FRAG=0");
    EXPECT_EQ(Item(OSTREL::AppendFragFlagsSyslog, 0, Fragment(0x60B9)), " DF MF FRAG=1480");
    EXPECT_EQ(Item(OSTREL::AppendFragFlagsSyslog, 1, Fragment(0x4000)), " cs3=DF 0");
    EXPECT_EQ(Item(OSTREL::AppendFragFlagsSyslog, 1, Fragment(0x3FFF)), " cs3=MF 65528");
    EXPECT_EQ(Item(OSTREL::AppendFragFlagsSyslog, 2, Fragment(0x60B9)),
              " cs3=DF MF 1480 cs3Label=Fragmentation Bits");
}

TEST(SyslogItemsTest, FragmentWithNeitherBitWritesNothing) {
    for (const int format : {0, 1, 2}) {
        EXPECT_EQ(Item(OSTREL::AppendFragFlagsSyslog, format, Fragment(0x00B9)), "");
    }
}

TEST(SyslogItemsTest, Ipv6HasNoFragmentItem) {
    velm_log_entry_s entry = Ipv6Entry(6);
    // The protocol stands where an IPv4 header has its fragment bits.
    entry.log_ip.v6.ipv6h_next = 0x60;
    for (const int format : {0, 1, 2}) {
        EXPECT_EQ(Item(OSTREL::AppendFragFlagsSyslog, format, entry), "");
    }
}

TEST(SyslogItemsTest, Protocol) {
    EXPECT_EQ(Item(OSTREL::AppendProtocolSyslog, 0, TcpEntry()), " PROTO=TCP");
    EXPECT_EQ(Item(OSTREL::AppendProtocolSyslog, 1, TcpEntry()), " proto=TCP");
    EXPECT_EQ(Item(OSTREL::AppendProtocolSyslog, 2, Ipv6Entry(58)), " proto=ICMPv6");
    EXPECT_EQ(Item(OSTREL::AppendProtocolSyslog, 2, Ipv6Entry(132)), " proto=132");
}

TEST(SyslogItemsTest, Ports) {
    EXPECT_EQ(Item(OSTREL::AppendPortsSyslog, 0, TcpEntry()), " SPT=51000 DPT=443");
    EXPECT_EQ(Item(OSTREL::AppendPortsSyslog, 1, TcpEntry()), " spt=51000 dpt=443");
    EXPECT_EQ(Item(OSTREL::AppendPortsSyslog, 1, Ipv6Entry(17)), " spt=51000 dpt=443");
}

TEST(SyslogItemsTest, NoPortsWithoutThemInTheEntry) {
    velm_log_entry_s entry = TcpEntry();
    entry.log_flags = 0x10;
    EXPECT_EQ(Item(OSTREL::AppendPortsSyslog, 0, entry), "");
    EXPECT_EQ(Item(OSTREL::AppendPortsSyslog, 0, IcmpEntry()), "");
    EXPECT_EQ(Item(OSTREL::AppendPortsSyslog, 0, Ipv6Entry(58)), "");
}

TEST(SyslogItemsTest, TcpFlags) {
    EXPECT_EQ(Item(OSTREL::AppendTCPFlagsSyslog, 0, TcpFlags(0x02)), " RES=0x00 SYN");
    EXPECT_EQ(Item(OSTREL::AppendTCPFlagsSyslog, 1, TcpFlags(0x18)), " cs2=0x00 ACK PSH");
    EXPECT_EQ(Item(OSTREL::AppendTCPFlagsSyslog, 2, TcpFlags(0x00)),
              " cs2=0x00 cs2Label=TCP Flags");
    EXPECT_EQ(Item(OSTREL::AppendTCPFlagsSyslog, 3, TcpFlags(0xFF)),
              " cs2=0x03 URG ACK PSH RST SYN FIN cs2Label=TCP Flags");
}

TEST(SyslogItemsTest, CongestionBitsAreANumber) {
    EXPECT_EQ(Item(OSTREL::AppendTCPFlagsSyslog, 0, TcpFlags(0x40)), " RES=0x01");
    EXPECT_EQ(Item(OSTREL::AppendTCPFlagsSyslog, 0, TcpFlags(0x80)), " RES=0x02");
}

TEST(SyslogItemsTest, NoTcpFlagsWithoutTcpOrItsHeader) {
    velm_log_entry_s entry = TcpFlags(0xFF);
    entry.log_flags = 0x10;
    EXPECT_EQ(Item(OSTREL::AppendTCPFlagsSyslog, 2, entry), "");
    entry = TcpFlags(0xFF);
    entry.log_ip.v4.iph_proto = 17;
    EXPECT_EQ(Item(OSTREL::AppendTCPFlagsSyslog, 2, entry), "");
    entry.log_flags = 0x40;
    EXPECT_EQ(Item(OSTREL::AppendTCPFlagsSyslog, 2, entry), "");
}

TEST(SyslogItemsTest, IcmpTypeAndCode) {
    velm_log_entry_s entry = IcmpEntry();
    EXPECT_EQ(Item(OSTREL::AppendICMPSyslog, 0, entry), " TYPE=8 CODE=0");
    EXPECT_EQ(Item(OSTREL::AppendICMPSyslog, 1, entry), " cs4=8 0");
    entry.log_transport.icmp.icmph_type = 3;
    entry.log_transport.icmp.icmph_code = 255;
    EXPECT_EQ(Item(OSTREL::AppendICMPSyslog, 2, entry), " cs4=3 255 cs4Label=ICMP");
}

TEST(SyslogItemsTest, NoIcmpItemForIpv6OrWithoutTheHeader) {
    EXPECT_EQ(Item(OSTREL::AppendICMPSyslog, 2, Ipv6Entry(58)), "");
    EXPECT_EQ(Item(OSTREL::AppendICMPSyslog, 2, Ipv6Entry(1)), "");
    EXPECT_EQ(Item(OSTREL::AppendICMPSyslog, 2, TcpEntry()), "");
    velm_log_entry_s entry = IcmpEntry();
    entry.log_flags = 0x10;
    EXPECT_EQ(Item(OSTREL::AppendICMPSyslog, 2, entry), "");
}

TEST(SyslogItemsTest, RepeatCount) {
    velm_log_entry_s entry = TcpEntry();
    entry.log_repeat_count = 4294967295u;
    EXPECT_EQ(Item(OSTREL::AppendRepeatCountSyslog, 0, entry), " CNT=4294967295");
    entry.log_repeat_count = 0;
    EXPECT_EQ(Item(OSTREL::AppendRepeatCountSyslog, 1, entry), " cnt=0");
}

TEST(SyslogItemsTest, LengthHasTheKeyLenUnlessToldOtherwise) {
    char buffer[64];
    OSTREL::TextCursor text(buffer, sizeof buffer);
    OSTREL::AppendLengthSyslog(text, 60);
    OSTREL::AppendLengthSyslog(text, 1500, "out");
    EXPECT_STREQ(text.Terminate(), " LEN=60 out=1500");
}

class SyslogBodyTest : public SyslogTest {
protected:
    // From the host's identity on, in format 1.
    std::string PlainBody(const velm_log_entry_s& entry) {
        const std::string message = Plain(1, entry);
        return message.substr(message.find(" HOSTID=7") + 9);
    }
    std::string CefBody(int format, const velm_log_entry_s& entry) {
        const std::string message = Cef(format, entry);
        return message.substr(message.find(" dvchost=web1") + 13);
    }
};

TEST_F(SyslogBodyTest, EntryWithoutHeadersHasLengthAndCountOnly) {
    velm_log_entry_s entry = TcpEntry();
    entry.log_flags = 0;
    EXPECT_EQ(PlainBody(entry), " LEN=60 cnt=1");
    EXPECT_EQ(CefBody(1, entry), " in=60 cnt=1");
}

// Nothing but the bits says what may be read.
TEST_F(SyslogBodyTest, TransportHeaderAloneIsNotRead) {
    velm_log_entry_s entry = TcpEntry();
    entry.log_flags = 0x40;
    EXPECT_EQ(PlainBody(entry), " LEN=60 cnt=1");
}

TEST_F(SyslogBodyTest, LengthIsItsLow16Bits) {
    velm_log_entry_s entry = BarePacketLog(0, 0, 0);
    entry.log_packet_len = 65535;
    EXPECT_EQ(PlainBody(entry), " LEN=65535 cnt=0");
    entry.log_packet_len = 65536 + 17;
    EXPECT_EQ(PlainBody(entry), " LEN=17 cnt=0");
    EXPECT_EQ(CefBody(1, entry), " in=17 cnt=0");
    entry.log_packet_len = 0xFFFF0000;
    EXPECT_EQ(CefBody(1, entry), " in=0 cnt=0");
}

TEST_F(SyslogBodyTest, IcmpEntryInItsOrder) {
    velm_log_entry_s entry = IcmpEntry();
    entry.log_flags = 0x10 | 0x40;
    EXPECT_EQ(PlainBody(entry),
              " src=10.0.0.5 dst=10.0.0.9 LEN=60 cs3=DF 0 proto=ICMP cs4=8 0 cnt=1");
}

TEST_F(SyslogBodyTest, Ipv6EntryHasNeitherFragmentsNorIcmp) {
    EXPECT_EQ(CefBody(2, Ipv6Entry(58)),
              " act=Deny dmac=00:0c:29:11:22:33 smac=00:0c:29:44:55:66 ZelloraFrameType=IPv6 "
              "src=2001:db8:0:0:0:0:0:5 dst=fe80:0:0:0:0:0:0:ab01 in=60 proto=ICMPv6 cnt=1");
}

class SyslogFrameTest : public SyslogBodyTest {
protected:
    static velm_log_entry_s Frame(uint16_t type) {
        velm_log_entry_s entry = TcpEntry();
        entry.log_flags = 0x08;
        entry.log_eth.eth_type = htons(type);
        return entry;
    }
    std::string PlainMac(uint16_t type) {
        const std::string body = PlainBody(Frame(type));
        const size_t begin = body.find("MAC=");
        return body.substr(begin, body.find(" LEN=") - begin);
    }
    std::string FrameType(uint16_t type) {
        const std::string body = CefBody(2, Frame(type));
        const size_t begin = body.find("ZelloraFrameType=");
        return body.substr(begin, body.find(" in=") - begin);
    }
};

TEST_F(SyslogFrameTest, PlainFormHasTheLowFourBitsOfEachByteOfTheType) {
    EXPECT_EQ(PlainMac(0x0800), "MAC=00:0c:29:11:22:33:00:0c:29:44:55:66:08:00");
    EXPECT_EQ(PlainMac(0x0806), "MAC=00:0c:29:11:22:33:00:0c:29:44:55:66:08:06");
    EXPECT_EQ(PlainMac(0x86DD), "MAC=00:0c:29:11:22:33:00:0c:29:44:55:66:06:0d");
    EXPECT_EQ(PlainMac(0xFFFF), "MAC=00:0c:29:11:22:33:00:0c:29:44:55:66:0f:0f");
}

TEST_F(SyslogFrameTest, CefHasTheTypesWord) {
    EXPECT_EQ(FrameType(0x0800), "ZelloraFrameType=IP");
    EXPECT_EQ(FrameType(0x0806), "ZelloraFrameType=ARP");
    EXPECT_EQ(FrameType(0x8035), "ZelloraFrameType=RevARP");
    EXPECT_EQ(FrameType(0x8191), "ZelloraFrameType=NetBEUI");
    EXPECT_EQ(FrameType(0x86DD), "ZelloraFrameType=IPv6");
    EXPECT_EQ(FrameType(0x88CC), "ZelloraFrameType=0x88cc");
    EXPECT_EQ(FrameType(0x0000), "ZelloraFrameType=0");
}

TEST_F(SyslogFrameTest, BlanksOfAnInterfacesNameBecomeUnderscores) {
    configuration.Set(
        "{interfaceMap = {['00:0c:29:11:22:33'] = {name = ' Local Area  Connection'}}}");
    const std::string message = Plain(1, Frame(0x0800));
    EXPECT_EQ(message.substr(0, message.find(" MAC=")),
              "REASON=PKT: HOSTID=0 IN=_Local_Area__Connection OUT=");
}

TEST_F(SyslogFrameTest, UnknownInterfaceHasNoNameButBothKeys) {
    configuration.Set("{agentConfiguration = {hostID = 7}, interfaceMap = {}}");
    EXPECT_EQ(PlainBody(Frame(0x0800)),
              " IN= OUT= MAC=00:0c:29:11:22:33:00:0c:29:44:55:66:08:00 LEN=60 cnt=1");
}

class SyslogIdentityTest : public SyslogTest {};

TEST_F(SyslogIdentityTest, PlainFormHasTheConfiguredHostCefTheCoresOwn) {
    configuration.Set("{agentConfiguration = {hostID = -12}}");
    EXPECT_EQ(Plain(1, BarePacketLog(0, 0, 0)), "REASON= HOSTID=-12 LEN=0 cnt=0");
    EXPECT_EQ(Cef(1, BarePacketLog(0, 0, 0)), CEF_HEADER "0||5|" CEF_HOST " in=0 cnt=0");
}

TEST_F(SyslogIdentityTest, HostThatCannotBeReadIs0) {
    for (const char* table : {"{}", "{agentConfiguration = 3}", "{agentConfiguration = {}}", "5"}) {
        configuration.Set(table);
        EXPECT_EQ(Plain(1, BarePacketLog(0, 0, 0)), "REASON= HOSTID=0 LEN=0 cnt=0") << table;
    }
}

// The lookup reads the number, then the name, though only the number is written.
TEST_F(SyslogIdentityTest, NumberAndNameOfTheHostAreRead) {
    configuration.Set(
        "{agentConfiguration = setmetatable({}, {__index = function(_, key) "
        "reads = (reads or '') .. key .. ' ' return 7 end})}");
    EXPECT_EQ(Plain(1, BarePacketLog(0, 0, 0)), "REASON= HOSTID=7 LEN=0 cnt=0");
    lua_getglobal(configuration.State(), "reads");
    EXPECT_STREQ(lua_tostring(configuration.State(), -1), "hostID hostname ");
}

TEST_F(SyslogIdentityTest, MessageGoesOutWithWhatIsKnownWithoutAConfigurationTable) {
    configuration.Set("nil");
    EXPECT_EQ(Plain(0, PayloadEntry()),
              "REASON=PLD:1004 FWD HOSTID=0 IN= OUT= "
              "MAC=00:0c:29:11:22:33:00:0c:29:44:55:66:08:00 SRC=10.0.0.5 DST=10.0.0.9 LEN=1500 "
              "PROTO=TCP SPT=51000 DPT=80 RES=0x00 ACK CNT=2 act=Block POS=120 SPOS=8840 "
              "NOTE=/etc/pas FLAGS=8");
}

}  // namespace
