-- The built-in configuration, made anew at each call: the module's own limits written out, all probe
-- types recognised, none blocking, and this host's interfaces.

local host = require "velm.host"

local FIRST_PROBE_TYPE, LAST_PROBE_TYPE = 0, 4

local function Hostname()
    local text = host.ReadText("/proc/sys/kernel/hostname") or ""
    return text:match("^%S*")
end

local function Probes()
    local map = {}
    for kind = FIRST_PROBE_TYPE, LAST_PROBE_TYPE do
        map[kind] = {blockAttackerSeconds = 0, notifyImmediately = false}
    end
    return map
end

-- Interfaces that share a hardware address, as a bridge and its port may, go by the first of them.
local function AddInterfaces(configuration)
    local byMac, byDriver, byAddress = {}, {}, {}
    for _, interface in ipairs(host.Interfaces()) do
        byDriver[#byDriver + 1] = {id = interface.index, mac = interface.mac}
        byMac[interface.macText] = byMac[interface.macText]
            or {name = interface.name, id = interface.index}
        for _, address in ipairs(interface.addresses) do
            byAddress[address] = {name = interface.name}
        end
    end
    configuration.interfaceMap = byMac
    configuration.driverInterfaceMap = byDriver
    configuration.platformInterfaceMap = byAddress
end

return function()
    local configuration = {
        agentConfiguration = {hostID = 0, hostname = Hostname()},
        packetFilterLog = {
            size = 1024,
            keep = 8,
            cacheSize = 128,
            cacheLifetime = 1800000,
            cacheStaletime = 900000,
        },
        trafficAnalysisConfiguration = {},
        probeConfigurationMap = Probes(),
        packetFilterMap = {},
        payloadFilterMap = {},
    }
    AddInterfaces(configuration)
    return configuration
end
