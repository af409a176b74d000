"""Packs laid-out folders as .deb and .rpm with CPack, and as a tarball with an installer."""

import platform
import shutil
import textwrap

import archives
import staging
from operator_file import TOP

ARCHITECTURES = {"x86_64": "amd64", "aarch64": "arm64"}


def quoted(value):
    """A CMake string, or of a list the list's elements in one."""
    if isinstance(value, list):
        return '"' + ";".join(quoted(one)[1:-1] for one in value) + '"'
    return '"' + str(value).replace("\\", "\\\\").replace('"', '\\"').replace("$", "\\$") + '"'


def configuration(values):
    return "".join(f"set({name} {quoted(value)})\n" for name, value in values.items())


def pack(operator, build, out, kind, form, root, more):
    """Packs one folder; `kind` is "" for the host's package or what its name ends with."""
    name = operator["package"] + (f"-{kind}" if kind else "")
    noarch = kind != ""
    machine = platform.machine()
    architecture = {"deb": "all" if noarch else ARCHITECTURES[machine], "rpm": "noarch" if noarch else machine}[form]
    separator = "_" if form == "deb" else "-"
    file = f"{name}{separator}{operator.version}{'' if form == 'deb' else '-1'}{separator.replace('-', '.')}{architecture}"
    summary = operator["summary"]["en"].rstrip(".")
    folder = build / "cpack" / f"{name}-{form}"
    shutil.rmtree(folder, ignore_errors=True)
    folder.mkdir(parents=True)
    conffiles = [str(one.relative_to(root)) for one in sorted((root / "etc").rglob("*")) if one.is_file()]
    texts = {"": "The program that the browser starts for the extension, and what tells the browsers of it.",
             "policies": "Has every browser of this machine install the extension, whatever its user chose.",
             "sign-domains": "For those who run the service: signs the list of domains whose pages may use the card."}
    values = {"CPACK_PACKAGE_NAME": name, "CPACK_PACKAGE_VERSION": operator.version, "CPACK_PACKAGE_FILE_NAME": file,
              "CPACK_PACKAGE_DIRECTORY": folder, "CPACK_TOPLEVEL_TAG": form, "CPACK_PACKAGING_INSTALL_PREFIX": "/",
              "CPACK_PACKAGE_CONTACT": operator["maintainer"], "CPACK_PACKAGE_VENDOR": operator["maintainer"].split(" <")[0],
              "CPACK_PACKAGE_DESCRIPTION_SUMMARY": summary, "CPACK_PACKAGE_DESCRIPTION": "\n".join(textwrap.wrap(texts[kind], 75)),
              "CPACK_PACKAGE_HOMEPAGE_URL": operator["installPage"]}
    if form == "deb":
        control = folder / "control"
        control.mkdir()
        scripts = [("conffiles", "".join(f"/{one}\n" for one in conffiles), 0o644)] if conffiles else []
        for script, text in more.get("scripts", {}).items():
            scripts.append(({"post": "postinst", "pre": "prerm"}[script], text, 0o755))
        for script, text, mode in scripts:
            staging.write(control, script, text, mode)
        values |= {"CPACK_DEBIAN_PACKAGE_CONTROL_EXTRA": [control / one[0] for one in scripts],
                   "CPACK_DEBIAN_PACKAGE_ARCHITECTURE": architecture, "CPACK_DEBIAN_PACKAGE_SECTION": "web",
                   "CPACK_DEBIAN_PACKAGE_SHLIBDEPS": "OFF" if noarch else "ON",
                   "CPACK_DEBIAN_PACKAGE_DEPENDS": more.get("depends", ""),
                   "CPACK_DEBIAN_PACKAGE_RECOMMENDS": more.get("recommends", ""),
                   "CPACK_DEBIAN_PACKAGE_SUGGESTS": more.get("suggests", ""),
                   "CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION": "TRUE"}
    else:
        values |= {"CPACK_RPM_PACKAGE_ARCHITECTURE": architecture, "CPACK_RPM_PACKAGE_LICENSE": operator["licence"],
                   "CPACK_RPM_PACKAGE_RELEASE": "1", "CPACK_RPM_PACKAGE_DESCRIPTION": texts[kind],
                   "CPACK_RPM_PACKAGE_REQUIRES": more.get("requires", ""), "CPACK_RPM_USER_FILELIST": [f"%config(noreplace) /{one}" for one in conffiles],
                   "CPACK_RPM_PACKAGE_AUTOREQPROV": "no" if noarch else "yes",
                   "CPACK_RPM_SPEC_MORE_DEFINE": "%define _buildhost reproducible\n%define use_source_date_epoch_as_buildtime 1\n"
                                                 "%define clamp_mtime_to_source_date_epoch 1\n%define _build_id_links none\n"
                                                 "%define __os_install_post %{nil}",
                   "CPACK_RPM_EXCLUDE_FROM_AUTO_FILELIST_ADDITION": SYSTEM_FOLDERS}
        for script, text in more.get("scripts", {}).items():
            staging.write(folder, f"{script}.sh", text, 0o755)
            phase = {"post": "POST_INSTALL", "pre": "PRE_UNINSTALL"}[script]
            values[f"CPACK_RPM_{phase}_SCRIPT_FILE"] = folder / f"{script}.sh"
    text = configuration(values) + f'set(CPACK_INSTALLED_DIRECTORIES {quoted(root)} "/")\n'
    (folder / "config.cmake").write_text(text, encoding="utf-8")
    staging.run("cpack", "-G", form.upper(), "--config", folder / "config.cmake", log=build / "build.log", cwd=folder)
    shutil.copyfile(folder / f"{file}.{form}", out / f"{file}.{form}")
    return out / f"{file}.{form}"


#: Folders that belong to the system or to the browsers, not to a package.
SYSTEM_FOLDERS = [
    "/etc", "/etc/chromium", "/etc/chromium/native-messaging-hosts", "/etc/chromium/policies", "/etc/chromium/policies/managed",
    "/etc/opt", "/etc/opt/chrome", "/etc/opt/chrome/native-messaging-hosts", "/etc/opt/chrome/policies",
    "/etc/opt/chrome/policies/managed", "/etc/opt/edge", "/etc/opt/edge/native-messaging-hosts", "/etc/opt/edge/policies",
    "/etc/opt/edge/policies/managed", "/usr", "/usr/bin", "/usr/lib", "/usr/lib64", "/usr/lib64/mozilla",
    "/usr/lib64/mozilla/native-messaging-hosts", "/usr/lib/systemd", "/usr/lib/systemd/user", "/usr/share", "/usr/share/doc",
    "/usr/share/man", "/usr/share/man/man1", "/usr/share/chromium", "/usr/share/chromium/extensions",
    "/usr/share/google-chrome", "/usr/share/google-chrome/extensions"]


def policy_scripts(operator):
    own = f"/usr/share/{operator['package']}-policies"
    merge = f"{own}/merge-firefox-policy {{}} {own}/firefox-policies.json"
    head = "#!/bin/sh\nset -e\n"
    # "remove" and "0" are the ends of a package with dpkg and rpm; an upgrade merges again afterwards.
    return {"post": head + merge.format("add") + "\n",
            "pre": head + f'case "$1" in\n  remove | deconfigure | 0) {merge.format("remove")} ;;\nesac\n'}


def tarball(operator, root, build, out):
    """The host for other systems: the same files, and a program that puts them in their places."""
    name = f"{operator['package']}-{operator.version}-linux-{platform.machine()}"
    folder = build / "tarball"
    shutil.rmtree(folder, ignore_errors=True)
    shutil.copytree(root, folder / "files", symlinks=True)
    shutil.rmtree(folder / "files/usr/share/lintian", ignore_errors=True)
    shutil.copy(TOP / "packaging/install", folder / "install")
    archives.tar_gz(folder, staging.Path(name), out / f"{name}.tar.gz")
    return out / f"{name}.tar.gz"
