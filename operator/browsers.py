"""The browsers that are served on Linux, and where each looks for hosts, policies and extensions."""

from typing import NamedTuple, Optional


class Browser(NamedTuple):
    name: str
    #: "chromium" or "firefox": the form of manifests and policies.
    kind: str
    #: Hosts of one user, under the user's configuration folder, or under the home for Firefox.
    user_hosts: str
    #: Hosts of all users; a relative of Chromium that has none of its own here reads another's.
    hosts: Optional[str] = None
    #: Policies that the machine's administrator sets.
    policies: Optional[str] = None
    #: One file for each extension that comes with the system.
    extensions: Optional[str] = None


BROWSERS = (
    Browser("Chrome", "chromium", "google-chrome/NativeMessagingHosts", "/etc/opt/chrome/native-messaging-hosts",
            "/etc/opt/chrome/policies/managed", "/usr/share/google-chrome/extensions"),
    Browser("Chromium", "chromium", "chromium/NativeMessagingHosts", "/etc/chromium/native-messaging-hosts",
            "/etc/chromium/policies/managed", "/usr/share/chromium/extensions"),
    Browser("Edge", "chromium", "microsoft-edge/NativeMessagingHosts", "/etc/opt/edge/native-messaging-hosts",
            "/etc/opt/edge/policies/managed"),
    Browser("Brave", "chromium", "BraveSoftware/Brave-Browser/NativeMessagingHosts"),
    Browser("Vivaldi", "chromium", "vivaldi/NativeMessagingHosts"),
    Browser("Firefox", "firefox", ".mozilla/native-messaging-hosts", "/usr/lib/mozilla/native-messaging-hosts",
            "/etc/firefox/policies"),
)


def host_manifest(operator, kind, program):
    """What tells a browser of that kind which program the host is and which extensions may start it."""
    made = {"name": operator["hostName"], "description": operator["summary"]["en"], "path": str(program), "type": "stdio"}
    if kind == "chromium":
        made["allowed_origins"] = [f"chrome-extension://{one}/" for one in operator.chromium_ids]
    else:
        made["allowed_extensions"] = [operator["firefoxId"]]
    return made
