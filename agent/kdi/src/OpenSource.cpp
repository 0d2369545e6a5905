#include "CaptureSource.h"
#include "NullSource.h"
#include "Source.h"

namespace Kdi {

static std::unique_ptr<Source> OpenCapture(const std::string& path,
                                           const kdi_open_options_s& options, std::string& error) {
    auto capture = std::make_unique<CaptureSource>(path);
    if (capture->Open(options)) return capture;
    error = capture->Error();
    return nullptr;
}

std::unique_ptr<Source> OpenSource(const std::string& source, const kdi_open_options_s& options,
                                   std::string& error) {
    if (source == "null") return std::make_unique<NullSource>();
    if (source.rfind("pcap:", 0) == 0) return OpenCapture(source.substr(5), options, error);
    if (source.rfind("nflog:", 0) == 0) {
        error = "cannot open source " + source + ": this build has no live source yet";
        return nullptr;
    }
    error = "cannot open source \"" + source + "\": it is none of null, pcap:FILE, nflog:GROUP";
    return nullptr;
}

}  // namespace Kdi
