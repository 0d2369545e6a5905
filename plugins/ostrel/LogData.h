#pragma once

#include <bitset>
#include <cstdint>
#include <ctime>
#include <deque>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <utility>

#include <wx/arrstr.h>
#include <wx/file.h>
#include <wx/stream.h>
#include <wx/string.h>
#include <wx/thread.h>

#include "CacheSchedule.h"
#include "FlowBin.h"
#include "IpSpace.h"
#include "ShortText.h"
#include "kdi/log_entry.h"
#include "policy/ProbeConfiguration.h"
#include "velm/Syslogger.h"

struct kdi_handle_ops_s;

namespace VelmCore {
class CDom;
struct CConnectionTableEntry;
}  // namespace VelmCore

namespace OSTREL {

class ConfigUtils;
class TextCursor;
struct LogLine;

// The log kind that a retrieval asks for.
enum _Driver { DriverFirewall = 0, DriverDpi = 1, PseudoDriverPcap = 2 };

// Called for each record of a retrieval, with the retrieval's lock held. `lineTime` and `slack` are
// seconds, `line` is the text from the third column on. False ends the retrieval.
typedef bool (*RetrievalCallback)(void* context, long lineTime, long slack,
                                  const std::string& line);

// One log: a file set on disk, a cache of records on their way to it, and the settings of both.
//
// The operations of one object are called by one thread at a time, that of the script. Operations
// that fail return false; the words go out as agent events, log or trace lines. The destructor
// writes nothing: records still in the cache are lost unless FlushBufferedData(true) was called.
//
// Locks: m_CacheLock comes before m_FileLock. m_RetrievalLock and m_QueueLock stand alone.
class LogData {
public:
    // `dom` must outlive the object.
    explicit LogData(VelmCore::CDom& dom);
    ~LogData();
    LogData(const LogData&) = delete;
    LogData& operator=(const LogData&) = delete;

    // --- Pipeline -------------------------------------------------------------------------------

    // Takes one entry. `entry` has 180 bytes; the two blocks stay the caller's. True says that the
    // entry is in the cache, or in the file, and that everything that was due is written; false can
    // also mean that the log is not to show the entry.
    bool WriteLogData(const velm_log_entry_s* entry, const unsigned char* packetData,
                      unsigned int packetDataLen, const unsigned char* logData,
                      unsigned int logDataLen);
    // Decides on the entry with this text. `record` is a WorkingRecord.
    bool ProcessLogData(const std::string& text, const long long& firstTime, const void* record);
    // Waits at most `msec` for the queue of events that await formatting to become empty.
    void DrainQueue(unsigned int msec);

    void SetLogFilePath(wxString path);
    void SetLogFileName(wxString name);
    void SetDriverName(wxString name);
    wxString& GetLogFilePath() { return m_LogFilePath; }
    wxString& GetLogFileName() { return m_LogFileName; }
    wxString& GetLogFileFullPath() { return m_LogFileFullPath; }
    wxString& GetDriverName() { return m_DriverName; }
    wxString GetLogFilename(_Driver which);
    void SetLogFileSizeKB(long sizeKB) { m_LogFileSizeKB = sizeKB; }
    long GetLogFileSizeKB() const { return m_LogFileSizeKB; }
    void SetNumberOfOldCopies(int count) { m_NumberOfOldCopies = count; }
    int GetNumberOfOldCopies() const { return m_NumberOfOldCopies; }

    // Gives the reader of the configuration table for one script call, and behind it the former one
    // again, which is returned.
    ConfigUtils* SetConfigUtils(ConfigUtils* configUtils) {
        return std::exchange(m_pConfigUtils, configUtils);
    }
    // Keeps the driver handle, which stays the caller's.
    void SetKdi(kdi_handle_ops_s* handle) { m_KdiHandle = handle; }
    VelmCore::CDom& GetDom() { return m_Dom; }

    // --- Text -----------------------------------------------------------------------------------

    // Replaces `text` by the record's text, which holds no time and no count, and sets the two
    // times, in microseconds since the epoch. `entry` is a WorkingRecord. Always true.
    bool BinaryToAscii(const void* entry, std::string& text, long long& firstTime,
                       long long& lastTime);

    // --- Cache ----------------------------------------------------------------------------------

    // A record in the cache, which counts like entries.
    struct CBufferedLogRecord {
        unsigned int m_FirstTicks;  // when it entered the cache
        long long m_FirstTime;      // earliest, microseconds since the epoch
        unsigned int m_LastTicks;   // when it was last counted
        long long m_LastTime;       // latest, microseconds since the epoch
        unsigned int m_Count;
    };

    // True if the entry is to be logged. Reads the configuration anew if it changed.
    bool ProcessLogEntry(const std::string& text, const long long& firstTime, const void* record);
    // Counts an entry under its text, then flushes. Returns FlushBufferedData's result.
    bool CacheRecord(const std::string& text, const long long& firstTime, const long long& lastTime,
                     unsigned int count);
    // Writes the records that are due, or all of them. True if every write and the close succeeded.
    bool FlushBufferedData(bool force);
    // Sets the cache's limits, brought into their bounds, and flushes.
    void SetCacheParameters(unsigned int size, unsigned int lifetimeMsec, unsigned int staleMsec);

    // --- Files ----------------------------------------------------------------------------------

    // Makes sure that the current file is open.
    bool InitializeLogFile();
    // Appends one line.
    bool WriteRecord(const std::string& text, const CBufferedLogRecord& record);
    // Writes to the open file; makes room on a full disk by deleting old copies.
    bool WriteRawData(unsigned int length, const void* data);
    bool WriteFileHeader();
    // Closes the file, and rotates it if it is big enough.
    bool CloseAndRotateFile();
    bool RotateFiles();
    void MoveCopy(const wxString& from, const wxString& to);
    // Deletes the copies beyond the limit, or the oldest copy alone.
    bool RemoveOldFiles(bool oldestOnly);
    bool RemoveOldestFile();
    // Lists, sorted, the full paths of all files whose name begins with `prefix`. Returns their
    // number, or -1 as unsigned.
    unsigned int GetAllLogFiles(wxString prefix, wxArrayString& files);
    static int VersionNumberCompare(const wxString& first, const wxString& second);

    // --- Retrieval ------------------------------------------------------------------------------

    // Hands the records of a window, seconds since the epoch, to `callback`; 0 means no bound at
    // that end. False if the files could not be listed.
    bool GetLogData(_Driver whichDriver, long startTime, long endTime, const wxString& requester,
                    RetrievalCallback callback, void* context);
    // The same into a stream, one line a record.
    void GetLogDataStream(_Driver whichDriver, long startTime, long endTime,
                          const wxString& requester, unsigned int maxRecords, wxOutputStream& out);

    // --- Syslog ---------------------------------------------------------------------------------

    // Sets `out` to the body of a syslog message for the entry, a WorkingRecord. False, with `out`
    // left alone, outside a script call that brings the configuration.
    bool SyslogFormat(const void* entry, std::string& out);

    // --- Scan detection -------------------------------------------------------------------------

    // Looks at an entry for reconnaissance, whether or not it is logged. `record` is a
    // WorkingRecord. Always true.
    bool AnalyzeLogEntry(const std::string& text, const long long& firstTime, const void* record);
    // Adds a flow to the current time bin. May run on one thread while another closes bins.
    void HandleTerminatedFlow(const VelmCore::CConnectionTableEntry& flow, uint8_t protocol);
    // Closes the time bin if it is over, and forgets hosts whose time is over. True if the current
    // bin holds flows.
    bool CacheMaintenance();
    // Reports a probing host, once for each type and period, and has it blocked. `format` may be
    // null; its text, numbers only, is appended to the event. False if the type is not enabled.
    // Throws std::out_of_range for a type that is none.
    bool WriteProbeEvent(CProbeConfiguration::_ProbeType type, uint32_t ip, uint8_t protocol,
                         const wchar_t* format, ...);

    // True if `ip` (network byte order) lies in the list; false for a null list.
    bool HostIsInList(unsigned int ip, const IpSpaceList* list) { return ListContains(list, ip); }
    // There are no lists of IPv6 addresses.
    bool HostIsInList(pk_ipv6_addr_u, const IpSpaceList*) { return false; }

private:
    friend struct LogDataPeer;  // tests

    typedef std::map<std::string, CBufferedLogRecord> LogRecordMap;
    typedef std::pair<uint32_t, uint8_t> FlowKey;    // source in network byte order, protocol
    typedef std::pair<uint32_t, uint8_t> ProberKey;  // source in network byte order, probe type
    typedef std::map<FlowKey, std::pair<FlowSets, double>> ScanCandidates;
    typedef std::map<ProberKey, unsigned int> KnownProbers;
    static constexpr int kDriverKinds = 3;
    static constexpr int kProbeTypes = 5;

    struct Retrieval;
    enum LineOutcome { NextLine, EndOfFile, EndOfRetrieval };

    void initialize();
    void ReadAnalysisSettings();
    void ReadIgnoreTcpFlags();

    bool RefreshSettings(bool isPacketLog);
    bool HandleEngineNotice(int reason);
    int InterfaceId(int driverIndex);

    bool FlushDueRecords(bool force, unsigned int now);
    bool WriteAndErase(LogRecordMap::iterator record);

    int OpenLogFile();
    const std::string& TimeStamp(long long usec);
    bool HandleFullDisk(int& lastError);

    LineOutcome RetrieveFile(Retrieval& retrieval);
    LineOutcome JudgeLine(Retrieval& retrieval, const LogLine& line);
    bool IsLateLineWanted(const Retrieval& retrieval);
    void ReportCorruptFile(const wxString& path);
    unsigned int Bookmark(_Driver whichDriver);
    void SetBookmark(_Driver whichDriver, unsigned int lineNumber);

    struct SyslogMessage;
    void AppendPacketLog(SyslogMessage& message);
    void SetPacketLogName(const SyslogMessage& message, ShortText& name, int& filterAction);
    void AppendPayloadLog(SyslogMessage& message);
    void AppendPayloadItems(SyslogMessage& message);
    void AppendCefStart(SyslogMessage& message, std::string_view identifier, std::string_view name,
                        int severity);
    void AppendPlainStart(SyslogMessage& message, std::string_view name,
                          std::string_view direction);
    void AppendHostIdentity(SyslogMessage& message);
    void AppendSyslogBody(SyslogMessage& message, bool incoming);
    void AppendInterfaceInfoCEF(SyslogMessage& message);
    void SetInterfaceName(const SyslogMessage& message, ShortText& name);
    void AppendInterfaceInfoSyslog(SyslogMessage& message, bool incoming);
    void AppendNote(SyslogMessage& message);
    void AppendTextNote(SyslogMessage& message, std::string_view note);
    void AppendPacketData(const SyslogMessage& message, std::string& out);

    bool IsOfInterest(const velm_log_entry_s& entry);
    bool IsAnyProbeEnabled();
    bool IsSourceExempt(const velm_log_entry_s& entry);
    bool IsDestinationWatched(const velm_log_entry_s& entry);
    bool HasIPv6Destinations();
    bool IsCraftedPacket(const velm_log_entry_s& entry);
    void TraceSignature(CProbeConfiguration::_ProbeType probe);
    void CountFlow(const velm_log_entry_s& entry);

    bool CloseTimeBin();
    void DecayCandidates();
    void ForgetProbers(unsigned int now);
    void AnalyzeTerminatedFlow(const FlowBin::Source& source);
    bool KeepCandidates();
    bool IsKnownProber(uint32_t ip, CProbeConfiguration::_ProbeType type);
    void ReportScanner(const FlowKey& key, size_t numIps, size_t numPorts);
    void UpdateLikelihoodRatio(ScanCandidates::iterator candidate, bool scanLike);

    bool WasReported(CProbeConfiguration::_ProbeType type, uint32_t ip);
    void Remember(CProbeConfiguration::_ProbeType type, uint32_t ip, int seconds);
    bool Block(uint32_t ip, const wxString& ipText, int seconds);

    static const wchar_t* const s_Trace;
    static const wchar_t* const s_TraceScan;

    wxMutex m_RetrievalLock{wxMUTEX_RECURSIVE};  // held for the whole of a retrieval
    wxMutex m_QueueLock{wxMUTEX_RECURSIVE};      // guards m_EventQueue
    bool m_TraceEnabled = false;
    wxString m_DriverName;
    wxString m_DriverPrefix;
    unsigned int m_CacheSize = 128;
    unsigned int m_CacheLifetimeMsec = 1800000;
    wxString m_LogFileFullPath;
    wxString m_LogFilePath;
    wxString m_LogFileName;
    wxString m_LastCorruptFile;
    long m_LogFileSizeKB = 1024;
    int m_NumberOfOldCopies = 7;
    // Address lists are replaced at each configuration change and never freed.
    IpSpaceList* m_IgnoreIpList = nullptr;
    bool m_FirstRetrieval[kDriverKinds] = {};
    const char* m_LastLineKeys[kDriverKinds] = {};
    std::deque<std::string> m_EventQueue;
    bool m_OutOfSpace = false;
    unsigned long long m_LastConfigUpdate = ~0ULL;
    LogRecordMap m_LogRecordMap;
    wxMutex m_CacheLock{wxMUTEX_RECURSIVE};  // guards the cache and its three parameters
    unsigned int m_CacheStaleTimeMsec = 900000;
    wxMutex m_FileLock{wxMUTEX_RECURSIVE};  // held for the writing of one record
    wxFile m_LogFile;                       // open from a flush's first write to its end
    bool m_RawRecords = false;
    VelmCore::CDom& m_Dom;
    VelmCore::CSyslogger m_Syslogger{"pnp"};
    ConfigUtils* m_pConfigUtils = nullptr;  // set only during a script call that brings the table
    bool m_TraceScan = false;

    // Scan detection: settings, read once.
    double m_LikelihoodFactorY0 =
        0.0;  // a harmless observation multiplies a candidate's ratio by this
    double m_LikelihoodFactorY1 = 0.0;  // a scan-like one by this
    unsigned int m_ScanningIpsRetentionMsec = 0;
    unsigned int m_TimeBinMsec = 0;
    double m_ScanIpsPerPort = 0.0;
    double m_ScanPortsPerIp = 0.0;
    double m_ScanPortsPerIpFlagNow = 0.0;
    double m_ScanLikelihoodRatioFloor = 0.0;
    double m_ScanLikelihoodRatioCeiling = 0.0;
    std::set<uint8_t> m_IgnoreTcpFlags;

    // Scan detection: configuration. The refresh of the settings stores into it without the locks,
    // on the thread that reads it next.
    wxMutex m_DestIpListLock{wxMUTEX_RECURSIVE};
    IpSpaceList* m_pDestIpList = nullptr;  // destinations of interest; null: all
    wxMutex m_DestIpListV6Lock{wxMUTEX_RECURSIVE};
    IpSpaceList* m_pDestIpListV6 = nullptr;  // nothing fills it
    wxMutex m_WhitelistIpListLock{wxMUTEX_RECURSIVE};
    IpSpaceList* m_pWhitelistIpList = nullptr;     // sources of no interest
    wxMutex m_ProbeConfigLock{wxMUTEX_RECURSIVE};  // guards the next three
    int m_BlockAttackerSeconds[kProbeTypes] = {};
    std::bitset<5> m_EnabledProbes;
    std::bitset<5> m_NotifyImmediately;

    // Scan detection: state. m_TerminatedFlowsLock comes before m_ScanCandidatesLock, which comes
    // before m_ProbeConfigLock and m_KnownProbersLock; those two are taken one at a time.
    wxMutex m_TerminatedFlowsLock{wxMUTEX_RECURSIVE};
    FlowBin m_TerminatedFlows;  // the current time bin
    wxMutex m_ScanCandidatesLock{wxMUTEX_RECURSIVE};
    ScanCandidates
        m_ScanCandidates;  // what was touched since a candidate, and the likelihood ratio
    wxMutex m_KnownProbersLock{wxMUTEX_RECURSIVE};
    KnownProbers m_KnownProbers;          // with the tick at which each is forgotten
    unsigned int m_LastTimeBinTicks = 0;  // CacheMaintenance only

    int m_VmProtection = 0;
    kdi_handle_ops_s* m_KdiHandle = nullptr;
    int m_LastInterfaceIndex = -1;
    int m_LastInterfaceId = -1;

    std::string m_Text;                      // the present entry's text; kept for its memory
    std::string m_LogFileBytes;              // m_LogFileFullPath in the file system's encoding
    time_t m_StampSecond = -1;               // of m_Stamp
    std::string m_Stamp;                     // the date and time in front of the last line
    std::string m_Line;                      // the line being written; kept for its memory
    CacheSchedule<LogRecordMap> m_Schedule;  // guarded by m_CacheLock
    LogRecordMap::node_type m_SpareNode;     // guarded by m_CacheLock; kept for its memory
};

// The callback of GetLogDataStream: appends to the list in `context`. False for a null context.
bool GetLogDataCB(void* context, long lineTime, long slack, const std::string& line);

}  // namespace OSTREL
