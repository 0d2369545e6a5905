-- The agent's entry loop: takes the entries of a source and gives each to the log. It is all that
-- runs for an entry in Lua, so it makes nothing and looks nothing up.

local loop = {}

-- `nextEntry(source)` returns the three strings of an entry; or nil and why there is none, which Feed
-- hands on behind the number of entries that were logged.
function loop.Feed(source, nextEntry, log, configuration)
    local write = log.WriteLogData
    local logged = 0
    local entry, packetData, logData = nextEntry(source)
    while entry do
        if write(log, entry, packetData, configuration, logData) then logged = logged + 1 end
        entry, packetData, logData = nextEntry(source)
    end
    return logged, packetData, logData
end

return loop
