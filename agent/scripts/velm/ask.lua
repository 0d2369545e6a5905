-- velm_agent status, blocks and unblock: asks the running service.

local host = require "velm.host"
local config = require "velm.config"
local IsAddress = require "velm.address"
local fail = require "velm.fail"

-- The lines of the answer; the first says whether the request was understood.
local function Ask(socket, line)
    local answer, reason = host.Ask(socket, line)
    if not answer then fail(1, socket, reason) end
    local lines = {}
    for text in answer:gmatch("[^\n]+") do lines[#lines + 1] = text end
    local head = host.ParseJson(lines[1] or "")
    if type(head) ~= "table" then fail(1, socket, "the answer is no JSON") end
    if not head.ok then fail(1, line, tostring(head.error)) end
    return head, lines
end

local function PrintLines(lines, first)
    for i = first, #lines do print(lines[i]) end
end

local show = {}

-- In the order in which the service tells them.
function show.status(_, lines, asJson)
    if asJson then return PrintLines(lines, 1) end
    local values = host.ParseJson(lines[1])
    for name in lines[1]:gmatch('"([%w_]+)":') do
        if name ~= "ok" then print(("%-24s %s"):format(name, tostring(values[name]))) end
    end
end

function show.blocks(head, lines, asJson)
    if #lines - 1 ~= head.count then fail(1, "blocks", "the service broke off its answer") end
    if asJson then return PrintLines(lines, 2) end
    for i = 2, #lines do
        local block = host.ParseJson(lines[i])
        print(("%-15s %.0f"):format(block.address, block.seconds))
    end
end

function show.unblock(head)
    print("unblocked " .. head.address)
end

return function(options)
    local _, agent = config.Load(options.config)
    local line = options.request
    if options.argument ~= "" then
        if not IsAddress(options.argument) then fail(2, options.argument, "is no IPv4 address") end
        line = line .. " " .. options.argument
    end
    local head, lines = Ask(agent.stateDirectory .. "/control", line)
    show[options.request](head, lines, options.json)
    return 0
end
