-- Configuration of the Velm agent: a Lua file that returns one table.
--
-- The file has no functions to call and no variables of others to read; it may compute with its own.
-- It is checked before anything starts: a wrong type, and an unknown key under `agent`, are errors
-- that name the key. A part that is left out comes from the built-in configuration, which is told
-- with each part. Try it without touching the service:
--
--     velm_agent replay --config /etc/velm/velm.conf.lua some.pcap

local MINUTES = 60 * 1000  -- in milliseconds

-- What an address gets that was found scanning.
local BLOCK = {
    blockAttackerSeconds = 600,  -- how long the driver drops its packets; 0 blocks nobody
    notifyImmediately = false,   -- tell the manager at once, not at the next heartbeat
}

return {
    -- The agent itself.
    agent = {
        -- Where the log files go. Made if missing.
        logDirectory = "/var/log/velm_agent",
        -- The log's name: neither dot nor slash, and no other log's name in the directory may begin
        -- with it. Rotated files are called velm_mpnp.1, velm_mpnp.2 and so on.
        logName = "velm_mpnp",
        -- Where settings.db (settings and retrieval bookmarks), events.jsonl (agent events), the list
        -- of blocks and the control socket live. Belongs to one service at a time.
        stateDirectory = "/var/lib/velm_agent",
        -- Where log entries come from.
        sources = {"nflog:5"},
        -- Addresses and networks that are never blocked, whatever they do. The host's own addresses
        -- and loopback need not be named.
        -- allow = {"192.0.2.0/24"},
        -- Bytes of room in the kernel for entries that wait to be read. More survives longer bursts.
        -- receiveBuffer = 8388608,
        -- Numbers for the textfile collector of Prometheus' node exporter.
        -- statisticsFile = "/var/lib/prometheus/node-exporter/velm.prom",
        -- A syslog receiver for what is logged and for agent events. None without this table; its
        -- other keys have the values shown when they are left out.
        -- syslog = {
        --     target = "tcp://collector.example.net:601",  -- udp://host:port, unix:/dev/log
        --     facility = "local0",
        --     framing = "rfc5424",  -- "local" for /dev/log
        --     family = "cef",       -- or "plain": key=value, as the kernel's own firewall log
        --     format = 2,           -- 0, 1 or 2: the form of the keys, and how much is told
        --     queue = 10000,        -- messages that may wait for the receiver
        -- },
        -- The policy, an XML document with the root SecurityConfiguration.
        -- policyFile = "/etc/velm/policy.xml",
        -- Where TLS handshakes are looked for.
        -- tlsSources = {"interface:eth0"},
        -- Servers whose TLS handshakes are looked into, if their certificate has an RSA key that the
        -- policy names: hostConfiguration is the id of its SSLHostConfiguration element.
        -- sslServers = {
        --     {address = "192.0.2.10", port = 443, hostConfiguration = 1},
        --     {address = "2001:db8::10", port = 443, hostConfiguration = 1},
        -- },
        -- Where decrypted secrets are noted for packet analysers; without it nowhere. Whoever reads
        -- this file can read the traffic: it is made with mode 0600.
        -- keyLog = "/var/lib/velm_agent/keys.log",

        -- Settings by key, stored at each start. These are the scan detection's, with its defaults.
        settings = {
            -- Length of a time bin, and how long a scanner that is not blocked stays known and quiet,
            -- both in milliseconds.
            ["plg.ostrel.analysis.ScanTimeBinMillisec"] = 10000,
            ["plg.ostrel.analysis.ScanningIpsRetentionMsec"] = 300000,
        },
        -- Components whose trace lines go to standard error: "ostrel", "LogScan".
        trace = {},
    },

    -- Who this host is in exported messages. Built in: 0 and the kernel's host name.
    agentConfiguration = {
        hostID = 0,
        -- hostname = "web-1",
    },

    -- The log's files and its cache of repeats. Each key that is left out has the value shown.
    packetFilterLog = {
        size = 1024,                   -- KB at which the current file is rotated
        keep = 8,                      -- files to keep, the current one included
        cacheSize = 128,               -- records held back to count their repeats, at most 1024; 0: none
        cacheLifetime = 30 * MINUTES,  -- a record is written at the latest after this time
        cacheStaletime = 15 * MINUTES, -- and after this time without a repeat
        -- Sources whose packets are not logged: single addresses, ranges and networks.
        -- ignoreIpList = {name = "monitoring", items = "192.0.2.7, 198.51.100.0/24"},
    },

    -- Which flows the search for sweeps looks at. Without a list: all.
    trafficAnalysisConfiguration = {
        -- destIpList = {name = "ours", items = "192.0.2.0/24"},
        -- whitelistIpList = {name = "scanner of our own", items = "192.0.2.66"},
    },

    -- The kinds of reconnaissance that are looked for; one that is left out is not. Built in: all,
    -- none blocking.
    probeConfigurationMap = {
        [0] = BLOCK,  -- fingerprint scan: flags that tell operating systems apart
        [1] = BLOCK,  -- host or port scan: many targets in a short time
        [2] = BLOCK,  -- null scan: TCP without any flag
        [3] = BLOCK,  -- SYN-FIN scan
        [4] = BLOCK,  -- Xmas scan: FIN, PSH and URG
    },

    -- The packet filters and payload filters by number, for exported messages. filterAction: 0 log,
    -- 1 allow, 2 deny, 3 force allow, 4 bypass.
    packetFilterMap = {
        [1] = {name = "Denied by the firewall", filterAction = 2},
    },
    -- {name = , identifier = , severity = , incoming = } by number.
    payloadFilterMap = {},

    -- interfaceMap, driverInterfaceMap and platformInterfaceMap name this host's interfaces and
    -- addresses. Left out, as here, they are read from the host at each start.
}
