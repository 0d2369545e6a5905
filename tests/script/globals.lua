-- What a script finds when it starts.
local expect = require "expect"
local cases = {}
local given = {...}

function cases.ArgumentsComeAsTheyStand()
    expect.Equal("globals.lua", arg[0]:match("[^/]*$"))
    expect.Equal(4, #arg)
    expect.Equal(4, #given)
    for i, text in ipairs {"one", "--json", "-h", "two words"} do
        expect.Equal(text, arg[i])
        expect.Equal(text, given[i])
    end
end

function cases.AgentsGlobalsAreThere()
    expect.Equal("userdata", type(dom))
    expect.Equal("function", type(kdi.Open))
    expect.Equal("table", type(SLB.Dom))
end

function cases.ModuleOpensByItsName()
    expect.Equal(true, require "ostrel")
    expect.Equal("table", type(SLB.ostrel.LogData))
end

function cases.HostsInnerModulesAreNotForScripts()
    expect.Error("module 'velm.host' not found", require, "velm.host")
    expect.Error("module 'velm.player' not found", require, "velm.player")
end

function cases.EnvironmentDoesNotChangeWhereModulesAreSought()
    expect.Equal(nil, package.path:find("/from/the/environment", 1, true))
    expect.Equal(nil, package.cpath:find("/from/the/environment", 1, true))
end

expect.Run(cases)
