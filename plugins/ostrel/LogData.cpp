// LogData: making, destroying, and plain settings.

#include "LogData.h"

#include <wx/debug.h>
#include <wx/log.h>

#include <list>

#include "Settings.h"
#include "Tokenize.h"
#include "velm/Dom.h"
#include "velm/Trace.h"

namespace OSTREL {

const wchar_t* const LogData::s_Trace = L"ostrel";
const wchar_t* const LogData::s_TraceScan = L"LogScan";

LogData::LogData(VelmCore::CDom& dom) : m_Dom(dom) {
    initialize();
}

LogData::~LogData() = default;

void LogData::initialize() {
    SetLogFilePath("/var/log/velm_agent");
    SetLogFileName("velm_mpnp");
    m_TraceEnabled = VelmCore::LogTraceIsEnabled(s_Trace);
    m_TraceScan = VelmCore::LogTraceIsEnabled(s_TraceScan);
    m_LastLineKeys[DriverFirewall] = "plg.ostrel.lastline.packet";
    m_LastLineKeys[DriverDpi] = "plg.ostrel.lastline.payload";
    m_LastLineKeys[PseudoDriverPcap] = "plg.ostrel.lastline.pcap";
    m_FirstRetrieval[DriverFirewall] = true;
    m_FirstRetrieval[DriverDpi] = true;
    ReadAnalysisSettings();
    ReadIgnoreTcpFlags();
}

void LogData::ReadAnalysisSettings() {
    double harmlessIfHarmless;
    double harmlessIfScanner;
    GetDoubleSetting(m_Dom, "plg.ostrel.analysis.ScanPrY0H0", &harmlessIfHarmless, 0.8);
    GetDoubleSetting(m_Dom, "plg.ostrel.analysis.ScanPrY0H1", &harmlessIfScanner, 0.2);
    m_LikelihoodFactorY0 = harmlessIfScanner / harmlessIfHarmless;
    m_LikelihoodFactorY1 = (1 - harmlessIfScanner) / (1 - harmlessIfHarmless);
    GetLongSetting(m_Dom, "plg.ostrel.analysis.ScanningIpsRetentionMsec",
                   &m_ScanningIpsRetentionMsec, 300000);
    GetLongSetting(m_Dom, "plg.ostrel.analysis.ScanTimeBinMillisec", &m_TimeBinMsec, 10000);
    GetDoubleSetting(m_Dom, "plg.ostrel.analysis.ScanIpsPerPort", &m_ScanIpsPerPort, 3.0);
    GetDoubleSetting(m_Dom, "plg.ostrel.analysis.ScanPortsPerIp", &m_ScanPortsPerIp, 3.0);
    GetDoubleSetting(m_Dom, "plg.ostrel.analysis.ScanPortsPerIpFlagNow", &m_ScanPortsPerIpFlagNow,
                     64.0);
    GetDoubleSetting(m_Dom, "plg.ostrel.analysis.ScanLikelihoodRatioFloor",
                     &m_ScanLikelihoodRatioFloor, 0.01);
    GetDoubleSetting(m_Dom, "plg.ostrel.analysis.ScanLikelihoodRatioCeiling",
                     &m_ScanLikelihoodRatioCeiling, 99.0);
}

void LogData::ReadIgnoreTcpFlags() {
    const std::string text = m_Dom.Get("plg.ostrel.analysis.IgnoreTcpFlags");
    std::list<wxString> tokens;
    Tokenize(tokens, wxString::FromUTF8(text.data(), text.size()), L",; \t");
    for (const wxString& token : tokens) {
        long value;
        if (!token.ToLong(&value, 0)) continue;
        if (static_cast<unsigned long>(value) > 255) {
            wxLogWarning("IgnoreTcpFlags value %ld is out of range - ignoring it.", value);
            continue;
        }
        m_IgnoreTcpFlags.insert(static_cast<uint8_t>(value));
    }
}

void LogData::SetLogFilePath(wxString path) {
    m_LogFilePath = path;
    SetLogFileName(m_LogFileName);
}

void LogData::SetLogFileName(wxString name) {
    m_LogFileFullPath = m_LogFilePath + "/" + name;
    m_LogFileName = name;
    const wxCharBuffer bytes = m_LogFileFullPath.fn_str();
    m_LogFileBytes = bytes.data() != nullptr ? bytes.data() : "";
}

void LogData::SetDriverName(wxString name) {
    m_DriverName = name;
    m_DriverPrefix = name + ": ";
}

wxString LogData::GetLogFilename(_Driver whichDriver) {
    wxASSERT(whichDriver <= PseudoDriverPcap);
    const bool hasFile = whichDriver == DriverFirewall || whichDriver == PseudoDriverPcap;
    return hasFile ? m_LogFileFullPath : wxString();
}

}  // namespace OSTREL
