// Bytes as a receiver's name, and as the texts of events, through everything that stands between a
// formatted text and the socket. A message is always one line of UTF-8, and a CEF event one that a
// strict reader takes apart.

#include <cstdint>
#include <stdexcept>
#include <string>

#include "CefParser.h"
#include "Input.h"
#include "SyslogEvent.h"
#include "SyslogHeader.h"
#include "SyslogTarget.h"
#include "velm/Dom.h"
#include "velm/Text.h"

namespace {

using Fuzz::Input;
using Fuzz::Require;

void CheckTarget(const std::string& text) {
    SyslogTarget target;
    std::string reason;
    if (!ParseSyslogTarget(text, target, reason)) {
        Require(!reason.empty(), "a refusal has a reason");
        Require(target.text.empty(), "a refused target is left alone");
        return;
    }
    Require(target.text == text, "the target keeps its text");
    if (target.kind == SyslogTarget::Unix) {
        Require(text == "unix:" + target.path, "the path is whole");
        return;
    }
    const std::string scheme = target.kind == SyslogTarget::Tcp ? "tcp://" : "udp://";
    Require(text == scheme + target.host + ":" + target.port ||
                text == scheme + "[" + target.host + "]:" + target.port,
            "host and port are whole");
}

void CheckLine(const std::string& line) {
    for (const char c : line)
        Require(static_cast<unsigned char>(c) >= 0x20 && c != 0x7F, "no control character is left");
    Require(VelmCore::IsUtf8(line), "the line is UTF-8");
}

void CheckMessage(SyslogHeader& header, int64_t usec, const std::string& text) {
    std::string message;
    header.Write(message, usec, kSyslogWarning, "event", text);
    CheckLine(message);
    Require(message.size() >= text.size(), "the text is whole");
}

void CheckCef(const std::string& text) {
    try {
        CefParser::Parse(text);
    } catch (const std::runtime_error& error) {
        fprintf(stderr, "%s: %s\n", error.what(), text.c_str());
        Require(false, "the event is CEF");
    }
}

std::string TakeText(Input& input) {
    return input.TakeBytes(input.Take<uint8_t>());
}

// An event's text has been through the core, which has only UTF-8 without zero bytes.
std::string ToEventText(const std::string& bytes) {
    std::string text;
    AppendClean(text, bytes);
    return text;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static VelmCore::CDom dom;
    Input input(data, size);
    CheckTarget(TakeText(input));
    const int64_t usec = input.Take<uint32_t>() * int64_t{1000000} + 7;
    const int number = input.Take<uint16_t>();
    const std::string host = TakeText(input);
    const std::string text = input.TakeRest();
    SyslogHeader network(SyslogHeader::Rfc5424, 16, host);
    SyslogHeader local(SyslogHeader::Local, 16, host);
    CheckMessage(network, usec, text);
    CheckMessage(local, usec, text);
    dom.SetText("velm.host.name", host);
    SyslogEvents events(7);
    for (const char* cef : {"true", "false"}) {
        dom.SetText("velm.syslog.cef", cef);
        std::string event;
        events.Write(event, number, ToEventText(text));
        CheckMessage(network, usec, event);
        if (std::string(cef) == "true") CheckCef(event);
    }
    return 0;
}
