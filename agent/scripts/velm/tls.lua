-- The secrets of TLS handshakes: the servers in the configuration, the service that decrypts, and the
-- sources that feed it.

local schema = require "velm.schema"
require "ostrel"

local tls = {}

local function IsInteger(low, high)
    return function(value)
        if type(value) ~= "number" or value % 1 ~= 0 or value < low or value > high then
            return ("integer from %.0f to %.0f"):format(low, high)
        end
    end
end

local SERVER_KEYS = {
    address = "string",
    port = IsInteger(1, 65535),
    hostConfiguration = IsInteger(-2147483648, 2147483647),
}

-- Nil, or what is wrong with a configuration's sslServers.
function tls.Problem(servers, prefix)
    if #servers == 0 and next(servers) then return prefix .. ": array of tables expected" end
    for i, server in ipairs(servers) do
        local name = ("%s[%d]"):format(prefix, i)
        if type(server) ~= "table" then return name .. ": table expected, got " .. type(server) end
        local problem = schema(server, SERVER_KEYS, name .. ".")
        if problem then return problem end
        for key in pairs(SERVER_KEYS) do
            if server[key] == nil then return ("%s.%s is missing"):format(name, key) end
        end
    end
end

-- The module's service, running. It ends with the agent.
function tls.StartService()
    local service = SLB.ostrel.SSLCertThread(dom)
    service:Start()
    return service
end

-- A source (see kdi.OpenTls) on the configured servers, or nil and a text.
function tls.Open(source, agent)
    return kdi.OpenTls(source, {servers = agent.sslServers or {}, keyLog = agent.keyLog})
end

-- The counters, but for others, which has a table of counters by the kind of key exchange.
tls.COUNTERS = {
    "connections", "handshakes", "rsa", "decrypted", "failed", "unanswered", "dropped", "resumed",
    "other", "incomplete", "malformed", "renegotiations", "notTls", "gaps", "evicted", "fragments",
    "keyLogFailures",
}

function tls.NewCounts()
    local counts = {others = {}}
    for _, name in ipairs(tls.COUNTERS) do counts[name] = 0 end
    return counts
end

-- Adds a source's statistics.
function tls.AddCounts(counts, statistics)
    for _, name in ipairs(tls.COUNTERS) do counts[name] = counts[name] + statistics[name] end
    for name, count in pairs(statistics.others) do
        counts.others[name] = (counts.others[name] or 0) + count
    end
end

return tls
