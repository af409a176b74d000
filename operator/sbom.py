"""The bill of materials, CycloneDX 1.5: what the packages and the extension hold; nothing of others is linked in."""

import hashlib
import json
import os
import re
import subprocess
import time
import uuid

import archives


def digest(content):
    return [{"alg": "SHA-256", "content": hashlib.sha256(content).hexdigest()}]


def needed(program):
    """Shared libraries that a program asks the system for; a script asks for none."""
    dynamic = subprocess.run(["readelf", "--dynamic", program], capture_output=True, text=True, check=False).stdout
    return sorted(re.findall(r"\(NEEDED\).*\[(.*)\]", dynamic))


def document(operator, roots, packed_extension):
    """The programs of the packages laid out in `roots`, the extension, and what they ask the system for."""
    own = {"version": operator.version, "licenses": [{"expression": operator["licence"]}]}
    programs = sorted((file for root in roots for file in root.rglob("*") if file.is_file() and os.access(file, os.X_OK)),
                      key=lambda file: file.name)
    asked = {program.name: needed(program) for program in programs}
    components = [{"type": "application", "bom-ref": name, "name": name, **own, "hashes": digest(program.read_bytes())}
                  for name, program in zip(asked, programs)]
    components += [{"type": "library", "bom-ref": library, "name": library, "scope": "required",
                    "description": "taken from the system when the program starts"} for library in sorted(set().union(*asked.values()))]
    components.append({"type": "application", "bom-ref": "the extension", "name": f"{operator['package']} extension", **own,
                       "components": [{"type": "file", "name": name, "hashes": digest(content)}
                                      for name, content in packed_extension.items()]})
    product = {"type": "application", "bom-ref": "the product", "name": operator["package"], "copyright": operator["copyright"], **own}
    made = {"bomFormat": "CycloneDX", "specVersion": "1.5", "version": 1,
            "metadata": {"timestamp": time.strftime("%Y-%m-%dT%H:%M:%SZ", time.gmtime(archives.date())), "component": product},
            "components": components,
            "dependencies": [{"ref": "the product", "dependsOn": [*asked, "the extension"]},
                             *({"ref": name, "dependsOn": libraries} for name, libraries in asked.items())]}
    # Named after its content, so that the same content has the same name.
    made["serialNumber"] = uuid.uuid5(uuid.NAMESPACE_URL, json.dumps(made, sort_keys=True)).urn
    return json.dumps(made, indent=2, ensure_ascii=False) + "\n"
