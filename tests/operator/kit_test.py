"""One command makes everything that an operator ships, twice the same, and what does not fit stops it."""

import json
import os
import re
import tempfile
import unittest
import zipfile
from pathlib import Path

from support import TOP, make_operator, run, sign_domains
import finished
import operator_file

MEMBERS = {"hostName": "test.example.other_host", "package": "other-sign", "firefoxId": "{12345678-1234-1234-1234-123456789abc}",
           "sites": ["https://sign.example.test/*", "https://*.pages.example.test/*"], "pkcs11Module": "/opt/card/x.so"}


def make(operator, out, *options, umask=0o022):
    return run(TOP / "script/operator", operator, out, *options, umask=umask, env={**os.environ, "SOURCE_DATE_EPOCH": "1790000000"})


class Kit(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.folder = Path(cls.enterClassContext(tempfile.TemporaryDirectory()))
        cls.operator = make_operator(cls.folder / "operator", **MEMBERS)
        cls.key = cls.operator / "private.pem"
        cls.list = cls.folder / "list.json"
        cls.list.write_text(sign_domains(cls.key, "sign.example.test\n.pages.example.test", "--also-bare").stdout, encoding="utf-8")
        cls.out = cls.folder / "out"
        cls.made = make(cls.operator, cls.out, "--domains", cls.list)
        assert cls.made.returncode == 0, cls.made.stderr

    def test_twice_the_same_whatever_the_mask(self):
        again = make(self.operator, self.folder / "again", umask=0o077)
        self.assertEqual((again.returncode, again.stderr), (0, self.made.stderr))
        self.assertEqual(*((folder / "SHA256SUMS").read_text(encoding="ascii") for folder in (self.out, self.folder / "again")))
        self.assertIn("is not empty", make(self.operator, self.operator).stderr, "nobody's files are replaced but its own")

    def test_nothing_of_the_example_or_this_machine_is_in_it(self):
        foreign = rb"org\.signing_host|signing-host@|" + f"{TOP}|{self.folder}".encode()
        for file in filter(Path.is_file, (self.out / "build/unpacked").rglob("*")):
            self.assertNotRegex(file.read_bytes(), foreign, file)

    def test_packages(self):
        linted = run("lintian", *(["--allow-root"] if os.getuid() == 0 else []), *self.out.glob("*.deb"))
        self.assertEqual((linted.returncode, linted.stdout), (0, ""))
        run("tar", "-xf", next(self.out.glob("*.tar.gz")), "-C", self.folder, "--one-top-level=tarball", "--strip-components=1")
        root = self.folder / "root"
        root.mkdir()
        # The dependencies of the rpm are other systems'; the files and the removal are tried.
        rpm, tarball = ("rpm", "--root", root, "--dbpath", "/db", "--noscripts"), self.folder / "tarball/install"
        for command, there in [((*rpm, "--install", "--nodeps", *self.out.glob("*.rpm")), True),
                               ((*rpm, "--erase", *(f"other-sign{kind}" for kind in ("", "-policies", "-sign-domains"))), False),
                               ((tarball,), True), ((tarball, "--remove"), False)]:
            done = run(*command, env={**os.environ, "DESTDIR": str(root)}, umask=0o077)
            # Debian's rpm warns of itself.
            self.assertEqual((done.returncode, re.sub(r"(rpm|warning): .*\n", "", done.stderr)), (0, ""), command)
            self.assertEqual((root / "usr/bin/other-sign").exists(), there)
            self.assertEqual(any("db" not in file.parts for file in root.rglob("*other*")), there, command)

    def test_extensions_and_page(self):
        for name, keyed in [("chromium", False), ("chromium-self-hosted", True)]:
            self.assertEqual(b'"key"' in zipfile.ZipFile(self.out / f"extension-{name}.zip").read("manifest.json"), keyed)
        page = (self.out / "INSTALL.html").read_text(encoding="utf-8")
        for text in ("Installing Signing host", "Cómo instalar Firma con tarjeta", f"other-sign_{operator_file.project_version()}_*.deb"):
            self.assertIn(text, page)
        self.assertNotRegex(page, r"\{\w+\}")

    def test_what_does_not_fit_is_said(self):
        """Every finding of the last step, when the operator's file says something else than the finished files."""
        whole = operator_file.read(self.operator).members
        root = next((self.out / "build/unpacked").glob("other-sign_*"))
        host, policies = ("host", "deb", root), ("policies", "policies", self.out / "policies")
        chromium = ("extension", self.out / "extension-chromium-self-hosted.zip", "chromium")
        firefox = ("extension", self.out / "extension-firefox.xpi", "firefox")
        bad, narrow = self.folder / "bad.json", self.folder / "narrow.json"
        bad.write_text(json.dumps(json.loads(self.list.read_text()) | {"domains": "other.test"}))
        narrow.write_text(sign_domains(self.key, ".pages.example.test").stdout)
        program = root / "usr/bin/other-sign"
        for changed, (check, *subject), told in [
            ({"pkcs11Module": "/opt/y.so"}, host, "was built with another module"),
            ({"chromiumKey": "AAAA"}, host, "extensions in /etc/chromium"),
            ({"chromiumKey": "AAAA"}, chromium, "id of its key"),
            ({"chromiumKey": "AAAA"}, policies, "extension in /etc/opt/edge/policies/managed/test.example.other_host.json"),
            ({"updateUrl": "https://b.test/"}, policies, "extension in /etc/firefox/policies/policies.json"),
            ({}, ("policies", "policies", self.operator), "/usr/share/chromium/extensions/jilodemlppmpoaaiielhochojdiodgcc.json is missing"),
            ({"domainsPublicKey": make_operator(self.folder / "k") / "domains-public.pem"}, host, "another domains key"),
            ({"hostName": "test.example.third"}, host, "is missing"),
            ({"hostName": "test.example.third"}, chromium, "host that it asks for"),
            ({"sites": ["https://b.test/*"]}, firefox, "pages"),
            ({"firefoxId": "a@b.test"}, firefox, "id: "),
            ({}, ("domains", bad, program), "does not verify with the key in the host"),
            ({}, ("domains", narrow, program), "https://sign.example.test, which the extension serves, is not covered"),
            ({}, ("domains", self.operator / "operator.json", program), "not what sign-domains prints"),
        ]:
            with self.subTest(told):
                operator = operator_file.Operator(self.operator, whole | changed)
                found = finished.Check(operator, operator.domains_public_key)
                getattr(found, check)(*subject)
                self.assertRegex("\n".join(found.lines), told)
