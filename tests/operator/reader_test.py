"""Wrong operator files of every kind get one clear line."""

import tempfile
import unittest
from pathlib import Path

from support import EXAMPLE, make_operator
import operator_file

ID = "abcdefghijklmnopabcdefghijklmnop"
WRONG = [
    ({"colour": "blue"}, r'there is no member "colour"'),
    ({"productName": "Sign"}, r'"productName" must be an object with the texts "en" and "es"'),
    ({"productName": {"en": "x" * 46, "es": "y"}}, r'"productName" is 46 characters long, at most 45'),
    ({"summary": {"en": "two\nlines", "es": "y"}}, r'"summary" must be one line'),
    ({"hostName": "Org.Example"}, r'"hostName" must be a name such as org\.example\.signing'),
    ({"package": "my package"}, r'"package" must be a package name'),
    ({"version": "1.2-rc1"}, r'"version" must be one to four numbers'),
    ({"version": "1.70000"}, r'"version" must be .* up to 65535'),
    ({"maintainer": "nobody"}, r'"maintainer" must be in the form'),
    ({"licence": "my own terms!"}, r'"licence" must be a licence by its SPDX name'),
    ({"copyright": ""}, r'"copyright" must be a text'),
    ({"sites": []}, r'"sites" must be a list of different texts, at least one'),
    ({"sites": ["http://sign.example.test/*"]}, r'"sites" "http://sign\.example\.test/\*" is not a match pattern'),
    ({"sites": ["https://*/*"]}, r'is not a match pattern .* not every host'),
    ({"sites": ["http://localhost.evil.test/*"]}, r"is not a match pattern"),
    ({"supportAddress": "javascript:alert(1)"}, r'"supportAddress" must be an address that begins with https:// or mailto:'),
    ({"installPage": "http://example.test/"}, r'"installPage" must be an address that begins with https://'),
    ({"updateUrl": "https://example.test/x"}, r'"updateUrl" must end with a slash'),
    ({"chromiumKey": "not base64"}, r'"chromiumKey" must be the base64 text'),
    ({"chromiumIds": [ID, ID]}, r'"chromiumIds" must be a list of different texts'),
    ({"chromiumIds": ["xyz"]}, r'"chromiumIds" must be 32 letters from a to p'),
    ({"firefoxId": "nothing"}, r'"firefoxId" must be in the form'),
    ({"pkcs11Module": "libcard.so"}, r'"pkcs11Module" must be the absolute path'),
    ({"domainsPublicKey": "absent.pem"}, r'"domainsPublicKey" names .*/absent\.pem, which is not there'),
    ({"icon": "operator.json"}, r'"icon" names .* not a PNG picture of 128 by 128'),
    ({"pinEntry": "window"}, r'"pinEntry" must be "extension" or "page"'),
    ({"oneConsentForBatch": "true"}, r'"oneConsentForBatch" must be true or false'),
]


class Reader(unittest.TestCase):
    def refused(self, folder):
        with self.assertRaises(operator_file.OperatorError) as raised:
            operator_file.read(folder)
        return raised.exception.lines

    def test_wrong_members(self):
        for members, told in WRONG:
            with self.subTest(members), tempfile.TemporaryDirectory() as made:
                lines = self.refused(make_operator(Path(made, "operator"), **members))
                self.assertEqual(len(lines), 1, lines)
                self.assertRegex(lines[0], told)

    def test_missing_and_unreadable(self):
        with tempfile.TemporaryDirectory() as made:
            folder = make_operator(Path(made, "operator"), without=("hostName", "chromiumKey"))
            self.assertEqual(len(self.refused(folder)), 2, "each is told")
            for text, told in [("{", "not JSON"), ("[]", "must hold one object"), ('{"icon": 1, "icon": 2}', '"icon" stands twice')]:
                (folder / "operator.json").write_text(text, encoding="utf-8")
                self.assertIn(told, self.refused(folder)[0])
            self.assertIn("No such file", self.refused(Path(made))[0])

    def test_what_must_not_ship_is_warned_of(self):
        self.assertEqual([text.split()[0] for text in operator_file.read(EXAMPLE).warnings], ['"pkcs11Module":', '"domainsPublicKey"'])
