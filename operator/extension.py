"""Packs the extension of an operator: the sources in extension/ and what operator.json says.

What is the operator's reaches the sources as the generated module operator.js.
"""

import json
import shutil

from operator_file import LANGUAGES, TOP

SOURCES = TOP / "extension"
TEXTS = TOP / "texts"
#: What belongs into the packed extension; the rest of the folder is for its developers.
SUFFIXES = {".js", ".html", ".css", ".svg", ".png"}
BROWSERS = ("chromium", "firefox")
#: Modules that the extension shares with others.
SHARED = {
    "texts/texts.js": TEXTS / "texts.js",
    "certificate.js": TOP / "client/certificate.js",
    "failure-kind.js": TOP / "client/failure-kind.js",
    "signature.js": TOP / "client/signature.js",
}
#: Areas of the catalogue that no part of the extension shows.
FOREIGN_AREAS = {"client", "demo", "doctor", "install"}


def operator_module(operator):
    told = {name: operator[name] for name in (
        "hostName", "productName", "package", "sites", "supportAddress", "installPage", "pinEntry", "oneConsentForBatch")}
    told["version"] = operator.version
    return ("// Made from the operator's file; see operator/README.md.\n"
            f"export const operator = {json.dumps(told, indent=2, ensure_ascii=False)};\n")


def manifest(operator, browser, with_key):
    """The manifest of one browser. The store of Chromium refuses a key, self-hosting needs it."""
    made = json.loads((SOURCES / "manifest.in.json").read_text(encoding="utf-8"))
    made |= {"name": "__MSG_name__", "description": "__MSG_description__", "default_locale": LANGUAGES[0],
             "version": operator.version, "homepage_url": operator["installPage"], "icons": {"128": "icon.png"}}
    for script in made["content_scripts"]:
        script["matches"] = operator["sites"]
    if "action" in made:
        made["action"] |= {"default_icon": "icon.png", "default_title": "__MSG_name__"}
    update_url = operator.members.get("updateUrl")
    if browser == "chromium":
        del made["browser_specific_settings"]
        if with_key and operator.chromium_key:
            made["key"] = operator.chromium_key
            if update_url:
                made["update_url"] = update_url + CHROMIUM_UPDATES
    else:
        del made["minimum_chrome_version"]
        made["background"]["scripts"] = [made["background"].pop("service_worker")]
        gecko = made["browser_specific_settings"]["gecko"]
        gecko["id"] = operator["firefoxId"]
        if update_url:
            gecko["update_url"] = update_url + FIREFOX_UPDATES
    return made


#: Names, in the folder of "updateUrl", of the files in which browsers look for new versions.
CHROMIUM_UPDATES = "chromium-updates.xml"
FIREFOX_UPDATES = "firefox-updates.json"


def files(operator, browser, with_key=True):
    """The packed extension: bytes by relative path."""
    packed = {}
    for source in sorted(SOURCES.rglob("*")):
        if source.is_file() and source.suffix in SUFFIXES:
            packed[str(source.relative_to(SOURCES))] = source.read_bytes()
    for name, source in SHARED.items():
        packed[name] = source.read_bytes()
    for source in sorted(TEXTS.glob("*.json")):
        texts = json.loads(source.read_text(encoding="utf-8"))
        own = {key: text for key, text in texts.items() if key.split(".")[0] not in FOREIGN_AREAS}
        packed[f"texts/{source.name}"] = as_json(own)
    for language in LANGUAGES:
        messages = {"name": {"message": operator["productName"][language]},
                    "description": {"message": operator["summary"][language]}}
        packed[f"_locales/{language}/messages.json"] = as_json(messages)
    packed["icon.png"] = operator.icon.read_bytes()
    packed["operator.js"] = operator_module(operator).encode()
    packed["manifest.json"] = as_json(manifest(operator, browser, with_key))
    return dict(sorted(packed.items()))


def as_json(value):
    return (json.dumps(value, indent=2, ensure_ascii=False) + "\n").encode()


def write_folder(packed, folder):
    """Replaces the folder by the packed files."""
    shutil.rmtree(folder, ignore_errors=True)
    for name, content in packed.items():
        file = folder / name
        file.parent.mkdir(parents=True, exist_ok=True)
        file.write_bytes(content)
