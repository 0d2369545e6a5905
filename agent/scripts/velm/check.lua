-- The service's configuration: loaded, and asked for more than the types of its values. Raises the first
-- fault.

local IsAddress = require "velm.address"
local config = require "velm.config"
local fail = require "velm.fail"
require "ostrel"

local LIST_FAULT = 2019

-- The log passes over a list of addresses that it can't read, so that nothing in it counts: here
-- that is a fault.
local function CheckLists(path, configuration)
    dom:TakeEvents()
    config.Bring(SLB.ostrel.LogData(dom), configuration)
    for _, event in ipairs(dom:TakeEvents()) do
        if event.number == LIST_FAULT then
            local token, list = event.text:match("^(.-)|(.-)|")
            fail(2, path, ("list of addresses '%s': '%s' is no address, range or network")
                          :format(list, token))
        end
    end
end

local MAX_GROUP = 65535

local function CheckSources(path, names)
    if not names or not names[1] then fail(2, path, "agent.sources names no source") end
    for _, name in ipairs(names) do
        local group = name:match("^nflog:(%d+)$")
        if group and tonumber(group) > MAX_GROUP then
            fail(2, path, ("agent.sources: %s: the greatest group is %d"):format(name, MAX_GROUP))
        end
    end
end

-- What has a colon is left to the driver library.
local function IsNetwork(text)
    if text:find(":", 1, true) then return true end
    local address, bits = text:match("^([^/]*)/?(%d*)$")
    return address and IsAddress(address) and (bits == "" or tonumber(bits) <= 32)
        and (bits ~= "" or not text:find("/", 1, true))
end

local function CheckAllowed(path, names)
    for _, name in ipairs(names or {}) do
        if not IsNetwork(name) then
            fail(2, path, ("agent.allow: '%s' is no address or network"):format(name))
        end
    end
end

-- Returns what config.Load returns.
return function(path)
    local configuration, agent = config.Load(path)
    local name = path ~= "" and path or "configuration"
    CheckSources(name, agent.sources)
    CheckAllowed(name, agent.allow)
    CheckLists(name, configuration)
    return configuration, agent
end
