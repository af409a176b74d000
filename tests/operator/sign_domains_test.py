"""Domain lists are signed as the host reads them, and refused where it would read something else."""

import json
import tempfile
import unittest
import unittest.mock
from pathlib import Path

from support import make_key, run, sign_domains

REFUSED = [
    ("Sign.example.test", "has capital letters"),
    (".a.test\r", "has a space or a line feed"),
    (".a.test\n\n.b.test", '"" is empty'),
    (".a.test\n.a.test", "stands twice"),
    ("", "there are no names"),
    (".a.test|.b.test", "is not a host name"),
    (".ñandú.test", "is not a host name"),
    ("https://a.example.test", "is an address"),
    (".caf\udce9.test", "are not UTF-8"),
    ("example.test", 'covers every name that ends with it, such as "badexample.test"'),
    *((name, "is a public suffix") for name in (".co.uk", ".anything.ck", ".xn--55qx5d.cn", ".test")),
    ("\n".join(f".n{number:03}.example.test" for number in range(60)), "bytes too long: the host reads 999"),
]


class SignDomains(unittest.TestCase):
    def setUp(self):
        self.folder = Path(self.enterContext(tempfile.TemporaryDirectory()))
        self.key = make_key(self.folder)
        self.public = ("--public-key", self.folder / "domains-public.pem")

    def test_refusals(self):
        for names, told in REFUSED:
            with self.subTest(names[:40]):
                done = sign_domains(self.key, names, *self.public)
                self.assertEqual((done.returncode, done.stdout), (1, ""))
                self.assertIn(told, done.stderr)
                self.assertNotIn("Traceback", done.stderr)

    def test_the_limit_is_the_hosts(self):
        """The request that is counted is the one that pages send, to the byte."""
        page, names = "https://www.example.test", ".example.test\n.other.example.test"
        told = sign_domains(self.key, names, *self.public, "--page", page)
        request = {"command": 0, "signature": "", "domains": "", "currentDomain": page, "caSubjectNames": "", **json.loads(told.stdout)}
        left = 999 - len(json.dumps(request, separators=(",", ":")))
        self.assertIn(f" {left} bytes are left ", told.stderr)
        for more, code in [(left, 0), (left + 1, 1)]:
            self.assertEqual(sign_domains(self.key, names, *self.public, "--page", page, "--ca-subject-names", "x" * more).returncode, code)

    def test_warnings_and_the_other_key(self):
        told = sign_domains(self.key, "a.test\nb.a.test.a.test", "--also-bare", *self.public)
        self.assertIn('"b.a.test.a.test" contains "a.test" twice', told.stderr)
        self.assertEqual(json.loads(told.stdout)["domains"], "a.test|b.a.test.a.test")
        self.assertIn("is not a public key", sign_domains(self.key, ".a.example.test", "--public-key", __file__).stderr)
        (self.folder / "other").mkdir()
        for bits, told in [(1024, "does not verify"), (2048, "not an RSA key of 1024 bits")]:
            self.assertIn(told, sign_domains(make_key(self.folder / "other", bits), ".a.example.test", *self.public).stderr)

    def test_key_in_a_token(self):
        (self.folder / "conf").write_text(f"directories.tokendir = {self.folder}\n", encoding="utf-8")
        self.enterContext(unittest.mock.patch.dict("os.environ", SOFTHSM2_CONF=str(self.folder / "conf")))
        run("softhsm2-util", "--init-token", "--free", "--label", "keys", "--pin", "1234", "--so-pin", "1234")
        run("softhsm2-util", "--import", self.key, "--token", "keys", "--label", "domains", "--id", "01", "--pin", "1234")
        uri, module = "pkcs11:token=keys;object={};type=private?pin-value=1234", next(Path("/usr/lib").rglob("libsofthsm2.so"))
        told, absent = (sign_domains(uri.format(label), ".a.example.test", "--module", module, *self.public) for label in ("domains", "absent"))
        self.assertEqual((told.returncode, told.stdout), (0, sign_domains(self.key, ".a.example.test", *self.public).stdout), told.stderr)
        self.assertEqual(absent.returncode, 1)
        self.assertNotIn("1234", absent.stderr, "a PIN is not shown")
