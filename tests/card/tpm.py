"""A TPM made of software with a token of libtpm2-pkcs11, for inside `demo/card/private` only."""

import contextlib
import glob
import os
import subprocess
import tempfile
import time

BUS = "unix:path=/run/tpm-bus"
MANAGER = "tabrmd:bus_type=session"
PORT = 2321


@contextlib.contextmanager
def tpm(key_and_certificate, pin):
    """The module, and the environment in which it has two keys with one certificate. The second key
    wants the PIN for each signature."""
    with contextlib.ExitStack() as ends:
        store = ends.enter_context(tempfile.TemporaryDirectory())
        own = {"DBUS_SESSION_BUS_ADDRESS": BUS, "TPM2_PKCS11_STORE": store, "TPM2_PKCS11_TCTI": MANAGER,
               "TPM2TOOLS_TCTI": MANAGER, "TPM2_PKCS11_BACKEND": "esysdb", "TSS2_LOG": "all+none"}
        silent = {"env": os.environ | own, "stdout": subprocess.DEVNULL, "stderr": subprocess.DEVNULL}

        def start(*command):
            process = ends.enter_context(subprocess.Popen(command, **silent))
            ends.callback(process.terminate)
            return process

        def make(*command):
            subprocess.run(["tpm2_ptool", *command], check=True, **(silent | {"stderr": None}))

        start("swtpm", "socket", "--tpm2", "--tpmstate", f"dir={store}", "--server", f"type=tcp,port={PORT}",
              "--ctrl", f"type=tcp,port={PORT + 1}", "--flags", "not-need-init,startup-clear")
        start("dbus-daemon", "--session", "--nofork", f"--address={BUS}")
        manager, deadline = None, time.monotonic() + 20
        while subprocess.run(["tpm2_getcap", "properties-fixed"], check=False, **silent).returncode:
            if time.monotonic() > deadline:
                raise TimeoutError("The TPM does not answer.")
            if not manager or manager.poll() is not None:  # it ends where the TPM or the bus is not up yet
                manager = start("tpm2-abrmd", "--session", "--allow-root", f"--tcti=swtpm:host=127.0.0.1,port={PORT}")
            time.sleep(0.1)
        label, user = ["--label", "token"], ["--userpin", pin]
        make("init")
        make("addtoken", "--pid", "1", *label, *user, "--sopin", pin)
        for key, more in ("1", []), ("2", ["--attr-always-authenticate"]):
            make("import", *label, *user, "--key-label", key, "--id", key, "--algorithm", "rsa",
                 "--privkey", f"{key_and_certificate}-key.pem", *more)
            make("addcert", *label, "--key-label", key, f"{key_and_certificate}.pem")
        yield glob.glob("/usr/lib/*/pkcs11/libtpm2_pkcs11.so")[0], own
