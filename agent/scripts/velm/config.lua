-- The agent's configuration: a file, or the built-in one.

local host = require "velm.host"
local check = require "velm.schema"
local defaults = require "velm.defaults"
local export = require "velm.export"
local fail = require "velm.fail"
local tls = require "velm.tls"

local config = {}

local DEFAULT_DIRECTORY = "/var/log/velm_agent"
local DEFAULT_NAME = "velm_mpnp"
local DEFAULT_STATE = "/var/lib/velm_agent"

-- A rotated file's number stands where a file name's extension does.
local function LogName(value)
    if type(value) ~= "string" or value == "" or value:find("[./]") then
        return "file name without dot and slash"
    end
end

local function Settings(value)
    if type(value) ~= "table" then return "table" end
    for key, setting in pairs(value) do
        local kind = type(setting)
        if type(key) ~= "string" or kind ~= "string" and kind ~= "number" and kind ~= "boolean" then
            return "table of names with string, number or boolean"
        end
    end
end

-- Sources by their form; the driver library says whether one can be opened.
local SOURCE_FORMS = {"^null$", "^pcap:.", "^nflog:%d+$"}

local TLS_SOURCE_FORMS = {"^interface:.", "^pcap:."}

local function HasForm(name, forms)
    for _, form in ipairs(forms) do
        if name:find(form) then return true end
    end
end

-- Returns a check for an array of texts of these forms, which are told as `words`.
local function Sources(forms, words)
    return function(value)
        if not check.IsArrayOfStrings(value) then return "array of strings" end
        for _, name in ipairs(value) do
            if not HasForm(name, forms) then return "array of " .. words end
        end
    end
end

local MAX_BUFFER = 2 ^ 30

local function Buffer(value)
    if type(value) ~= "number" or value % 1 ~= 0 or value < 0 or value > MAX_BUFFER then
        return ("integer from 0 to %.0f"):format(MAX_BUFFER)
    end
end

local AGENT_KEYS = {
    logDirectory = "string",
    logName = LogName,
    stateDirectory = "string",
    sources = Sources(SOURCE_FORMS, '"nflog:GROUP", "pcap:FILE" and "null"'),
    syslog = "table",
    allow = "strings",
    statisticsFile = "string",
    receiveBuffer = Buffer,
    policyFile = "string",
    tlsSources = Sources(TLS_SOURCE_FORMS, '"interface:NAME" and "pcap:FILE"'),
    sslServers = "table",
    keyLog = "string",
    settings = Settings,
    trace = "strings",
}

local CONFIGURATION_KEYS = {
    agent = "table",
    agentConfiguration = "table",
    packetFilterMap = "table",
    payloadFilterMap = "table",
    interfaceMap = "table",
    driverInterfaceMap = "table",
    platformInterfaceMap = "table",
    packetFilterLog = "table",
    trafficAnalysisConfiguration = "table",
    probeConfigurationMap = "table",
}

local LOG_KEYS = {
    size = "number",
    keep = "number",
    cacheSize = "number",
    cacheLifetime = "number",
    cacheStaletime = "number",
    ignoreIpList = "table",
}

local HOST_KEYS = {hostID = "number", hostname = "string"}

-- What the file leaves out comes from the built-in configuration. These two are filled key by key:
-- a cache size that is missing would turn the cache off.
local FILLED = {"packetFilterLog", "agentConfiguration"}

local function Fill(values, from)
    for key, value in pairs(from) do
        if values[key] == nil then values[key] = value end
    end
end

local function Complete(configuration)
    local builtIn = defaults()
    Fill(configuration, builtIn)
    for _, key in ipairs(FILLED) do Fill(configuration[key], builtIn[key]) end
end

local function SyslogProblem(agent)
    return agent.syslog and export.Problem(agent.syslog, "agent.syslog.")
end

local function TlsProblem(agent)
    return agent.sslServers and tls.Problem(agent.sslServers, "agent.sslServers")
end

local function Problem(configuration)
    return check(configuration, CONFIGURATION_KEYS, "", true)
        or check(configuration.agent or {}, AGENT_KEYS, "agent.")
        or SyslogProblem(configuration.agent or {})
        or TlsProblem(configuration.agent or {})
        or check(configuration.packetFilterLog or {}, LOG_KEYS, "packetFilterLog.", true)
        or check(configuration.agentConfiguration or {}, HOST_KEYS, "agentConfiguration.", true)
end

local function ReadFile(path)
    local configuration, reason = host.LoadTable(path)
    if not configuration then fail(2, reason) end
    local problem = Problem(configuration)
    if problem then fail(2, path, problem) end
    return configuration
end

-- Returns the configuration table, which script calls bring, and the agent's own part of it. `path`
-- is the file; "" stands for the built-in configuration.
function config.Load(path)
    local configuration = path == "" and {} or ReadFile(path)
    local agent = configuration.agent or {}
    configuration.agent = nil
    Complete(configuration)
    agent.logDirectory = agent.logDirectory or DEFAULT_DIRECTORY
    agent.logName = agent.logName or DEFAULT_NAME
    agent.stateDirectory = agent.stateDirectory or DEFAULT_STATE
    return configuration, agent
end

local function LoadPolicy(path)
    local xml, reason = host.ReadText(path)
    if not xml then fail(2, path, reason) end
    local accepted, problem = pcall(dom.ConfigSetXml, dom, xml)
    if not accepted then fail(2, path, problem) end
end

-- Does what the agent's part asks of the process. Comes before the log object is made, which reads
-- its settings then. A policy that is refused leaves all as it was.
function config.Apply(agent)
    if agent.policyFile then LoadPolicy(agent.policyFile) end
    for key, value in pairs(agent.settings or {}) do dom:Set(key, value) end
    for _, component in ipairs(agent.trace or {}) do dom:TraceEnable(component, true) end
    if agent.trace and agent.trace[1] then host.ShowTrace() end
end

local NO_POLICY = "<SecurityConfiguration/>"

-- Puts what the agent's part asks for in the place of what the former one did.
function config.Replace(former, agent)
    config.Apply(agent)
    if former.policyFile and not agent.policyFile then dom:ConfigSetXml(NO_POLICY) end
    local traced = {}
    for _, component in ipairs(agent.trace or {}) do traced[component] = true end
    for _, component in ipairs(former.trace or {}) do
        if not traced[component] then dom:TraceEnable(component, false) end
    end
end

local ENTRY_SIZE, REASON_OFFSET = 180, 0x16
-- A connection's normal end, 10000 as two little-endian bytes.
local CONNECTION_END = "\16\39"

-- The log takes its limits and the analysis's from the configuration that comes with an entry. A
-- connection's end is neither logged nor analysed, so it brings the configuration and changes
-- nothing else.
function config.Bring(log, configuration)
    local rest = ENTRY_SIZE - REASON_OFFSET - #CONNECTION_END
    log:WriteLogData(("\0"):rep(REASON_OFFSET) .. CONNECTION_END .. ("\0"):rep(rest), "",
                     configuration, "")
end

return config
