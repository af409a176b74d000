"""One command makes everything that an operator ships, twice the same, and what does not fit stops it."""

import json
import os
import tempfile
import unittest
import zipfile
from pathlib import Path

from support import TOP, make_operator, run, sign_domains
import finished
import operator_file

SITES = ["https://sign.example.test/*", "https://*.pages.example.test/*"]
NAMES = {"hostName": "test.example.other_host", "package": "other-sign", "firefoxId": "{12345678-1234-1234-1234-123456789abc}"}


def make(operator, out, *options, umask=0o022):
    return run(TOP / "script/operator", operator, out, *options, umask=umask)


class Kit(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.folder = Path(cls.enterClassContext(tempfile.TemporaryDirectory()))
        cls.operator = make_operator(cls.folder / "operator", sites=SITES, pkcs11Module="/opt/card/x.so", **NAMES)
        cls.key = cls.operator / "private.pem"
        cls.list = cls.folder / "list.json"
        cls.list.write_text(sign_domains(cls.key, "sign.example.test\n.pages.example.test", "--also-bare").stdout, encoding="utf-8")
        cls.out = cls.folder / "out"
        cls.made = make(cls.operator, cls.out, "--domains", cls.list)
        if cls.made.returncode != 0:
            raise AssertionError(cls.made.stderr)

    def test_twice_the_same_whatever_the_mask(self):
        again = make(self.operator, self.folder / "again", umask=0o077)
        self.assertEqual((again.returncode, again.stderr), (0, self.made.stderr))
        sums = [(folder / "SHA256SUMS").read_text(encoding="ascii") for folder in (self.out, self.folder / "again")]
        self.assertEqual(*sums)

    def test_nothing_of_the_example_or_this_machine_is_in_it(self):
        for file in sorted((self.out / "build/unpacked").rglob("*")):
            if file.is_file():
                self.assertNotRegex(file.read_bytes(), rb"org\.signing_host|signing-host@|" + str(TOP).encode() + b"|" + str(self.folder).encode(), file)

    def test_packages(self):
        packages = sorted(self.out.glob("*.deb"))
        self.assertEqual(len(packages), 3)
        linted = run("lintian", *(["--allow-root"] if os.getuid() == 0 else []), *packages)
        self.assertEqual((linted.returncode, linted.stdout), (0, ""))
        root = self.folder / "rpm"
        root.mkdir()
        # Its dependencies are other systems'; the files, the scripts and the removal are tried.
        rpm = ("rpm", "--root", root, "--dbpath", "/db")
        for package in self.out.glob("*.rpm"):
            done = run(*rpm, "--install", "--nodeps", "--noscripts", package)
            self.assertEqual(done.returncode, 0, done.stderr)
        run(*rpm, "--erase", "--noscripts", "other-sign", "other-sign-policies", "other-sign-sign-domains")
        self.assertEqual([file for file in root.rglob("*other*") if "db" not in file.parts], [])
        archive = next(self.out.glob("*.tar.gz"))
        run("tar", "-xf", archive, "-C", self.folder, "--one-top-level=tarball", "--strip-components=1")
        for options, count in [((), 1), (("--remove",), 0)]:
            done = run(self.folder / "tarball/install", *options, env={**os.environ, "DESTDIR": str(self.folder / "other")}, umask=0o077)
            self.assertEqual((done.returncode, done.stderr), (0, ""))
            self.assertEqual(len(list(self.folder.glob("other/usr/bin/other-sign"))), count)

    def test_extensions_and_page(self):
        for name, has_key in [("extension-chromium.zip", False), ("extension-chromium-self-hosted.zip", True)]:
            self.assertEqual("key" in json.loads(zipfile.ZipFile(self.out / name).read("manifest.json")), has_key)
        page = (self.out / "INSTALL.html").read_text(encoding="utf-8")
        for text in ("Installing Signing host", "Cómo instalar Firma con tarjeta", f"other-sign_{operator_file.project_version()}_*.deb"):
            self.assertIn(text, page)
        self.assertNotRegex(page, r"\{\w+\}")

    def test_what_does_not_fit_is_said(self):
        """Every finding of the last step, on files that were altered afterwards."""
        def findings(alter, subject):
            operator = operator_file.read(self.operator)
            alter(operator)
            check = finished.Check(operator, operator.domains_public_key)
            subject(check)
            return "\n".join(check.lines)

        root = next((self.out / "build/unpacked").glob("other-sign_*"))
        host = lambda check: check.host("deb", root)  # noqa: E731
        chromium = lambda check: check.extension(self.out / "extension-chromium-self-hosted.zip", "chromium")  # noqa: E731
        firefox = lambda check: check.extension(self.out / "extension-firefox.xpi", "firefox")  # noqa: E731
        policies = lambda check: check.policies("policies", self.out / "policies")  # noqa: E731
        domains = lambda file: lambda check: check.domains(file, root / "usr/bin/other-sign")  # noqa: E731
        bad = self.folder / "bad.json"
        bad.write_text(json.dumps(json.loads(self.list.read_text()) | {"domains": "other.test"}))
        narrow = self.folder / "narrow.json"
        narrow.write_text(sign_domains(self.key, ".pages.example.test").stdout)
        member = lambda **new: lambda operator: operator.members.update(new)  # noqa: E731
        for alter, subject, told in [
            (member(pkcs11Module="/opt/y.so"), host, "was built with another module"),
            (lambda one: one.__dict__.update(chromium_ids=["a" * 32]), host, "extensions in /etc/chromium"),
            (lambda one: one.__dict__.update(chromium_ids=["a" * 32]), chromium, "id of its key"),
            (lambda one: one.__dict__.update(chromium_ids=["a" * 32]), policies, "extension in test.example.other_host.json"),
            (lambda one: one.__dict__.update(domains_public_key=make_operator(self.folder / "k") / "domains-public.pem"), host, "another domains key"),
            (member(hostName="test.example.third"), host, "is missing"),
            (member(hostName="test.example.third"), chromium, "host that it asks for"),
            (member(sites=["https://b.test/*"]), firefox, "pages"),
            (member(firefoxId="a@b.test"), firefox, "id: "),
            (member(), domains(bad), "does not verify with the key in the host"),
            (member(), domains(narrow), "https://sign.example.test, which the extension serves, is not covered"),
            (member(), domains(self.operator / "operator.json"), "not what sign-domains prints"),
        ]:
            with self.subTest(told):
                self.assertRegex(findings(alter, subject), told)
