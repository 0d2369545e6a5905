-- velm_agent run: the service.

local host = require "velm.host"
local service = require "velm.service"
local answers = require "velm.answers"
local blocks = require "velm.blocks"
local checkedConfiguration = require "velm.check"
local config = require "velm.config"
local events = require "velm.events"
local fail = require "velm.fail"
local inspection = require "velm.inspection"
local loop = require "velm.loop"
local news = require "velm.news"
local numbers = require "velm.numbers"
local outlet = require "velm.outlet"
local reload = require "velm.reload"
local say = require "velm.say"
require "ostrel"

-- The exit status that says that starting again makes no sense.
local BAD_CONFIGURATION = 78

-- Faults of the configuration that end the service get a status of their own.
local function AsServiceFault(failure)
    if type(failure) == "table" and failure.status == 2 then failure.status = BAD_CONFIGURATION end
    return failure
end

local function Require(reason, what)
    if reason then fail(1, what, reason) end
end

local function OpenState(agent)
    local directory = agent.stateDirectory
    Require(service.TakeState(directory), directory)
    Require(service.OpenSettings(directory .. "/settings.db"), "settings")
    Require(events.Open(directory), "events")
end

-- A line that a former service was writing when it was killed is ended, so that it costs no other.
local function OpenLog(agent)
    local log = SLB.ostrel.LogData(dom)
    log:SetLogFilePath(agent.logDirectory)
    log:SetLogFileName(agent.logName)
    local path = log:GetLogFileFullPath()
    Require(service.EndTornLine(path), path)
    if not log:InitializeLogFile() then
        fail(1, path, host.WhyUnwritable(agent.logDirectory, agent.logName) or "cannot be written")
    end
    if not service.CountLines(path) then fail(1, path, "cannot be read") end
    return log
end

local function OpenSource(name, run, dryRun)
    local live = name:find("^nflog:") and run.agent.allow
    local handle, reason = kdi.Open(name, {
        allow = live and live[1] and table.concat(live, ",") or nil,
        dryRun = dryRun,
        receiveBuffer = run.agent.receiveBuffer,
    })
    if not handle then fail(1, name, reason) end
    return handle
end

-- Blocks go to the first live source, or else to the first. The kernel's set is that one's alone:
-- another would put back what was unblocked.
local function OpenSources(run)
    run.handles = {}
    for i, name in ipairs(run.agent.sources) do
        run.handles[i] = OpenSource(name, run, run.dryRun or run.blocker ~= nil)
        if not run.blocker and name:find("^nflog:") then run.blocker = run.handles[i] end
    end
    run.blocker = run.blocker or run.handles[1]
    run.log:SetKdi(run.blocker)
    service.SetSources(run.handles)
end

-- A list that can't be read costs the blocks of before, not the service.
local function RestoreBlocks(run)
    run.keeper = run.dryRun and blocks.NoKeeper()
        or blocks.Keeper(run.agent.stateDirectory .. "/blocks")
    local list, reason = run.keeper.Load()
    if not list then return say("blocks", "the kept list " .. reason) end
    if not list[1] then return end
    local restored, problem = run.blocker:Restore(list)
    if not restored then return say("blocks", problem) end
    say("blocks", ("%d of before are in force again"):format(#list))
end

local function SaveBlocks(run)
    local reason = run.keeper.Save(run.blocker:Blocks())
    if reason and reason ~= run.saveFault then say("blocks", "cannot be kept: " .. reason) end
    run.saveFault = reason
end

-- What follows once a second, entries or not.
local function Housekeeping(run)
    loop.Maintain(run.log, run.configuration)
    run.inspection.Look()
    news.Tell(run)
    SaveBlocks(run)
    numbers.WriteFile(run)
    events.Rotate(run.agent.stateDirectory)
end

local handlers = {}

function handlers.second(run) Housekeeping(run) end

function handlers.reload(run) reload(run) end

function handlers.request(run, request)
    service.Answer(request.id, answers(run.face, request.line))
end

function handlers.ended() say("source", "a capture has come to its end") end

function handlers.failed(run, reason)
    run.failure = reason
    return true
end

function handlers.stop() return true end

local function Serve(run)
    local finished
    repeat
        local logged, state, detail = loop.Feed(nil, service.Next, run.log, run.configuration,
                                              run.outlet.exporter)
        run.counts.logged = run.counts.logged + logged
        finished = handlers[state](run, detail)
    until finished
end

local function Start(run)
    Require(service.Drop(inspection.NeedsInterface(run.agent)), "privileges")
    OpenState(run.agent)
    config.Apply(run.agent)
    run.log = OpenLog(run.agent)
    config.Bring(run.log, run.configuration)
    run.outlet.Change(run.agent.syslog, run.configuration)
    OpenSources(run)
    RestoreBlocks(run)
    run.inspection.Change(run.agent)
    Require(service.Listen(run.agent.stateDirectory .. "/control"), run.agent.stateDirectory .. "/control")
    run.face = {
        version = host.VERSION,
        blocker = run.blocker,
        Numbers = function() return numbers.Collect(run) end,
        SaveBlocks = function() SaveBlocks(run) end,
    }
    run.words = "logging " .. table.concat(run.agent.sources, ", ")
    say("ready", run.words)
    service.TellReady(run.words)
end

-- Whatever ended the service: what is held back is written, and what is known is kept.
local function Stop(run)
    service.TellStopping()
    dom:RequestExit()
    local flushed = not run.log or run.log:FlushBufferedData(true)
    run.inspection.Close()
    run.nextFile = nil
    if run.face then Housekeeping(run) end
    run.outlet.Close()
    if not flushed then fail(1, run.log:GetLogFileFullPath(), "records were lost") end
end

local function RunAll(run)
    Start(run)
    Serve(run)
end

-- An entry's strings die at once and little else lives, so the collector may wait until garbage is
-- ten times what lives.
local COLLECTOR_PAUSE = 1000

local function Run(options)
    collectgarbage("setpause", COLLECTOR_PAUSE)
    local configuration, agent = checkedConfiguration(options.config)
    local run = {
        path = options.config,
        dryRun = options.dryRun,
        configuration = configuration,
        agent = agent,
        counts = {logged = 0, events = 0, logFailures = 0, findings = {}, reloads = 0, reloadFailures = 0},
        outlet = outlet.New(),
        inspection = inspection.New(),
        began = service.Uptime(),
    }
    local ran, failure = xpcall(RunAll, function(what)
        return type(what) == "table" and what or debug.traceback(what)
    end, run)
    Stop(run)
    if not ran then error(failure, 0) end
    if run.failure then fail(1, "source", run.failure) end
    say("stopped", "what was held back is written")
    return 0
end

local function Check(options)
    local _, agent = checkedConfiguration(options.config)
    config.Apply(agent)
    print("the configuration is fine")
    return 0
end

return function(options)
    if options.check then return Check(options) end
    local ran, status = pcall(Run, options)
    if not ran then error(AsServiceFault(status), 0) end
    return status
end
