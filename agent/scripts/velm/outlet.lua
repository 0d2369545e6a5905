-- The service's way to the syslog receiver: the present exporter, and what all of them have counted.

local export = require "velm.export"
local say = require "velm.say"

local outlet = {}

-- The kernel keeps the entries that come while a former exporter sends its rest.
local CHANGE_MSEC = 2000
local CLOSE_MSEC = 5000

-- The text of a table of plain values, the same for the same content.
local function Text(values)
    local parts = {}
    for key, value in pairs(values or {}) do parts[#parts + 1] = key .. "=" .. tostring(value) end
    table.sort(parts)
    return table.concat(parts, "\n")
end

local function Wish(options, configuration)
    return options and Text(options) .. "\n\n" .. Text(configuration.agentConfiguration)
end

function outlet.New()
    local self = {exporter = nil}
    local wish
    local former = {sent = 0, dropped = 0}

    local function End(msec)
        if not self.exporter then return end
        local unsent = self.exporter:Close(msec)
        if unsent > 0 then say("syslog", ("%.0f messages could not be sent"):format(unsent)) end
        local counts = self.exporter:Statistics()
        former.sent, former.dropped = former.sent + counts.sent, former.dropped + counts.dropped
        self.exporter = nil
    end

    -- Sends to the receiver of the options from now on, to none without options. An exporter whose
    -- options are the same goes on with its connection and its queue.
    function self.Change(options, configuration)
        local now = Wish(options, configuration)
        if now == wish then return end
        End(CHANGE_MSEC)
        wish = nil
        if options then self.exporter = export.New(options, configuration) end
        wish = now
    end

    function self.Event(number, text)
        if self.exporter then self.exporter:Event(number, text) end
    end

    function self.Statistics()
        local counts = self.exporter and self.exporter:Statistics() or {sent = 0, dropped = 0, queued = 0}
        return {
            sent = former.sent + counts.sent,
            dropped = former.dropped + counts.dropped,
            queued = counts.queued,
        }
    end

    function self.Close() End(CLOSE_MSEC) end

    return self
end

return outlet
