-- The service's TLS inspection: the sources of handshakes, and the key service that decrypts for them.

local service = require "velm.service"
local say = require "velm.say"
local tls = require "velm.tls"

local inspection = {}

-- After an interface went away, or could not be opened yet.
local RETRY_SECONDS = 10

-- Whether the sources include an interface, which takes a privilege to listen on.
function inspection.NeedsInterface(agent)
    for _, name in ipairs(agent.tlsSources or {}) do
        if name:find("^interface:") then return true end
    end
    return false
end

local function Wish(agent)
    local parts = {agent.keyLog or "", table.concat(agent.tlsSources or {}, "\n")}
    for _, server in ipairs(agent.sslServers or {}) do
        parts[#parts + 1] = ("%s %d %d"):format(server.address, server.port, server.hostConfiguration)
    end
    return table.concat(parts, "\n")
end

function inspection.New()
    local self = {}
    local thread, agent, wish
    local slots = {}  -- each {name=, source=, retry=}: the source is open, or is tried again then
    local former = tls.NewCounts()

    local function End(slot)
        if not slot.source then return end
        tls.AddCounts(former, slot.source:Statistics())
        slot.source:Close()
        slot.source = nil
    end

    local function Begin(slot)
        local reason
        slot.source, reason = tls.Open(slot.name, agent)
        if slot.source then return say(slot.name, "inspected") end
        if reason ~= slot.reason then say(slot.name, reason) end
        slot.reason, slot.retry = reason, service.Uptime() + RETRY_SECONDS
    end

    -- Inspects what the agent's part names from now on. A new policy is looked at in any case.
    function self.Change(newAgent)
        agent = newAgent
        if thread then thread:OnSecurityConfigurationChanged() end
        if Wish(agent) == wish then return end
        wish = Wish(agent)
        for _, slot in ipairs(slots) do End(slot) end
        slots = {}
        if not thread and agent.tlsSources and agent.tlsSources[1] then thread = tls.StartService() end
        for i, name in ipairs(agent.tlsSources or {}) do
            slots[i] = {name = name}
            Begin(slots[i])
        end
    end

    local function Look(slot)
        if not slot.source then
            if slot.retry and service.Uptime() >= slot.retry then Begin(slot) end
            return
        end
        local done, reason = slot.source:Wait(0)
        if done == false then return end
        End(slot)
        say(slot.name, reason or "the capture has come to its end")
        slot.retry = reason and service.Uptime() + RETRY_SECONDS
    end

    -- Once a second.
    function self.Look()
        for _, slot in ipairs(slots) do Look(slot) end
    end

    function self.Counts()
        local counts = tls.NewCounts()
        tls.AddCounts(counts, former)
        for _, slot in ipairs(slots) do
            if slot.source then tls.AddCounts(counts, slot.source:Statistics()) end
        end
        return counts
    end

    -- The key service has been told to end; returns when it has.
    function self.Close()
        for _, slot in ipairs(slots) do End(slot) end
        if thread then thread:Join() end
    end

    return self
end

return inspection
