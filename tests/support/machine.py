"""A throwaway Debian system that runs: systemd, processes and network are its own."""

import ctypes
import os
import secrets
import shutil
import socket
import subprocess
import tempfile
import time
from concurrent.futures import ThreadPoolExecutor
from contextlib import suppress
from pathlib import Path

from support.server import uninstrumented, wait_until

# systemd filters addresses only where all control groups are of version 2, which they are in a hierarchy of its own.
UNIFIED = "SYSTEMD_NSPAWN_UNIFIED_HIERARCHY"

# Of commands in a machine, whatever the outside has.
ENVIRONMENT = {"PATH": "/usr/local/bin:/usr/sbin:/usr/bin", "LC_ALL": "C.UTF-8"}


def control_groups(*kinds):
    """Where hierarchies of control groups of these kinds are."""
    mounts = (line.split() for line in Path("/proc/self/mounts").read_text().splitlines())
    return [Path(folder) for _, folder, kind, *_ in mounts if kind in kinds]


def what_is_missing():
    """Why no machine can be booted here, or None."""
    if os.geteuid() != 0:
        return "to boot a machine takes root"
    if missing := [tool for tool in ("mmdebstrap", "systemd-nspawn") if not shutil.which(tool)]:
        return f"{', '.join(missing)} not installed: script/bootstrap"
    groups = control_groups("cgroup2")
    if not groups or not os.access(groups[0], os.W_OK):
        return "no control groups to make one in"
    if subprocess.run(["unshare", "--mount", "--pid", "--net", "--fork", "true"], capture_output=True).returncode != 0:
        return "no namespaces of one's own"
    return None


class Machine:
    """Boots the system in `root` and answers for it until stop()."""

    def __init__(self, root):
        self.root = root
        self.name = f"tabwarden-{secrets.token_hex(4)}"
        self.folder = Path(tempfile.mkdtemp(prefix="tabwarden-machine-"))
        self.group = control_groups("cgroup2")[0] / self.name
        self.group.mkdir()
        with socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM) as news, open(self.folder / "console", "wb") as console:
            news.bind(str(self.folder / "news"))
            news.settimeout(1)
            self.process = self._boot(console)
            try:
                self._wait_until_booted(news)
            except BaseException:
                self.stop()
                raise

    def _boot(self, console):
        return subprocess.Popen(
            # All that a machine may do; systemd would else leave out what it cannot set up.
            ["systemd-nspawn", "--quiet", f"--directory={self.root}", f"--machine={self.name}", "--register=no",
             "--keep-unit", "--private-network", "--capability=all", "--system-call-filter=bpf", "--console=pipe",
             "--notify-ready=yes", "--boot"],
            env=uninstrumented(NOTIFY_SOCKET=str(self.folder / "news"), **{UNIFIED: "1"}),
            stdin=subprocess.DEVNULL,
            stdout=console,
            stderr=console,
            preexec_fn=lambda: (self.group / "cgroup.procs").write_text("0"),
        )  # fmt: skip

    def _wait_until_booted(self, news):
        end = time.monotonic() + 60
        lines = []
        while "READY=1" not in lines:
            assert time.monotonic() < end and self.process.poll() is None, (self.folder / "console").read_text()
            with suppress(TimeoutError):
                lines = news.recv(4096).decode().splitlines()
            for line in lines:
                if line.startswith("X_NSPAWN_LEADER_PID="):
                    self.leader = int(line.partition("=")[2])

    def run(self, *command, check=True, **options):
        """The standard output of the command in the machine."""
        return subprocess.run(
            ["nsenter", "--target", str(self.leader), "--all", *command],
            check=check, stdout=subprocess.PIPE, text=True, env=ENVIRONMENT, **options,
        ).stdout  # fmt: skip

    def socket(self):
        """A TCP socket in the machine's network. A socket stays where its thread was when it was made."""

        def make():
            with open(f"/proc/{self.leader}/ns/net") as network:
                assert ctypes.CDLL(None, use_errno=True).setns(network.fileno(), 0) == 0, ctypes.get_errno()
            return socket.socket()

        with ThreadPoolExecutor(1) as thread:
            return thread.submit(make).result()

    def stop(self):
        # What is in it goes with its first process, without being asked.
        if hasattr(self, "leader"):
            os.kill(self.leader, 9)
        else:
            self.process.kill()
        self.process.wait()
        wait_until(self._are_groups_gone)
        shutil.rmtree(self.folder)

    def _are_groups_gone(self):
        """Once the kernel is through with their processes. nspawn makes the same ones in other hierarchies."""
        groups = [hierarchy / self.name for hierarchy in control_groups("cgroup", "cgroup2")]
        try:
            for group in groups:
                for folder, _, _ in os.walk(group, topdown=False):
                    os.rmdir(folder)
        except OSError:
            return False
        return True
