-- Keys and credentials as scripts see them.
local expect = require "expect"
require "ostrel"
local cases = {}

local captures = arg[1]
local RSAKey = SLB.ostrel.RSAKey

local REASONS = {
    BadIdentifierFormat = 580, IdentifierNotFound = 581, ImproperKeyUsage = 582,
    IncorrectPassphrase = 583, KeyNotFound = 584, UnableToLoadCredentials = 585,
    UnableToOpenContainer = 586, UnableToOpenFile = 587, UnsupportedCredentialType = 588,
}

local function Xml(kind, file, passphrase)
    return ('<SSLCredential id="1" name="n" credentialType="%s" identifier="%s/%s" ' ..
            'passphrase="%s"/>'):format(kind, captures, file, passphrase or "")
end

-- The call fails with these three values.
local function ExpectFailure(code, message, ...)
    local values = table.pack(...)
    expect.Equal(3, values.n)
    expect.Equal(nil, values[1])
    expect.Equal(code, values[2])
    expect.Equal(message, values[3])
end

function cases.AKeyIsOneValueOfTheClass()
    local values = table.pack(RSAKey.Create(Xml("PEM", "rsa2048.key.pem")))
    expect.Equal(1, values.n)
    expect.Equal("userdata", type(values[1]))
    expect.Equal("SLB.ostrel.RSAKey", getmetatable(values[1]).__class)
end

function cases.AFailureTellsItsNumberAndName()
    local function Fails(name, ...) ExpectFailure(REASONS[name], name, RSAKey.Create(Xml(...))) end
    Fails("UnableToOpenFile", "PEM", "none.pem")
    Fails("UnsupportedCredentialType", "pem", "rsa2048.key.pem")
    Fails("KeyNotFound", "PEM", "ec256.key.pem")
    Fails("ImproperKeyUsage", "P12", "rsa2048.clientonly.modern.p12", "correct horse")
    Fails("IncorrectPassphrase", "P12", "rsa2048.modern.p12", "incorrect horse")
    Fails("UnableToLoadCredentials", "PEM", "rsa2048.modern.p12")
end

function cases.TheReasonsAreATableOfNumbers()
    local count = 0
    for name, number in pairs(RSAKey.FailureReason) do
        expect.Equal(REASONS[name], number)
        count = count + 1
    end
    expect.Equal(9, count)
end

function cases.TextThatIsNoCredentialIsRefused()
    for _, xml in ipairs({"", "no XML", "<SSLCredential", "<Other/>", '<SSLCredential id="x"/>',
                          Xml("PEM", "rsa2048.key.pem") .. "<More/>",
                          '<SSLCredential name="\xFF"/>', "\xC3"}) do
        ExpectFailure(400, "XML parsing of <SSLCredential> failed", RSAKey.Create(xml))
    end
end

function cases.TextThatIsNoStringRaises()
    expect.Error("bad argument #1 to 'Create' (string expected, got nil)",
                 function() RSAKey.Create(nil) end)
    expect.Error("bad argument #1 to 'Create' (string expected, got table)",
                 function() RSAKey.Create({}) end)
    expect.Error("string expected", RSAKey.Create)
end

function cases.KeysComeOnlyFromCreate()
    expect.Error("attempt to call", function() return RSAKey() end)
end

function cases.KeysAreCollected()
    local xml = Xml("PEM", "rsa1024.key.pem")
    for _ = 1, 200 do RSAKey.Create(xml) end
    collectgarbage()
end

function cases.ADestructorOfOtherThingsDoesNothing()
    local key = RSAKey.Create(Xml("PEM", "rsa1024.key.pem"))
    local destroy = getmetatable(key).__gc
    for _, thing in ipairs({5, "text", {}, dom}) do destroy(thing) end
    destroy(key)
    destroy(key)  -- it is gone already
end

function cases.ThePlatformHasNoCredentialsWhateverIsAsked()
    for _, arguments in ipairs({{true}, {false}, {}, {{}}, {"text", 5}}) do
        local values = table.pack(SLB.ostrel.GetPlatformCredentials(table.unpack(arguments)))
        expect.Equal(1, values.n)
        expect.Equal("table", type(values[1]))
        expect.Equal(nil, next(values[1]))
    end
end

function cases.OpeningTheModuleAgainChangesNothing()
    local classes = {SLB.ostrel.RSAKey, SLB.ostrel.LogData, SLB.ostrel.SSLCertThread}
    local reasons = RSAKey.FailureReason
    package.loaded.ostrel = nil
    expect.Equal(true, require "ostrel")
    expect.Equal(classes[1], SLB.ostrel.RSAKey)
    expect.Equal(classes[2], SLB.ostrel.LogData)
    expect.Equal(classes[3], SLB.ostrel.SSLCertThread)
    expect.Equal(reasons, SLB.ostrel.RSAKey.FailureReason)
end

function cases.TheServicesClassDerivesFromTheAgentsThreads()
    local bases = getmetatable(SLB.ostrel.SSLCertThread)
    expect.Equal("SLB.Runnable", bases[1])
    expect.Equal("SLB.wx.Thread", bases[2])
    expect.Equal(SLB.Runnable.Start, SLB.ostrel.SSLCertThread.Start)
    expect.Equal(nil, SLB.ostrel.SSLCertThread.NoSuchMethod)
    expect.Equal("table", type(SLB.wx.Thread))
end

expect.Run(cases)
