-- What the module's events mean: which are findings, which tell of lost records, and a finding in
-- words.

local event = {}

local FIRST_PROBE, LAST_PROBE = 7000, 7004
-- Events of the log files: something could not be made, opened, written, listed, removed or moved.
local FIRST_FAILURE, LAST_FAILURE = 6001, 6009

event.KINDS = {"FingerprintScan", "HostOrPortScan", "NullScan", "SynFinScan", "XmasScan"}
local PROTOCOLS = {["6"] = "TCP", ["17"] = "UDP"}

function event.IsFinding(number) return number >= FIRST_PROBE and number <= LAST_PROBE end

function event.IsFailure(number) return number >= FIRST_FAILURE and number <= LAST_FAILURE end

-- The first field of a finding is its kind, the second the address that probed.
function event.Kind(text) return text:match("^[^|]*") end

function event.Source(text) return text:match("^[^|]*|([^|]*)") or "" end

-- A finding in words: kind, address, protocol, block time, and for sweeps the addresses and ports.
function event.Words(text)
    local kind, source, protocol, seconds, rest = text:match("^([^|]*)|([^|]*)|(%d+)|(-?%d+)(.*)$")
    if not kind then return text end
    local words = ("%s from %s (%s)"):format(kind, source, PROTOCOLS[protocol] or protocol)
    local addresses, ports = rest:match("^|(%d+)|(%d+)$")
    if addresses then words = words .. (", %s addresses, %s ports"):format(addresses, ports) end
    if tonumber(seconds) > 0 then return words .. (", blocked for %s seconds"):format(seconds) end
    return words .. ", not blocked"
end

return event
