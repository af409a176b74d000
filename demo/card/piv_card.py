"""A PIV card (NIST SP 800-73-4) made of software, in the virtual reader of vsmartcard's vpcd.

It has what a signing host meets: certificates, a PIN with a retry counter and a lock, RSA-2048
keys, and a key that wants the PIN before each signature. It can be taken out at any command.
"""

import socket
import threading
import time
from pathlib import Path

from cryptography.hazmat.primitives.serialization import load_pem_private_key

READER = ("127.0.0.1", 35963)
ATR = bytes.fromhex("3b80800101")
APPLICATION = bytes.fromhex("a000000308000010000100")
APPLICATION_PREFIX = APPLICATION[:5]
# Key reference -> name of its certificate's data object. OpenSC gives them CKA_ID 01, 02 and 03.
CERTIFICATE_OF = {0x9A: b"\x5f\xc1\x05", 0x9C: b"\x5f\xc1\x0a", 0x9D: b"\x5f\xc1\x0b"}
WANTS_PIN_EACH_TIME = 0x9C
KEY_SIZE = 256
PIN, WRONG_PINS = "123456", ("111111", "222222", "333333")

OK = b"\x90\x00"
PIN_MISSING = b"\x69\x82"
PIN_LOCKED = b"\x69\x83"
NOT_FOUND = b"\x6a\x82"
UNKNOWN_COMMAND = b"\x6d\x00"

# vpcd's messages of one byte; longer ones are APDUs.
POWER_OFF, POWER_ON, RESET, GET_ATR = b"\x00", b"\x01", b"\x02", b"\x04"


def tlv(tag, value):
    size = len(value)
    if size < 0x80:
        return tag + bytes([size]) + value
    return tag + b"\x82" + size.to_bytes(2, "big") + value


class PivCard:
    """Answers APDUs. `keys`: key reference -> file name of key and certificate without the ends
    `-key.pem` and `.der`."""

    def __init__(self, keys, tries=3):
        self.pin = PIN.encode().ljust(8, b"\xff")
        self.tries = self.tries_left = tries
        self.commands = 0
        self.keys, self.objects = {}, {}
        for reference, name in keys.items():
            certificate = tlv(b"\x70", Path(f"{name}.der").read_bytes())
            self.objects[CERTIFICATE_OF[reference]] = tlv(
                b"\x53", certificate + tlv(b"\x71", b"\0") + tlv(b"\xfe", b""))
            key = Path(f"{name}-key.pem").read_bytes()
            self.keys[reference] = load_pem_private_key(key, None).private_numbers()
        self.reset()

    def reset(self):
        self.verified = self.just_verified = False
        self.chained = self.rest = b""

    def answer(self, apdu):
        self.commands += 1
        is_chained, instruction, reference = apdu[0] & 0x10, apdu[1], apdu[3]
        size = apdu[4] if len(apdu) > 5 else 0
        self.wanted = apdu[-1] or 256
        data = self.chained + apdu[5:5 + size]
        self.chained = data if is_chained else b""
        if is_chained:
            return OK
        if instruction == 0xC0:  # GET RESPONSE
            return self.next_part()
        just_verified, self.just_verified = self.just_verified, False
        if instruction == 0xA4:
            return self.select(data)
        if instruction == 0xCB:  # GET DATA; two bytes of tag and length, then the name
            return self.give(self.objects[data[2:]]) if data[2:] in self.objects else NOT_FOUND
        if instruction == 0x20:
            return self.verify(data)
        if instruction == 0x87 and reference in self.keys:  # GENERAL AUTHENTICATE
            allowed = just_verified if reference == WANTS_PIN_EACH_TIME else self.verified
            return self.sign(self.keys[reference], data) if allowed else PIN_MISSING
        return UNKNOWN_COMMAND

    def select(self, name):
        if not name.startswith(APPLICATION_PREFIX):
            return NOT_FOUND
        return self.give(tlv(b"\x61", tlv(b"\x4f", APPLICATION)))

    def verify(self, pin):
        if self.tries_left == 0:
            return PIN_LOCKED
        if pin:
            self.verified = self.just_verified = pin == self.pin
            self.tries_left = self.tries if self.verified else self.tries_left - 1
        return OK if self.verified else bytes([0x63, 0xC0 | self.tries_left])

    def sign(self, key, template):
        padded = int.from_bytes(template[-KEY_SIZE:], "big")
        signature = pow(padded, key.d, key.public_numbers.n).to_bytes(KEY_SIZE, "big")
        return self.give(tlv(b"\x7c", tlv(b"\x82", signature)))

    def give(self, data):
        self.rest = data
        return self.next_part()

    def next_part(self):
        part, self.rest = self.rest[:self.wanted], self.rest[self.wanted:]
        more = len(self.rest)
        return part + (bytes([0x61, more if more < 256 else 0]) if more else OK)


class Slot:
    """The hand that puts the card into the reader and takes it out."""

    def __init__(self, card):
        self.card, self.connection, self.serving = card, None, None
        self.out_at = None  # the card is gone at this command of all that it has got

    def put_in(self):
        deadline = time.monotonic() + 20
        while not self.connect():
            if time.monotonic() > deadline:
                raise TimeoutError("There is no virtual reader.")
            time.sleep(0.02)
        self.serving = threading.Thread(target=self.serve, args=[self.connection], daemon=True)
        self.serving.start()

    def connect(self):
        try:
            self.connection = socket.create_connection(READER)
        except ConnectionRefusedError:
            return False
        return True

    def take_out(self):
        self.connection.shutdown(socket.SHUT_RDWR)
        self.serving.join()

    def serve(self, connection):
        with connection:
            while message := receive(connection):
                if message == GET_ATR:
                    send(connection, ATR)
                elif message in (POWER_OFF, POWER_ON, RESET):
                    self.card.reset()
                elif self.card.commands == self.out_at:
                    return
                else:
                    send(connection, self.card.answer(message))


def send(connection, message):
    connection.sendall(len(message).to_bytes(2, "big") + message)


def receive(connection):
    """The next message; nothing when the reader or the hand has hung up."""
    return receive_bytes(connection, int.from_bytes(receive_bytes(connection, 2), "big"))


def receive_bytes(connection, count):
    received = b""
    while len(received) < count:
        # Set again each time, or each command waits 44 ms for a delayed acknowledgement.
        connection.setsockopt(socket.IPPROTO_TCP, socket.TCP_QUICKACK, 1)
        try:
            part = connection.recv(count - len(received))
        except ConnectionResetError:
            return b""
        if not part:
            return b""
        received += part
    return received
