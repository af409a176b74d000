"""What an administrator sets so that browsers install the extension by themselves."""

import json

import browsers
import extension

CHROME_STORE = "https://clients2.google.com/service/update2/crx"
FIREFOX_STORE = "https://addons.mozilla.org/firefox/downloads/latest/{}/latest.xpi"


def chromium_source(operator):
    """Where Chromium and its relatives ask for the extension."""
    folder = operator.members.get("updateUrl")
    return folder + extension.CHROMIUM_UPDATES if folder else CHROME_STORE


def firefox_source(operator):
    folder = operator.members.get("updateUrl")
    return folder + "extension-firefox.xpi" if folder else FIREFOX_STORE.format(operator["firefoxId"])


def files(operator):
    """Policy files by the path where the browsers read them."""
    made = {}
    for browser in browsers.BROWSERS:
        if browser.kind == "firefox" or not browser.policies:
            continue
        # The second policy lets lists of several files add up instead of the first one winning.
        made[f"{browser.policies}/{operator['hostName']}.json"] = {
            "ExtensionInstallForcelist": [f"{operator.chromium_ids[0]};{chromium_source(operator)}"],
            "PolicyListMultipleSourceMergeList": ["ExtensionInstallForcelist"],
        }
    return {path: extension.as_json(content) for path, content in made.items()}


def external_extensions(operator):
    """The other way of Chrome and Chromium: an extension that comes with the system, not a policy."""
    content = extension.as_json({"external_update_url": chromium_source(operator)})
    return {f"{browser.extensions}/{operator.chromium_ids[0]}.json": content
            for browser in browsers.BROWSERS if browser.extensions}


def firefox(operator):
    """The one file that Firefox reads; the package merges it into what is there."""
    return extension.as_json({"policies": {"ExtensionSettings": {
        operator["firefoxId"]: {"installation_mode": "force_installed", "install_url": firefox_source(operator)}}}})


def update_files(operator):
    """What lies in the folder of "updateUrl" beside the signed extensions, by name."""
    folder = operator.members.get("updateUrl")
    if not folder:
        return {}
    chromium = (f"<?xml version='1.0' encoding='UTF-8'?>\n"
                f"<gupdate xmlns='http://www.google.com/update2/response' protocol='2.0'>\n"
                f"  <app appid='{operator.chromium_ids[0]}'>\n"
                f"    <updatecheck codebase='{folder}extension-chromium.crx' version='{operator.version}'/>\n"
                f"  </app>\n</gupdate>\n")
    firefox_updates = {"addons": {operator["firefoxId"]: {"updates": [
        {"version": operator.version, "update_link": firefox_source(operator)}]}}}
    return {extension.CHROMIUM_UPDATES: chromium.encode(),
            extension.FIREFOX_UPDATES: json.dumps(firefox_updates, indent=2).encode() + b"\n"}
