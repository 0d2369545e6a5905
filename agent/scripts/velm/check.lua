-- What the service asks of a configuration beyond the types of its values. Raises the first fault.

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

return function(path, configuration, agent)
    local name = path ~= "" and path or "configuration"
    if not agent.sources or not agent.sources[1] then fail(2, name, "agent.sources names no source") end
    CheckLists(name, configuration)
end
