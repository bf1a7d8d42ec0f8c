"""Machines that are thrown away: a layer over a folder with a system, with processes and a network of their own.

What is written in one stays in memory, and is gone with its last process.
"""

import ctypes
import os
import secrets
import signal
import socket
import subprocess
import tempfile
import time
from concurrent.futures import ThreadPoolExecutor
from contextlib import contextmanager, suppress
from pathlib import Path

from support.server import start_line_of, uninstrumented, wait_until

# Of commands in a machine, whatever the outside has.
ENVIRONMENT = {
    "PATH": "/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin",
    "HOME": "/root",
    "LC_ALL": "C.UTF-8",
    "DEBIAN_FRONTEND": "noninteractive",
}

# systemd filters addresses only where all control groups are of version 2, which they are in a hierarchy of its own.
UNIFIED = "SYSTEMD_NSPAWN_UNIFIED_HIERARCHY"

# $1 is the folder with the system, $2 an empty one; the rest is a command that goes on. What is mounted goes away with
# its last process.
LAYER = """
set -e
mount -t tmpfs -o mode=0755 tmpfs "$2"
mkdir "$2/upper" "$2/work" "$2/root"
mount -t overlay overlay -o "lowerdir=$1,upperdir=$2/upper,workdir=$2/work" "$2/root"
cd "$2/root"
shift 2
"""

NAMESPACES = ["--mount", "--net", "--pid", "--fork"]

# /tmp and /run without what the processes of that folder's system keep there. Not ready before the change of root: who
# enters takes over the root, and would be outside.
QUIET = """
mount -t proc proc proc
mount --rbind /dev dev
mount -t tmpfs -o mode=1777 tmpfs tmp
mount -t tmpfs -o mode=0755 tmpfs run
ip link set lo up
exec chroot . sh -c "echo ready; exec sleep infinity"
"""

# All that a machine may do: systemd would else leave out what it cannot set up.
BOOT = ["systemd-nspawn", "--quiet", "--register=no", "--keep-unit", "--private-network", "--capability=all",
        "--system-call-filter=bpf", "--console=pipe", "--notify-ready=yes", "--boot"]  # fmt: skip


def control_groups(*kinds):
    """Where hierarchies of control groups of these kinds are."""
    mounts = (line.split() for line in Path("/proc/self/mounts").read_text().splitlines())
    return [Path(folder) for _, folder, kind, *_ in mounts if kind in kinds]


def what_is_missing():
    """Why there can be no quiet machine here, or None."""
    if os.geteuid() != 0:
        return "a throwaway machine takes root"
    with empty_folder() as folder:
        layer = ["unshare", *NAMESPACES, "sh", "-c", LAYER, "sh", "/etc", folder]
        done = subprocess.run(layer, capture_output=True, text=True)
    return f"no throwaway machine here: {done.stderr.strip()}" if done.returncode != 0 else None


def what_is_missing_to_boot():
    """Why there can be no booted machine here, where there can be a quiet one, or None."""
    if subprocess.run(["unshare", "--user", "true"], capture_output=True).returncode != 0:
        return "no user namespaces for the service in a throwaway machine"
    groups = control_groups("cgroup2")
    return None if groups and os.access(groups[0], os.W_OK) else "no control groups for a throwaway machine"


class Machine:
    """What is done in a machine. `leader` is a process in its namespaces."""

    def __init__(self, leader):
        self.leader = leader
        self._enter = ["nsenter", "--target", str(leader), "--all", "--root", "--wd"]

    def attempt(self, *command, typed="", seconds=300):
        """What came of the command: returncode and, with what it said on standard error, stdout. It has no terminal."""
        done = subprocess.run(
            [*self._enter, "setsid", "--wait", *command],
            input=typed if isinstance(typed, bytes) else typed.encode(),
            stdout=subprocess.PIPE,
            stderr=subprocess.STDOUT,
            env=ENVIRONMENT,
            timeout=seconds,
        )
        done.stdout = done.stdout.decode()
        return done

    def run(self, *command, **how):
        """What the command says. It has to succeed."""
        done = self.attempt(*command, **how)
        assert done.returncode == 0, done.stdout
        return done.stdout

    def shell(self, script, **how):
        """What the script says. It ends at its first command that fails, which fails the test."""
        return self.run("bash", "-euo", "pipefail", "-c", script, **how)

    def read(self, path):
        return self.run("cat", path)

    def write(self, path, data):
        self.run("sh", "-c", 'cat >"$1"', "sh", path, typed=data)

    def bring(self, folder, *files):
        """Copies files of the outside into the folder, which is made."""
        self.run("mkdir", "-p", folder)
        for file in files:
            self.write(f"{folder}/{file.name}", file.read_bytes())

    def socket(self):
        """A TCP socket in the machine's network. A socket stays where its thread was when it was made."""

        def make():
            with open(f"/proc/{self.leader}/ns/net") as network:
                assert ctypes.CDLL(None, use_errno=True).setns(network.fileno(), 0) == 0, ctypes.get_errno()
            return socket.socket()

        with ThreadPoolExecutor(1) as thread:
            return thread.submit(make).result()


def empty_folder():
    return tempfile.TemporaryDirectory(prefix="tabwarden-machine-")


@contextmanager
def quiet_machine(base):
    """Nothing runs in it until the end of the block but what is started there."""
    with empty_folder() as folder:
        keeper = subprocess.Popen(
            ["unshare", *NAMESPACES, "--kill-child", "sh", "-c", LAYER + QUIET, "sh", base, folder],
            stdout=subprocess.PIPE,
            env=uninstrumented(),
        )
        try:
            assert start_line_of(keeper) == b"ready\n"
            (leader,) = Path(f"/proc/{keeper.pid}/task/{keeper.pid}/children").read_text().split()
            yield Machine(leader)
        finally:
            # Its child goes with it, and with that one the others.
            keeper.kill()
            keeper.communicate()


@contextmanager
def booted_machine(base):
    """systemd runs in it until the end of the block."""
    with control_group() as group, empty_folder() as folder, empty_folder() as notes:
        console = Path(notes, "console")
        with socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM) as news, open(console, "wb") as output:
            news.bind(f"{notes}/news")
            process = subprocess.Popen(
                ["unshare", "--mount", "sh", "-c", f'{LAYER} exec "$@"', "sh", base, folder]
                + [*BOOT, f"--machine={group.name}", f"--directory={folder}/root"],
                env=uninstrumented(NOTIFY_SOCKET=f"{notes}/news", **{UNIFIED: "1"}),
                stdin=subprocess.DEVNULL,
                stdout=output,
                stderr=output,
                preexec_fn=lambda: (group / "cgroup.procs").write_text("0"),
            )
            leader = None
            try:
                for line in lines_of(news, until="READY=1"):
                    assert process.poll() is None, console.read_text()
                    if line.startswith("X_NSPAWN_LEADER_PID="):
                        leader = int(line.partition("=")[2])
                yield Machine(leader)
            finally:
                # What is in it goes with its first process, without being asked.
                with suppress(ProcessLookupError):
                    os.kill(leader or process.pid, signal.SIGKILL)
                process.wait()


def lines_of(news, until):
    """What is told over the socket, an empty line while there is nothing new."""
    news.settimeout(1)
    end = time.monotonic() + 60
    line = ""
    while line != until:
        assert time.monotonic() < end, f"{until} should have been told by now"
        try:
            lines = news.recv(4096).decode().splitlines()
        except TimeoutError:
            lines = [""]
        for line in lines:
            yield line


@contextmanager
def control_group():
    """A new one, until the end of the block; by then its processes have to be ended."""
    group = control_groups("cgroup2")[0] / f"tabwarden-{secrets.token_hex(4)}"
    group.mkdir()
    try:
        yield group
    finally:
        wait_until(lambda: is_removed(group.name))


def is_removed(group):
    """Once the kernel is through with the processes. nspawn makes the same one in other hierarchies."""
    try:
        for hierarchy in control_groups("cgroup", "cgroup2"):
            for folder, _, _ in os.walk(hierarchy / group, topdown=False):
                os.rmdir(folder)
    except OSError:
        return False
    return True
