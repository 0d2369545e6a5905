// Every combination of the two settings: each acts on its own set of items.

#include "SyslogFixture.h"

namespace {

#define CEF_MACS "dmac=00:0c:29:11:22:33 smac=00:0c:29:44:55:66"
#define PLAIN_LINK "IN=eth0 OUT= MAC=00:0c:29:11:22:33:00:0c:29:44:55:66:08:00"
#define UPPER_ADDRESSES "SRC=10.0.0.5 DST=10.0.0.9"
#define LOWER_ADDRESSES "src=10.0.0.5 dst=10.0.0.9"
#define UPPER_PACKET "DF FRAG=0 PROTO=TCP SPT=51000 DPT=443 RES=0x00 ACK PSH CNT=1"
#define LOWER_PACKET "cs3=DF 0 proto=TCP spt=51000 dpt=443 cs2=0x00 ACK PSH cnt=1"
#define LABELLED_PACKET                                                                  \
    "cs3=DF 0 cs3Label=Fragmentation Bits proto=TCP spt=51000 dpt=443 cs2=0x00 ACK PSH " \
    "cs2Label=TCP Flags cnt=1"
#define UPPER_PAYLOAD "PROTO=TCP SPT=51000 DPT=80 RES=0x00 ACK CNT=2"
#define LOWER_PAYLOAD "proto=TCP spt=51000 dpt=80 cs2=0x00 ACK cnt=2"
#define LABELLED_PAYLOAD "proto=TCP spt=51000 dpt=80 cs2=0x00 ACK cs2Label=TCP Flags cnt=2"
#define CEF_DPI "act=Block cn2=-101 cn3=120 cs5=8840 cs1=/etc/pas cs6=8"
#define PLAIN_DPI "act=Block STATUS=-101 POS=120 SPOS=8840 NOTE=/etc/pas FLAGS=8"
#define CEF_DPI_LABELLED                                                                    \
    "act=Block cn2=-101 cn2Label=DPI Reason cn3=120 cn3Label=DPI Packet Position cs5=8840 " \
    "cs5Label=DPI Stream Position cs1=/etc/pas cs1Label=DPI Note cs6=8 cs6Label=DPI Flags"
#define PLAIN_DPI_LABELLED                                                            \
    "act=Block STATUS=-101 cn2Label=DPI Reason POS=120 cn3Label=DPI Packet Position " \
    "SPOS=8840 cs5Label=DPI Stream Position NOTE=/etc/pas cs1Label=DPI Note FLAGS=8 " \
    "cs6Label=DPI Flags"
#define PACKET_DATA "ZelloraPacketData=RQAANA\\=\\="

struct Case {
    bool cef;
    int format;
    const char* packet;
    const char* payload;
};

// Formats below 0 have no row: keys not of format 0, an action not of format 1, no labels.
const Case kCases[] = {
    {true, -1,
     CEF_HEADER "21|33|5|" CEF_HOST " act=Force Allow " CEF_MACS " " LOWER_ADDRESSES
                " in=60 " LOWER_PACKET,
     CEF_HEADER "1000552|Some Rule|8|" CEF_HOST " " CEF_MACS " " LOWER_ADDRESSES
                " in=1500 " LOWER_PAYLOAD " " CEF_DPI},
    {true, 0,
     CEF_HEADER "21|33|5|" CEF_HOST " act=Force_Allow " CEF_MACS " " UPPER_ADDRESSES
                " in=60 " UPPER_PACKET,
     CEF_HEADER "1000552|Some Rule|8|" CEF_HOST " " CEF_MACS " " UPPER_ADDRESSES
                " in=1500 " UPPER_PAYLOAD " " CEF_DPI},
    {true, 1,
     CEF_HEADER "21|33|5|" CEF_HOST " " CEF_MACS " " LOWER_ADDRESSES " in=60 " LOWER_PACKET,
     CEF_HEADER "1000552|Some Rule|8|" CEF_HOST " " CEF_MACS " " LOWER_ADDRESSES
                " in=1500 " LOWER_PAYLOAD " " CEF_DPI},
    {true, 2,
     CEF_HEADER "21|33|5|" CEF_HOST_LABELLED " act=Force Allow " CEF_MACS
                " ZelloraFrameType=IP " LOWER_ADDRESSES " in=60 " LABELLED_PACKET " " PACKET_DATA,
     CEF_HEADER "1000552|Some Rule|8|" CEF_HOST_LABELLED " " CEF_MACS
                " ZelloraFrameType=IP " LOWER_ADDRESSES " in=1500 " LABELLED_PAYLOAD
                " " CEF_DPI_LABELLED " " PACKET_DATA},
    {true, 3,
     CEF_HEADER "21|33|5|" CEF_HOST_LABELLED " act=Force Allow " CEF_MACS
                " ZelloraFrameType=IP " LOWER_ADDRESSES " in=60 " LABELLED_PACKET " " PACKET_DATA,
     CEF_HEADER "1000552|Some Rule|8|" CEF_HOST_LABELLED " " CEF_MACS
                " ZelloraFrameType=IP " LOWER_ADDRESSES " in=1500 " LABELLED_PAYLOAD
                " " CEF_DPI_LABELLED " " PACKET_DATA},
    {false, 0,
     "REASON=PKT:33 HOSTID=7 act=Force_Allow " PLAIN_LINK " " UPPER_ADDRESSES
     " LEN=60 " UPPER_PACKET,
     "REASON=PLD:Some_Rule FWD HOSTID=7 " PLAIN_LINK " " UPPER_ADDRESSES " LEN=1500 " UPPER_PAYLOAD
     " " PLAIN_DPI},
    {false, 1, "REASON=PKT:33 HOSTID=7 " PLAIN_LINK " " LOWER_ADDRESSES " LEN=60 " LOWER_PACKET,
     "REASON=PLD:Some_Rule FWD HOSTID=7 " PLAIN_LINK " " LOWER_ADDRESSES " LEN=1500 " LOWER_PAYLOAD
     " " PLAIN_DPI},
    {false, 2,
     "REASON=PKT:33 HOSTID=7 act=Force Allow " PLAIN_LINK " " LOWER_ADDRESSES
     " LEN=60 " LABELLED_PACKET " " PACKET_DATA,
     "REASON=PLD:Some_Rule FWD HOSTID=7 " PLAIN_LINK " " LOWER_ADDRESSES
     " LEN=1500 " LABELLED_PAYLOAD " " PLAIN_DPI_LABELLED " " PACKET_DATA},
    {false, 3,
     "REASON=PKT:33 HOSTID=7 act=Force Allow " PLAIN_LINK " " LOWER_ADDRESSES
     " LEN=60 " LABELLED_PACKET " " PACKET_DATA,
     "REASON=PLD:Some_Rule FWD HOSTID=7 " PLAIN_LINK " " LOWER_ADDRESSES
     " LEN=1500 " LABELLED_PAYLOAD " " PLAIN_DPI_LABELLED " " PACKET_DATA},
};

class SyslogFamilyTest : public SyslogTest, public ::testing::WithParamInterface<Case> {
protected:
    static std::string PacketData() { return std::string("\x45\x00\x00\x34", 4); }
};

// The filter's action has a blank, and the packet log carries packet data as well.
TEST_P(SyslogFamilyTest, PacketLog) {
    velm_log_entry_s entry = TcpEntry();
    entry.log_filter_id = 33;
    entry.log_action = 0;
    entry.log_dpi_flags = 0x02;
    entry.log_packet_data_len = 4;
    Choose(GetParam().cef, GetParam().format);
    EXPECT_EQ(Message(entry, PacketData()), GetParam().packet);
}

TEST_P(SyslogFamilyTest, PayloadLog) {
    velm_log_entry_s entry = PayloadEntry();
    entry.log_reason = -101;
    Choose(GetParam().cef, GetParam().format);
    EXPECT_EQ(Message(entry, PacketData()), GetParam().payload);
}

INSTANTIATE_TEST_SUITE_P(Combinations, SyslogFamilyTest, ::testing::ValuesIn(kCases),
                         [](const ::testing::TestParamInfo<Case>& instance) {
                             const int format = instance.param.format;
                             return std::string(instance.param.cef ? "Cef" : "Plain") + "Format" +
                                    (format < 0 ? "Below0" : std::to_string(format));
                         });

}  // namespace
