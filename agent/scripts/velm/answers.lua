-- What the service answers on its control socket. Requests are "status", "blocks" and
-- "unblock ADDRESS"; an answer is a JSON object a line, the first with `ok`.

local json = require "velm.json"
local statistics = require "velm.statistics"

local function Refuse(why) return json("ok", false, "error", why) .. "\n" end

local requests = {}

function requests.status(service)
    return statistics.Json(service.version, service.Numbers()) .. "\n"
end

function requests.blocks(service)
    local list = service.blocker:Blocks()
    local lines = {json("ok", true, "count", #list)}
    for _, block in ipairs(list) do
        lines[#lines + 1] = json("address", block.address, "seconds", block.seconds)
    end
    return table.concat(lines, "\n") .. "\n"
end

local function Unblock(service, address)
    local called, lifted, reason = pcall(service.blocker.Unblock, service.blocker, address)
    if not called then return Refuse("an IPv4 address is expected") end
    if not lifted then return Refuse(reason) end
    service.SaveBlocks()
    return json("ok", true, "address", address) .. "\n"
end

-- `service` has version, blocker (the driver handle that blocks), Numbers() and SaveBlocks().
return function(service, line)
    local address = line:match("^unblock (%d+%.%d+%.%d+%.%d+)$")
    if address then return Unblock(service, address) end
    local answer = requests[line]
    if not answer then return Refuse("unknown request") end
    return answer(service)
end
