-- The agent's entry loop: takes the entries of a source and gives each to the log. Nothing else runs in Lua
-- for an entry, so the loop makes nothing and looks nothing up.

local loop = {}

-- What is to be done about once a second, entries or not: time bins are closed, hosts forgotten, and records
-- whose time has come written.
function loop.Maintain(log, configuration)
    log:CacheMaintenance(configuration)
    log:FlushBufferedData(false)
end

-- Entries that are logged go to the exporter as well, if there is one.
-- `nextEntry(source)` returns the three strings of an entry; or nil and "tick" when a second has passed, or
-- nil and why there is none, which Feed hands on behind the number of entries that were logged.
function loop.Feed(source, nextEntry, log, configuration, exporter)
    local write = log.WriteLogData
    local logged = 0
    while true do
        local entry, packetData, logData = nextEntry(source)
        if entry then
            if write(log, entry, packetData, configuration, logData) then
                logged = logged + 1
                if exporter then exporter:Entry(log, entry, packetData, configuration) end
            end
        elseif packetData == "tick" then
            loop.Maintain(log, configuration)
        else
            return logged, packetData, logData
        end
    end
end

return loop
