-- The process's "SLB.Dom" object.
local expect = require "expect"
local cases = {}

function cases.SettingsAreText()
    dom:Set("text", "a\0b")
    dom:Set("whole", 42)
    dom:Set("negative", -7)
    dom:Set("large", 1763069729000500)
    dom:Set("fraction", 0.8)
    dom:Set("yes", true)
    dom:Set("no", false)
    expect.Equal("a\0b", dom:Get("text"))
    expect.Equal("42", dom:Get("whole"))
    expect.Equal("-7", dom:Get("negative"))
    expect.Equal("1763069729000500", dom:Get("large"))
    expect.Equal("0.8", dom:Get("fraction"))
    expect.Equal("true", dom:Get("yes"))
    expect.Equal("false", dom:Get("no"))
end

function cases.AbsentSettingIsEmpty()
    expect.Equal("", dom:Get("nobody.set.this"))
end

function cases.SettingIsReplaced()
    dom:Set("twice", 1)
    dom:Set("twice", "two")
    expect.Equal("two", dom:Get("twice"))
end

function cases.WrongSettingSaysWhatWasExpected()
    expect.Error("string, number or boolean expected", dom.Set, dom, "key", {})
    expect.Error("string, number or boolean expected", dom.Set, dom, "key", nil)
    expect.Error("finite number expected", dom.Set, dom, "key", 0 / 0)
    expect.Error("finite number expected", dom.Set, dom, "key", math.huge)
    expect.Error("string expected", dom.Set, dom, nil, 1)
    expect.Error("string expected", dom.Get, dom)
    expect.Error("string expected", dom.Get, dom, {})
    expect.Equal("", dom:Get("key"))
end

function cases.MethodsNeedTheObject()
    for _, name in ipairs {"Get", "Set", "ConfigSetXml", "ConditionRaise", "ConditionQuery",
                           "TakeEvents", "TraceEnable", "TakeTrace", "TakeLog", "RequestExit"} do
        for _, other in ipairs {{}, "dom", io.stdout} do
            expect.Error("Expected non-null object(SLB.Dom) as first argument to method call",
                         dom[name], other, "a", "b")
        end
        expect.Error("Expected non-null object(SLB.Dom)", dom[name])
    end
end

function cases.ClassIsWhereScriptsLookForIt()
    expect.Equal("table", type(SLB.Dom))
    expect.Equal(SLB.Dom.Get, dom.Get)
    expect.Equal("SLB.Dom", debug.getmetatable(dom).__class)
    expect.Equal(debug.getmetatable(dom), debug.getregistry()["SLB.Dom"])
    expect.Equal(nil, getmetatable(SLB.Dom).__call)
end

function cases.ConditionChangesWhenRaised()
    local before = dom:ConditionQuery("test.condition")
    expect.Equal("number", type(before))
    expect.Equal(before, dom:ConditionQuery("test.condition"))
    dom:ConditionRaise("test.condition")
    local after = dom:ConditionQuery("test.condition")
    expect.Equal(false, before == after)
    dom:ConditionRaise("test.other")
    expect.Equal(after, dom:ConditionQuery("test.condition"))
    expect.Error("string expected", dom.ConditionRaise, dom)
    expect.Error("string expected", dom.ConditionQuery, dom, {})
end

function cases.PolicyIsReplacedOrRefused()
    dom:ConfigSetXml("<SecurityConfiguration/>")
    dom:ConfigSetXml("<?xml version=\"1.0\"?><SecurityConfiguration></SecurityConfiguration>")
    expect.Error("policy refused: ", dom.ConfigSetXml, dom, "<SecurityConfiguration>")
    expect.Error("policy refused: ", dom.ConfigSetXml, dom, "<Other/>")
    expect.Error("policy refused: ", dom.ConfigSetXml, dom, "")
    expect.Error("string expected", dom.ConfigSetXml, dom)
end

function cases.TraceIsOffUntilEnabled()
    require "ostrel"
    local log = SLB.ostrel.LogData(dom)
    dom:TakeTrace()
    log:FlushBufferedData(false)
    expect.Equal(0, #dom:TakeTrace())
    dom:TraceEnable("ostrel", true)
    expect.Error("kdi handle expected", log.SetKdi, log, 1)
    local lines = dom:TakeTrace()
    dom:TraceEnable("ostrel", false)
    expect.Equal("ostrel", lines[1].component)
    expect.Equal("SetKdi called", lines[1].message)
    expect.Equal("kdi handle expected", lines[2].message)
    expect.Equal(0, #dom:TakeTrace())
    expect.Error("kdi handle expected", log.SetKdi, log, 1)
    expect.Equal(0, #dom:TakeTrace())
end

function cases.TraceEnableChecksItsArguments()
    expect.Error("string expected", dom.TraceEnable, dom, nil, true)
    expect.Error("boolean expected", dom.TraceEnable, dom, "ostrel")
    expect.Error("boolean expected", dom.TraceEnable, dom, "ostrel", 1)
    expect.Error("UTF-8 text expected", dom.TraceEnable, dom, "\255", true)
end

function cases.EventsAreTakenOnce()
    require "ostrel"
    dom:TakeEvents()
    local log = SLB.ostrel.LogData(dom)
    log:SetLogFilePath("/proc/nowhere")
    expect.Equal(false, log:InitializeLogFile())
    local events = dom:TakeEvents()
    expect.Equal(1, #events)
    expect.Equal(6003, events[1].number)
    expect.Equal("/proc/nowhere", events[1].text)
    expect.Equal(0, #dom:TakeEvents())
end

function cases.LogLinesAreTakenOnce()
    require "ostrel"
    dom:TakeLog()
    dom:Set("plg.ostrel.analysis.IgnoreTcpFlags", "300")
    SLB.ostrel.LogData(dom)
    dom:Set("plg.ostrel.analysis.IgnoreTcpFlags", "")
    local lines = dom:TakeLog()
    expect.Equal(1, #lines)
    expect.Equal("warning", lines[1].level)
    expect.Equal("IgnoreTcpFlags value 300 is out of range - ignoring it.", lines[1].text)
    expect.Equal(0, #dom:TakeLog())
end

expect.Run(cases)
