-- velm_agent check-credential: loads a key as the SSL key service would, and tells why one does not
-- load.

local host = require "velm.host"
local passphrases = require "velm.passphrase"
local fail = require "velm.fail"
require "ostrel"

local RSAKey = SLB.ostrel.RSAKey
local REASON = RSAKey.FailureReason

local NO_PASSPHRASE = "the key is encrypted and no passphrase was given; --passphrase-file names a " ..
                      "file that holds it"

local ESCAPES = {["&"] = "&amp;", ["<"] = "&lt;", [">"] = "&gt;", ['"'] = "&quot;",
                 ["\t"] = "&#9;", ["\n"] = "&#10;", ["\r"] = "&#13;"}

local function Attribute(name, value)
    return (' %s="%s"'):format(name, (value:gsub('[&<>"\t\n\r]', ESCAPES)))
end

-- The policy element that a worker would get for the file.
local function Element(options, passphrase)
    return "<SSLCredential" .. Attribute("credentialType", options.type) ..
           Attribute("identifier", options.file) .. Attribute("passphrase", passphrase) .. "/>"
end

-- What a look at the file tells. Only its marks are looked for.
local function Look(options)
    local text = host.ReadText(options.file) or ""
    local function Has(mark) return text:find(mark, 1, true) ~= nil end
    return {
        pem = Has("-----BEGIN "),
        key = Has("PRIVATE KEY-----"),
        encrypted = Has("BEGIN ENCRYPTED PRIVATE KEY") or Has("Proc-Type: 4,ENCRYPTED"),
        oneLine = not Has("\n"),
        der = text:sub(1, 1) == "0",
        empty = text == "",
    }
end

local function WhyNoPem(look, given)
    if look.empty then return "the file is empty" end
    if look.der then
        return "this is DER, not PEM: for a PKCS#12 container say --type P12; a key alone is " ..
               "converted by openssl pkey -inform DER"
    end
    if not look.pem then return "the file holds no PEM text" end
    if look.oneLine then return "the line ends of the PEM text are missing" end
    if not look.key then return "the file holds a certificate but no private key" end
    if look.encrypted then
        return given and "the passphrase is wrong, or the key is damaged"
               or NO_PASSPHRASE
    end
    return "the key or the certificate in the file is damaged"
end

local function WhyNoP12(look)
    if look.empty then return "the file is empty" end
    if look.pem then return "this is PEM text: say --type PEM" end
    if not look.der then return "the file holds no PKCS#12 container" end
    return "the container is damaged, or is encrypted with a cipher that OpenSSL 3 has retired " ..
           "(RC2-40, as older programs use): read it by openssl pkcs12 -legacy and write it anew"
end

local SENTENCES = {
    [REASON.ImproperKeyUsage] = function()
        return "the certificate beside the key does not allow RSA key exchange of a TLS server: " ..
               "its extended key usage, if there is one, must name serverAuth, and its key " ..
               "usage, if there is one, keyEncipherment"
    end,
    [REASON.IncorrectPassphrase] = function(_, given)
        return given and "the passphrase is wrong"
               or NO_PASSPHRASE
    end,
    [REASON.KeyNotFound] = function()
        return "the container holds no private key, or one that is not RSA; only RSA keys " ..
               "decrypt pre-master secrets"
    end,
    [REASON.UnableToLoadCredentials] = function(options, given)
        local look = Look(options)
        return options.type == "P12" and WhyNoP12(look) or WhyNoPem(look, given)
    end,
    [REASON.UnableToOpenFile] = function(options)
        return host.WhyUnreadable(options.file) or "the file cannot be opened"
    end,
}

-- Nil if the key loads, else the number and the name of the reason.
local function Try(options, passphrase)
    local key, code, name = RSAKey.Create(Element(options, passphrase))
    if key then return nil end
    if not REASON[name] then
        fail(2, options.file, "the file's name or the passphrase holds characters that a policy " ..
             "cannot carry")
    end
    return code, name
end

-- A passphrase might help.
local function MayBeEncrypted(options, code)
    return code == REASON.IncorrectPassphrase or
           code == REASON.UnableToLoadCredentials and options.type == "PEM" and
           Look(options).encrypted
end

-- The passphrase as text, or false if none was given.
local function GivenPassphrase(options)
    if options.passphraseFile == "" then return false end
    local passphrase, reason = passphrases.Read(options.passphraseFile)
    if not passphrase then
        fail(2, options.passphraseFile == "-" and "standard input" or options.passphraseFile,
             reason)
    end
    return passphrase
end

local function Ask(options)
    local passphrase, reason = passphrases.Ask("Passphrase of " .. options.file .. ": ")
    if not passphrase then fail(1, options.file, reason) end
    return passphrase
end

return function(options)
    local given = GivenPassphrase(options)
    local code, name = Try(options, given or "")
    if code and not given and MayBeEncrypted(options, code) and passphrases.CanAsk() then
        given = Ask(options)
        code, name = Try(options, given)
    end
    if not code then
        print(options.file .. ": the key loads")
        return 0
    end
    fail(code == REASON.UnableToOpenFile and 2 or 1, options.file,
         name .. ": " .. SENTENCES[code](options, given and given ~= ""))
end
