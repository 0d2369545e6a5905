-- What the script tests say.

local expect = {}

local function Show(value)
    return type(value) == "string" and ("%q"):format(value) or tostring(value)
end

function expect.Equal(expected, got)
    if expected ~= got then
        error(("expected %s, got %s"):format(Show(expected), Show(got)), 2)
    end
end

-- `text` holds `part`, which is no pattern.
function expect.Contains(part, text)
    if type(text) ~= "string" or not text:find(part, 1, true) then
        error(("expected a text with %s, got %s"):format(Show(part), Show(text)), 2)
    end
end

-- The call raises an error whose text holds `part`.
function expect.Error(part, action, ...)
    local fine, problem = pcall(action, ...)
    if fine then error("expected an error with " .. Show(part), 2) end
    if not tostring(problem):find(part, 1, true) then
        error(("expected an error with %s, got %s"):format(Show(part), Show(problem)), 2)
    end
end

-- Runs each function of the table and tells those that fail; ends the process with the outcome.
function expect.Run(cases)
    local failed, names = 0, {}
    for name in pairs(cases) do names[#names + 1] = name end
    table.sort(names)
    for _, name in ipairs(names) do
        local fine, problem = xpcall(cases[name], debug.traceback)
        if not fine then
            failed = failed + 1
            print("FAILED " .. name .. ": " .. tostring(problem))
        end
    end
    print(("%d cases, %d failed"):format(#names, failed))
    os.exit(failed == 0 and #names > 0)
end

return expect
