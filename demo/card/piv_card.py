"""A PIV card (NIST SP 800-73-4) made of software, in the virtual reader of vsmartcard's vpcd.

It has what a signing host meets: certificates, a PIN with a retry counter and a lock, RSA-2048
keys, and a key that wants the PIN before each signature. The holder can take it out at any command.
"""

import socket
import threading
import time
from pathlib import Path

from cryptography.hazmat.primitives.serialization import load_pem_private_key

READER = ("127.0.0.1", 35963)
ATR = bytes.fromhex("3b80800101")
APPLICATION = bytes.fromhex("a000000308")
# Key reference -> data object of its certificate. OpenSC names them by CKA_ID 01, 02 and 03.
SLOTS = {0x9A: bytes.fromhex("5fc105"), 0x9C: bytes.fromhex("5fc10a"),
         0x9D: bytes.fromhex("5fc10b")}
PIN_FOR_EACH_SIGNATURE = 0x9C

OK = bytes.fromhex("9000")
PIN_MISSING = bytes.fromhex("6982")
PIN_LOCKED = bytes.fromhex("6983")
NOT_FOUND = bytes.fromhex("6a82")
UNKNOWN_COMMAND = bytes.fromhex("6d00")


def tlv(tag, value):
    size = len(value)
    length = (bytes([size]) if size < 0x80 else bytes([0x81, size]) if size < 0x100 else
              b"\x82" + size.to_bytes(2, "big"))
    return tag + length + value


class PivCard:
    """Answers APDUs. `keys` maps a key reference to a file name without its `-key.pem` and `.der`."""

    def __init__(self, keys, pin, tries=3):
        self.pin, self.tries, self.tries_left = pin.encode().ljust(8, b"\xff"), tries, tries
        self.keys, self.objects = {}, {bytes.fromhex("7e"): bytes.fromhex("7e124f0ba0000003080000100001005f2f024000")}
        for reference, name in keys.items():
            certificate = Path(f"{name}.der").read_bytes()
            self.objects[SLOTS[reference]] = tlv(b"\x53", tlv(b"\x70", certificate) + tlv(b"\x71", b"\0") + tlv(b"\xfe", b""))
            key = Path(f"{name}-key.pem").read_bytes()
            self.keys[reference] = load_pem_private_key(key, None).private_numbers()
        self.commands = self.signatures = 0
        self.reset()

    def reset(self):
        self.verified = self.just_verified = False
        self.chained = self.rest = b""

    def answer(self, apdu):
        self.commands += 1
        chaining, instruction, reference = apdu[0] & 0x10, apdu[1], apdu[3]
        size = apdu[4] if len(apdu) > 5 else 0
        self.wanted = apdu[-1] or 256
        data = self.chained + apdu[5:5 + size]
        self.chained = data if chaining else b""
        if chaining:
            return OK
        if instruction == 0xC0:
            return self.next_part()
        just_verified, self.just_verified = self.just_verified, False
        if instruction == 0xA4:
            return self.select(data)
        if instruction == 0xCB:
            return self.give(self.objects.get(data[2:]))
        if instruction == 0x20:
            return self.verify(data)
        if instruction == 0x87 and reference in self.keys:
            wanted = just_verified if reference == PIN_FOR_EACH_SIGNATURE else self.verified
            return self.sign(self.keys[reference], data) if wanted else PIN_MISSING
        return UNKNOWN_COMMAND

    def select(self, name):
        if not name.startswith(APPLICATION):
            return NOT_FOUND
        return self.give(tlv(b"\x61", tlv(b"\x4f", APPLICATION + bytes.fromhex("000010000100"))))

    def verify(self, pin):
        if self.tries_left == 0:
            return PIN_LOCKED
        if not pin:
            return OK if self.verified else bytes([0x63, 0xC0 | self.tries_left])
        self.verified = self.just_verified = pin == self.pin
        self.tries_left = self.tries if self.verified else self.tries_left - 1
        return OK if self.verified else bytes([0x63, 0xC0 | self.tries_left])

    def sign(self, key, template):
        block = template[-256:]  # the last member of the template is the padded block
        self.signatures += 1
        signature = pow(int.from_bytes(block, "big"), key.d, key.public_numbers.n)
        return self.give(tlv(b"\x7c", tlv(b"\x82", signature.to_bytes(256, "big"))))

    def give(self, data):
        if data is None:
            return NOT_FOUND
        self.rest = data
        return self.next_part()

    def next_part(self):
        part, self.rest = self.rest[:self.wanted], self.rest[self.wanted:]
        return part + (bytes([0x61, len(self.rest) if len(self.rest) < 256 else 0]) if self.rest else OK)


class Slot:
    """The holder's hand: puts the card into the reader and takes it out."""

    def __init__(self, card):
        self.card, self.connection, self.serving = card, None, None
        self.out_at = None  # number of the command at which the card is torn out

    def put_in(self):
        deadline = time.monotonic() + 20
        while True:
            try:
                self.connection = socket.create_connection(READER, timeout=5)
                break
            except OSError:
                if time.monotonic() > deadline:
                    raise
                time.sleep(0.02)
        self.connection.settimeout(None)
        self.serving = threading.Thread(target=self.serve, args=[self.connection], daemon=True)
        self.serving.start()

    def take_out(self):
        self.connection.shutdown(socket.SHUT_RDWR)
        self.serving.join()

    def serve(self, connection):
        with connection:
            while message := self.receive(connection):
                if len(message) > 1:
                    if self.card.commands == self.out_at:
                        return
                    self.send(connection, self.card.answer(message))
                elif message == b"\x04":
                    self.send(connection, ATR)
                else:  # power off, power on, reset
                    self.card.reset()

    @staticmethod
    def send(connection, message):
        connection.sendall(len(message).to_bytes(2, "big") + message)

    @staticmethod
    def receive(connection):
        """The next message, or nothing when the reader or the holder has hung up."""
        message = b""
        for size in lambda: 2, lambda: int.from_bytes(message, "big"):
            wanted, message_part = size(), b""
            while len(message_part) < wanted:
                # Set again each time, or each command waits 44 ms for a delayed acknowledgement.
                connection.setsockopt(socket.IPPROTO_TCP, socket.TCP_QUICKACK, 1)
                part = connection.recv(wanted - len(message_part))
                if not part:
                    return b""
                message_part += part
            message = message_part
        return message
