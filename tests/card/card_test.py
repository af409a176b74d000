#!/usr/bin/env python3
"""The host with real modules: OpenSC's with a PIV card in a virtual reader, and a TPM's.

Run by tests/card/run. Where a test's outcome is a cell of the table in docs/cards.md, it tells the
cell, and the module's row must say the same.
"""

import base64
import ctypes
import functools
import hashlib
import os
import re
import subprocess
import sys
import time
import unittest
from pathlib import Path

from tpm import Tpm

TOP = Path(__file__).resolve().parents[2]
sys.path += [str(TOP / "demo"), str(TOP / "demo/card")]
from conversation import DOMAINS, PAGE, TEXT, Host, sign_domains, verify  # noqa: E402
from piv_card import PivCard, Slot  # noqa: E402
from reader import CardService, opensc_module  # noqa: E402

BUILD = TOP / os.environ.get("SIGNING_HOST_BUILD", "build/test")
SIGNING = BUILD / "test-token/signing"  # its .der and -key.pem
PIN, WRONG_PINS = "123456", ("111111", "222222", "333333")
DIGEST = base64.b64encode(hashlib.sha256(TEXT.encode()).digest()).decode()
NO_TOKEN = '12 "No se encontro ningun slot"'
COLUMNS = ("list", "fetch", "sign", "PIN each time", "wrong PIN", "lock", "two hosts", "removal")


@functools.cache
def domains_signature():
    return sign_domains(BUILD / "development-key/domains-private.pem")


def outcome(answer):
    if not answer["error"]:
        return "yes"
    if answer["lastError"] == 5:
        return f"5 ({answer['lastLowLevelError']:#x})"
    return f"{answer['lastError']} \"{answer['errorMessage']}\""


class Module:
    """What every module must do. A subclass has `name`, `module`, `environment` and `cells`."""

    def host(self, pin=None, **environment):
        host = Host(BUILD / "host/signing-host", False,
                    {**os.environ, "SIGNING_HOST_PKCS11_MODULE": self.module, **self.environment,
                     **environment})
        self.addCleanup(host.process.stdout.close)
        self.addCleanup(host.process.wait)
        self.addCleanup(host.process.stdin.close)
        host.ask(command=0, signature=domains_signature(), domains=DOMAINS, currentDomain=PAGE,
                 caSubjectNames="")
        if pin:
            self.until_listed(host)
            self.assertEqual(self.sign(host)["lastError"], 11)
            host.ask(command=3, pin=pin)
        return host

    def until_listed(self, host):
        """The ids of the certificates, once the reader has noticed the card."""
        deadline = time.monotonic() + 20
        while not (listed := host.ask(command=2)["certificates"]) and time.monotonic() < deadline:
            time.sleep(0.05)
        self.ids = listed.split("|")[2::3]
        return self.ids

    def check(self, answer):
        if answer["pkcs1"]:
            verdict = verify(base64.b64encode(SIGNING.with_suffix(".der").read_bytes()), answer["pkcs1"])
            self.assertEqual(verdict.returncode, 0, verdict.stdout)
        return answer

    def sign(self, host, key=0):
        return self.check(host.ask(command=5, certId=self.ids[key], digest=DIGEST))

    def tell(self, **cells):
        self.cells.update({name.replace("_", " "): cell for name, cell in cells.items()})

    def test_lists_fetches_and_signs(self):
        host = self.host(PIN)
        listing = host.ask(command=2)
        self.assertEqual(len(self.ids), 2)
        for identifier in self.ids:
            fetched = host.ask(command=4, certId=identifier)
            self.assertEqual(base64.b64decode(fetched["certificate"]), SIGNING.with_suffix(".der").read_bytes())
        signed = self.sign(host)
        for key in 1, 1, 0, 1:  # the second wants the PIN for each signature
            each = self.sign(host, key)
            self.assertTrue(each["pkcs1"], each)
        self.assertTrue(signed["pkcs1"], signed)
        self.tell(list=outcome(listing), fetch=outcome(fetched), sign=outcome(signed), PIN_each_time=outcome(each))

    def test_two_hosts_at_once(self):
        hosts = self.host(PIN), self.host(PIN)
        for _ in range(5):
            for host in hosts:
                host.tell({"command": 5, "certId": self.ids[0], "digest": DIGEST})
            for host in hosts:
                answer = self.check(host.hear())
                self.assertTrue(answer["pkcs1"], answer)
        self.tell(two_hosts=outcome(answer))

    def test_z_locks(self):  # last: a TPM stays locked
        host = self.host(WRONG_PINS[0])
        answers = []
        for count, pin in enumerate([*WRONG_PINS, PIN], 1):
            host.ask(command=3, pin=pin)
            answers.append(self.sign(host))
            self.assertEqual((answers[-1]["pinRetryCount"], answers[-1]["invalidPin"], answers[-1]["pkcs1"]), (count, True, ""))
            self.assertEqual(host.ask(command=2)["lastError"], 5)  # the token is not asked
        self.tell(wrong_PIN=outcome(answers[0]), lock=outcome(answers[-1]))

    @classmethod
    def tearDownClass(cls):
        row = " | ".join(["", cls.name, *(cls.cells.get(column, "-") for column in COLUMNS), ""]).strip()
        print(row, flush=True)
        told = [line for line in (TOP / "docs/cards.md").read_text(encoding="utf-8").splitlines()
                if line.startswith(f"| {cls.name} |")]
        if told and told != [row]:
            raise AssertionError(f"docs/cards.md says otherwise: {told}")


class PivCardTest(Module, unittest.TestCase):
    module = opensc_module()
    name = "PIV card, " + re.match(r"OpenSC \d+\.\d+", subprocess.run(
        ["opensc-tool", "--info"], stdout=subprocess.PIPE, text=True).stdout)[0]
    environment, cells = {}, {}

    def setUp(self):
        self.service = self.enterContext(CardService())
        self.card = PivCard({0x9A: SIGNING, 0x9C: SIGNING}, PIN)
        self.slot = Slot(self.card)
        self.slot.put_in()

    def test_z_locks(self):
        super().test_z_locks()
        self.assertEqual(self.card.tries_left, 0)

    def test_a_wrong_pin_is_tried_once(self):
        host = self.host(WRONG_PINS[0])
        for _ in range(2):
            self.assertEqual(self.sign(host)["pinRetryCount"], 1)
            host.ask(command=3, pin=WRONG_PINS[0])
        self.assertEqual(self.card.tries_left, 2)
        host.ask(command=3, pin=PIN)
        self.assertTrue(self.sign(host)["pkcs1"])
        self.assertEqual(self.card.tries_left, 3)

    def test_removed_between_commands(self):
        host = self.host()
        self.assertEqual(outcome(self.sign_after_removal(host)), NO_TOKEN)
        self.host(PIN)

    def sign_after_removal(self, host):
        self.until_listed(host)
        self.slot.take_out()
        answer = host.ask(command=2)
        self.assertEqual(outcome(answer), NO_TOKEN)
        self.tell(removal=outcome(answer))
        answer = self.sign(host)
        self.slot.put_in()
        self.assertEqual(len(self.until_listed(host)), 2)
        return answer

    def test_torn_out_at_any_command(self):
        host = self.host(PIN)
        whole = host.ask(command=2)["certificates"]
        seen = set()
        for at in range(0, 60, 3):
            for operation in (lambda: host.ask(command=2)), (lambda: self.sign(host)):
                self.slot.out_at = self.card.commands + at
                answer = operation()
                self.slot.out_at = None
                listed = answer.get("certificates")
                if not self.slot.serving.is_alive():
                    self.slot.put_in()
                    self.until_listed(host)
                    seen.add("signed" if answer.get("pkcs1") else outcome(answer) if listed is None else
                             "less listed" if listed != whole and not answer["error"] else outcome(answer))
        self.assertEqual(self.card.tries_left, 3)
        self.assertTrue(self.sign(host)["pkcs1"])
        # OpenSC does not tell that the card went while certificates were read.
        self.assertLessEqual({NO_TOKEN, "less listed", '12 "C_Login"', '12 "sign final"'}, seen)

    def test_without_reader_or_service(self):
        host = self.host(PIN)
        self.service.stop()
        self.assertEqual(outcome(host.ask(command=2)), NO_TOKEN)
        self.assertEqual(outcome(self.sign(host)), NO_TOKEN)
        with CardService(readers=0):
            self.assertEqual(outcome(host.ask(command=2)), NO_TOKEN)
        self.service.start()
        self.slot.put_in()
        self.assertEqual(len(self.until_listed(host)), 2)
        self.assertTrue(self.sign(host)["pkcs1"])

    def test_with_another_program(self):
        reset = self.service.folder / "opensc.conf"
        reset.write_text("app default { reader_driver pcsc { disconnect_action = reset; } }\n")
        host, tidy = self.host(PIN), self.host(PIN, OPENSC_CONF=str(reset))
        pcsc = ctypes.CDLL("libpcsclite.so.1")
        long, shared, exclusive = ctypes.c_ulong, 2, 1
        context, card, protocol = long(), long(), long()
        reader = b"Virtual 00 00"
        pcsc.SCardEstablishContext(long(2), None, None, ctypes.byref(context))

        def connect(mode):
            self.assertEqual(pcsc.SCardConnect(context, reader, long(mode), long(3), ctypes.byref(card), ctypes.byref(protocol)), 0)

        connect(shared)
        self.assertTrue(self.sign(host)["pkcs1"])
        self.assertTrue(self.card.verified)  # for the other program, too
        self.assertTrue(self.sign(tidy)["pkcs1"])
        self.assertFalse(self.card.verified)
        pcsc.SCardDisconnect(card, long(0))
        connect(exclusive)
        self.assertEqual(outcome(self.sign(host)), NO_TOKEN)
        pcsc.SCardDisconnect(card, long(0))
        self.assertTrue(self.sign(host)["pkcs1"])


class TpmTest(Module, unittest.TestCase):
    name, cells = "TPM, libtpm2-pkcs11", {"removal": "-"}

    @classmethod
    def setUpClass(cls):
        cls.tpm = cls.enterClassContext(Tpm(SIGNING, PIN))
        cls.module, cls.environment = cls.tpm.module, cls.tpm.environment


if __name__ == "__main__":
    unittest.main(verbosity=2)
