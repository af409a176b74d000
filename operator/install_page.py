"""INSTALL.html: how a person installs the operator's product, in both languages on one page."""

import html
import json
import platform

import policies
from operator_file import LANGUAGES, TOP

STYLE = """:root { color-scheme: light dark; font: 1.05rem/1.5 system-ui, sans-serif }
body { max-width: 42rem; margin: 2rem auto; padding: 0 1rem }
pre { padding: .6rem .8rem; border: 1px solid; border-radius: .4rem; overflow-x: auto }
a { overflow-wrap: anywhere }
section + section { margin-top: 3rem; border-top: 1px solid }"""


def page(operator):
    sections = "\n".join(section(operator, language) for language in LANGUAGES)
    links = " · ".join(f'<a href="#{language}" lang="{language}" hreflang="{language}">{name}</a>'
                       for language, name in zip(LANGUAGES, ("English", "Español")))
    title = html.escape(operator["productName"][LANGUAGES[0]])
    return (f'<!doctype html>\n<html lang="{LANGUAGES[0]}">\n<meta charset="utf-8">\n'
            f'<meta name="viewport" content="width=device-width">\n<title>{title}</title>\n'
            f"<style>\n{STYLE}\n</style>\n<nav>{links}</nav>\n{sections}\n</html>\n")


def section(operator, language):
    texts = json.loads((TOP / f"texts/{language}.json").read_text(encoding="utf-8"))
    package, version = operator["package"], operator.version
    machine = platform.machine()
    words = {"product": operator["productName"][language], "doctor": f"{package}-doctor"}

    def tell(tag, key):
        return f"<{tag}>{html.escape(texts[f'install.{key}'].format(**words))}</{tag}>"

    def command(text):
        return f"<pre>{html.escape(text)}</pre>"

    def link(address):
        return f'<p><a href="{html.escape(address)}">{html.escape(address)}</a></p>'

    archive = f"{package}-{version}-linux-{machine}"
    parts = [
        tell("h1", "title"), f"<p>{html.escape(operator['summary'][language])}</p>", tell("p", "what"),
        tell("h2", "program"),
        tell("p", "debian"), command(f"sudo apt install ./{package}_{version}_*.deb"),
        tell("p", "rpm"), command(f"sudo dnf install ./{package}-{version}-1.{machine}.rpm"),
        tell("p", "other"), command(f"tar xf {archive}.tar.gz\nsudo {archive}/install"),
        tell("p", "systems"),
        tell("h2", "extension"),
        *([tell("p", "chromium"), link(chromium_page(operator))] if operator.in_store else [tell("p", "chromium-policy")]),
        tell("p", "firefox"), link(policies.firefox_source(operator)),
        tell("p", "policy"), command(f"sudo apt install ./{package}-policies_{version}_all.deb"),
        tell("h2", "card"), tell("p", "card-how"),
        tell("h2", "remove"), tell("p", "remove-how"), command(f"sudo apt remove {package}    # .deb\nsudo dnf remove {package}    # .rpm\nsudo {archive}/install --remove    # .tar.gz"),
        tell("h2", "help"), link(operator["supportAddress"]),
    ]
    return f'<section id="{language}" lang="{language}">\n' + "\n".join(parts) + "\n</section>"


def chromium_page(operator):
    """Where a person gets the extension: from the store only, unless an administrator says otherwise."""
    return f"https://chromewebstore.google.com/detail/{operator.store_id}"
