-- velm_agent query: the log records of a time window.

local host = require "velm.host"
local config = require "velm.config"
local fail = require "velm.fail"
require "ostrel"

local PACKET, PAYLOAD = 0, 1

-- The last column is the time of the first occurrence in microseconds.
local function AddTime(line)
    local seconds = math.floor(tonumber(line:match("(%d+)$") or 0) / 1e6)
    return os.date("%Y/%m/%d, %H:%M:%S, ", seconds) .. line
end

-- Files that could not be read; their events come from the log.
local function TellEvents(what)
    local events = dom:TakeEvents()
    for _, event in ipairs(events) do
        io.stderr:write(("velm_agent: %s: event %d: %s\n"):format(what, event.number, event.text))
    end
    return #events
end

local function Print(text, withTime)
    if withTime then text = text:gsub("[^\n]+", AddTime) end
    io.write(text)
end

return function(options)
    local configuration, agent = config.Load(options.config)
    config.Apply(agent)
    local directory = options.directory ~= "" and options.directory or agent.logDirectory
    local name = options.name ~= "" and options.name or agent.logName
    local reason = host.WhyNoLog(directory, name)
    if reason then fail(2, directory, reason) end
    local log = SLB.ostrel.LogData(dom)
    log:SetLogFilePath(directory)
    log:SetLogFileName(name)
    -- The cache's lifetime says how far records may stand from their place in the files.
    config.Bring(log, configuration)
    local kind = options.payload and PAYLOAD or PACKET
    Print(log:GetLogData(options.from, options.to, kind, 0), options.time)
    return TellEvents(directory) == 0 and 0 or 1
end
