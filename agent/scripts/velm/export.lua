-- Sends log entries and agent events to a syslog receiver.
--
--     local exporter = export.New(agent.syslog, configuration)
--     exporter:Entry(log, entry, packetData, configuration)  -- the strings of an entry
--     exporter:Event(number, text [, usec])                  -- of now without a time
--     exporter:Statistics()                                  -- {sent=, dropped=, queued=, reconnects=}
--     exporter:Close(msec)                                   -- number of messages that were not sent
--
-- Entry and Event never wait: they return false for a message that the full queue had no room for.
-- The family, its format and the host's identity become the process's settings, so there is one
-- exporter at a time; Close the old one first. Close may wait for as long as it is told.

local syslog = require "velm.syslog"
local check = require "velm.schema"

local export = {}

local DEFAULT_FACILITY = "local0"
local DEFAULT_QUEUE, MAX_QUEUE = 10000, 1000000

local function OneOf(...)
    local names = {}
    for _, name in ipairs {...} do names[name] = true end
    local words = '"' .. table.concat({...}, '" or "') .. '"'
    return function(value)
        if type(value) ~= "string" or not names[value] then return words end
    end
end

local function Integer(from, to)
    return function(value)
        if type(value) ~= "number" or value % 1 ~= 0 or value < from or value > to then
            return ("integer from %.0f to %.0f"):format(from, to)
        end
    end
end

local function Facility(value)
    if type(value) ~= "string" or not syslog.CheckFacility(value) then
        return "name of a facility, such as local0,"
    end
end

local KEYS = {
    target = "string",
    facility = Facility,
    framing = OneOf("rfc5424", "local"),
    family = OneOf("cef", "plain"),
    format = Integer(0, 2),
    queue = Integer(1, MAX_QUEUE),
}

-- What is wrong with the options, nil if nothing. `prefix` stands in front of their names.
function export.Problem(options, prefix)
    local problem = check(options, KEYS, prefix)
    if problem then return problem end
    if not options.target then return prefix .. "target: a receiver is missing" end
    local reason = syslog.CheckTarget(options.target)
    if reason then return ("%starget: %s: %s"):format(prefix, options.target, reason) end
end

-- The module reads these settings for each message.
local function ApplySettings(options, identity)
    if options.family then dom:Set("velm.syslog.cef", options.family == "cef") end
    if options.format then dom:Set("velm.syslog.format", options.format) end
    dom:Set("velm.host.id", identity.hostID or 0)
    dom:Set("velm.host.name", identity.hostname or "")
end

local Exporter = {}
Exporter.__index = Exporter

local function NewExporter(options, configuration)
    local identity = configuration.agentConfiguration or {}
    ApplySettings(options, identity)
    local writer = syslog.Writer {
        facility = options.facility or DEFAULT_FACILITY,
        framing = options.framing or "rfc5424",
        hostname = identity.hostname or "",
        hostID = identity.hostID or 0,
    }
    return setmetatable({writer = writer}, Exporter)
end

function Exporter:Entry(log, entry, packetData, configuration)
    local text = log:SyslogFormat(entry, packetData, configuration)
    return self:post(self.writer:Entry(text, entry, configuration))
end

function Exporter:Event(number, text, usec)
    return self:post(self.writer:Event(number, text, usec))
end

function Exporter:Statistics() return self.sender:Statistics() end

function Exporter:Close(msec)
    local before = self.sender:Statistics().dropped
    self.sender:Close(msec)
    return self.sender:Statistics().dropped - before
end

-- `patient`: wait for room in the queue instead of dropping, for work that has no clock of its own.
function export.New(options, configuration, patient)
    local exporter = NewExporter(options, configuration)
    local sender = syslog.Sender(options.target, options.queue or DEFAULT_QUEUE)
    local post = patient and sender.PostWaiting or sender.Post
    exporter.sender = sender
    function exporter.post(_, message) return post(sender, message) end
    return exporter
end

-- An exporter that gives each message to a function; `options` need no target.
function export.NewPrinter(options, configuration, put)
    local exporter = NewExporter(options, configuration)
    local counts = {sent = 0, dropped = 0, queued = 0, reconnects = 0}
    function exporter.post(_, message)
        counts.sent = counts.sent + 1
        put(message)
        return true
    end
    exporter.sender = {Statistics = function() return counts end, Close = function() end}
    return exporter
end

return export
