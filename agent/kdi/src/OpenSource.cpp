#include <charconv>
#include <exception>

#include "CaptureSource.h"
#include "LiveSource.h"
#include "NullSource.h"
#include "Source.h"

namespace Kdi {

namespace {

std::unique_ptr<Source> OpenCapture(const std::string& path, const kdi_open_options_s& options,
                                    std::string& error) {
    auto capture = std::make_unique<CaptureSource>(path);
    if (capture->Open(options)) return capture;
    error = capture->Error();
    return nullptr;
}

bool ReadLiveOptions(const std::string& group, const kdi_open_options_s& from,
                     LiveSource::Options& to, std::string& error) {
    const char* end = group.data() + group.size();
    const auto parsed = std::from_chars(group.data(), end, to.group);
    if (group.empty() || parsed.ec != std::errc() || parsed.ptr != end) {
        error = "\"" + group + "\" is no group (0 to 65535)";
        return false;
    }
    to.dryRun = from.dry_run;
    to.receiveBuffer = from.receive_buffer;
    return !from.allow || *from.allow == '\0' ||
           to.allowed.Parse(from.allow, "allowed address", error);
}

std::unique_ptr<Source> OpenLive(const std::string& group, const kdi_open_options_s& options,
                                 std::string& error) {
    const std::string failure = "cannot open source nflog:" + group + ": ";
    LiveSource::Options liveOptions;
    if (!ReadLiveOptions(group, options, liveOptions, error)) {
        error = failure + error;
        return nullptr;
    }
    try {
        return std::make_unique<LiveSource>(liveOptions);
    } catch (const std::exception& exception) {
        error = failure + exception.what();
        return nullptr;
    }
}

}  // namespace

std::unique_ptr<Source> OpenSource(const std::string& source, const kdi_open_options_s& options,
                                   std::string& error) {
    if (source == "null") return std::make_unique<NullSource>();
    if (source.rfind("pcap:", 0) == 0) return OpenCapture(source.substr(5), options, error);
    if (source.rfind("nflog:", 0) == 0) return OpenLive(source.substr(6), options, error);
    error = "cannot open source \"" + source + "\": it is none of null, pcap:FILE, nflog:GROUP";
    return nullptr;
}

}  // namespace Kdi
