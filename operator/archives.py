"""Archives whose bytes follow from their content alone: names sorted, one date, no owner."""

import gzip
import io
import os
import stat
import tarfile
import time
import zipfile


def date():
    """Seconds since 1970 that every file of a build carries; script/operator sets the variable."""
    return int(os.environ["SOURCE_DATE_EPOCH"])


def zip_bytes(files):
    """A ZIP archive of bytes by name. Its dates cannot lie before 1980."""
    out = io.BytesIO()
    with zipfile.ZipFile(out, "w", zipfile.ZIP_DEFLATED, compresslevel=9) as archive:
        for name in sorted(files):
            entry = zipfile.ZipInfo(name, max(time.gmtime(date())[:6], (1980, 1, 1, 0, 0, 0)))
            entry.compress_type = zipfile.ZIP_DEFLATED
            entry.create_system, entry.external_attr = 3, (stat.S_IFREG | 0o644) << 16
            archive.writestr(entry, files[name])
    return out.getvalue()


def gzip_bytes(content):
    return gzip.compress(content, 9, mtime=0)


def tar_gz(folder, top, file):
    """Writes the files of a folder, under the name `top`, as the administrator's."""
    def as_root(entry):
        entry.uid = entry.gid = 0
        entry.uname = entry.gname = "root"
        entry.mtime = date()
        return entry

    out = io.BytesIO()
    with tarfile.open(fileobj=out, mode="w", format=tarfile.GNU_FORMAT) as archive:
        for path in [folder, *sorted(folder.rglob("*"))]:
            archive.add(path, str(top / path.relative_to(folder)), recursive=False, filter=as_root)
    file.write_bytes(gzip_bytes(out.getvalue()))
