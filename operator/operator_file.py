"""Reads an operator's folder: operator.json and the files that it names.

operator/README.md describes every member. What is wrong is told in one line each, all at once.
"""

import base64
import binascii
import hashlib
import json
import re
import struct
import subprocess
from pathlib import Path

TOP = Path(__file__).resolve().parent.parent
EXAMPLE = TOP / "operator/example"
LANGUAGES = ("en", "es")
#: Value of "domainsPublicKey" that asks for a key pair made on this machine.
DEVELOPMENT = "development"
SOFT_TOKENS = ("softhsm", "softokn")


class OperatorError(Exception):
    """What is wrong with an operator's file, one line each, in `lines`."""

    def __init__(self, *lines):
        super().__init__("\n".join(lines))
        self.lines = lines


class Wrong(Exception):
    """What a value should have been."""


def text(value, longest=200):
    if not isinstance(value, str) or not value.strip() or value != value.strip():
        raise Wrong("must be a text, without spaces around it")
    if len(value) > longest:
        raise Wrong(f"is {len(value)} characters long, at most {longest}")
    if not value.isprintable():
        raise Wrong("must be one line of characters that are seen")
    return value


def matching(pattern, should, longest=200):
    def check(value):
        if not isinstance(value, str) or not re.fullmatch(pattern, value):
            raise Wrong(f"must be {should}")
        return text(value, longest)
    return check


def one_of(*values):
    def check(value):
        if not any(value is one or (isinstance(one, str) and value == one) for one in values):
            raise Wrong("must be " + " or ".join(json.dumps(one) for one in values))
        return value
    return check


def in_each_language(longest):
    def check(value):
        if not isinstance(value, dict) or sorted(value) != sorted(LANGUAGES):
            raise Wrong("must be an object with the texts " + " and ".join(map(json.dumps, LANGUAGES)))
        if "$" in "".join(map(str, value.values())):
            raise Wrong("must be without $, with which browsers begin a placeholder")
        return {language: text(value[language], longest) for language in LANGUAGES}
    return check


def version(value):
    """Chromium's form, the strictest of those that the version goes through."""
    if not isinstance(value, str) or not re.fullmatch(r"(0|[1-9][0-9]*)(\.(0|[1-9][0-9]*)){0,3}", value) \
            or any(int(part) > 65535 for part in value.split(".")) or not value.strip("0."):
        raise Wrong("must be one to four numbers up to 65535 joined by dots, not all of them 0")
    return value


LABEL = r"[a-z0-9]([a-z0-9-]*[a-z0-9])?"
HOST = rf"{LABEL}(\.{LABEL})*"
#: What a path and a query hold, without the quotes and brackets of the many files that an address goes into.
REST = r"[A-Za-z0-9._~:/?@!$&()*+,=%-]*"
LOCAL = rf"(\*\.)?({LABEL}\.)*localhost|127(\.\d{{1,3}}){{3}}"


def web_address(value):
    """https, or http on this computer itself: what nobody on the network can alter."""
    if not isinstance(value, str) or not re.fullmatch(
            rf"(https://{HOST}|http://({LOCAL}))(:\d+)?(/{REST}(#[\w-]+)?)?", value, re.ASCII):
        raise Wrong("must be an address that begins with https:// (http:// only on localhost)")
    return value


def support_address(value):
    if isinstance(value, str) and re.fullmatch(rf"mailto:[A-Za-z0-9._+-]+@{HOST}", value):
        return value
    try:
        return web_address(value)
    except Wrong:
        raise Wrong("must be an address that begins with https:// or mailto:") from None


def update_folder(value):
    if not re.fullmatch(r"[^?&]*/", web_address(value)):
        raise Wrong("must end with a slash: it is the folder that holds the extension's files")
    return value


def site(value):
    """A match pattern of the browsers (scheme://host/path); the host may begin with "*."."""
    if not isinstance(value, str) or not re.fullmatch(
            rf"(https://(\*\.)?{HOST}|http://({LOCAL}))/{REST}", value, re.ASCII):
        raise Wrong(f"{json.dumps(value)} is not a match pattern such as https://*.example.test/* "
                    "(http only for localhost, in lower case, without a port, not every host)")
    return value


def list_of(check):
    def check_all(value):
        if not isinstance(value, list) or not value or len(set(map(str, value))) != len(value):
            raise Wrong("must be a list of different texts, at least one")
        return [check(one) for one in value]
    return check_all


def key_bits(content, *form):
    """The length of an RSA key in a form that OpenSSL knows, or None when it is no key with the usual exponent."""
    shown = subprocess.run(["openssl", "rsa", *form, "-noout", "-text"], input=content, capture_output=True, check=False)
    bits = re.search(rb"\((\d+) bit.*Exponent: 65537 ", shown.stdout, re.DOTALL)
    return int(bits[1]) if bits else None


def chromium_key(value):
    """Base64 of a DER public key, as the store shows it without its first and last line."""
    try:
        if key_bits(base64.b64decode(value, validate=True), "-pubin", "-inform", "DER"):
            return value
    except (binascii.Error, TypeError, ValueError):
        pass
    raise Wrong("must be the base64 text of a public key, in one line")


def chromium_id(key):
    """The id that follows from an extension's public key: 128 bits of its hash in letters a to p."""
    digits = hashlib.sha256(base64.b64decode(key)).hexdigest()[:32]
    return "".join(chr(ord("a") + int(digit, 16)) for digit in digits)


REQUIRED = {
    "productName": in_each_language(45),
    "summary": in_each_language(132),
    "hostName": matching(r"[a-z0-9_]+(\.[a-z0-9_]+)+",
                         "a name such as org.example.signing: a to z, 0 to 9 and _, joined by dots"),
    "package": matching(r"[a-z0-9][a-z0-9+.-]*[a-z0-9+]", "a package name: a to z, 0 to 9, +, - and .", 60),
    "maintainer": matching(rf"[^<>\"\\,;@ ][^<>\"\\,;@]* <[A-Za-z0-9._+-]+@{HOST}>", "in the form: Name <name@example.test>, of one person or group"),
    "copyright": text,
    "licence": matching(r"[A-Za-z0-9][A-Za-z0-9.+-]*( (AND|OR|WITH) [A-Za-z0-9.+-]+)*",
                        "a licence by its SPDX name, such as Apache-2.0"),
    "icon": text,
    "sites": list_of(site),
    "supportAddress": support_address,
    "installPage": web_address,
    "firefoxId": matching(r"[A-Za-z0-9._-]*@[A-Za-z0-9._-]+|\{[0-9a-f]{8}(-[0-9a-f]{4}){3}-[0-9a-f]{12}\}",
                          "in the form name@example.test or {UUID}", 80),
    "pkcs11Module": matching(r"/[A-Za-z0-9._+/-]+\.so(\.[0-9]+)*", "the absolute path of a shared library"),
    "domainsPublicKey": text,
    "pinEntry": one_of("extension", "page"),
    "oneConsentForBatch": one_of(True, False),
}
OPTIONAL = {
    "version": version,
    "updateUrl": update_folder,
    "chromiumKey": chromium_key,
    "chromiumIds": list_of(matching(r"[a-p]{32}", "32 letters from a to p")),
}


class Operator:
    """A checked operator: the members of operator.json by name, and what follows from them."""

    def __init__(self, folder, members):
        self.folder = folder
        self.members = members
        self.version = members.get("version") or project_version()
        self.chromium_key = members.get("chromiumKey")
        ids = [chromium_id(self.chromium_key)] if self.chromium_key else []
        store_ids = members.get("chromiumIds", [])
        self.chromium_ids = ids + [one for one in store_ids if one not in ids]
        #: Chromium takes an extension from an operator's own server only when it is signed with the operator's own key.
        self.self_hosted = bool(self.chromium_key and members.get("updateUrl"))
        self.in_store = bool(store_ids or not self.self_hosted)
        #: Id in the Chrome Web Store: the first of those given, else the key is the one that the store shows.
        self.store_id = [*store_ids, *ids][0]
        self.icon = folder / members["icon"]
        self.domains_public_key = None if self["domainsPublicKey"] == DEVELOPMENT else folder / self["domainsPublicKey"]
        self.warnings = []
        if any(name in self["pkcs11Module"] for name in SOFT_TOKENS):
            self.warnings.append(f'"pkcs11Module": {self["pkcs11Module"]} is a token made of software; '
                                 "name the module of your cards before you ship")
        if self.domains_public_key is None:
            self.warnings.append('"domainsPublicKey" is "development": a key pair of this machine; '
                                 "name your own public key before you ship")

    def __getitem__(self, name):
        return self.members[name]


def project_version():
    return version((TOP / "VERSION").read_text(encoding="utf-8").strip())


def object_without_doubles(pairs):
    members = dict(pairs)
    if len(members) != len(pairs):
        names = [name for name, _ in pairs]
        raise ValueError(f'"{next(name for name in names if names.count(name) > 1)}" stands twice')
    return members


def read(folder):
    """The operator of a folder. Throws OperatorError with one line for each thing that is wrong."""
    folder = Path(folder).resolve()
    file = folder / "operator.json"
    try:
        members = json.loads(file.read_text(encoding="utf-8"), object_pairs_hook=object_without_doubles)
    except OSError as error:
        raise OperatorError(f"{file}: {error.strerror}") from None
    except ValueError as error:
        raise OperatorError(f"{file}: not JSON: {error}") from None
    if not isinstance(members, dict):
        raise OperatorError(f"{file}: must hold one object")
    return Operator(folder, checked(file, members))


def checked(file, members):
    lines = [f"{file}: there is no member {json.dumps(name)} in an operator's file" for name in members
             if name not in REQUIRED and name not in OPTIONAL]
    lines += [f'{file}: "{name}" is missing' for name in REQUIRED if name not in members]
    for name, check in {**REQUIRED, **OPTIONAL}.items():
        try:
            if name in members:
                check(members[name])
        except Wrong as wrong:
            lines.append(f'{file}: "{name}" {wrong}')
    if "chromiumKey" not in members and "chromiumIds" not in members:
        lines.append(f'{file}: one of "chromiumKey" and "chromiumIds" must be there')
    if not lines:
        lines += wrong_files(file, members)
    if lines:
        raise OperatorError(*lines)
    return members


def wrong_files(file, members):
    key = file.parent / members["domainsPublicKey"]
    if members["domainsPublicKey"] != DEVELOPMENT:
        try:
            # OpenSSL takes other forms of public keys for this one; the host's build does not.
            pem = key.read_bytes()
            if not pem.lstrip().startswith(b"-----BEGIN RSA PUBLIC KEY-----") or key_bits(pem, "-RSAPublicKey_in") != 1024:
                yield f'{file}: "domainsPublicKey" names {key}, which is not a public RSA key of 1024 bits (BEGIN RSA PUBLIC KEY)'
        except OSError as error:
            yield f'{file}: "domainsPublicKey" names {key}: {error.strerror}'
    icon = file.parent / members["icon"]
    try:
        head = icon.read_bytes()[:24]
    except OSError as error:
        yield f'{file}: "icon" names {icon}: {error.strerror}'
        return
    # Signature and first chunk of a PNG file: width and height.
    if head[:8] != b"\x89PNG\r\n\x1a\n" or struct.unpack(">II", head[16:24]) != (128, 128):
        yield f'{file}: "icon" names {icon}, which is not a PNG picture of 128 by 128 pixels'
