-- velm_agent replay: the entry loop over capture files.

local host = require "velm.host"
local player = require "velm.player"
local config = require "velm.config"
local export = require "velm.export"
local fail = require "velm.fail"
local loop = require "velm.loop"
local newReporter = require "velm.report"
local tls = require "velm.tls"
require "ostrel"

local function Warn(what, why)
    io.stderr:write("velm_agent: ", what, ": ", why, "\n")
end

-- Before any work, so that a mistyped name costs nothing.
local function CheckCaptures(captures)
    for _, capture in ipairs(captures) do
        local reason = host.WhyUnreadable(capture)
        if reason then fail(2, capture, reason) end
    end
end

local function OpenLog(agent, directory)
    local log = SLB.ostrel.LogData(dom)
    log:SetLogFilePath(directory)
    log:SetLogFileName(agent.logName)
    if log:InitializeLogFile() then return log end
    player.ReportNews()
    fail(2, directory, host.WhyUnwritable(directory, agent.logName) or "cannot be written")
end

local function OpenCapture(capture, options)
    local source, reason = kdi.Open("pcap:" .. capture, {
        localAddresses = options.localAddresses ~= "" and options.localAddresses or nil,
        allow = options.allow ~= "" and options.allow or nil,
    })
    if not source then fail(2, reason) end
    local words = player.Describe(source)
    if words ~= "" then Warn(capture, words) end
    return source
end

local DEFAULT_BIN_MSEC = 10000
local MAX_RUN_ON_SECONDS = 7200

local function NewCounts()
    return {packets = 0, entries = 0, dropped = 0, logged = 0, usec = 0}
end

local function AddCounts(counts, logged, statistics)
    counts.logged = counts.logged + logged
    counts.packets = counts.packets + statistics.packets
    counts.entries = counts.entries + statistics.entries
    counts.dropped = counts.dropped + statistics.dropped
    counts.usec = counts.usec + statistics.usec
end

-- Returns the source, open: the log has it block hosts until it is given another one.
local function PlayCapture(capture, options, log, configuration, counts, exporter)
    local source = OpenCapture(capture, options)
    log:SetKdi(source)
    local logged, state, reason = loop.Feed(source, player.Next, log, configuration, exporter)
    AddCounts(counts, logged, player.Finish(source))
    player.ReportNews(source)
    if state == "failed" then fail(2, reason) end
    if state == "interrupted" then fail(1, "replay", "interrupted") end
    return source
end

-- The clock runs on for two time bins, so that what the last packets were part of is judged.
local function RunOn(source, log, configuration)
    local bin = tonumber(dom:Get("plg.ostrel.analysis.ScanTimeBinMillisec")) or DEFAULT_BIN_MSEC
    for _ = 1, math.min(math.ceil(2 * bin / 1000), MAX_RUN_ON_SECONDS) do
        player.RunOn()
        loop.Maintain(log, configuration)
        player.ReportNews(source)
    end
end

local function PlayLogs(options, log, configuration, counts, exporter)
    local last
    for _, capture in ipairs(options.captures) do
        local source = PlayCapture(capture, options, log, configuration, counts, exporter)
        if last then last:Close() end
        last = source
    end
    RunOn(last, log, configuration)
end

local WAIT_MSEC = 200

-- Reads one capture's handshakes and waits for their secrets.
local function PlayHandshakes(capture, agent, counts)
    local source, reason = tls.Open("pcap:" .. capture, agent)
    if not source then fail(2, reason) end
    local done
    repeat
        done, reason = source:Wait(WAIT_MSEC)
        if player.Interrupted() then fail(1, "replay", "interrupted") end
    until done ~= false
    tls.AddCounts(counts, source:Statistics())
    source:Close()
    if reason then fail(2, reason) end
end

local function CheckTls(agent, path)
    local name = path ~= "" and path or "configuration"
    if not agent.sslServers or not agent.sslServers[1] then
        fail(2, name, "agent.sslServers names no server, as --tls wants")
    end
end

-- Returns whether everything that was decrypted is where it belongs.
local function PlayTls(options, agent, reporter)
    tls.StartService()
    local counts = tls.NewCounts()
    for _, capture in ipairs(options.captures) do PlayHandshakes(capture, agent, counts) end
    reporter.Tls(counts)
    if counts.keyLogFailures > 0 then
        Warn(agent.keyLog, ("%.0f secrets could not be written"):format(counts.keyLogFailures))
    end
    if counts.unanswered > 0 then
        Warn("tls", ("%.0f requests got no answer"):format(counts.unanswered))
    end
    return counts.keyLogFailures == 0 and counts.unanswered == 0
end

-- Returns whether all went well, short of what it raises.
local function PlayAll(options, agent, log, configuration, counts, exporter, reporter)
    PlayLogs(options, log, configuration, counts, exporter)
    return not options.tls or PlayTls(options, agent, reporter)
end

-- What was read is written and told, also when the replay ended early.
local function Finish(options, log, counts, reporter)
    local flushed = log:FlushBufferedData(true)
    player.ReportNews()
    local lines, complete = player.Lines()
    if not complete then Warn("lines", "a log file could not be followed; the number is too low") end
    counts.lines = lines
    counts.coalesced = math.max(counts.logged - lines, 0)
    counts.seconds = counts.usec / 1e6
    counts.files = options.out ~= "" and log:GetLogFileFullPath()
        or "removed; --out DIR keeps them"
    reporter.Summary(counts)
    return flushed
end

local CLOSE_MSEC = 10000

-- Where messages go: nowhere, to standard output ("-"), or to a receiver. The rest of the
-- configuration's agent.syslog holds for all of them.
local function NewExporter(options, agent, configuration, reporter)
    if options.syslog == "" then return nil end
    local syslog = agent.syslog or {}
    syslog.target = options.syslog
    if options.syslog == "-" then
        return export.NewPrinter(syslog, configuration, reporter.Message)
    end
    local problem = export.Problem(syslog, "agent.syslog.")
    if problem then fail(2, "--syslog", problem) end
    return export.New(syslog, configuration, true)
end

local function CloseExporter(exporter, target)
    local unsent = exporter:Close(CLOSE_MSEC)
    local counts = exporter:Statistics()
    if counts.dropped == 0 then return true end
    Warn(target, ("%.0f messages sent, %.0f dropped, %.0f of them at the end"):format(
        counts.sent, counts.dropped, unsent))
    return false
end

-- An entry's strings die at once and little else lives, so the collector may wait until garbage is
-- ten times what lives.
local COLLECTOR_PAUSE = 1000

return function(options)
    collectgarbage("setpause", COLLECTOR_PAUSE)
    local configuration, agent = config.Load(options.config)
    config.Apply(agent)
    CheckCaptures(options.captures)
    if options.tls then CheckTls(agent, options.config) end
    -- Messages are what was asked for: the report makes way for them.
    local reporter = newReporter(options.json, options.syslog == "-" and io.stderr or io.stdout)
    local exporter = NewExporter(options, agent, configuration, reporter)
    player.OnNews(function(kind, usec, ...)
        reporter.News(kind, usec, ...)
        if exporter and kind == "event" then
            local number, text = ...
            exporter:Event(number, text, usec)
        end
    end)
    local directory = options.out ~= "" and options.out or player.TempDirectory()
    local log = OpenLog(agent, directory)
    if not player.CountLines(log:GetLogFileFullPath()) then
        fail(1, log:GetLogFileFullPath(), "cannot be read")
    end
    local counts = NewCounts()
    local played, outcome = xpcall(PlayAll, debug.traceback, options, agent, log, configuration,
                                   counts, exporter, reporter)
    if not played and counts.packets == 0 then error(outcome, 0) end
    local flushed = Finish(options, log, counts, reporter)
    local delivered = not exporter or CloseExporter(exporter, options.syslog)
    if not played then error(outcome, 0) end
    if not flushed or reporter.failures > 0 then
        fail(1, directory, "records were lost: " .. reporter.failures .. " failures of log files")
    end
    return delivered and outcome and 0 or 1
end
