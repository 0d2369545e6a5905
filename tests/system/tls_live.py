"""TLS handshakes on a live interface: a real server and a real client in a network namespace.

Run as: python3 FILE VELM_AGENT KEYS."""

import os
import re
import sys

import cli
import namespaces

PATIENCE = 60  # seconds, on the busiest machine

# Watches the interface until so many secrets are decrypted, and prints the counters.
WATCH = """
require "ostrel"
local interface, policy, count, limit = arg[1], arg[2], tonumber(arg[3]), tonumber(arg[4])
dom:ConfigSetXml(policy)
local service = SLB.ostrel.SSLCertThread(dom)
service:Start()
local source = assert(kdi.OpenTls(interface, {keyLog = "keys.log", servers = {
    {address = "127.0.0.1", port = 4433, hostConfiguration = 7},
    {address = "::1", port = 4433, hostConfiguration = 7},
}}))
print("ready")
io.stdout:flush()
local ends = os.time() + limit
repeat
    local done, problem = source:Wait(50)
    if done ~= false then error(problem or "ended") end
until source:Statistics().decrypted >= count or os.time() > ends
local counts = source:Statistics()
for _, name in ipairs {"handshakes", "rsa", "decrypted", "failed", "gaps", "malformed", "lost"} do
    print(name, counts[name])
end
for name, number in pairs(counts.others) do print(name, number) end
source:Close()
"""

CANNOT_OPEN = """
print(kdi.OpenTls("interface:" .. arg[1], {servers = {
    {address = "127.0.0.1", port = 4433, hostConfiguration = 7}}}))
"""


class TlsLive(cli.CliTest):
    keys = None

    def setUp(self):
        reason = namespaces.missing("openssl")
        if reason:
            self.skipTest(reason)
        super().setUp()
        self.host = namespaces.Namespace(self, "t")

    def serve(self, *options):
        server = self.host.start(
            self, "openssl", "s_server", "-accept", "4433", "-rev",
            "-key", os.path.join(self.keys, "rsa2048.key.pem"),
            "-cert", os.path.join(self.keys, "rsa2048.cert.pem"), *options)
        for line in server.stdout:
            if line.startswith(b"ACCEPT"):
                return
        self.fail("the server did not start")

    def connect(self, address, *options):
        """One connection, from the handshake to its end."""
        self.host.run("openssl", "s_client", "-connect", f"{address}:4433",
                      "-keylogfile", self.path("client.log"), *options, input="")

    def watch(self, count):
        policy = ('<SecurityConfiguration><SSLCredentials><SSLCredential id="1" name="c" '
                  f'credentialType="PEM" identifier="{self.keys}/rsa2048.key.pem"/>'
                  '</SSLCredentials><SSLHostConfigurations><SSLHostConfiguration id="7" name="h" '
                  'sslCredentialId="1"/></SSLHostConfigurations></SecurityConfiguration>')
        watch = self.host.start(self, self.agent, "script", self.write("watch.lua", WATCH),
                                "interface:lo", policy, str(count), str(PATIENCE), cwd=self.folder)
        self.assertEqual(watch.stdout.readline(), b"ready\n")
        return watch

    def counts(self, watch):
        out, _ = watch.communicate(timeout=2 * PATIENCE)
        self.assertEqual(watch.returncode, 0)
        pairs = (line.split("\t") for line in out.decode().splitlines())
        return {name: int(value) for name, value in pairs}

    def randoms(self, name, label):
        return re.findall(rf"(?m)^{label} ([0-9a-f]{{64}}) ", self.read(name).decode())

    def test_handshakes_over_both_families_are_decrypted(self):
        self.serve("-tls1_2", "-cipher", "AES128-GCM-SHA256")
        watch = self.watch(3)
        self.connect("127.0.0.1")
        self.connect("[::1]")
        self.connect("127.0.0.1", "-tls1_2")
        counts = self.counts(watch)
        self.assertEqual(counts, {"handshakes": 3, "rsa": 3, "decrypted": 3, "failed": 0, "gaps": 0,
                                  "malformed": 0, "lost": 0})
        randoms = self.randoms("keys.log", "PMS_CLIENT_RANDOM")
        self.assertEqual(len(randoms), 3)
        self.assertEqual(set(randoms), set(self.randoms("client.log", "CLIENT_RANDOM")))

    def test_interface_that_is_not_there_is_named(self):
        result = self.run_agent("script", self.write("open.lua", CANNOT_OPEN), "nonexistent0")
        self.assert_done(result)
        self.assertRegex(result.out, r"^nil\tcannot read interface nonexistent0: \w")

    def test_interface_that_goes_away_ends_the_source(self):
        self.host.run("ip", "link", "add", "v0", "type", "veth", "peer", "name", "v1")
        self.host.run("ip", "link", "set", "v0", "up")
        watch = self.host.start(self, self.agent, "script", self.write("watch.lua", WATCH),
                                "interface:v0", "<SecurityConfiguration/>", "1", str(PATIENCE),
                                cwd=self.folder)
        self.assertEqual(watch.stdout.readline(), b"ready\n")
        self.host.run("ip", "link", "delete", "v0")
        watch.communicate(timeout=2 * PATIENCE)
        self.assertEqual(watch.returncode, 1)


if __name__ == "__main__":
    TlsLive.keys = os.path.abspath(sys.argv.pop())
    cli.main()
