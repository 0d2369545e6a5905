-- One JSON object as a line: json(name, value, name, value, ...), in that order. Values are numbers,
-- which are finite, booleans, strings, which are UTF-8, and tables of these by name, which become
-- objects.

local ESCAPES = {['"'] = '\\"', ["\\"] = "\\\\", ["\n"] = "\\n", ["\r"] = "\\r", ["\t"] = "\\t"}

local function Escape(character)
    return ESCAPES[character] or ("\\u%04x"):format(character:byte())
end

local Encode

-- By name, so that equal tables give equal lines.
local function EncodeTable(values)
    local names, parts = {}, {}
    for name in pairs(values) do names[#names + 1] = name end
    table.sort(names)
    for i, name in ipairs(names) do parts[i] = Encode(name) .. ":" .. Encode(values[name]) end
    return "{" .. table.concat(parts, ",") .. "}"
end

function Encode(value)
    if type(value) == "table" then return EncodeTable(value) end
    if type(value) == "boolean" then return tostring(value) end
    if type(value) == "number" then
        return value % 1 == 0 and ("%.0f"):format(value) or ("%.6f"):format(value)
    end
    return '"' .. value:gsub('[%c"\\]', Escape) .. '"'
end

return function(...)
    local parts = {}
    for i = 1, select("#", ...), 2 do
        local name, value = select(i, ...)
        parts[#parts + 1] = Encode(name) .. ":" .. Encode(value)
    end
    return "{" .. table.concat(parts, ",") .. "}"
end
