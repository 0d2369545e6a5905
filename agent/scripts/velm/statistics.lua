-- The service's numbers: counted, and told as JSON and for Prometheus.

local json = require "velm.json"

-- A row for each number: name, kind, help. A name that ends in "_total" only counts up.
local ROWS = {
    {"uptime_seconds", "gauge", "Time since the service began."},
    {"entries_total", "counter", "Entries that the sources gave."},
    {"logged_total", "counter", "Entries that the log took."},
    {"suppressed_total", "counter",
     "Entries that the log does not show: ends of connections, ignored sources, what a full disk took no more."},
    {"lines_total", "counter", "Lines written to the log."},
    {"coalesced_total", "counter", "Entries that needed no line of their own, those still held back included."},
    {"lost_total", "counter", "Packets and connection ends that the kernel reported and nobody could read in time."},
    {"overruns_total", "counter", "Times that the kernel's queue to the service was full."},
    {"unreadable_total", "counter", "Messages of the kernel that made no entry."},
    {"dropped_total", "counter", "Packets of blocked addresses that the packet filter dropped."},
    {"unlogged_total", "counter", "Denied packets beyond the packet filter's limits of the log."},
    {"findings_total", "counter", "Recognised scans.", "kind"},
    {"events_total", "counter", "Agent events, findings included."},
    {"log_failures_total", "counter", "Agent events that tell of trouble with the log's files."},
    {"blocks_total", "counter", "Blocks of addresses that the driver took."},
    {"blocks_refused_total", "counter", "Blocks of addresses that are never blocked."},
    {"blocks_failed_total", "counter", "Blocks that the kernel refused."},
    {"blocks_repaired_total", "counter", "Blocks that were gone from the kernel's set and were put back."},
    {"blocked_addresses", "gauge", "Addresses that are blocked now."},
    {"syslog_sent_total", "counter", "Messages sent to the syslog receiver."},
    {"syslog_dropped_total", "counter", "Messages that the queue to the syslog receiver had no room for."},
    {"syslog_queue_length", "gauge", "Messages that wait for the syslog receiver."},
    {"ssl_answered_total", "counter", "Secrets of inspected TLS connections that were decrypted."},
    {"ssl_failed_total", "counter", "Secrets that none of the keys decrypts."},
    {"ssl_unanswered_total", "counter", "Secrets that were not looked at in time, or that found no room."},
    {"ssl_queue_length", "gauge", "Secrets that wait to be decrypted."},
    {"reloads_total", "counter", "Times that the configuration was read anew."},
    {"reload_failures_total", "counter", "Times that a new configuration was faulty and the old one stayed."},
}

local statistics = {}

-- The numbers of `values` by name, in the order of the rows; one that is missing is left out.
local function Each(values, visit)
    for _, row in ipairs(ROWS) do
        local value = values[row[1]]
        if value then visit(row, value) end
    end
end

local function Sum(parts)
    local sum = 0
    for _, value in pairs(parts) do sum = sum + value end
    return sum
end

-- One JSON object: {"ok":true,"version":...,name:number,...}; what has parts comes as their sum.
function statistics.Json(version, values)
    local fields = {"ok", true, "version", version}
    Each(values, function(row, value)
        fields[#fields + 1] = row[1]
        fields[#fields + 1] = type(value) == "table" and Sum(value) or value
    end)
    return json(table.unpack(fields))
end

local function Number(value) return value % 1 == 0 and ("%.0f"):format(value) or ("%.3f"):format(value) end

local function Samples(lines, row, value)
    local name = "velm_" .. row[1]
    if not row[4] then
        lines[#lines + 1] = name .. " " .. Number(value)
        return
    end
    local parts = {}
    for part in pairs(value) do parts[#parts + 1] = part end
    table.sort(parts)
    for _, part in ipairs(parts) do
        lines[#lines + 1] = ('%s{%s="%s"} %s'):format(name, row[4], part, Number(value[part]))
    end
end

-- The text form that Prometheus reads.
function statistics.Prometheus(version, values)
    local lines = {
        "# HELP velm_build_info The running version.",
        "# TYPE velm_build_info gauge",
        ('velm_build_info{version="%s"} 1'):format(version),
    }
    Each(values, function(row, value)
        lines[#lines + 1] = ("# HELP velm_%s %s"):format(row[1], row[3])
        lines[#lines + 1] = ("# TYPE velm_%s %s"):format(row[1], row[2])
        Samples(lines, row, value)
    end)
    return table.concat(lines, "\n") .. "\n"
end

return statistics
