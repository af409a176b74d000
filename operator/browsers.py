"""The browsers that are served on Linux, and where each looks for hosts, policies and extensions."""

import json
import pathlib
from typing import NamedTuple, Optional


class Browser(NamedTuple):
    name: str
    #: "chromium" or "firefox": the form of manifests and policies.
    kind: str
    #: Names of its programs.
    programs: tuple
    #: Hosts of one user, under the user's configuration folder, or under the home for Firefox.
    user_hosts: str
    #: Hosts of all users; a relative of Chromium that has none of its own here reads another's.
    hosts: Optional[str] = None
    #: Policies that the machine's administrator sets.
    policies: Optional[str] = None
    #: One file for each extension that comes with the system.
    extensions: Optional[str] = None


BROWSERS = tuple(
    Browser(**row)
    for row in json.loads((pathlib.Path(__file__).parent / "browsers.json").read_text(encoding="utf-8"))["browsers"]
)


def host_manifest(operator, kind, program):
    """What tells a browser of that kind which program the host is and which extensions may start it."""
    made = {"name": operator["hostName"], "description": operator["summary"]["en"], "path": str(program), "type": "stdio"}
    if kind == "chromium":
        made["allowed_origins"] = [f"chrome-extension://{one}/" for one in operator.chromium_ids]
    else:
        made["allowed_extensions"] = [operator["firefoxId"]]
    return made
