#!/usr/bin/env python3
"""Holds a whole conversation with the signing host and tells it to a person.

Starts the host, speaks to it as a browser does (or with `ws` as a websocket relay does), signs the
SHA-256 digest of a short text with the token's signing key and lets OpenSSL judge the signature
with the certificate that the host gave. Exit status 0 only if OpenSSL says that it is right.
"""

import argparse
import base64
import hashlib
import json
import os
import signal
import struct
import subprocess
import sys
import tempfile
import textwrap
from pathlib import Path

DOMAINS = "example.test|firma.example|localhost"
PAGE = "https://tramites.example.test/solicitud"
TEXT = "Solicito la renovación de mi permiso. María Núñez Solís"
DIGEST = base64.b64encode(hashlib.sha256(TEXT.encode()).digest()).decode()
ANSWER_SECONDS = 60


class Host:
    """The host process and its framing."""

    def __init__(self, program, websocket, environment):
        self.websocket = websocket
        self.process = subprocess.Popen([program] + (["ws"] if websocket else []),
                                        env={**os.environ, **environment}, stdin=subprocess.PIPE, stdout=subprocess.PIPE)

    def tell(self, request):
        text = json.dumps(request, separators=(",", ":")).encode()
        frame = text + b"\n" if self.websocket else struct.pack("=I", len(text)) + text
        self.process.stdin.write(frame)
        self.process.stdin.flush()

    def ask(self, **request):
        self.tell(request)
        return self.hear()

    def hear(self):
        signal.alarm(ANSWER_SECONDS)
        if self.websocket:
            text = self.process.stdout.readline()
        else:
            length = self.process.stdout.read(4)
            text = self.process.stdout.read(*struct.unpack("=I", length)) if length else b""
        signal.alarm(0)
        if not text:
            sys.exit("The host ended without an answer.")
        return json.loads(text)

    def close(self):
        self.process.stdin.close()
        self.process.wait()
        self.process.stdout.close()


def name_text(text):
    """The host escapes every byte above 0x7F on its own: put the UTF-8 text together again."""
    return text.encode("latin-1").decode("utf-8")


def bold(text):
    return f"\033[1m{text}\033[0m" if sys.stdout.isatty() else text


class Teller:
    """Prints numbered steps, requests and answers."""

    def __init__(self):
        self.step = 0

    def heading(self, text):
        self.step += 1
        print(f"\n{bold(f'{self.step}. {text}')}")

    def message(self, arrow, message):
        members = []
        for name, value in message.items():
            if isinstance(value, str):
                value = name_text(value) if arrow == "<-" else value
                value = value if len(value) <= 60 else f"{value[:28]}...{value[-12:]}"
            member = f'"{name}": {json.dumps(value, ensure_ascii=False)}'
            members.append(member.replace(" ", "\0"))  # lines break between members only
        text = textwrap.fill("{" + ", ".join(members) + "}", 95, initial_indent=f"   {arrow} ",
                             subsequent_indent="       ", break_long_words=False,
                             break_on_hyphens=False)
        print(text.replace("\0", " "))

    def note(self, text, hanging=0):
        print(textwrap.fill(text, 95, initial_indent="      ",
                            subsequent_indent=" " * (6 + hanging), break_on_hyphens=False))

    def ask(self, host, **request):
        self.message("->", request)
        answer = host.ask(**request)
        self.message("<-", answer)
        return answer


def need(condition, problem):
    if not condition:
        sys.exit(f"\nThe demo stops here: {problem}")


def openssl(*arguments):
    return subprocess.run(["openssl", *arguments], stdout=subprocess.PIPE,
                          stderr=subprocess.STDOUT, text=True)


def verify(certificate_base64, signature_base64):
    with tempfile.TemporaryDirectory() as folder:
        certificate, key = Path(folder, "certificate.der"), Path(folder, "key.pem")
        signature, text = Path(folder, "signature"), Path(folder, "text")
        certificate.write_bytes(base64.b64decode(certificate_base64))
        signature.write_bytes(base64.b64decode(signature_base64))
        text.write_bytes(TEXT.encode())
        openssl("x509", "-inform", "der", "-in", str(certificate), "-noout", "-pubkey", "-out",
                str(key))
        return openssl("dgst", "-sha256", "-verify", str(key), "-signature", str(signature),
                       str(text))


def sign_domains(key):
    signer = Path(__file__).with_name("sign-domain-list")
    return subprocess.run([signer, key, DOMAINS], check=True, stdout=subprocess.PIPE,
                          text=True).stdout.strip()


def introduction(domains_signature):
    return {"command": 0, "signature": domains_signature, "domains": DOMAINS, "currentDomain": PAGE,
            "caSubjectNames": ""}


def converse(host, tell, token, domains_signature):
    tell.heading("Which version is the host?")
    tell.ask(host, command=8)

    tell.heading("A page says where it comes from and shows the operator's signed domain list")
    tell.ask(host, **introduction(domains_signature))

    tell.heading("Which certificates can sign?")
    answer = tell.ask(host, command=2)
    need(not answer["error"], "the certificates were not listed")
    fields = [name_text(field) for field in answer["certificates"].split("|")]
    certificates = list(zip(fields[0::3], fields[1::3], fields[2::3]))
    need(len(certificates) == token["signingCertificates"],
         f"{token['signingCertificates']} certificates should be listed")
    for issuer, subject, identifier in certificates[:3]:
        for title, field in ("certId ", identifier), ("subject", subject), ("issuer ", issuer):
            tell.note(f"{title}  {field.replace(',', ', ')}", hanging=9)
    tell.note(token.get("remark", "The token also holds an authentication certificate and an"
                        " expired one; neither is fit for signing, so neither is listed."))
    identifier = certificates[0][2]

    tell.heading("The certificate itself")
    certificate = tell.ask(host, command=4, certId=identifier)["certificate"]
    need(certificate, "the certificate was not given")

    tell.heading(f'Sign the SHA-256 digest of "{TEXT}"')
    answer = tell.ask(host, command=5, certId=identifier, digest=DIGEST)
    need(answer["missingPin"], "the host should ask for the PIN first")
    tell.note("No PIN is known yet: error 11, and the name of what needs the PIN.")

    tell.heading("The person types the PIN, one character a request")
    dots = []
    for character in token["pin"]:
        answer = host.ask(command=6, pinChar=character)
        dots.append(str(answer["pinLength"]))
    print(f'   -> {{"command": 6, "pinChar": (not shown)}}, {len(dots)} times')
    print(f'   <- {{... "pinLength": {", then ".join(dots)} ...}}')
    tell.note("(These answers repeat the error of step 5: only the next token command clears it.)")

    tell.heading("The same request again")
    answer = tell.ask(host, command=5, certId=identifier, digest=DIGEST)
    need(answer["pkcs1"], "nothing was signed")

    tell.note('"error" and "lastError" count; the message text is left over from step 5.')

    tell.heading("Goodbye")
    tell.message("->", {"command": 1})
    host.tell({"command": 1})
    status = host.process.wait(timeout=ANSWER_SECONDS)
    tell.note(f"The host ended with exit status {status}.")

    tell.heading("OpenSSL judges the signature with the certificate of step 4")
    verdict = verify(certificate, answer["pkcs1"])
    print(bold(f"      {verdict.stdout.strip()}"))
    return verdict.returncode == 0 and status == 0


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
    parser.add_argument("host", help="the signing-host program")
    parser.add_argument("framing", nargs="?", choices=["native", "ws"], default="native")
    parser.add_argument("--token", type=Path, required=True, metavar="FOLDER",
                        help="made by demo/make-token")
    parser.add_argument("--domains-key", required=True, metavar="PEM",
                        help="private key that belongs to the host's DOMAINS_PUBLIC_KEY")
    options = parser.parse_args()

    if not os.access(options.host, os.X_OK):
        sys.exit(f"{options.host} is not a program; script/demo builds it")
    token = json.loads((options.token / "token.json").read_text(encoding="utf-8"))
    domains_signature = sign_domains(options.domains_key)
    sys.stdout.reconfigure(encoding="utf-8")
    host = Host(options.host, options.framing == "ws",
                {"SOFTHSM2_CONF": token["softhsm2Conf"],
                 "SIGNING_HOST_PKCS11_MODULE": token["module"]})
    framing = ("websocket framing: one line a message" if options.framing == "ws" else
               "native messaging: a 32-bit length before each message")
    print(f"{options.host}\n{framing}; -> request, <- answer, long texts shortened")
    try:
        return 0 if converse(host, Teller(), token, domains_signature) else 1
    except BrokenPipeError:
        sys.exit("The host has ended by itself.")
    finally:
        if host.process.poll() is None:
            host.process.kill()


if __name__ == "__main__":
    sys.exit(main())
