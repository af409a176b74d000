"""A pcscd of one's own with a virtual reader, to be run inside `demo/card/private` only."""

import glob
import os
import subprocess
import tempfile
import time
from pathlib import Path

# Unpacked and not installed: installed, the machine's own pcscd would offer a virtual card to
# whoever can reach the machine.
PACKAGE = "vsmartcard-vpcd"
UNPACKED = Path(__file__).resolve().parents[2] / "build" / PACKAGE
DRIVER = "usr/lib/pcsc/drivers/serial/libifdvpcd.so"


def fetch_driver():
    """Outside, where the network is: the reader's driver, from Debian's archive."""
    if not Path("/", DRIVER).exists() and not (UNPACKED / DRIVER).exists():
        UNPACKED.mkdir(parents=True, exist_ok=True)
        unpack = f"apt-get download -qq -o APT::Sandbox::User=root {PACKAGE} && dpkg -x {PACKAGE}_*.deb ."
        if subprocess.run(unpack, shell=True, cwd=UNPACKED, check=False).returncode:
            raise SystemExit(f"{DRIVER} (Debian: {PACKAGE}) is missing, and apt does not get it")


def opensc_module():
    return (glob.glob("/usr/lib/*/opensc-pkcs11.so") + glob.glob("/usr/lib*/opensc-pkcs11.so"))[0]


def certificate_ids(host, count=1):
    """Of the card's certificates, once so many are listed: pcscd looks for a card twice a second."""
    deadline = time.monotonic() + 20
    while len(ids := host.ask(command=2)["certificates"].split("|")[2::3]) != count:
        if time.monotonic() > deadline:
            raise TimeoutError(f"There are {len(ids)} certificates, not {count}.")
        time.sleep(0.05)
    return ids


class CardService:
    """pcscd; in a `with` block it runs."""

    def __init__(self, readers=1):
        self.kept = tempfile.TemporaryDirectory()
        self.folder = Path(self.kept.name)
        (self.folder / "no-hot-plug").mkdir()
        driver = next(path for path in (Path("/", DRIVER), UNPACKED / DRIVER) if path.exists())
        (self.folder / "readers").write_text(
            f'FRIENDLYNAME "Virtual"\nDEVICENAME /dev/null:0x8C7B\nLIBPATH {driver}\n'
            "CHANNELID 0x8C7B\n" * readers)

    def start(self):
        Path("/run/pcscd").mkdir(exist_ok=True)
        # Where there is polkit it cannot be asked in here.
        known = subprocess.run(["pcscd", "--help"], stdout=subprocess.PIPE, text=True).stdout
        polkit = [option for option in ["--disable-polkit"] if option in known]
        with open(self.folder / "log", "w", encoding="utf-8") as log:
            self.process = subprocess.Popen(
                ["pcscd", "-f", *polkit, "-c", self.folder / "readers"], stdout=log, stderr=log,
                env={**os.environ, "PCSCLITE_HP_DROPDIR": str(self.folder / "no-hot-plug")})

    def stop(self):
        self.process.terminate()
        self.process.wait()

    def __enter__(self):
        self.start()
        return self

    def __exit__(self, *_):
        self.stop()
        self.kept.cleanup()
