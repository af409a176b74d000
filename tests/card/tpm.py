"""A TPM made of software with a token of libtpm2-pkcs11, for inside `demo/card/private` only."""

import glob
import os
import subprocess
import tempfile
import time
from pathlib import Path

BUS = "unix:path=/run/tpm-bus"
PORT = 2321
MANAGER = "tpm2-abrmd"  # ends where the TPM or the bus is not up yet


class Tpm:
    """Two keys with one certificate, the second of which wants the PIN for each signature."""

    def __init__(self, key_and_certificate, pin):
        self.folder = tempfile.TemporaryDirectory()
        self.name, self.pin, self.processes = key_and_certificate, pin, []
        self.module = glob.glob("/usr/lib/*/pkcs11/libtpm2_pkcs11.so")[0]
        manager = "tabrmd:bus_type=session"
        self.environment = {"DBUS_SESSION_BUS_ADDRESS": BUS, "TPM2_PKCS11_STORE": self.folder.name,
                            "TPM2_PKCS11_TCTI": manager, "TPM2TOOLS_TCTI": manager,
                            "TPM2_PKCS11_BACKEND": "esysdb", "TSS2_LOG": "all+none"}

    def start(self, *command):
        self.processes.append(subprocess.Popen(
            command, env={**os.environ, **self.environment}, stdout=subprocess.DEVNULL,
            stderr=subprocess.DEVNULL))

    def run(self, *command):
        return subprocess.run(command, env={**os.environ, **self.environment}, text=True,
                              stdout=subprocess.PIPE, stderr=subprocess.STDOUT)

    def __enter__(self):
        state = Path(self.folder.name, "state")
        state.mkdir()
        self.start("swtpm", "socket", "--tpm2", "--tpmstate", f"dir={state}", "--server",
                   f"type=tcp,port={PORT}", "--ctrl", f"type=tcp,port={PORT + 1}", "--flags",
                   "not-need-init,startup-clear")
        self.start("dbus-daemon", "--session", "--nofork", f"--address={BUS}")
        deadline = time.monotonic() + 20
        while self.run("tpm2_getcap", "properties-fixed").returncode:
            if time.monotonic() > deadline:
                raise TimeoutError("The TPM does not answer.")
            if self.processes[-1].args[0] != MANAGER or self.processes[-1].poll() is not None:
                self.start(MANAGER, "--session", "--allow-root",
                           f"--tcti=swtpm:host=127.0.0.1,port={PORT}")
            time.sleep(0.1)
        label, pin = ["--label", "token"], ["--userpin", self.pin]
        self.make("init")
        self.make("addtoken", "--pid", "1", *label, *pin, "--sopin", self.pin)
        for key, more in ("1", []), ("2", ["--attr-always-authenticate"]):
            self.make("import", *label, *pin, "--key-label", key, "--id", key, "--algorithm", "rsa",
                      "--privkey", f"{self.name}-key.pem", *more)
            self.make("addcert", *label, "--key-label", key, f"{self.name}.pem")
        return self

    def make(self, *command):
        outcome = self.run("tpm2_ptool", *command)
        if outcome.returncode:
            raise RuntimeError(f"tpm2_ptool {command[0]}: {outcome.stdout}")

    def __exit__(self, *_):
        for process in reversed(self.processes):
            process.terminate()
            process.wait()
        self.folder.cleanup()
