"""Wrong operator files of every kind get one clear line."""

import json
import tempfile
import unittest
from pathlib import Path

from support import EXAMPLE, make_operator, run
import operator_file

#: Member, values that are refused, and what is told of each.
WRONG = [
    ("colour\n", ["blue"], r'there is no member "colour\\n"'),
    ("productName", ["Sign", {"en": "Sign"}], r"must be an object with the texts \"en\" and \"es\""),
    ("productName", [{"en": "x" * 46, "es": "y"}], r"is 46 characters long, at most 45"),
    ("productName", [{"en": "Sign $NAME$", "es": "y"}], r"must be without \$"),
    ("summary", [{"en": "two\nlines", "es": "y"}, {"en": "x", "es": "lone \ud800"}], r"must be one line of characters that are seen"),
    ("hostName", ["Org.Example", "example"], r"must be a name such as org\.example\.signing"),
    ("package", ["my package", "x"], r"must be a package name"),
    ("version", ["1.2-rc1", "1.70000", "0.0", 1], r"must be one to four numbers up to 65535"),
    ("maintainer", ["nobody", "A, B <a@b.test>"], r"must be in the form"),
    ("licence", ["my own terms!"], r"must be a licence by its SPDX name"),
    ("copyright", ["", " 2026", None], r"must be a text"),
    ("sites", [[], "https://a.test/*", ["https://a.test/*"] * 2], r"must be a list of different texts, at least one"),
    ("sites", [["http://sign.example.test/*"], ["https://*/*"], ["http://localhost.evil.test/*"], ["https://a.test/\"*"]], r"is not a match pattern"),
    ("supportAddress", ["javascript:alert(1)"], r"must be an address that begins with https:// or mailto:"),
    ("installPage", ["http://example.test/", "https://a.test/<b>"], r"must be an address that begins with https://"),
    ("updateUrl", ["https://example.test/x", "https://example.test/?/"], r"must end with a slash"),
    ("chromiumKey", ["not base64", "MA=="], r"must be the base64 text of a public key"),
    ("chromiumIds", [["xyz"]], r"must be 32 letters from a to p"),
    ("firefoxId", ["nothing"], r"must be in the form"),
    ("pkcs11Module", ["libcard.so", "/opt/a card.so"], r"must be the absolute path"),
    ("domainsPublicKey", ["absent.pem"], r"names .*/absent\.pem: No such file"),
    ("domainsPublicKey", ["private.pem", "spki.pem", "icon.png"], r"names .*, which is not a public RSA key of 1024 bits"),
    ("icon", ["operator.json"], r"names .* not a PNG picture of 128 by 128"),
    ("pinEntry", ["window"], r'must be "extension" or "page"'),
    ("oneConsentForBatch", ["true", 1], r"must be true or false"),
]


class Reader(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.folder = make_operator(Path(cls.enterClassContext(tempfile.TemporaryDirectory()), "operator"))
        # The other form of a public key, which OpenSSL takes where the right one is asked for.
        run("openssl", "rsa", "-in", cls.folder / "private.pem", "-pubout", "-out", cls.folder / "spki.pem")
        cls.whole = json.loads((cls.folder / "operator.json").read_text(encoding="utf-8"))

    def refused(self, text):
        (self.folder / "operator.json").write_text(text, encoding="utf-8")
        with self.assertRaises(operator_file.OperatorError) as raised:
            operator_file.read(self.folder)
        return raised.exception.lines

    def test_wrong_members(self):
        for member, values, told in WRONG:
            for value in values:
                with self.subTest(member, value=value):
                    lines = self.refused(json.dumps(self.whole | {member: value}))
                    self.assertEqual(len(lines), 1, lines)
                    self.assertRegex(lines[0], told)
                    self.assertIn(member.strip(), lines[0])

    def test_missing_and_unreadable(self):
        self.assertEqual(len(self.refused('{"version": "1"}')), len(operator_file.REQUIRED) + 1, "each is told")
        for text, told in [("{", "not JSON"), ("[]", "must hold one object"), ('{"icon": 1, "icon": 2}', '"icon" stands twice')]:
            self.assertIn(told, self.refused(text)[0])
        with self.assertRaisesRegex(operator_file.OperatorError, "No such file"):
            operator_file.read(self.folder / "absent")

    def test_what_must_not_ship_is_warned_of(self):
        self.assertEqual([text.split()[0] for text in operator_file.read(EXAMPLE).warnings], ['"pkcs11Module":', '"domainsPublicKey"'])
