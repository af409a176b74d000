"""What an administrator sets so that browsers install the extension by themselves."""

import json

import browsers
import extension

CHROME_STORE = "https://clients2.google.com/service/update2/crx"
FIREFOX_STORE = "https://addons.mozilla.org/firefox/downloads/latest/{}/latest.xpi"


def chromium_source(operator):
    """Id of the extension, and where Chromium and its relatives ask for it."""
    if operator.self_hosted:
        return operator.chromium_ids[0], operator["updateUrl"] + extension.CHROMIUM_UPDATES
    return operator.store_id, CHROME_STORE


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
            "ExtensionInstallForcelist": [";".join(chromium_source(operator))],
            "PolicyListMultipleSourceMergeList": ["ExtensionInstallForcelist"],
        }
    return {path: extension.as_json(content) for path, content in made.items()}


def external_extensions(operator):
    """The other way of Chrome and Chromium: an extension that comes with the system, not a policy."""
    one, address = chromium_source(operator)
    content = extension.as_json({"external_update_url": address})
    return {f"{browser.extensions}/{one}.json": content
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
    made = {extension.FIREFOX_UPDATES: json.dumps(firefox_updates, indent=2).encode() + b"\n"}
    return made | {extension.CHROMIUM_UPDATES: chromium.encode()} if operator.self_hosted else made
