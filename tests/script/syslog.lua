-- The bindings of the syslog export, and the module that scripts use.
local expect = require "expect"
local export = require "velm.export"
local syslog = require "velm.syslog"
require "ostrel"
local cases = {}

local CONFIGURATION = {
    agentConfiguration = {hostID = 7, hostname = "web1"},
    payloadFilterMap = {
        [1] = {name = "Low", severity = 1}, [2] = {name = "Medium", severity = 2},
        [3] = {name = "High", severity = 3}, [4] = {name = "Critical", severity = 4},
        [5] = {name = "None"}, [-1] = {name = "Beyond", severity = 4},
    },
    packetFilterMap = {
        [10] = {filterAction = 0}, [11] = {name = "No Action"}, [12] = {filterAction = 2},
    },
}
local USEC = 1794605400000042

local function Bytes(number, count)
    local bytes = {}
    for i = 1, count do
        bytes[i] = string.char(number % 256)
        number = math.floor(number / 256)
    end
    return table.concat(bytes)
end

-- An entry with nothing but action, reason, filter and time of the last occurrence.
local function Entry(action, reason, filter)
    local head = ("\0"):rep(0x14) .. Bytes(action, 2) .. Bytes(reason % 65536, 2) .. Bytes(filter, 4)
    local times = Bytes(1794605400, 4) .. Bytes(42, 4)
    head = head .. ("\0"):rep(0x58 - #head) .. times
    return head .. ("\0"):rep(180 - #head)
end

local function Writer(options)
    options = options or {}
    return syslog.Writer {
        facility = options.facility or "local0", framing = options.framing or "rfc5424",
        hostname = options.hostname or "web1", hostID = options.hostID or 7,
    }
end

local function Priority(action, reason, filter)
    local message = Writer({facility = "kern"}):Entry("text", Entry(action, reason, filter),
                                                     CONFIGURATION)
    return tonumber(message:match("^<(%d+)>"))
end

function cases.EntryHasItsOwnTimeAndKind()
    local writer = Writer()
    local packet = writer:Entry("text", Entry(1, 0, 1), CONFIGURATION)
    expect.Contains(":30:00.000042", packet)
    expect.Equal("packet - text", packet:match("packet.*"))
    expect.Equal("payload - text",
                 writer:Entry("text", Entry(1, -1, 1), CONFIGURATION):match("payload.*"))
end

function cases.SeverityOfAPacketLogFollowsItsAction()
    expect.Equal(4, Priority(1, 0, 17))
    expect.Equal(4, Priority(0x81, 0, 17))
    expect.Equal(4, Priority(1, 101, 0))
    expect.Equal(6, Priority(6, 0, 17))
    expect.Equal(6, Priority(0x80, 0, 17))
end

-- As the text does: act=Deny, act=Log and so on.
function cases.SeverityOfAPacketLogWithoutActionFollowsItsFilters()
    expect.Equal(4, Priority(0, 0, 12))
    expect.Equal(6, Priority(0, 0, 10))
    expect.Equal(6, Priority(0, 0, 11))
    expect.Equal(4, Priority(0, 0, 99))
    expect.Equal(4, Priority(0, 101, 0))
    expect.Equal(4, Priority(1, 0, 10))
    expect.Equal(6, Priority(2, 0, 12))
end

function cases.FilterNumberBeyond31BitsIsLookedUpAsTheTextDoes()
    expect.Equal(2, Priority(1, -1, 4294967295))
end

function cases.SeverityOfAPayloadLogIsItsFilters()
    local expected = {5, 4, 3, 2, 4}
    for filter, severity in ipairs(expected) do
        expect.Equal(severity, Priority(1, -1, filter))
    end
    expect.Equal(4, Priority(1, -1, 99))
    expect.Equal(4, Priority(1, -806, 0))
end

function cases.ConfigurationWithoutFiltersWillDo()
    local message = Writer():Entry("text", Entry(1, -1, 1), {})
    expect.Equal("<132>", message:match("^<%d+>"))
end

function cases.EventHasTheTimeThatItIsGiven()
    local message = Writer():Event(7004, "XmasScan|192.0.2.66|6|0", USEC)
    expect.Contains(":30:00.000042", message)
    expect.Contains(" event - ", message)
    expect.Contains("|7004|XmasScan|8|", message)
end

function cases.WrongArgumentsAreToldWhatWasExpected()
    local writer = Writer()
    expect.Error("log entry expected", writer.Entry, writer, "text", "short", {})
    expect.Error("table expected", writer.Entry, writer, "text", Entry(1, 0, 1), 1)
    expect.Error("velm.syslog.writer expected", writer.Event, {}, 1, "text")
    expect.Error("microseconds since the epoch expected", writer.Event, writer, 1, "text", -1)
    expect.Error("microseconds since the epoch expected", writer.Event, writer, 1, "text", 0 / 0)
    expect.Error("bad option 'facility' (no facility)", Writer, {facility = "x"})
    expect.Error("bad option 'hostname' (string expected)", Writer, {hostname = {}})
    expect.Error("bad option 'hostID' (number expected)", Writer, {hostID = "x"})
    expect.Error("the port is missing", syslog.Sender, "udp://host", 1)
    expect.Error("integer from 0 to 4294967295 expected", syslog.Sender, "unix:/x", -1)
    local sender = syslog.Sender("unix:/nowhere/at/all", 10)
    expect.Error("milliseconds of an hour expected", sender.Close, sender, -1)
    expect.Error("string expected", sender.Post, sender, {})
    expect.Error("velm.syslog.sender expected", sender.Post, writer, "text")
end

function cases.MetamethodThatFailsLeavesTheWriterUsable()
    local writer = Writer()
    local hostile = setmetatable({}, {__index = function() error("no") end})
    expect.Error("no", writer.Entry, writer, "text", Entry(1, -1, 1), hostile)
    expect.Contains("payload - text", writer:Entry("text", Entry(1, -1, 1), CONFIGURATION))
end

function cases.ExporterCountsWhatItCouldNotSend()
    local exporter = export.New({target = "unix:/nowhere/at/all", queue = 5}, CONFIGURATION)
    local log = SLB.ostrel.LogData(dom)
    local accepted = 0
    for _ = 1, 20 do
        if exporter:Entry(log, Entry(1, 0, 1), "", CONFIGURATION) then accepted = accepted + 1 end
    end
    -- One more when the sender has taken one off the queue.
    expect.Equal(true, accepted == 5 or accepted == 6)
    local counts = exporter:Statistics()
    expect.Equal(20 - accepted, counts.dropped)
    expect.Equal(accepted, counts.queued)
    expect.Equal(0, counts.sent)
    expect.Equal(false, exporter:Event(1001, "too much"))
    expect.Equal(accepted, exporter:Close(0))
    expect.Equal(0, exporter:Statistics().queued)
    expect.Equal(false, exporter:Event(1001, "too late"))
end

function cases.PrinterGetsEachMessage()
    local lines = {}
    local exporter = export.NewPrinter({family = "plain", format = 0}, CONFIGURATION,
                                       function(line) lines[#lines + 1] = line end)
    local log = SLB.ostrel.LogData(dom)
    expect.Equal(true, exporter:Entry(log, Entry(1, 0, 1), "", CONFIGURATION))
    exporter:Event(6009, "/x|No space left on device")
    expect.Equal(2, #lines)
    expect.Equal("REASON=PKT: HOSTID=7 act=Deny LEN=0 CNT=0", lines[1]:match("REASON.*"))
    expect.Equal("REASON=Log_File_Failure HOSTID=7 EVENT=6009 MSG=/x|No_space_left_on_device",
                 lines[2]:match("REASON.*"))
    expect.Equal(2, exporter:Statistics().sent)
    expect.Equal(0, exporter:Close(0))
end

function cases.SenderThatIsForgottenEnds()
    for _ = 1, 20 do
        syslog.Sender("unix:/nowhere/at/all", 1):Post("x")
        collectgarbage()
    end
end

expect.Run(cases)
