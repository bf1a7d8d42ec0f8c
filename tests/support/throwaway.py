"""A copy of this machine that is thrown away: everything installed here is there, what is written stays in memory."""

import os
import shutil
import subprocess
import tempfile
from contextlib import contextmanager
from pathlib import Path

from support.postgresql import roomy_folder
from support.server import ROOT, uninstrumented

# Where the tree lies in it, as a clone would: without what is built. A user of a lesser kind can reach it.
CLONE = "/srv/tabwarden"

# The namespaces end with this process, and every process in them.
KEEPER = """
set -e
mount -t overlay overlay -o lowerdir=/,upperdir="$1/upper",workdir="$1/work" "$1/root"
mount -t proc proc "$1/root/proc"
mount --rbind /dev "$1/root/dev"
mount -t tmpfs -o mode=1777 tmpfs "$1/root/tmp"
mount -t tmpfs tmpfs "$1/root/run"
ip link set lo up
echo ready
exec sleep infinity
"""


def copy_tree(target):
    """The tree as it is, its changes included; not its history."""
    listed = subprocess.run(
        ["git", "ls-files", "-z", "--cached", "--others", "--exclude-standard"], cwd=ROOT, stdout=subprocess.PIPE, check=True
    )
    for name in filter(None, listed.stdout.decode().split("\0")):
        if (ROOT / name).is_file():
            (target / name).parent.mkdir(parents=True, exist_ok=True)
            shutil.copy2(ROOT / name, target / name)


class ThrowawayMachine:
    def __init__(self, root, keeper):
        """`keeper` is the process that lives in the machine's namespaces."""
        self._enter = ["nsenter", "--target", str(keeper), "--mount", "--net", "--pid", "chroot", root]

    def run(self, script, seconds=300):
        """What the script prints. It ends at its first command that fails, which fails the test; it has no terminal."""
        environment = {
            "PATH": "/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin",
            "HOME": "/root",
            "LC_ALL": "C.UTF-8",
        }
        done = subprocess.run(
            [*self._enter, "setsid", "--wait", "bash", "-euo", "pipefail", "-c", script],
            env=environment,
            stdin=subprocess.DEVNULL,
            stdout=subprocess.PIPE,
            stderr=subprocess.STDOUT,
            text=True,
            timeout=seconds,
        )
        assert done.returncode == 0, done.stdout
        return done.stdout


class Unavailable(Exception):
    """It takes root, overlayfs, and namespaces of one's own."""


def only_child(process):
    return int(Path(f"/proc/{process.pid}/task/{process.pid}/children").read_text())


@contextmanager
def throwaway_machine():
    """With a network of its own, in which every port is free."""
    if os.geteuid() != 0:
        raise Unavailable(Unavailable.__doc__)
    folder = Path(tempfile.mkdtemp(prefix="tabwarden-throwaway-", dir=roomy_folder()))
    for name in ("upper", "work", "root"):
        (folder / name).mkdir()
    copy_tree(folder / "upper" / CLONE[1:])
    command = ["unshare", "--mount", "--net", "--pid", "--fork", "--kill-child", "bash", "-c", KEEPER, "keeper", folder]
    keeper = subprocess.Popen(command, stdout=subprocess.PIPE, text=True, env=uninstrumented())
    try:
        if keeper.stdout.readline() != "ready\n":
            raise Unavailable(Unavailable.__doc__)
        yield ThrowawayMachine(folder / "root", only_child(keeper))
    finally:
        keeper.kill()
        keeper.wait()
        shutil.rmtree(folder)
