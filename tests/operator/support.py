"""What the tests of the operator's kit share: operators made from the example, and programs."""

import json
import shutil
import subprocess
import sys
from pathlib import Path

TOP = Path(__file__).resolve().parents[2]
sys.path.insert(0, str(TOP / "operator"))
from operator_file import EXAMPLE  # noqa: E402


def run(*command, **options):
    return subprocess.run([str(part) for part in command], capture_output=True, text=True, errors="surrogateescape", check=False, **options)


def make_key(folder, bits=1024):
    """A key pair for domain lists; returns the private half."""
    run("openssl", "genrsa", "-out", folder / "private.pem", bits)
    run("openssl", "rsa", "-in", folder / "private.pem", "-RSAPublicKey_out", "-out", folder / "domains-public.pem")
    return folder / "private.pem"


def make_operator(folder, **members):
    """The example with other members and a key of its own."""
    shutil.copytree(EXAMPLE, folder)
    make_key(folder)
    whole = json.loads((EXAMPLE / "operator.json").read_text(encoding="utf-8")) | {"domainsPublicKey": "domains-public.pem", **members}
    (folder / "operator.json").write_text(json.dumps(whole), encoding="utf-8")
    return folder


def sign_domains(key, names, *options):
    return run(TOP / "script/sign-domains", "--key", key, *options, input=names)
