-- The service reads its configuration and policy anew.

local service = require "velm.service"
local checkedConfiguration = require "velm.check"
local config = require "velm.config"
local news = require "velm.news"
local say = require "velm.say"

local CONFIG_UPDATED = "app.configUpdated"

-- Returns the new configuration, or raises; nothing has changed then.
local function Reread(run)
    local configuration, agent = checkedConfiguration(run.path)
    config.Replace(run.agent, agent)
    return configuration, agent
end

-- What was decided at the start stays until a restart.
local FIXED = {"logDirectory", "logName", "stateDirectory", "receiveBuffer"}

local function KeepFixed(former, agent)
    for _, key in ipairs(FIXED) do
        if agent[key] ~= former[key] then
            say("agent." .. key, "a new value counts from the next start on")
            agent[key] = former[key]
        end
    end
    for _, key in ipairs {"sources", "allow"} do
        if table.concat(agent[key] or {}, "\n") ~= table.concat(former[key] or {}, "\n") then
            say("agent." .. key, "a new value counts from the next start on")
        end
        agent[key] = former[key]
    end
end

-- The entries that come meanwhile wait in the kernel. Records that are held back stay so.
return function(run)
    service.TellReloading()
    news.Tell(run)
    local read, configuration, agent = pcall(Reread, run)
    if read then
        KeepFixed(run.agent, agent)
        run.configuration, run.agent = configuration, agent
        run.outlet.Change(agent.syslog, configuration)
        run.inspection.Change(agent)
        dom:ConditionRaise(CONFIG_UPDATED)
        config.Bring(run.log, configuration)
        run.counts.reloads = run.counts.reloads + 1
        say("configuration", "read anew")
    else
        run.counts.reloadFailures = run.counts.reloadFailures + 1
        say("configuration", "the old one stays: " .. tostring(configuration))
    end
    service.TellReady(run.words)
end
