// Whole messages.

#include "SyslogFixture.h"

namespace {

class SyslogSampleTest : public SyslogTest {
protected:
    static velm_log_entry_s DeniedPacket() {
        velm_log_entry_s entry = TcpEntry();
        entry.log_filter_id = 1234;
        return entry;
    }
    static std::string PacketData() { return std::string("\x45\x00\x00\x34", 4); }
};

TEST_F(SyslogSampleTest, DeniedPacketInCef) {
    EXPECT_EQ(Cef(2, DeniedPacket()),
              "CEF:0|Zellora|Velm Agent|0.1.0|21|1234|5|cn1=7 cn1Label=Host ID dvchost=web1 "
              "act=Deny dmac=00:0c:29:11:22:33 smac=00:0c:29:44:55:66 ZelloraFrameType=IP "
              "src=10.0.0.5 dst=10.0.0.9 in=60 cs3=DF 0 cs3Label=Fragmentation Bits proto=TCP "
              "spt=51000 dpt=443 cs2=0x00 ACK PSH cs2Label=TCP Flags cnt=1");
}

TEST_F(SyslogSampleTest, PayloadEventWithNoteAndPacketDataInCef) {
    EXPECT_EQ(Cef(2, PayloadEntry(), PacketData()),
              "CEF:0|Zellora|Velm Agent|0.1.0|1000552|Some Rule|8|cn1=7 cn1Label=Host ID "
              "dvchost=web1 dmac=00:0c:29:11:22:33 smac=00:0c:29:44:55:66 ZelloraFrameType=IP "
              "src=10.0.0.5 dst=10.0.0.9 in=1500 proto=TCP spt=51000 dpt=80 cs2=0x00 ACK "
              "cs2Label=TCP Flags cnt=2 act=Block cn3=120 cn3Label=DPI Packet Position cs5=8840 "
              "cs5Label=DPI Stream Position cs1=/etc/pas cs1Label=DPI Note cs6=8 "
              "cs6Label=DPI Flags ZelloraPacketData=RQAANA\\=\\=");
}

TEST_F(SyslogSampleTest, DeniedPacketInThePlainForm) {
    EXPECT_EQ(Plain(0, DeniedPacket()),
              "REASON=PKT:1234 HOSTID=7 act=Deny IN=eth0 OUT= "
              "MAC=00:0c:29:11:22:33:00:0c:29:44:55:66:08:00 SRC=10.0.0.5 DST=10.0.0.9 LEN=60 DF "
              "FRAG=0 PROTO=TCP SPT=51000 DPT=443 RES=0x00 ACK PSH CNT=1");
}

TEST_F(SyslogSampleTest, PayloadEventInThePlainForm) {
    EXPECT_EQ(Plain(0, PayloadEntry(), PacketData()),
              "REASON=PLD:Some_Rule FWD HOSTID=7 IN=eth0 OUT= "
              "MAC=00:0c:29:11:22:33:00:0c:29:44:55:66:08:00 SRC=10.0.0.5 DST=10.0.0.9 LEN=1500 "
              "PROTO=TCP SPT=51000 DPT=80 RES=0x00 ACK CNT=2 act=Block POS=120 SPOS=8840 "
              "NOTE=/etc/pas FLAGS=8");
}

}  // namespace
