-- What a replay tells: news as they come, and a summary. Returns a reporter for text or for JSON
-- lines; both count. Text goes to the file that is given, JSON lines always to standard output, among
-- them any syslog messages, so that all of it can be parsed.

local event = require "velm.event"
local json = require "velm.json"
local tls = require "velm.tls"

local SUMMARY = {
    "packets", "entries", "logged", "coalesced", "lines", "findings", "blocks", "dropped", "seconds",
}
-- What a name does not say by itself.
local REMARKS = {
    coalesced = "repeats, counted on the line of the first",
    dropped = "packets of blocked sources",
}

-- Before the first packet there is no time.
local function Clock(usec)
    if usec == 0 then return "start:" end
    return ("%s.%06d"):format(os.date("%Y/%m/%d %H:%M:%S", math.floor(usec / 1e6)), usec % 1e6)
end

local text = {}

-- Text bound for the report's own file.
local function Print(line) text.file:write(line, "\n") end

function text.message(words) print(words) end

function text.finding(usec, number, words)
    Print(("%s finding %d: %s"):format(Clock(usec), number, event.Words(words)))
end

function text.event(usec, number, words)
    Print(("%s event %d: %s"):format(Clock(usec), number, words))
end

function text.block(usec, address, msec)
    Print(("%s block %s for %g seconds"):format(Clock(usec), address, msec / 1000))
end

local TLS_REMARKS = {
    rsa = "with RSA key exchange",
    decrypted = "secrets of these",
    failed = "no key, or another one than the server's",
    resumed = "with the keys of an earlier connection",
    other = "key exchanges that the server's key does not undo",
    incomplete = "not seen to their end",
    renegotiations = "encrypted, so not followed",
}

-- What is always told; other counters only if something was counted.
local TLS_ALWAYS = {handshakes = true, rsa = true, decrypted = true, failed = true}

function text.tls(counts)
    for _, name in ipairs(tls.COUNTERS) do
        if TLS_ALWAYS[name] or counts[name] > 0 then
            local line = ("tls %-14s %.0f"):format(name, counts[name])
            if TLS_REMARKS[name] then line = ("%-22s (%s)"):format(line, TLS_REMARKS[name]) end
            Print(line)
        end
    end
    local names = {}
    for name in pairs(counts.others) do names[#names + 1] = name end
    table.sort(names)
    for _, name in ipairs(names) do Print(("  %-16s %.0f"):format(name, counts.others[name])) end
end

function text.summary(counts)
    for _, name in ipairs(SUMMARY) do
        local form = name == "seconds" and "%-10s %.6f" or "%-10s %.0f"
        local line = form:format(name, counts[name])
        if REMARKS[name] then line = ("%-22s (%s)"):format(line, REMARKS[name]) end
        Print(line)
    end
    for _, kind in ipairs(event.KINDS) do
        if counts.kinds[kind] then Print(("  %-18s %d"):format(kind, counts.kinds[kind])) end
    end
    Print(("%-10s %s"):format("files", counts.files))
end

local lines = {}

function lines.message(words) print(json("kind", "syslog", "message", words)) end

function lines.finding(usec, number, words)
    print(json("kind", "finding", "time", usec / 1e6, "number", number, "text", words,
               "source", event.Source(words)))
end

function lines.event(usec, number, words)
    print(json("kind", "event", "time", usec / 1e6, "number", number, "text", words))
end

function lines.block(usec, address, msec)
    print(json("kind", "block", "time", usec / 1e6, "address", address, "seconds", msec / 1000))
end

function lines.tls(counts)
    local fields = {"kind", "tls"}
    for _, name in ipairs(tls.COUNTERS) do
        fields[#fields + 1] = name
        fields[#fields + 1] = counts[name]
    end
    fields[#fields + 1] = "others"
    fields[#fields + 1] = counts.others
    print(json(table.unpack(fields)))
end

function lines.summary(counts)
    local pairsOfSummary = {"kind", "summary"}
    for _, name in ipairs(SUMMARY) do
        pairsOfSummary[#pairsOfSummary + 1] = name
        pairsOfSummary[#pairsOfSummary + 1] = counts[name]
    end
    print(json(table.unpack(pairsOfSummary)))
end

return function(asJson, file)
    text.file = file
    local form = asJson and lines or text
    local reporter = {findings = 0, blocks = 0, failures = 0}
    local kinds = {}  -- findings by type

    local function Event(usec, number, words)
        if event.IsFailure(number) then
            reporter.failures = reporter.failures + 1
        end
        if not event.IsFinding(number) then return form.event(usec, number, words) end
        reporter.findings = reporter.findings + 1
        local kind = event.Kind(words)
        kinds[kind] = (kinds[kind] or 0) + 1
        form.finding(usec, number, words)
    end

    local function Block(usec, address, msec)
        reporter.blocks = reporter.blocks + 1
        form.block(usec, address, msec)
    end

    function reporter.News(kind, ...)
        if kind == "event" then Event(...) else Block(...) end
    end

    function reporter.Tls(counts) form.tls(counts) end

    function reporter.Message(words) form.message(words) end

    function reporter.Summary(counts)
        counts.findings, counts.blocks = reporter.findings, reporter.blocks
        counts.kinds = kinds
        form.summary(counts)
    end

    return reporter
end
