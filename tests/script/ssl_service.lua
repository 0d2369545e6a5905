-- The SSL key service from end to end: requests of the driver in, decrypted secrets out.
local expect = require "expect"
local testing = require "velm.testing"
require "ostrel"
local cases = {}

local captures = arg[1]

local function ReadFile(name)
    local file = assert(io.open(captures .. "/" .. name, "rb"))
    local text = file:read("*a")
    file:close()
    return text
end

local function Bytes(hex)
    return (hex:gsub("%x%x", function(pair) return string.char(tonumber(pair, 16)) end))
end

-- name -> {key=, secret=, encrypted=}, of the captured and hand-made handshakes.
local vectors = {}
for line in ReadFile("premaster-vectors.txt"):gmatch("[^\n]+") do
    local name, key, secret, encrypted = line:match("^([^# |][^|]*)|(.*)|(.*)|(.*)$")
    if name then vectors[name] = {key = key, secret = secret, encrypted = Bytes(encrypted)} end
end

local function Number(value)
    return string.char(value % 256, math.floor(value / 256) % 256,
                       math.floor(value / 65536) % 256, math.floor(value / 16777216) % 256)
end

local function Context(text)
    return text .. ("."):rep(52 - #text)
end

-- Posts an encrypted secret as a TLS 1.2 handshake would bring it.
local function Post(context, configuration, encrypted)
    local data = string.char(math.floor(#encrypted / 256), #encrypted % 256) .. encrypted
    local header = Number(#data) .. Number(configuration) .. Context(context) .. Number(1) ..
                   "\3\3" .. ("\0"):rep(6)
    testing.PostSslRequest(header, data)
end

-- The next response. Waits for it; the limit is far beyond what any machine needs.
local function Response()
    for _ = 1, 60000 do
        local responses = testing.TakeSslResponses()
        if #responses > 0 then
            expect.Equal(1, #responses)
            return responses[1]
        end
        os.execute("sleep 0.01")
    end
    error("no response came")
end

local function Failure(context)
    return Number(0) .. Context(context) .. ("\0"):rep(4)
end

local function Success(context, secret)
    return Number(#secret) .. Context(context) .. secret .. ("\0"):rep(4)
end

local function Policy(keys)
    local hosts, credentials = {}, {}
    for id, key in ipairs(keys) do
        hosts[#hosts + 1] = ('<SSLHostConfiguration id="%d" name="h%d" sslCredentialId="%d"/>')
                            :format(id, id, 100 + id)
        credentials[#credentials + 1] =
            ('<SSLCredential id="%d" name="c%d" credentialType="PEM" identifier="%s/%s"/>')
            :format(100 + id, id, captures, key)
    end
    dom:ConfigSetXml("<SecurityConfiguration><SSLCredentials>" .. table.concat(credentials) ..
                     "</SSLCredentials><SSLHostConfigurations>" .. table.concat(hosts) ..
                     "</SSLHostConfigurations></SecurityConfiguration>")
end

local service = SLB.ostrel.SSLCertThread(dom)

function cases._1_AThreadThatWasNotStartedDoesNotRunAndIsJoinedAtOnce()
    expect.Equal(false, service:IsRunning())
    service:Join()
end

function cases._2_TheServiceStarts()
    Policy({"rsa2048.key.pem", "rsa4096.key.pem"})
    service:Start()
    expect.Equal(true, service:IsRunning())
    expect.Error("was started before", service.Start, service)
end

function cases._3_EachSecretComesBackWithItsContext()
    for name, id in pairs({["made-rsa2048-good"] = 1, ["made-rsa4096-good"] = 2,
                           ["tls-rsa-2048-tls12-aes128gcm#0"] = 1}) do
        Post(name, id, vectors[name].encrypted)
        expect.Equal(Success(name, Bytes(vectors[name].secret)), Response())
    end
end

function cases._4_AWrongPaddingAndAMissingKeyFail()
    Post("padding", 1, vectors["made-rsa2048-random"].encrypted)
    expect.Equal(Failure("padding"), Response())
    Post("key", 3, vectors["made-rsa2048-good"].encrypted)
    expect.Equal(Failure("key"), Response())
end

function cases._5_ANewPolicyCountsOnceTheServiceIsTold()
    Policy({"rsa4096.key.pem", "rsa2048.key.pem"})
    Post("old", 1, vectors["made-rsa2048-good"].encrypted)
    expect.Equal(Success("old", Bytes(vectors["made-rsa2048-good"].secret)), Response())
    service:OnSecurityConfigurationChanged()
    Post("new", 2, vectors["made-rsa2048-good"].encrypted)
    expect.Equal(Success("new", Bytes(vectors["made-rsa2048-good"].secret)), Response())
    Post("gone", 1, vectors["made-rsa2048-good"].encrypted)
    expect.Equal(Failure("gone"), Response())
end

function cases._6_AFailedSendIsToldAndTriedAgainAsAFailure()
    dom:TakeEvents()
    testing.FailSslResponse(1)
    Post("twice", 2, vectors["made-rsa2048-good"].encrypted)
    expect.Equal(Failure("twice"), Response())
    local events = dom:TakeEvents()
    expect.Equal(1, #events)
    expect.Equal(1001, events[1].number)
    expect.Contains("SSL_RESPONSE|5|", events[1].text)
end

function cases._7_AServiceThatTheScriptDropsServesOn()
    local name = "dropped"
    SLB.ostrel.SSLCertThread(dom):Start()  -- beside the first one
    for _ = 1, 3 do collectgarbage() end
    Post(name, 2, vectors["made-rsa2048-good"].encrypted)
    expect.Equal(Success(name, Bytes(vectors["made-rsa2048-good"].secret)), Response())
end

function cases._8_TheMethodsWantAThread()
    local message = "Expected non-null object(SLB.Runnable) as first argument to method call"
    for _, method in ipairs({"Start", "IsRunning", "RequestExit", "Join"}) do
        expect.Error(message, SLB.Runnable[method])
        expect.Error(message, SLB.Runnable[method], dom)
        expect.Error(message, service[method], 5)
    end
    expect.Error("Expected non-null object(SLB.ostrel.SSLCertThread) as first argument to method " ..
                 "call", service.OnSecurityConfigurationChanged, dom)
    expect.Error("Expected (non-const) Object SLB.Dom", SLB.ostrel.SSLCertThread, service)
end

function cases._9_TheServiceEndsWithTheAgentAtOnce()
    local before = os.time()
    dom:RequestExit()
    service:Join()
    expect.Equal(false, service:IsRunning())
    expect.Equal(true, os.time() - before < 12)
    service:Join()
end

expect.Run(cases)
