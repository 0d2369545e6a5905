-- One JSON object as a line: json(name, value, name, value, ...), in that order. Values are numbers,
-- which are finite, booleans, and strings, which are UTF-8.

local ESCAPES = {['"'] = '\\"', ["\\"] = "\\\\", ["\n"] = "\\n", ["\r"] = "\\r", ["\t"] = "\\t"}

local function Escape(character)
    return ESCAPES[character] or ("\\u%04x"):format(character:byte())
end

local function Encode(value)
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
