"""A minimal Debian in a folder, from which throwaway machines are made. Making it takes root."""

import shutil
import subprocess
import tempfile
from contextlib import contextmanager
from pathlib import Path

from support.server import ROOT, uninstrumented

TARBALL = ROOT / "build" / "packaging" / "debian.tar"

# systemd to boot it, what the packages depend on, a database for them, and what the service is used with.
PACKAGES = (
    *("systemd-sysv", "adduser", "unixodbc", "libsqlite3-0", "odbc-postgresql"),
    *("postgresql-15", "postgresql-client-15", "logrotate", "iproute2"),
)

# Who needs the server starts it.
NO_POSTGRESQL = 'chroot "$1" systemctl disable postgresql'


def apt_options():
    """The machine's way to the archive, and no complaints about a clock that runs ahead."""
    dump = subprocess.run(["apt-config", "dump"], capture_output=True, text=True, check=True).stdout
    ways = [line for line in dump.splitlines() if line.startswith(("Acquire::http", "Acquire::https"))]
    return ['Acquire::Check-Valid-Until "false"', 'Acquire::Check-Date "false"', *ways]


def make_tarball():
    TARBALL.parent.mkdir(parents=True, exist_ok=True)
    unfinished = TARBALL.with_name("unfinished.tar")
    options = [f"--include={','.join(PACKAGES)}", f"--customize-hook={NO_POSTGRESQL}"]
    options += [f"--aptopt={option}" for option in apt_options()]
    subprocess.run(
        ["mmdebstrap", "--quiet", "--variant=minbase", *options, "bookworm", unfinished],
        env=uninstrumented(),
        check=True,
    )
    unfinished.rename(TARBALL)


@contextmanager
def debian_folder():
    """Where it lies until the end of the block. The tarball is made once."""
    if not TARBALL.exists():
        make_tarball()
    folder = Path(tempfile.mkdtemp(prefix="tabwarden-debian-", dir="/var/tmp"))
    try:
        subprocess.run(["tar", "-xpf", TARBALL, "-C", folder], check=True)
        folder.chmod(0o755)
        yield folder
    finally:
        shutil.rmtree(folder)
