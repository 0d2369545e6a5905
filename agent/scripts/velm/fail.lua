-- Ends a command of the program with a message and an exit status: raise(status, what, why).

local Failure = {
    __tostring = function(failure)
        return failure.why == "" and failure.what or failure.what .. ": " .. failure.why
    end,
}

return function(status, what, why)
    error(setmetatable({status = status, what = what, why = why or ""}, Failure), 0)
end
