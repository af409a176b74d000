"""Builds an operator's host and lays out, as folders, what its packages hold."""

import json
import os
import re
import shutil
import subprocess
import time
from pathlib import Path

import archives
import browsers
import extension
import policies
from operator_file import TOP, OperatorError

DEVELOPMENT_KEY = TOP / "build/development-key"


def run(*command, log, **more):
    """Runs a quiet command; what it printed is shown when it fails."""
    with log.open("ab") as out:
        done = subprocess.run([str(part) for part in command], stdout=out, stderr=subprocess.STDOUT, check=False, **more)
    if done.returncode != 0:
        last = log.read_text(encoding="utf-8", errors="replace").splitlines()[-30:]
        raise OperatorError(*last, f"{command[0]} failed; the whole output is in {log}")


def development_key():
    """The public half of this checkout's key pair, made once: two builds of one operator are equal, and the private
    half never lies in a folder that is shipped."""
    private, public = DEVELOPMENT_KEY / "domains-private.pem", DEVELOPMENT_KEY / "domains-public.pem"
    if not public.exists():
        DEVELOPMENT_KEY.mkdir(parents=True, exist_ok=True)
        key = subprocess.run(["openssl", "genrsa", "-traditional", "1024"], capture_output=True, check=True).stdout
        private.touch(0o600)
        private.write_bytes(key)
        subprocess.run(["openssl", "rsa", "-in", private, "-RSAPublicKey_out", "-out", public], capture_output=True, check=True)
    return public


def public_key_text(file):
    return re.sub(r"-----.*?-----|\s", "", file.read_text(encoding="ascii"))


def build_host(operator, build):
    """Builds in a folder of its own; no path of this machine gets into the programs."""
    key = operator.domains_public_key or development_key()
    maps = f"-ffile-prefix-map={build}=build -ffile-prefix-map={TOP}=."
    log = build / "build.log"
    # Fresh: an option of an earlier run is not an option of this one.
    run("cmake", "--fresh", "--preset", "release", "-B", build, "-DBUILD_TESTING=OFF", "-DCMAKE_INSTALL_PREFIX=/usr",
        f"-DSIGNING_HOST_OPERATOR={operator.folder}", f"-DDOMAINS_PUBLIC_KEY={key}",
        f"-DPKCS11_MODULE={operator['pkcs11Module']}", f"-DCMAKE_C_FLAGS={maps}", f"-DCMAKE_CXX_FLAGS={maps}", "-DCMAKE_EXE_LINKER_FLAGS=-s",
        cwd=TOP, log=log)
    run("cmake", "--build", build, log=log)
    return key


def write(root, path, content, mode=0o644):
    file = root / path.lstrip("/")
    file.parent.mkdir(parents=True, exist_ok=True)
    file.write_bytes(content if isinstance(content, bytes) else content.encode())
    file.chmod(mode)


def filled(operator, file):
    """A template with the operator's values in place of @NAME@."""
    values = {"NAME": operator["package"], "VERSION": operator.version, "HOSTNAME": operator["hostName"],
              "MODULE": operator["pkcs11Module"], "SUPPORT": operator["supportAddress"],
              "SUMMARY": operator["summary"]["en"], "ORIGINS": relay_origins(operator),
              "DATE": time.strftime("%Y-%m-%d", time.gmtime(archives.date()))}
    return re.sub(r"@([A-Z]+)@", lambda found: values.get(found[1], found[0]), (TOP / "packaging" / file).read_text(encoding="utf-8"))


def relay_origins(operator):
    """The relay's --origin for the sites that are one host: it knows no wildcards."""
    hosts = [re.match(r"(https?)://([^/*]+)/", one) for one in operator["sites"]]
    return ",".join(f"{host[2]}:443" if host[1] == "https" else host[2] for host in hosts if host) or "no-site.invalid"


def manual(operator, root, page, name):
    text = filled(operator, f"man/{page}.1.in")
    write(root, f"/usr/share/man/man1/{name}.1.gz", archives.gzip_bytes(text.encode()))


def documents(operator, root, package, form):
    """Copyright and change log where each kind of package has them."""
    copyright_file = (f"Format: https://www.debian.org/doc/packaging-manuals/copyright-format/1.0/\n"
                      f"Upstream-Name: {package}\nSource: {operator['installPage']}\n\n"
                      f"Files: *\nCopyright: {operator['copyright']}\nLicense: {operator['licence']}\n")
    common = re.sub(r"(\.0)?-(only|or-later)$", "", operator["licence"])
    if re.fullmatch(r"Apache-2\.0|GPL-[123]|LGPL-(2|2\.1|3)|MPL-(1\.1|2\.0)", common):
        copyright_file += f" On Debian systems, the whole text is in /usr/share/common-licenses/{common}.\n"
    else:
        copyright_file += " The terms are known by this name at https://spdx.org/licenses/.\n"
    write(root, f"/usr/share/doc/{package}/copyright", copyright_file)
    if form == "deb":
        day = time.strftime("%a, %d %b %Y %H:%M:%S +0000", time.gmtime(archives.date()))
        log = f"{package} ({operator.version}) stable; urgency=medium\n\n  * Version {operator.version}.\n\n"
        write(root, f"/usr/share/doc/{package}/changelog.gz",
              archives.gzip_bytes(f"{log} -- {operator['maintainer']}  {day}\n".encode()))


def stage_host(operator, build, key, root, form):
    """The host, its manifests, the doctor where it was built, the relay's unit and the documents."""
    run("cmake", "--install", build, log=build / "build.log", env={**os.environ, "DESTDIR": str(root)})
    name = operator["package"]
    if form == "rpm":
        # Where the Firefox of 64-bit systems with rpm looks.
        (root / "usr/lib").rename(root / "usr/lib64")
    write(root, f"/usr/share/{name}/domains-public.pem", key.read_bytes())
    write(root, f"/usr/lib/systemd/user/{name}-relay.service", filled(operator, "relay.service.in"))
    manual(operator, root, "host", name)
    if (root / f"usr/bin/{name}-doctor").exists():
        manual(operator, root, "doctor", f"{name}-doctor")
    documents(operator, root, name, form)
    if form == "deb":
        write(root, f"/usr/share/lintian/overrides/{name}",
              "# Chrome and Edge look for hosts nowhere else.\n"
              f"{name}: dir-or-file-in-etc-opt [etc/opt/*]\n")


def stage_sign_domains(operator, key, root, form):
    """The tool of those who run the service, apart: the users' desktops need no Python for it."""
    name = f"{operator['package']}-sign-domains"
    script = (TOP / "script/sign-domains").read_text(encoding="utf-8")
    script = script.replace("#!/usr/bin/env python3", "#!/usr/bin/python3").replace("script/sign-domains", name)
    script = script.replace("/usr/share/signing-host/", f"/usr/share/{name}/")
    write(root, f"/usr/bin/{name}", script, 0o755)
    write(root, f"/usr/share/{name}/domains-public.pem", key.read_bytes())
    manual(operator, root, "sign-domains", name)
    documents(operator, root, name, form)


def stage_policies(operator, root, form):
    name = f"{operator['package']}-policies"
    for path, content in {**policies.files(operator), **policies.external_extensions(operator)}.items():
        write(root, path, content)
    write(root, f"/usr/share/{name}/firefox-policies.json", policies.firefox(operator))
    write(root, f"/usr/share/{name}/merge-firefox-policy",
          (TOP / "packaging/merge-firefox-policy").read_text(encoding="utf-8"), 0o755)
    documents(operator, root, name, form)
    if form == "deb":
        write(root, f"/usr/share/lintian/overrides/{name}",
              "# Chrome and Edge look for policies nowhere else.\n"
              f"{name}: dir-or-file-in-etc-opt [etc/opt/*]\n")


def system_manifests(operator):
    return [f"{one.hosts}/{operator['hostName']}.json" for one in browsers.BROWSERS if one.hosts]


def write_extensions(operator, out):
    """The archives for the stores and for one's own server."""
    for name, browser, with_key in [("extension-chromium.zip", "chromium", False),
                                    ("extension-chromium-self-hosted.zip", "chromium", True),
                                    ("extension-firefox.xpi", "firefox", False)]:
        (out / name).write_bytes(archives.zip_bytes(extension.files(operator, browser, with_key)))


def write_policies(operator, out):
    """The same files as in the package, for who sets policies in another way."""
    shutil.rmtree(out / "policies", ignore_errors=True)
    for path, content in policies.files(operator).items():
        write(out / "policies", path, content)
    for path, content in policies.external_extensions(operator).items():
        write(out / "policies", path, content)
    write(out / "policies", "/etc/firefox/policies/policies.json", policies.firefox(operator))
    for name, content in policies.update_files(operator).items():
        write(out, name, content)


def read_json(file):
    return json.loads(file.read_text(encoding="utf-8"))
