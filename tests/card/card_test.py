#!/usr/bin/env python3
"""The host with real modules: OpenSC's with a PIV card in a virtual reader, and a TPM's.

Run by tests/card/run. What a test saw becomes a cell of its module's row in docs/cards.md; where the
document has that row, it must say the same.
"""

import base64
import ctypes
import os
import re
import subprocess
import sys
import unittest
from pathlib import Path

from tpm import tpm

TOP = Path(__file__).resolve().parents[2]
sys.path += [str(TOP / "demo"), str(TOP / "demo/card")]
from conversation import DIGEST, Host, introduction, sign_domains, verify  # noqa: E402
from piv_card import PIN, WRONG_PINS, PivCard, Slot  # noqa: E402
from reader import CardService, certificate_ids, opensc_module  # noqa: E402

BUILD = TOP / os.environ.get("SIGNING_HOST_BUILD", "build/test")
SIGNING = BUILD / "test-token/signing"  # its .der and -key.pem
CERTIFICATE = SIGNING.with_suffix(".der").read_bytes()
PAGE = introduction(sign_domains(BUILD / "development-key/domains-private.pem"))
NO_TOKEN = '12 "No se encontro ningun slot"'
COLUMNS = "list", "fetch", "sign", "PIN each time", "wrong PIN", "lock", "two hosts", "removal"


def outcome(answer):
    if not answer["error"]:
        return "yes"
    if answer["lastError"] == 5:
        return f"5 ({answer['lastLowLevelError']:#x})"
    return f"{answer['lastError']} \"{answer['errorMessage']}\""


class Module:
    """What every module must do. A subclass has `name`, `module`, `environment` and `cells`; its
    token has two keys with one certificate, the second of which wants the PIN each time."""

    def host(self, pin=None, **environment):
        host = Host(BUILD / "host/signing-host", False,
                    {"SIGNING_HOST_PKCS11_MODULE": self.module, **self.environment, **environment})
        self.addCleanup(host.close)
        host.ask(**PAGE)
        self.ids = certificate_ids(host, 2)
        if pin:
            self.assertEqual(self.sign(host)["lastError"], 11)
            host.ask(command=3, pin=pin)
        return host

    def sign(self, host, key=0):
        return self.judged(host.ask(command=5, certId=self.ids[key], digest=DIGEST))

    def judged(self, answer):
        if answer["pkcs1"]:
            verdict = verify(base64.b64encode(CERTIFICATE), answer["pkcs1"])
            self.assertEqual(verdict.returncode, 0, verdict.stdout)
        return answer

    def saw(self, **cells):
        self.cells.update((name.replace("_", " "), outcome(told)) for name, told in cells.items())

    def test_lists_fetches_and_signs(self):
        host = self.host(PIN)
        listing = host.ask(command=2)
        for certId in self.ids:
            fetched = host.ask(command=4, certId=certId)
            self.assertEqual(base64.b64decode(fetched["certificate"]), CERTIFICATE)
        for key in 0, 1, 1, 0, 1:
            signed = self.sign(host, key)
            self.assertTrue(signed["pkcs1"], (key, signed))
        self.saw(list=listing, fetch=fetched, sign=self.sign(host), PIN_each_time=signed)

    def test_two_hosts_at_once(self):
        hosts = self.host(PIN), self.host(PIN)
        for _ in range(5):
            for host in hosts:
                host.tell({"command": 5, "certId": self.ids[0], "digest": DIGEST})
            for host in hosts:
                signed = self.judged(host.hear())
                self.assertTrue(signed["pkcs1"], signed)
        self.saw(two_hosts=signed)

    def test_z_locks(self):  # the last, because a TPM stays locked
        host = self.host(WRONG_PINS[0])
        answers = []
        for count, pin in enumerate([*WRONG_PINS, PIN], 1):
            host.ask(command=3, pin=pin)
            answers.append(answer := self.sign(host))
            self.assertEqual((answer["pinRetryCount"], answer["pkcs1"]), (count, ""))
        self.saw(wrong_PIN=answers[0], lock=answers[-1])

    @classmethod
    def tearDownClass(cls):
        cells = [cls.name, *(cls.cells.get(column, "-") for column in COLUMNS)]
        row = f"| {' | '.join(cells)} |"
        print(row, flush=True)
        document = (TOP / "docs/cards.md").read_text(encoding="utf-8").splitlines()
        told = [line for line in document if line.startswith(f"| {cls.name} |")]
        if "-" not in cells[1:-1] and told not in ([], [row]):
            raise AssertionError(f"docs/cards.md says otherwise: {told}")


class PivCardTest(Module, unittest.TestCase):
    module = opensc_module()
    name = "PIV card, " + re.match(r"OpenSC \d+\.\d+", subprocess.run(
        ["opensc-tool", "--info"], stdout=subprocess.PIPE, text=True).stdout)[0]
    environment, cells = {}, {}

    def setUp(self):
        self.service = self.enterContext(CardService())
        self.card = PivCard({0x9A: SIGNING, 0x9C: SIGNING})
        self.slot = Slot(self.card)
        self.slot.put_in()

    def test_a_wrong_pin_is_tried_once(self):
        host = self.host(WRONG_PINS[0])
        for _ in range(2):
            self.assertEqual(self.sign(host)["pinRetryCount"], 1)
            self.assertEqual(host.ask(command=2)["lastError"], 5)
            host.ask(command=3, pin=WRONG_PINS[0])
        self.assertEqual(self.card.tries_left, 2)
        host.ask(command=3, pin=PIN)
        self.assertTrue(self.sign(host, 1)["pkcs1"])
        self.assertEqual(self.card.tries_left, 3)

    def test_without_card_service_or_reader(self):
        host = self.host(PIN)
        self.slot.take_out()
        for request in {"command": 2}, {"command": 4, "certId": self.ids[0]}:
            self.assertEqual(outcome(host.ask(**request)), NO_TOKEN)
        self.saw(removal=self.sign(host))
        self.service.stop()
        self.assertEqual(outcome(self.sign(host)), NO_TOKEN)
        with CardService(readers=0):
            self.assertEqual(outcome(self.sign(host)), NO_TOKEN)
        self.service.start()
        self.slot.put_in()
        certificate_ids(host, 2)
        self.assertTrue(self.sign(host)["pkcs1"])

    def test_torn_out_at_any_command(self):
        host = self.host(PIN)
        seen = set()
        for at in range(0, 60, 3):
            for request in (lambda: host.ask(command=2)), (lambda: self.sign(host)):
                self.slot.out_at = self.card.commands + at
                answer = request()
                self.slot.out_at = None
                if self.slot.serving.is_alive():
                    continue  # the request needs fewer commands
                less = not answer["error"] and answer.get("certificates", "").count("|") < 5
                seen.add("less" if less and "pkcs1" not in answer else outcome(answer))
                self.slot.put_in()
                certificate_ids(host, 2)
        self.assertEqual(self.card.tries_left, 3)
        self.assertTrue(self.sign(host)["pkcs1"])
        # OpenSC does not tell that the card went while it read the certificates.
        self.assertLessEqual({NO_TOKEN, "less", '12 "C_Login"', '12 "sign final"'}, seen)

    def test_with_another_program(self):
        settings = self.service.folder / "opensc.conf"
        settings.write_text("app default { reader_driver pcsc { disconnect_action = reset; } }\n")
        host, resetting = self.host(PIN), self.host(PIN, OPENSC_CONF=str(settings))
        pcsc, number = ctypes.CDLL("libpcsclite.so.1"), ctypes.c_ulong
        context, card, protocol = number(), number(), number()
        pcsc.SCardEstablishContext(number(2), None, None, ctypes.byref(context))

        def connect(mode):
            self.assertEqual(0, pcsc.SCardConnect(context, b"Virtual 00 00", number(mode), number(3),
                                                  ctypes.byref(card), ctypes.byref(protocol)))

        connect(2)  # shared
        self.assertTrue(self.sign(host)["pkcs1"])
        self.assertTrue(self.card.verified)  # for the other program as well
        self.assertTrue(self.sign(resetting)["pkcs1"])
        self.assertFalse(self.card.verified)
        pcsc.SCardDisconnect(card, number(0))
        connect(1)  # exclusive
        self.assertEqual(outcome(self.sign(host)), NO_TOKEN)
        pcsc.SCardDisconnect(card, number(0))
        self.assertTrue(self.sign(host)["pkcs1"])


class TpmTest(Module, unittest.TestCase):
    name, cells = "TPM, libtpm2-pkcs11", {}

    @classmethod
    def setUpClass(cls):
        cls.module, cls.environment = cls.enterClassContext(tpm(SIGNING, PIN))


if __name__ == "__main__":
    unittest.main(verbosity=2)
