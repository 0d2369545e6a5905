-- The driver's side of the SSL exchange, as tests see it.
local expect = require "expect"
local testing = require "velm.testing"
local cases = {}

local HEADER = ("\0"):rep(72)

function cases.NothingWasAnsweredYet()
    expect.Equal(0, #testing.TakeSslResponses())
end

function cases.PostTakesAHeaderAndData()
    testing.PostSslRequest(HEADER, "")
    testing.PostSslRequest(HEADER, ("x"):rep(1048576))
end

function cases.PostChecksItsArguments()
    expect.Error("header of 72 bytes expected", testing.PostSslRequest, HEADER .. "x", "")
    expect.Error("string expected", testing.PostSslRequest, HEADER)
    expect.Error("data of at most 1048576 bytes expected", testing.PostSslRequest, HEADER,
                 ("x"):rep(1048577))
end

function cases.FailuresTakeACount()
    testing.FailKdiOpen(0)
    testing.FailSslResponse(0)
    expect.Error("number expected", testing.FailKdiOpen)
    expect.Error("integer from 0 to 4294967295 expected", testing.FailSslResponse, -1)
end

function cases.WithoutAReaderTheQueueFills()
    local posted, problem = 0, nil
    repeat
        local fine
        fine, problem = pcall(testing.PostSslRequest, HEADER, "x")
        posted = posted + (fine and 1 or 0)
    until not fine
    expect.Contains("the queue of SSL requests has no room", problem)
    expect.Equal(true, posted <= 1024)
end

expect.Run(cases)
