-- The service's file of agent events: two generations of bounded size.

local service = require "velm.service"
local say = require "velm.say"

local events = {}

local NAME = "/events.jsonl"
local MAX_BYTES = 16 * 2 ^ 20
local INTERVAL_SECONDS = 10

local nextLook = 0

-- Nil, or why it can't be opened.
function events.Open(directory) return service.OpenEvents(directory .. NAME) end

local function Size(path)
    local file = io.open(path, "rb")
    if not file then return 0 end
    local size = file:seek("end") or 0
    file:close()
    return size
end

-- Now and then: a file that has grown too large becomes the former one. Events go to the file that is
-- open until the next one is.
function events.Rotate(directory)
    local now = service.Uptime()
    if now < nextLook then return end
    nextLook = now + INTERVAL_SECONDS
    local path = directory .. NAME
    if Size(path) < MAX_BYTES then return end
    local moved, reason = os.rename(path, path .. ".1")
    reason = not moved and reason or events.Open(directory)
    if reason then say(path, reason) end
end

return events
