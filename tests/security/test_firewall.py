"""The nftables rule of docs/security.md, as it stands there, between two network namespaces."""

import subprocess
from contextlib import contextmanager

import pytest

from support.guide import shown_file
from support.server import PROGRAM, start_line_of, uninstrumented, wait_until

REFUSED = 7  # as curl says it
HERE, THERE = "192.0.2.1", "192.0.2.2"


@contextmanager
def network():
    """A network of its own: the process that keeps it, and the beginning of commands in it."""
    script = "ip link set lo up && echo ready && exec cat"
    with subprocess.Popen(
        ["unshare", "--net", "sh", "-c", script], stdin=subprocess.PIPE, stdout=subprocess.PIPE, env=uninstrumented()
    ) as keeper:
        try:
            if start_line_of(keeper) != b"ready\n":
                pytest.skip("there is no network namespace to be had")
            yield keeper.pid, ["nsenter", f"--net=/proc/{keeper.pid}/ns/net"]
        finally:
            keeper.kill()


@pytest.fixture
def two_machines(installed_html):
    """The beginnings of commands on a machine that runs the program on its own port, and on its neighbour."""
    with network() as (_, here), network() as (neighbour, there):
        if subprocess.run([*here, "nft", "list", "ruleset"], env=uninstrumented()).returncode != 0:
            pytest.skip("nftables cannot be used here")
        run(here, "ip", "link", "add", "cable", "type", "veth", "peer", "cable", "netns", str(neighbour))
        for machine, address in ((here, HERE), (there, THERE)):
            run(machine, "ip", "address", "add", f"{address}/24", "dev", "cable")
            run(machine, "ip", "link", "set", "cable", "up")
        with subprocess.Popen([*here, PROGRAM], stdout=subprocess.DEVNULL) as program:
            try:
                wait_until(lambda: curl(here, "127.0.0.1") == 0 and curl(there, HERE) == 0)
                yield here, there
            finally:
                program.kill()


def run(machine, *command):
    subprocess.run([*machine, *command], check=True, env=uninstrumented())


def curl(machine, address):
    command = [*machine, "curl", "--silent", "--max-time", "20", "--output", "/dev/null", f"http://{address}:8451/"]
    return subprocess.run(command, env=uninstrumented()).returncode


def test_the_rule_lets_in_the_machine_itself_only(two_machines, tmp_path):
    here, there = two_machines
    rules = tmp_path / "rules"
    rules.write_text(shown_file("/etc/nftables.conf"))
    run(here, "nft", "--file", str(rules))
    assert curl(there, HERE) == REFUSED
    assert curl(here, "127.0.0.1") == 0
    assert curl(here, HERE) == 0
