-- Sources of TLS handshakes.
local expect = require "expect"
require "ostrel"
local cases = {}

local CAPTURE = "pcap:" .. arg[1] .. "/tls-rsa-2048-tls12-aes128gcm.pcap"
local SERVER = {address = "198.51.100.10", port = 443, hostConfiguration = 7}

local function Wait(source)
    local done, problem
    repeat done, problem = source:Wait(1000) until done ~= false
    return done, problem
end

function cases.ArgumentsAreChecked()
    expect.Error("string expected", kdi.OpenTls)
    expect.Error("table expected", kdi.OpenTls, CAPTURE)
    expect.Error("bad option 'servers' (table expected)", kdi.OpenTls, CAPTURE, {})
    expect.Error("bad server 1 (table expected)", kdi.OpenTls, CAPTURE, {servers = {5}})
    expect.Error("bad option 'address' (string expected, got table)", kdi.OpenTls, CAPTURE,
                 {servers = {{address = {}}}})
    expect.Error("bad server 2 (port: integer from 1 to 65535 expected)", kdi.OpenTls, CAPTURE,
                 {servers = {SERVER, {address = "::1", port = 65536}}})
    expect.Error("bad server 1 (hostConfiguration: integer from -2147483648 to 2147483647 expected)",
                 kdi.OpenTls, CAPTURE, {servers = {{address = "::1", port = 443}}})
    expect.Error("bad option 'keyLog' (string expected, got boolean)", kdi.OpenTls, CAPTURE,
                 {servers = {SERVER}, keyLog = true})
    expect.Error("bad option 'keyLog' (it holds a zero byte)", kdi.OpenTls, CAPTURE,
                 {servers = {SERVER}, keyLog = "keys\0.log"})
    expect.Error("bad option 'answerTimeout' (integer from 0 to 4294967295 expected", kdi.OpenTls,
                 CAPTURE, {servers = {SERVER}, answerTimeout = -1})
end

function cases.WhatCannotBeOpenedGivesNilAndText()
    local source, reason = kdi.OpenTls("pcap:/nonexistent/x", {servers = {SERVER}})
    expect.Equal(nil, source)
    expect.Contains("/nonexistent/x: No such file or directory", reason)
    source, reason = kdi.OpenTls(CAPTURE, {servers = {}})
    expect.Equal(nil, source)
    expect.Equal("no server was named", reason)
end

function cases.WithoutAServiceTheRequestsAreUnanswered()
    local source = assert(kdi.OpenTls(CAPTURE, {servers = {SERVER}, answerTimeout = 20}))
    expect.Equal(true, Wait(source))
    local counts = source:Statistics()
    expect.Equal(1, counts.handshakes)
    expect.Equal(1, counts.rsa)
    expect.Equal(1, counts.unanswered)
    expect.Equal(0, counts.decrypted)
    expect.Equal(nil, next(counts.others))
end

function cases.OtherKeyExchangesAreCountedByName()
    local capture = "pcap:" .. arg[1] .. "/tls-neg-tls13.pcap"
    local source = assert(kdi.OpenTls(capture, {servers = {SERVER}}))
    expect.Equal(true, Wait(source))
    expect.Equal(1, source:Statistics().others["TLS 1.3"])
end

function cases.ClosedSourceIsNamed()
    local source = assert(kdi.OpenTls(CAPTURE, {servers = {SERVER}}))
    source:Close()
    source:Close()
    expect.Error("TLS source already closed", source.Wait, source, 0)
    expect.Error("TLS source already closed", source.Statistics, source)
    expect.Error("kdi_tls_t* expected", source.Wait, kdi.Open("null"), 0)
end

function cases.DroppedSourceEndsWithTheCollector()
    for _ = 1, 20 do assert(kdi.OpenTls(CAPTURE, {servers = {SERVER}})) end
    collectgarbage()
    collectgarbage()
end

expect.Run(cases)
