-- The service's numbers: collected from where each is counted, and written for the collector.

local host = require "velm.host"
local service = require "velm.service"
local event = require "velm.event"
local say = require "velm.say"
local statistics = require "velm.statistics"

local numbers = {}

local EVERYBODY_READS = 420  -- 0644
local INTERVAL_SECONDS = 5

local SOURCE_FIELDS = {
    lost = "lost_total",
    overruns = "overruns_total",
    unreadable = "unreadable_total",
    blocksAccepted = "blocks_total",
    blocksRefused = "blocks_refused_total",
    blocksFailed = "blocks_failed_total",
    blocksRepaired = "blocks_repaired_total",
    blocksNow = "blocked_addresses",
}

-- The packet filter's own counters are the same for each source, so one source tells them.
local function AddSources(values, handles, blocker)
    for _, name in pairs(SOURCE_FIELDS) do values[name] = 0 end
    local counters = blocker:Statistics()
    values.dropped_total, values.unlogged_total = counters.dropped, counters.unlogged
    for _, handle in ipairs(handles) do
        local counts = handle:Statistics()
        for field, name in pairs(SOURCE_FIELDS) do values[name] = values[name] + counts[field] end
    end
end

local function Findings(counts)
    local findings = {}
    for _, kind in ipairs(event.KINDS) do findings[kind] = counts.findings[kind] or 0 end
    return findings
end

local function AddSyslog(values, counts)
    values.syslog_sent_total = counts.sent
    values.syslog_dropped_total = counts.dropped
    values.syslog_queue_length = counts.queued
end

local function AddTls(values, counts)
    local done = counts.decrypted + counts.failed + counts.unanswered + counts.dropped
    values.ssl_answered_total = counts.decrypted
    values.ssl_failed_total = counts.failed
    values.ssl_unanswered_total = counts.unanswered + counts.dropped
    values.ssl_queue_length = math.max(counts.rsa - done, 0)
end

function numbers.Collect(run)
    local counts = run.counts
    local entries, lines = service.Entries(), service.Lines()
    local values = {
        uptime_seconds = service.Uptime() - run.began,
        entries_total = entries,
        logged_total = counts.logged,
        suppressed_total = entries - counts.logged,
        lines_total = lines,
        coalesced_total = math.max(counts.logged - lines, 0),
        findings_total = Findings(counts),
        events_total = counts.events,
        log_failures_total = counts.logFailures,
        reloads_total = counts.reloads,
        reload_failures_total = counts.reloadFailures,
    }
    AddSources(values, run.handles, run.blocker)
    AddSyslog(values, run.outlet.Statistics())
    AddTls(values, run.inspection.Counts())
    return values
end

-- Now and then; and the last state stays when the service ends.
function numbers.WriteFile(run)
    local path, now = run.agent.statisticsFile, service.Uptime()
    if not path or now < (run.nextFile or 0) then return end
    run.nextFile = now + INTERVAL_SECONDS
    local text = statistics.Prometheus(host.VERSION, numbers.Collect(run))
    local reason = service.Replace(path, text, EVERYBODY_READS, false)
    if reason and reason ~= run.fileFault then say(path, reason) end
    run.fileFault = reason
end

return numbers
