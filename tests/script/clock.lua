-- The clock that tests move, seen through the record cache: a record leaves it 60 seconds after it
-- came, the shortest lifetime that there is.
local expect = require "expect"
local testing = require "velm.testing"
require "ostrel"
local cases = {}

local CONFIGURATION = {
    packetFilterLog = {size = 1024, keep = 8, cacheSize = 10, cacheLifetime = 60000,
                       cacheStaletime = 60000},
    trafficAnalysisConfiguration = {},
    probeConfigurationMap = {},
}
local directory = os.tmpname()
os.remove(directory)

local function NewLog(name)
    local log = SLB.ostrel.LogData(dom)
    log:SetLogFilePath(directory)
    log:SetLogFileName(name)
    return log
end

local function Lines(name)
    local file = io.open(directory .. "/" .. name)
    local text = file and file:read("*a") or ""
    if file then file:close() end
    return select(2, text:gsub("\n", "\n"))
end

local function Write(log)
    expect.Equal(true, log:WriteLogData(("\0"):rep(180), "", CONFIGURATION, ""))
end

local function Remove(name) os.remove(directory .. "/" .. name) end

function cases.RecordStaysUntilTheClockIsMovedFarEnough()
    testing.SetTickCount(1000)
    local log = NewLog("moved")
    Write(log)
    testing.AdvanceTicks(59999)
    log:FlushBufferedData(false)
    expect.Equal(0, Lines("moved"))
    testing.AdvanceTicks(1)
    log:FlushBufferedData(false)
    expect.Equal(1, Lines("moved"))
    Remove("moved")
end

function cases.ClockMayWrap()
    testing.SetTickCount(4294967295)
    local log = NewLog("wrapped")
    Write(log)
    testing.SetTickCount(59998)
    log:FlushBufferedData(false)
    expect.Equal(0, Lines("wrapped"))
    testing.SetTickCount(59999)
    log:FlushBufferedData(false)
    expect.Equal(1, Lines("wrapped"))
    Remove("wrapped")
end

function cases.SystemClockComesBack()
    testing.SetTickCount(0)
    testing.UseSystemClock()
    local log = NewLog("system")
    Write(log)
    testing.AdvanceTicks(60000)
    log:FlushBufferedData(false)
    expect.Equal(1, Lines("system"))
    testing.UseSystemClock()
    Remove("system")
end

function cases.WrongNumbersAreRefused()
    for _, move in ipairs {testing.SetTickCount, testing.AdvanceTicks} do
        expect.Error("number expected", move)
        expect.Error("number expected", move, {})
        expect.Error("integer from 0 to 4294967295 expected", move, -1)
        expect.Error("integer from 0 to 4294967295 expected", move, 1.5)
        expect.Error("integer from 0 to 4294967295 expected", move, 4294967296)
    end
end

expect.Run(cases)
