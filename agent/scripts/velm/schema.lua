-- Checks the types of a table's values: check(values, types, prefix, open) returns nil, or a text that
-- names the first bad key in the order of their names, what was expected and what was got.
--
-- `types` maps each key to a Lua type, "strings" for an array of strings, or a function that gets the
-- value and returns what was expected instead, if anything. A key that it lacks is an error, unless
-- `open` is true.

local schema = {}

function schema.IsArrayOfStrings(value)
    if type(value) ~= "table" then return false end
    local count = 0
    for key, item in pairs(value) do
        if type(key) ~= "number" or type(item) ~= "string" then return false end
        count = count + 1
    end
    return count == #value
end

local function Expected(value, kind)
    if type(kind) == "function" then return kind(value) end
    if kind == "strings" then
        return not schema.IsArrayOfStrings(value) and "array of strings" or nil
    end
    return type(value) ~= kind and kind or nil
end

local function SortedKeys(values)
    local keys = {}
    for key in pairs(values) do keys[#keys + 1] = key end
    table.sort(keys, function(a, b) return tostring(a) < tostring(b) end)
    return keys
end

local function Check(values, types, prefix, open)
    for _, key in ipairs(SortedKeys(values)) do
        local name = prefix .. tostring(key)
        local kind = types[key]
        if kind then
            local expected = Expected(values[key], kind)
            if expected then
                return ("%s: %s expected, got %s"):format(name, expected, type(values[key]))
            end
        elseif not open then
            return "unknown key " .. name
        end
    end
end

return setmetatable(schema, {__call = function(_, ...) return Check(...) end})
