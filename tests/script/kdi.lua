-- Driver handles.
local expect = require "expect"
local testing = require "velm.testing"
local packets = require "packets"
local cases = {}

local ATTACKER, HOST = "\192\0\2\66", "\192\0\2\10"
local ENTRY_SIZE = 180

-- A capture with one SYN from the attacker's port 40000 to the host's closed port 23.
local function OneSyn()
    return packets.Capture {packets.Tcp(1700000000, 250, ATTACKER, 40000, HOST, 23, packets.SYN)}
end

local function OpenCapture(path)
    return assert(kdi.Open("pcap:" .. path, {localAddresses = "192.0.2.10/32"}))
end

function cases.UnknownSourceGivesNilAndText()
    local handle, reason = kdi.Open("nowhere:1")
    expect.Equal(nil, handle)
    expect.Contains("nowhere:1", reason)
end

function cases.MissingCaptureIsNamed()
    local handle, reason = kdi.Open("pcap:/nonexistent/x.pcap")
    expect.Equal(nil, handle)
    expect.Contains("/nonexistent/x.pcap", reason)
    expect.Contains("No such file or directory", reason)
end

function cases.OpenChecksItsArguments()
    expect.Error("string expected", kdi.Open)
    expect.Error("string expected", kdi.Open, {})
    expect.Error("table expected", kdi.Open, "null", "x")
    expect.Error("bad option 'allow' (string expected, got table)", kdi.Open, "null", {allow = {}})
    expect.Error("bad option 'dryRun' (boolean expected, got number)", kdi.Open, "null", {dryRun = 1})
    expect.Error("integer from 0 to 4294967295 expected", kdi.Open, "null", {receiveBuffer = -1})
end

function cases.BadOptionIsNamed()
    local path = OneSyn()
    local handle, reason = kdi.Open("pcap:" .. path, {allow = "tcp/http"})
    os.remove(path)
    expect.Equal(nil, handle)
    expect.Contains("tcp/http", reason)
end

function cases.NullSourceTimesOut()
    local handle = kdi.Open("null")
    expect.Equal(1, select("#", handle:NextEntry(0)))
    expect.Equal(nil, (handle:NextEntry(1)))
    handle:Close()
end

function cases.HandleCarriesTheNameOfItsType()
    local handle = kdi.Open("null")
    expect.Equal(debug.getregistry()["kdi_handle_t*"], debug.getmetatable(handle))
    handle:Close()
end

function cases.ClosedHandleIsRefused()
    local handle = kdi.Open("null")
    handle:Close()
    handle:Close()
    expect.Error("kdi handle already closed", handle.NextEntry, handle, 0)
    expect.Error("kdi handle already closed", handle.TakeBlacklist, handle)
    require "ostrel"
    local log = SLB.ostrel.LogData(dom)
    expect.Error("kdi handle already closed", log.SetKdi, log, handle)
end

function cases.MethodsNeedAHandle()
    local handle = kdi.Open("null")
    for _, name in ipairs {"Close", "NextEntry", "TakeBlacklist", "Blocks", "Unblock", "Restore", "Statistics",
                           "TakeMessages"} do
        for _, other in ipairs {{}, 1, "null", io.stdout, dom} do
            expect.Error("kdi handle expected", handle[name], other, 0)
        end
        expect.Error("kdi handle expected", handle[name])
    end
    handle:Close()
end

function cases.TimeoutIsChecked()
    local handle = kdi.Open("null")
    expect.Error("number expected", handle.NextEntry, handle)
    for _, wrong in ipairs {-1, 0.5, 4294967296, 0 / 0} do
        expect.Error("integer from 0 to 4294967295 expected", handle.NextEntry, handle, wrong)
    end
    handle:Close()
end

function cases.EntryComesAsThreeStrings()
    local path = OneSyn()
    local handle = OpenCapture(path)
    local entry, packetData, logData = handle:NextEntry(0)
    expect.Equal(ENTRY_SIZE, #entry)
    expect.Equal("string", type(packetData))
    expect.Equal("string", type(logData))
    expect.Equal("\0\241\83\101" .. "\250\0\0\0", entry:sub(1, 8))  -- 1700000000 s, 250 us
    expect.Equal(ATTACKER .. HOST, entry:sub(0x80 + 1, 0x87 + 1))
    expect.Equal("\156\64\0\23", entry:sub(0x9C + 1, 0x9F + 1))
    expect.Equal(1, select("#", handle:NextEntry(0)))
    expect.Equal(nil, (handle:NextEntry(0)))
    handle:Close()
    os.remove(path)
end

function cases.NoBlocksGiveAnEmptyArray()
    local handle = kdi.Open("null")
    expect.Equal(0, #handle:TakeBlacklist())
    handle:Close()
end

function cases.RestoredBlocksAreListedInTheOrderOfTheirAddresses()
    local handle = kdi.Open("null")
    local list = {{address = "192.0.2.66", seconds = 600}, {address = "192.0.2.7", seconds = 0.5}}
    expect.Equal(true, handle:Restore(list))
    local blocks = handle:Blocks()
    expect.Equal(2, #blocks)
    expect.Equal("192.0.2.7", blocks[1].address)
    expect.Equal("192.0.2.66", blocks[2].address)
    assert(blocks[1].seconds <= 0.5, blocks[1].seconds)
    assert(blocks[2].seconds <= 600 and blocks[2].seconds > 400, blocks[2].seconds)
    expect.Equal(2, handle:Statistics().blocksNow)
    handle:Close()
end

function cases.UnblockTellsWhetherItWasBlocked()
    local handle = kdi.Open("null")
    handle:Restore {{address = "192.0.2.66", seconds = 600}}
    expect.Equal(true, handle:Unblock("192.0.2.66"))
    expect.Equal(0, #handle:Blocks())
    local done, reason = handle:Unblock("192.0.2.66")
    expect.Equal(nil, done)
    expect.Contains("192.0.2.66: not blocked", reason)
    handle:Close()
end

function cases.BlockCallsCheckTheirArguments()
    local handle = kdi.Open("null")
    expect.Error("IPv4 address expected", handle.Unblock, handle, "2001:db8::1")
    expect.Error("IPv4 address expected", handle.Unblock, handle, "192.0.2")
    expect.Error("string expected", handle.Unblock, handle)
    expect.Error("table expected", handle.Restore, handle, "192.0.2.66")
    expect.Error("block 1: table expected", handle.Restore, handle, {"192.0.2.66"})
    expect.Error("block 1: address: IPv4 address expected", handle.Restore, handle, {{seconds = 1}})
    for _, wrong in ipairs {0, -1, 0 / 0, 4294968, "x"} do
        expect.Error("block 2: seconds: number above 0 and up to 4294967 expected", handle.Restore, handle,
                     {{address = "192.0.2.1", seconds = 1}, {address = "192.0.2.2", seconds = wrong}})
    end
    expect.Equal(0, #handle:Blocks())
    handle:Close()
end

function cases.ReplayedCaptureListsItsBlocks()
    local path = OneSyn()
    local handle = OpenCapture(path)
    handle:Restore {{address = "192.0.2.66", seconds = 600}}
    expect.Equal(nil, (handle:NextEntry(0)))
    expect.Equal(1, handle:Statistics().dropped)
    expect.Equal(600, handle:Blocks()[1].seconds)
    handle:Close()
    os.remove(path)
end

function cases.SourceWithoutMessagesHasNone()
    local handle = kdi.Open("null")
    expect.Equal(0, #handle:TakeMessages())
    handle:Close()
end

function cases.CollectedHandleIsClosed()
    for _ = 1, 100 do assert(kdi.Open("null")) end
    collectgarbage()
    collectgarbage()
end

function cases.FailBlacklistChecksItsArgument()
    expect.Error("number expected", testing.FailBlacklist)
    expect.Error("number expected", testing.FailBlacklist, "x")
    expect.Error("error number", testing.FailBlacklist, -1)
    testing.FailBlacklist(0)
end

expect.Run(cases)
