"""The bill of materials, CycloneDX 1.5: what the packages hold, and what was linked into the host."""

import hashlib
import json
import re
import subprocess
import time
import uuid

import archives


def digest(content):
    return [{"alg": "SHA-256", "content": hashlib.sha256(content).hexdigest()}]


def compiler_runtime(build):
    """The C++ runtime that is linked into the programs, by the version of the compiler that brought it."""
    cache = (build / "CMakeCache.txt").read_text(encoding="utf-8")
    compiler = re.search(r"^CMAKE_CXX_COMPILER:\w+=(.*)$", cache, re.MULTILINE)[1]
    version = subprocess.run([compiler, "-dumpfullversion", "-dumpversion"], capture_output=True, text=True, check=True)
    version = version.stdout.split()[0]
    return [{"type": "library", "bom-ref": f"{name}@{version}", "name": name, "version": version, "purl": f"pkg:generic/{name}@{version}",
             "licenses": [{"expression": "GPL-3.0-or-later WITH GCC-exception-3.1"}]} for name in ("libstdc++", "libgcc")]


def needed(program):
    """Shared libraries that a program asks the system for."""
    dynamic = subprocess.run(["readelf", "--dynamic", program], capture_output=True, text=True, check=True).stdout
    return sorted(re.findall(r"\(NEEDED\).*\[(.*)\]", dynamic))


def document(operator, build, host_root, packed_extension):
    programs = sorted((host_root / "usr/bin").iterdir())
    runtime = compiler_runtime(build)
    shared = sorted({library for program in programs for library in needed(program)})
    components = [{"type": "application", "bom-ref": program.name, "name": program.name, "version": operator.version,
                   "licenses": [{"expression": operator["licence"]}], "hashes": digest(program.read_bytes())}
                  for program in programs]
    components += runtime
    components += [{"type": "library", "bom-ref": library, "name": library, "scope": "required",
                    "description": "taken from the system when the program starts"} for library in shared]
    components.append({"type": "application", "bom-ref": "extension", "name": f"{operator['package']} extension",
                       "version": operator.version, "licenses": [{"expression": operator["licence"]}],
                       "components": [{"type": "file", "name": name, "hashes": digest(content)}
                                      for name, content in packed_extension.items()]})
    product = {"type": "application", "bom-ref": "product", "name": operator["package"], "version": operator.version,
               "copyright": operator["copyright"], "licenses": [{"expression": operator["licence"]}]}
    dependencies = [{"ref": program.name, "dependsOn": needed(program) + [one["bom-ref"] for one in runtime]} for program in programs]
    made = {"bomFormat": "CycloneDX", "specVersion": "1.5", "version": 1,
            "metadata": {"timestamp": time.strftime("%Y-%m-%dT%H:%M:%SZ", time.gmtime(archives.date())), "component": product},
            "components": components,
            "dependencies": [{"ref": "product", "dependsOn": [program.name for program in programs] + ["extension"]}, *dependencies]}
    # Named after its content, so that the same content has the same name.
    made["serialNumber"] = uuid.uuid5(uuid.NAMESPACE_URL, json.dumps(made, sort_keys=True)).urn
    return json.dumps(made, indent=2, ensure_ascii=False) + "\n"
