"""Checks finished files, not what they were made from: unpacked, do they belong together?"""

import fnmatch
import json
import os
import re
import struct
import subprocess
import zipfile

import browsers
import policies
from operator_file import chromium_id
from staging import public_key_text, read_json, system_manifests


class Check:
    """Collects what does not fit, one line each."""

    def __init__(self, operator, key):
        self.operator, self.key, self.lines = operator, public_key_text(key), []

    def equal(self, what, found, wanted):
        if found != wanted:
            self.lines.append(f"{what}: {found!r}, but the operator's file makes it {wanted!r}")

    def host(self, name, root):
        """A tree that a package of the host was unpacked into."""
        for path in system_manifests(self.operator):
            file = root / path.lstrip("/")
            if not file.exists():
                file = root / path.replace("/usr/lib/", "usr/lib64/").lstrip("/")
            if not file.exists():
                self.lines.append(f"{name}: {path} is missing")
                continue
            manifest = read_json(file)
            self.equal(f"{name}: name in {path}", manifest["name"], self.operator["hostName"])
            allowed = manifest.get("allowed_origins") or manifest.get("allowed_extensions")
            wanted = [f"chrome-extension://{one}/" for one in self.operator.chromium_ids]
            self.equal(f"{name}: extensions in {path}", allowed, wanted if "allowed_origins" in manifest else [self.operator["firefoxId"]])
            program = root / manifest["path"].lstrip("/")
            if not os.access(program, os.X_OK):
                self.lines.append(f"{name}: {path} names {manifest['path']}, which is no program of the package")
                continue
            content = program.read_bytes()
            for what, text in [("domains key", self.key), ("module", self.operator["pkcs11Module"])]:
                if text.encode() + b"\0" not in content:
                    self.lines.append(f"{name}: {manifest['path']} was built with another {what} than the operator's file names")
        for file in root.rglob("*"):
            if not file.is_symlink() and file.stat().st_mode & 0o777 not in (0o644, 0o755):
                self.lines.append(f"{name}: {file.relative_to(root)} has the mode {file.stat().st_mode & 0o777:o}")

    def extension(self, file, browser):
        with zipfile.ZipFile(file) as archive:
            manifest = json.loads(archive.read("manifest.json"))
            module = archive.read("operator.js").decode()
        name = file.name
        told = json.loads(re.search(r"= (\{.*\});", module, re.DOTALL)[1])
        self.equal(f"{name}: host that it asks for", told["hostName"], self.operator["hostName"])
        self.equal(f"{name}: version", manifest["version"], self.operator.version)
        for script in manifest["content_scripts"]:
            self.equal(f"{name}: pages", script["matches"], self.operator["sites"])
        self.equal(f"{name}: pages in operator.js", told["sites"], self.operator["sites"])
        if browser == "firefox":
            self.equal(f"{name}: id", manifest["browser_specific_settings"]["gecko"]["id"], self.operator["firefoxId"])
        elif "key" in manifest:
            self.equal(f"{name}: id of its key", chromium_id(manifest["key"]), self.operator.chromium_ids[0])

    def policies(self, name, root):
        """A tree with the policies of every browser."""
        one, address = policies.chromium_source(self.operator)
        firefox = next((f"/{file.relative_to(root)}" for file in root.rglob("*policies.json")), "/policies.json")
        wanted = [(firefox, ["policies", "ExtensionSettings"], {self.operator["firefoxId"]: {
            "installation_mode": "force_installed", "install_url": policies.firefox_source(self.operator)}})]
        for browser in browsers.BROWSERS:
            if browser.kind == "chromium" and browser.policies:
                wanted.append((f"{browser.policies}/{self.operator['hostName']}.json", ["ExtensionInstallForcelist"], [f"{one};{address}"]))
            if browser.extensions:
                wanted.append((f"{browser.extensions}/{one}.json", ["external_update_url"], address))
        for path, members, value in wanted:
            file = root / path.lstrip("/")
            if not file.exists():
                self.lines.append(f"{name}: {path} is missing")
                continue
            found = read_json(file)
            for member in members:
                found = found.get(member)
            self.equal(f"{name}: extension in {path}", found, value)

    def domains(self, file, program):
        """Has the built host judge a signed list, for one page of every site that the extension serves."""
        try:
            signed = read_json(file)
            texts = {"signature": signed["signature"], "domains": signed["domains"]}
        except (OSError, ValueError, KeyError, TypeError) as error:
            self.lines.append(f"{file}: not what sign-domains prints: {error!r}")
            return
        for site in self.operator["sites"]:
            page = re.sub(r"^(https?://)\*\.", r"\1www.", site).split("/*")[0]
            verdict = authorisation(program, {"command": 0, **texts, "currentDomain": page, "caSubjectNames": ""})
            if verdict == 10:
                self.lines.append(f"{file}: the signature does not verify with the key in the host")
                return
            if verdict == 9:
                self.lines.append(f"{file}: {page}, which the extension serves, is not covered by {signed['domains']}")


def authorisation(program, initialise):
    """Error code of a listing without a token: the host judges the list before it looks for one."""
    frames = b"".join(struct.pack("=I", len(text)) + text for text in
                      (json.dumps(one, separators=(",", ":")).encode() for one in (initialise, {"command": 2})))
    answered = subprocess.run([program], input=frames, capture_output=True, timeout=60, check=False,
                              env={"SIGNING_HOST_PKCS11_MODULE": "/nonexistent", "PATH": os.environ["PATH"]}).stdout
    (first,) = struct.unpack("=I", answered[:4])
    return json.loads(answered[8 + first:])["lastError"]


def unpack(package, folder):
    folder.mkdir(parents=True)
    if fnmatch.fnmatch(package.name, "*.deb"):
        subprocess.run(["dpkg-deb", "--extract", package, folder], check=True)
    elif fnmatch.fnmatch(package.name, "*.rpm"):
        archive = subprocess.run(["rpm2archive", "-n", "-"], stdin=package.open("rb"), capture_output=True, check=True).stdout
        subprocess.run(["tar", "-x", "--no-same-owner", "-C", folder], input=archive, check=True)
    else:
        subprocess.run(["tar", "-xf", package, "--no-same-owner", "--strip-components=2", "-C", folder], check=True)
