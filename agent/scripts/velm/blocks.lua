-- The blocks that outlive the service: kept in a file with the time at which each ends, since the
-- machine may restart in between.

local service = require "velm.service"
local IsAddress = require "velm.address"

local blocks = {}

local HEAD = "velm blocks 1"
local OWNER_ONLY = 384  -- 0600
-- The end of a block that is told anew may differ by so much without being news.
local TOLERANCE_SECONDS = 2
-- The longest block that the driver knows. A clock that was set back makes blocks longer.
local LONGEST_SECONDS = 4294967

local function Encode(ends)
    local lines = {HEAD}
    for address, time in pairs(ends) do lines[#lines + 1] = ("%s %.0f"):format(address, time) end
    return table.concat(lines, "\n") .. "\n"
end

-- Blocks of a file's text that have not ended at `now`: array of {address=, seconds=}; or nil and
-- what is wrong with the text.
function blocks.Decode(text, now)
    local list = {}
    if text:match("^[^\n]*") ~= HEAD then return nil, "is no list of blocks" end
    for line in text:sub(#HEAD + 2):gmatch("[^\n]+") do
        local address, time = line:match("^(%S+) (%d+)$")
        if not address or not IsAddress(address) then return nil, "has a line that is no block" end
        local seconds = tonumber(time) - now
        if seconds > 0 then
            list[#list + 1] = {address = address, seconds = math.min(seconds, LONGEST_SECONDS)}
        end
    end
    return list
end

local function Same(former, ends)
    for address, time in pairs(ends) do
        if math.abs((former[address] or 0) - time) > TOLERANCE_SECONDS then return false end
    end
    for address in pairs(former) do
        if not ends[address] then return false end
    end
    return true
end

-- A keeper for a service that only pretends to block: it keeps nothing and knows nothing.
function blocks.NoKeeper()
    return {Save = function() end, Load = function() return {} end}
end

-- A keeper for the file. Its Save writes what has changed and returns nil, or why it could not.
function blocks.Keeper(path)
    local former = {}
    local keeper = {}

    function keeper.Save(list)
        local now, ends = service.WallTime(), {}
        for _, block in ipairs(list) do ends[block.address] = math.ceil(now + block.seconds) end
        if Same(former, ends) then return nil end
        local reason = service.Replace(path, Encode(ends), OWNER_ONLY, true)
        if not reason then former = ends end
        return reason
    end

    -- The blocks of the file; or nil and what is wrong with it. A file that is missing holds none.
    function keeper.Load()
        local file = io.open(path, "rb")
        if not file then return {} end
        local text = file:read("*a")
        file:close()
        return blocks.Decode(text, service.WallTime())
    end

    return keeper
end

return blocks
