"""The command line and the start: port, usage, start-up line."""

import os
import socket
import subprocess
from pathlib import Path

import pytest

from support.server import LOG_DIR, LOG_FILE, PROGRAM, RunningServer, free_port, read_all, start_line_of, started

USAGE = b"""
usage : tabwarden [-p "port"]
  -p  Specify port for http server to listen on.

  example : tabwarden -p 8451

"""


def start_line(port):
    return f"html server accepting requests on port {port}\n".encode()


def is_free(port):
    with socket.socket() as probe:
        probe.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
        try:
            probe.bind(("", port))
        except OSError:
            return False
        return True


def listening_port(process):
    """The port that the process really has, looked up in the kernel's tables. The start-up line comes just before."""
    sockets = {os.readlink(entry) for entry in Path(f"/proc/{process.pid}/fd").iterdir()}
    while process.poll() is None:
        for line in Path("/proc/net/tcp").read_text().splitlines()[1:]:
            fields = line.split()
            if f"socket:[{fields[9]}]" in sockets:
                return int(fields[1].partition(":")[2], 16)
    return None


def request(port):
    """One answered request; the start-up line comes just before the port can be connected to."""
    while True:
        try:
            with socket.create_connection(("127.0.0.1", port)) as connection:
                connection.sendall(b"GET / HTTP/1.1\r\n\r\n")
                return read_all(connection)
        except ConnectionRefusedError:
            continue


@pytest.fixture(autouse=True)
def files(installed_html, no_data_sources):
    LOG_FILE.unlink(missing_ok=True)


# The port


def test_the_option_gives_the_port(running_server):
    assert running_server.start_line.encode() == start_line(running_server.port)
    assert listening_port(running_server.process) == running_server.port


def test_without_the_option_the_port_is_8451():
    if not is_free(8451):
        pytest.skip("port 8451 is in use")
    with started() as process:
        assert start_line_of(process) == start_line(8451)
        assert request(8451).startswith(b"HTTP/1.1 200 OK\r\n")


@pytest.mark.parametrize("arguments", [["-p{}"], ["-p", "1", "-p", "{}"], ["-p", "{}", "--"]])
def test_the_option_in_other_forms(arguments):
    port = free_port()
    with started(*(argument.format(port) for argument in arguments)) as process:
        assert start_line_of(process) == start_line(port)


@pytest.mark.parametrize("written", ["{0}", " {0}", "+{0}", "00{0}", "{0}x", "{0}.5", "{0} 1", "{1}", "{2}", "-{3}"])
def test_the_port_text_is_read_as_a_decimal_number_of_which_16_bits_count(written):
    port = free_port()
    with started("-p", written.format(port, 65536 + port, 5 * 65536 + port, 65536 - port)) as process:
        assert start_line_of(process) == start_line(port)
        assert listening_port(process) == port


@pytest.mark.parametrize("written", ["http", "", " ", "x8451", "0x50", "65536", 254 * "0"])
def test_a_text_that_is_no_number_becomes_0_and_the_system_chooses_a_port(written):
    with started("-p", written) as process:
        assert start_line_of(process) == start_line(0)
        port = listening_port(process)
        assert port > 0
        assert request(port).startswith(b"HTTP/1.1 200 OK\r\n")


def test_all_local_addresses_are_served(running_server):
    with socket.create_connection(("127.0.0.2", running_server.port)) as connection:
        connection.sendall(b"GET / HTTP/1.1\r\n\r\n")
        assert read_all(connection).startswith(b"HTTP/1.1 200 OK\r\n")


def test_a_port_that_was_served_a_moment_ago_can_be_taken_again_at_once():
    server = RunningServer()
    for _ in range(5):
        server.get("/")
    server.stop()
    with started("-p", str(server.port)) as process:
        assert start_line_of(process) == start_line(server.port)


# A failed start


@pytest.mark.parametrize(
    "arguments",
    [
        ["-p"],
        ["-x"],
        ["-x", "value"],
        ["-?"],
        ["-?", "value"],
        ["-?value"],
        ["-h"],
        ["-P", "9000"],
        ["--help"],
        ["-p", "9000", "-x"],
        ["-p", "9000", "-p"],
        ["-p", 255 * "0"],
    ],
    ids=" ".join,
)
def test_a_bad_option_is_answered_with_the_usage_text_and_status_255(arguments):
    result = subprocess.run([PROGRAM, *arguments], capture_output=True)
    assert (result.stdout, result.stderr, result.returncode) == (b"", USAGE, 255)


def test_a_bad_option_leaves_the_log_alone():
    LOG_DIR.mkdir(parents=True, exist_ok=True)
    LOG_FILE.write_bytes(b"earlier\n")
    subprocess.run([PROGRAM, "-x"], stderr=subprocess.DEVNULL)
    assert LOG_FILE.read_bytes() == b"earlier\n"
    LOG_FILE.unlink()


@pytest.fixture
def taken_port():
    with socket.socket() as other:
        other.bind(("", 0))
        other.listen()
        yield other.getsockname()[1]


def test_a_taken_port_is_reported_on_standard_error_and_the_exit_status_is_0(taken_port):
    result = subprocess.run([PROGRAM, "-p", str(taken_port)], capture_output=True)
    assert result.stdout == b""
    assert result.stderr == f"Failed to bind port {taken_port}\n".encode()
    assert result.returncode == 0


def test_a_taken_port_is_reported_under_the_number_that_counts(taken_port):
    result = subprocess.run([PROGRAM, "-p", str(65536 + taken_port)], capture_output=True)
    assert result.stderr == f"Failed to bind port {taken_port}\n".encode()


def test_a_taken_port_is_reported_in_the_log(taken_port):
    LOG_DIR.mkdir(parents=True, exist_ok=True)
    LOG_FILE.touch()
    subprocess.run([PROGRAM, "-p", str(taken_port)], capture_output=True)
    assert LOG_FILE.read_text() == (
        f"Logging started\nStarted logging Gantry HTTP Server\nUsing port {taken_port}\nFailed to bind socket\n"
    )
    LOG_FILE.unlink()


# The start-up line


def test_the_start_up_line_is_all_that_a_pipe_gets(running_server):
    for path in 5 * ["/", "/no-such-file", "/style.css"]:
        running_server.get(path)
    running_server.process.kill()
    assert running_server.process.stdout.read() == b""
    assert running_server.standard_error() == b""


def test_the_start_up_line_is_all_that_a_file_gets(tmp_path):
    port = free_port()
    with open(tmp_path / "output", "wb") as output:
        with subprocess.Popen([PROGRAM, "-p", str(port)], stdout=output, stderr=output) as process:
            for _ in range(5):
                request(port)
            process.kill()
    assert (tmp_path / "output").read_bytes() == start_line(port)
