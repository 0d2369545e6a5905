// Where messages go, as the configuration names it.

#include "SyslogTarget.h"

#include <gtest/gtest.h>

namespace {

SyslogTarget Parsed(const std::string& text) {
    SyslogTarget target;
    std::string reason;
    EXPECT_TRUE(ParseSyslogTarget(text, target, reason)) << text << ": " << reason;
    return target;
}

std::string Reason(const std::string& text) {
    SyslogTarget target;
    target.host = "what was there before";
    std::string reason;
    EXPECT_FALSE(ParseSyslogTarget(text, target, reason)) << text;
    EXPECT_EQ(target.host, "what was there before");
    return reason;
}

TEST(SyslogTarget, NameAndPort) {
    const SyslogTarget target = Parsed("udp://logs-1.example.net:514");
    EXPECT_EQ(target.kind, SyslogTarget::Udp);
    EXPECT_EQ(target.host, "logs-1.example.net");
    EXPECT_EQ(target.port, "514");
    EXPECT_EQ(target.text, "udp://logs-1.example.net:514");
}

TEST(SyslogTarget, Ipv4Address) {
    const SyslogTarget target = Parsed("tcp://192.0.2.1:65535");
    EXPECT_EQ(target.kind, SyslogTarget::Tcp);
    EXPECT_EQ(target.host, "192.0.2.1");
    EXPECT_EQ(target.port, "65535");
}

TEST(SyslogTarget, Ipv6AddressStandsInBrackets) {
    EXPECT_EQ(Parsed("tcp://[2001:db8::1]:601").host, "2001:db8::1");
    EXPECT_EQ(Parsed("udp://[fe80::1%eth0]:514").host, "fe80::1%eth0");
    EXPECT_EQ(Reason("tcp://2001:db8::1:601"), "an IPv6 address must stand in brackets");
    EXPECT_EQ(Reason("tcp://[192.0.2.1]:601"), "no IPv6 address in the brackets");
    EXPECT_EQ(Reason("tcp://[]:601"), "no IPv6 address in the brackets");
}

TEST(SyslogTarget, PathOfASocket) {
    const SyslogTarget target = Parsed("unix:/dev/log");
    EXPECT_EQ(target.kind, SyslogTarget::Unix);
    EXPECT_EQ(target.path, "/dev/log");
}

TEST(SyslogTarget, PortIsRequired) {
    EXPECT_EQ(Reason("udp://host"), "the port is missing");
    EXPECT_EQ(Reason("udp://[::1]"), "the port is missing");
    EXPECT_EQ(Reason("udp://host:"), "\"\" is no port");
}

TEST(SyslogTarget, PortIsANumberUpTo65535) {
    for (const char* port : {"0", "65536", "99999", "syslog", "-1", "1x", "100000"}) {
        EXPECT_EQ(Reason(std::string("tcp://host:") + port),
                  "\"" + std::string(port) + "\" is no port");
    }
}

TEST(SyslogTarget, HostIsANameOrAnAddress) {
    EXPECT_EQ(Reason("tcp://:514"), "the host is missing");
    EXPECT_EQ(Reason("tcp://a b:514"), "\"a b\" is no host");
    EXPECT_EQ(Reason("tcp://a/b:514"), "\"a/b\" is no host");
    EXPECT_EQ(Reason("tcp://-x:514"), "\"-x\" is no host");
    EXPECT_EQ(Reason("tcp://" + std::string(256, 'a') + ":514"),
              "\"" + std::string(256, 'a') + "\" is no host");
}

TEST(SyslogTarget, PathIsAbsoluteAndFitsASocketAddress) {
    EXPECT_EQ(Reason("unix:dev/log"), "the path must begin with a slash");
    EXPECT_EQ(Reason("unix:"), "the path must begin with a slash");
    EXPECT_EQ(Parsed("unix:/" + std::string(106, 'a')).path.size(), 107u);
    EXPECT_EQ(Reason("unix:/" + std::string(107, 'a')), "the path is too long for a socket");
    EXPECT_EQ(Reason(std::string("unix:/a\0b", 9)), "zero byte in the path");
}

TEST(SyslogTarget, AnythingElseIsToldTheForms) {
    for (const char* text :
         {"", "host:514", "http://host:80", "udp:host:514", "TCP://host:1", "-"}) {
        EXPECT_EQ(Reason(text), "expected udp://host:port, tcp://host:port or unix:/path") << text;
    }
}

}  // namespace
