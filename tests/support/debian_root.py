"""Throwaway Debian systems in folders. Making one takes root."""

import shutil
import subprocess
import tempfile
from pathlib import Path

from support.server import ROOT, uninstrumented

TARBALL = ROOT / "build" / "packaging" / "root.tar"

# systemd to boot it, the driver manager, what the drivers and the packages need, what the service is used with.
PACKAGES = ("systemd-sysv", "unixodbc", "libsqlite3-0", "odbc-postgresql", "adduser", "logrotate", "iproute2")


def apt_options():
    """The machine's way to the archive, and no complaints about a clock that runs ahead."""
    dump = subprocess.run(["apt-config", "dump"], capture_output=True, text=True, check=True).stdout
    ways = [line for line in dump.splitlines() if line.startswith(("Acquire::http", "Acquire::https"))]
    return ['Acquire::Check-Valid-Until "false"', 'Acquire::Check-Date "false"', *ways]


def make_tarball():
    TARBALL.parent.mkdir(parents=True, exist_ok=True)
    unfinished = TARBALL.with_name("unfinished.tar")
    options = [f"--include={','.join(PACKAGES)}", *(f"--aptopt={option}" for option in apt_options())]
    subprocess.run(
        ["mmdebstrap", "--quiet", "--variant=minbase", *options, "bookworm", unfinished],
        env=uninstrumented(),
        check=True,
    )
    unfinished.rename(TARBALL)


class DebianRoot:
    """A system of its own in `path`, from a tarball that is made once."""

    def __init__(self):
        if not TARBALL.exists():
            make_tarball()
        self.folder = Path(tempfile.mkdtemp(prefix="tabwarden-debian-", dir="/var/tmp"))
        # Users of the system are nobody special outside of it.
        self.folder.chmod(0o711)
        self.path = self.folder / "root"
        self.path.mkdir()
        subprocess.run(["tar", "-xpf", TARBALL, "-C", self.path], check=True)

    def chroot(self, *command):
        subprocess.run(["chroot", self.path, *command], check=True)

    def append(self, path, text):
        """To a file, which is made with its folders where it is missing."""
        file = self.path / path
        file.parent.mkdir(parents=True, exist_ok=True)
        with open(file, "a") as end:
            end.write(text)

    def remove(self):
        shutil.rmtree(self.folder)
