-- Whether a text is an IPv4 address in dotted decimal.

return function(text)
    local parts = {text:match("^(%d%d?%d?)%.(%d%d?%d?)%.(%d%d?%d?)%.(%d%d?%d?)$")}
    for _, part in ipairs(parts) do
        if tonumber(part) > 255 then return false end
    end
    return #parts == 4
end
