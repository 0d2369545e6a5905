-- Capture files for the script tests.

local packets = {SYN = 0x02, ACK = 0x10, RST = 0x04, FIN = 0x01}

local function U16(value) return string.char(math.floor(value / 256), value % 256) end
local function U32Little(value)
    local bytes = {}
    for i = 1, 4 do
        bytes[i] = string.char(value % 256)
        value = math.floor(value / 256)
    end
    return table.concat(bytes)
end

local ETHERNET = "\2\0\0\0\0\10" .. "\2\0\0\0\0\102" .. "\8\0"

-- A record with a TCP packet of 40 bytes from IP on. Addresses are four bytes.
function packets.Tcp(seconds, usec, source, sourcePort, destination, destinationPort, flags)
    local ip = "\69\0\0\40\0\1\64\0\64\6\0\0" .. source .. destination
    local tcp = U16(sourcePort) .. U16(destinationPort) .. ("\0"):rep(8) .. "\80"
        .. string.char(flags) .. "\4\0\0\0\0\0"
    local frame = ETHERNET .. ip .. tcp
    return U32Little(seconds) .. U32Little(usec) .. U32Little(#frame) .. U32Little(#frame) .. frame
end

-- Writes a little-endian pcap file of Ethernet frames; returns its path.
function packets.Capture(records)
    local path = os.tmpname()
    local file = assert(io.open(path, "wb"))
    file:write("\212\195\178\161", "\2\0\4\0", ("\0"):rep(8), "\255\255\0\0", "\1\0\0\0")
    file:write(table.concat(records))
    file:close()
    return path
end

return packets
