"""velm_agent check-credential: keys that load, and the reasons of those that do not."""

import os
import pty
import select
import termios
import time

import cli

KEYS = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "captures", "tls")
PASSPHRASE = "correct horse"

# File, and what comes of it with the right passphrase: "" if the key loads, else the reason.
OUTCOMES = {
    "rsa1024.key.pem": "",
    "rsa2048.key.pem": "",
    "rsa2048.key.trad.pem": "",
    "rsa4096.key.pem": "",
    "rsa2048.key.crlf.pem": "",
    "rsa2048.key.withtext.pem": "",
    "rsa2048.key+cert.pem": "",
    "rsa2048.cert+enckey.pem": "",
    "rsa2048.key.trad.aes256.enc.pem": "",
    "rsa2048.key.trad.des3.enc.pem": "",
    "rsa2048.key.p8.aes256.enc.pem": "",
    "rsa2048.key.p8.scrypt.enc.pem": "",
    "rsa2048.modern.p12": "",
    "rsa4096.modern.p12": "",
    "chain.modern.p12": "",
    "rsa2048.legacy.p12": "UnableToLoadCredentials: the container is damaged, or is encrypted with",
    "rsa2048.emptypass.p12": "IncorrectPassphrase: the passphrase is wrong",
    "rsa2048.certonly.p12": "KeyNotFound: ",
    "rsa2048.clientonly.modern.p12": "ImproperKeyUsage: ",
    "rsa2048.clientonly.cert.pem": "ImproperKeyUsage: ",
    "ec256.key.pem": "KeyNotFound: ",
    "ed25519.key.pem": "KeyNotFound: ",
    "rsa2048.cert.pem": "UnableToLoadCredentials: the file holds a certificate but no private key",
    "rsa2048.key.p8.der": "UnableToLoadCredentials: this is DER, not PEM",
    "rsa2048.key.joined.txt": "UnableToLoadCredentials: the line ends of the PEM text are missing",
    "rsa2048.key.truncated.pem": "UnableToLoadCredentials: the key or the certificate",
    "rsa2048.truncated.p12": "UnableToLoadCredentials: the container is damaged",
    "empty.pem": "UnableToLoadCredentials: the file is empty",
}


def type_of(name):
    return "P12" if name.endswith(".p12") else "PEM"


class Credential(cli.CliTest):
    def check(self, name, *options, kind=None):
        return self.run_agent("check-credential", "--type", kind or type_of(name),
                              os.path.join(KEYS, name), *options)

    def passphrase_file(self, text=PASSPHRASE + "\n"):
        path = self.write("passphrase", text)
        os.chmod(path, 0o600)
        return ["--passphrase-file", path]

    def assert_outcome(self, result, path, reason):
        if reason:
            self.assertEqual(result.status, 1, result)
            self.assertIn(f"velm_agent: {path}: {reason}", result.err)
            self.assertEqual(result.out, "")
        else:
            self.assert_done(result)
            self.assertEqual(result.out, f"{path}: the key loads\n")
            self.assertEqual(result.err, "")

    def test_each_kind_of_container(self):
        options = self.passphrase_file()
        for name, reason in OUTCOMES.items():
            with self.subTest(name):
                self.assert_outcome(self.check(name, *options), os.path.join(KEYS, name), reason)

    def test_a_wrong_passphrase(self):
        options = self.passphrase_file("wrong\n")
        for name, reason in (
                ("rsa2048.modern.p12", "IncorrectPassphrase: the passphrase is wrong"),
                ("rsa2048.key.trad.aes256.enc.pem",
                 "IncorrectPassphrase: the passphrase is wrong"),
                ("rsa2048.key.p8.aes256.enc.pem",
                 "UnableToLoadCredentials: the passphrase is wrong, or the key is damaged")):
            self.assert_outcome(self.check(name, *options), os.path.join(KEYS, name), reason)

    def test_without_a_terminal_nothing_is_asked(self):
        for name in ("rsa2048.modern.p12", "rsa2048.key.p8.aes256.enc.pem"):
            result = self.check(name)
            self.assertEqual(result.status, 1)
            self.assertIn("no passphrase was given; --passphrase-file names a file", result.err)

    def test_a_key_in_the_clear_needs_no_passphrase(self):
        self.assert_done(self.check("rsa2048.key.pem"))
        self.assert_done(self.check("rsa2048.emptypass.p12"))

    def test_only_the_first_line_is_the_passphrase(self):
        self.assert_done(self.check("rsa2048.modern.p12",
                                    *self.passphrase_file(PASSPHRASE + "\nmore\n")))
        self.assert_done(self.check("rsa2048.modern.p12", *self.passphrase_file(PASSPHRASE)))

    def test_characters_that_markup_uses(self):
        options = self.passphrase_file("<\"&'>\t|%s\n")
        self.assertIn("IncorrectPassphrase", self.check("rsa2048.modern.p12", *options).err)

    def test_characters_that_a_policy_cannot_carry(self):
        for text in ("\x01\n", b"\xff\n"):
            result = self.check("rsa2048.modern.p12", *self.passphrase_file(text))
            self.assertEqual(result.status, 2)
            self.assertIn("characters that a policy cannot carry", result.err)

    def test_a_passphrase_that_others_can_read_is_told(self):
        options = self.passphrase_file()
        os.chmod(options[1], 0o644)
        result = self.check("rsa2048.modern.p12", *options)
        self.assert_done(result)
        self.assertIn("other users can read the passphrase", result.err)

    def test_a_passphrase_file_that_cannot_be_read(self):
        result = self.check("rsa2048.modern.p12", "--passphrase-file", self.path("none"))
        self.assert_refused(result, "none: No such file or directory")
        result = self.check("rsa2048.modern.p12", *self.passphrase_file("x" * 1024 + "\n"))
        self.assert_refused(result, "longer than a passphrase may be")

    def test_the_wrong_type(self):
        self.assertIn("this is PEM text: say --type PEM",
                      self.check("rsa2048.key.pem", kind="P12").err)
        self.assertIn("say --type P12", self.check("rsa2048.modern.p12", kind="PEM").err)

    def test_a_missing_file(self):
        result = self.check("none.pem")
        self.assert_refused(result, "UnableToOpenFile: No such file or directory")

    def test_wrong_usage(self):
        self.assert_refused(self.run_agent("check-credential", "x.pem"), "--type is required")
        self.assert_refused(self.run_agent("check-credential", "--type", "PEM"),
                            "FILE is required")
        self.assert_refused(self.run_agent("check-credential", "--type", "pem", "x"), "--type")

    def test_secrets_stand_in_no_message_or_trace(self):
        wrong = "a secret that is wrong"
        options = self.passphrase_file(wrong + "\n")
        for name in ("rsa2048.modern.p12", "rsa2048.key.trad.aes256.enc.pem"):
            result = self.check(name, *options, "--trace", "velm.ostrel.RSAKey,velm.core,ostrel")
            self.assertIn("CRSAOpenSSLKey::Create() - ", result.err)
            self.assertNotIn(wrong, result.err + result.out)

    @staticmethod
    def echoes(terminal):
        return bool(termios.tcgetattr(terminal)[3] & termios.ECHO)

    def at_terminal(self, name, answer):
        """Runs the command at a terminal of its own and gives the exit status and what it shows."""
        child, terminal = pty.fork()
        if child == 0:
            os.execv(self.agent, [self.agent, "check-credential", "--type", type_of(name),
                                  os.path.join(KEYS, name)])
        shown = b""
        end = time.monotonic() + 100
        while time.monotonic() < end:
            if select.select([terminal], [], [], 0.01)[0]:
                try:
                    shown += os.read(terminal, 4096)
                except OSError:  # the other end is closed
                    break
            # The question stands there a moment before the echo is off.
            elif answer is not None and shown.endswith(b": ") and not self.echoes(terminal):
                os.write(terminal, answer)
                answer = None
        _, status = os.waitpid(child, 0)
        os.close(terminal)
        return os.waitstatus_to_exitcode(status), shown.decode()

    def test_the_passphrase_is_asked_for_without_echo(self):
        for name in ("rsa2048.modern.p12", "rsa2048.key.p8.aes256.enc.pem"):
            status, shown = self.at_terminal(name, PASSPHRASE.encode() + b"\n")
            self.assertEqual(status, 0, shown)
            self.assertIn(f"Passphrase of {os.path.join(KEYS, name)}: ", shown)
            self.assertIn("the key loads", shown)
            self.assertNotIn(PASSPHRASE, shown)

    def test_a_wrong_answer_at_the_terminal(self):
        status, shown = self.at_terminal("rsa2048.modern.p12", b"wrong\n")
        self.assertEqual(status, 1, shown)
        self.assertIn("IncorrectPassphrase: the passphrase is wrong", shown)

    def test_at_a_terminal_a_key_in_the_clear_asks_nothing(self):
        status, shown = self.at_terminal("rsa2048.key.pem", None)
        self.assertEqual(status, 0, shown)
        self.assertNotIn("Passphrase", shown)


if __name__ == "__main__":
    cli.main()
