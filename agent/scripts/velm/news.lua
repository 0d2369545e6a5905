-- What has happened since the last call, told to the administrator and counted: agent events,
-- blocks, and what the sources have to say.

local event = require "velm.event"
local say = require "velm.say"

local news = {}

local function Count(counts, number, text)
    counts.events = counts.events + 1
    if event.IsFailure(number) then counts.logFailures = counts.logFailures + 1 end
    if not event.IsFinding(number) then return end
    local kind = event.Kind(text)
    counts.findings[kind] = (counts.findings[kind] or 0) + 1
end

local function TellEvents(run)
    for _, told in ipairs(dom:TakeEvents()) do
        Count(run.counts, told.number, told.text)
        run.outlet.Event(told.number, told.text)
        local form = event.IsFinding(told.number) and "finding %d" or "event %d"
        say(form:format(told.number), event.Words(told.text))
    end
end

-- Block records are the driver's, and the service's numbers come from there; the findings tell who
-- was blocked.
local function ForgetBlockRecords(handle) handle:TakeBlacklist() end

function news.Tell(run)
    TellEvents(run)
    for i, handle in ipairs(run.handles or {}) do
        ForgetBlockRecords(handle)
        for _, text in ipairs(handle:TakeMessages()) do say(run.agent.sources[i], text) end
    end
end

return news
