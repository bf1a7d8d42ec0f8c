"""A running tabwarden and raw requests to it."""

import os
import re
import select
import shutil
import signal
import socket
import subprocess
import time
from collections import deque
from contextlib import contextmanager, suppress
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
BUILD = Path(os.environ.get("TABWARDEN_BUILD", ROOT / "build" / "tests"))
PROGRAM = BUILD / "tabwarden"
INSTALL_DIR = BUILD / "isam"
HTML_DIR = INSTALL_DIR / "html"
PRODUCT_INI = BUILD / "product.ini"
LOG_DIR = BUILD / "log"
LOG_FILE = LOG_DIR / "kelvohttp.log"

# Where the processes of an instrumented build report faults; whatever appears here is one. The standard error of its
# servers, too: some reports do not go to a file of their own.
REPORTS = Path(os.environ["TABWARDEN_SANITIZER_REPORTS"]) if "TABWARDEN_SANITIZER_REPORTS" in os.environ else None
ERRORS_FILE = (REPORTS or BUILD) / "servers.err"


def install_html():
    """Puts the pages' files where the tests' build of the program looks for them."""
    shutil.rmtree(HTML_DIR, ignore_errors=True)
    shutil.copytree(ROOT / "html", HTML_DIR)


def write_product_ini(log_dir=LOG_DIR):
    LOG_DIR.mkdir(parents=True, exist_ok=True)
    PRODUCT_INI.write_text(f"[Settings]\nLogDir={log_dir}\n")


def uninstrumented(**further):
    """The environment of others' programs, which a sanitizer preloaded for the driver manager is not meant for."""
    return {**{name: value for name, value in os.environ.items() if name != "LD_PRELOAD"}, **further}


# Bound and not listened at: a server that reuses addresses can have these ports, and the system gives them to nobody.
RESERVED_PORTS = deque(maxlen=100)


def free_port():
    """A port for a server of the caller's, which another run of the tests, at the same time, is not given meanwhile."""
    probe = socket.socket()
    probe.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
    probe.bind(("127.0.0.1", 0))
    RESERVED_PORTS.append(probe)
    return probe.getsockname()[1]


@contextmanager
def started(*arguments, **options):
    """The program with these arguments, for the tests of the start itself."""
    with subprocess.Popen(
        [PROGRAM, *arguments], stdout=subprocess.PIPE, stderr=subprocess.PIPE, **options
    ) as process:
        try:
            yield process
        finally:
            process.kill()


def start_line_of(process):
    """The first line of the program's output, which comes at once."""
    assert select.select([process.stdout], [], [], 20)[0], "there is no start-up line"
    return process.stdout.readline()


def wait_until(condition):
    """Comes back as soon as the condition holds, which it has to do sooner or later."""
    end = time.monotonic() + 20
    while not condition():
        assert time.monotonic() < end, "this should have happened by now"


class Client:
    """Raw requests over the connections that connect() gives."""

    def request(self, data):
        """Sends the bytes and gives everything that comes back until the server closes."""
        with self.connect() as connection:
            connection.sendall(data)
            return read_all(connection)

    def get(self, path, version=" HTTP/1.1"):
        return self.request(f"GET {path}{version}\r\nHost: localhost\r\n\r\n".encode("latin-1"))

    def post(self, path, body, headers=()):
        """`body` is bytes, or pairs that are written as they are: a form encodes only what the caller encodes."""
        if not isinstance(body, bytes):
            body = "&".join(f"{name}={value}" for name, value in body).encode(errors="surrogateescape")
        lines = [f"POST {path} HTTP/1.1", "Host: localhost", f"Content-Length: {len(body)}", *headers]
        return self.request("\r\n".join(lines).encode() + b"\r\n\r\n" + body)


class RunningServer(Client):
    """The program on a port of its own. `environment` is added to the process environment; `wrapper` is a command that
    runs another one."""

    def __init__(self, environment=None, logging=False, wrapper=()):
        LOG_FILE.unlink(missing_ok=True)
        if logging:
            LOG_DIR.mkdir(parents=True, exist_ok=True)
            LOG_FILE.touch(0o600)
        self.errors = open(ERRORS_FILE, "ab")
        self.errors_before = ERRORS_FILE.stat().st_size
        self.port = free_port()
        self.process = subprocess.Popen(
            [*wrapper, PROGRAM, "-p", str(self.port)],
            stdout=subprocess.PIPE,
            stderr=self.errors,
            env={**os.environ, **(environment or {})},
        )
        try:
            self.start_line = start_line_of(self.process).decode()
            self._wait_until_listening()
        except BaseException:
            self.stop()
            raise

    def _wait_until_listening(self):
        """The start line is written just before listen(). A connection without a request would hold the server."""
        while self.process.poll() is None:
            try:
                self.get("/no-such-file")
                return
            except ConnectionRefusedError:
                continue

    def connect(self):
        connection = socket.create_connection(("127.0.0.1", self.port))
        connection.settimeout(20)
        return connection

    def request_at_once(self, data):
        """request() for data that the server has to find whole at its first read: somebody else holds it meanwhile."""
        with self.connect() as holder, self.connect() as connection:
            connection.sendall(data)
            wait_until(lambda: self.unread(connection) == len(data))
            holder.sendall(b"no request\r\n\r\n")
            return read_all(connection)

    def children(self):
        path = Path(f"/proc/{self.process.pid}/task/{self.process.pid}/children")
        if self.process.poll() is not None:
            return []
        return [int(child) for child in path.read_text().split()]

    def unread(self, connection):
        """How many bytes of the connection the server has received and not read yet."""
        ends = [f":{self.port:04X}", f":{connection.getsockname()[1]:04X}"]
        for line in Path("/proc/net/tcp").read_text().splitlines()[1:]:
            fields = line.split()
            if [fields[1][8:], fields[2][8:]] == ends:
                return int(fields[4].partition(":")[2], 16)
        return 0

    def wait_until_read(self, connection):
        wait_until(lambda: self.unread(connection) == 0)

    def standard_error(self):
        return ERRORS_FILE.read_bytes()[self.errors_before :]

    def log(self):
        return LOG_FILE.read_bytes()

    def log_lines(self):
        """The lines of the log, with a mark in place of every address."""
        return re.sub(rb"0x[0-9a-f]+", b"ADDRESS", self.log()).splitlines(keepends=True)

    def stop(self):
        # The parent first, or it takes the next connection with another child. A child may have ended by itself.
        children = self.children()
        self.process.kill()
        for child in children:
            with suppress(ProcessLookupError):
                os.kill(child, signal.SIGKILL)
        self.process.wait()
        self.process.stdout.close()
        self.errors.close()
        LOG_FILE.unlink(missing_ok=True)


def read_all(connection):
    """Everything until the end of the stream; a reset after the data counts as the end."""
    data = b""
    try:
        while piece := connection.recv(65536):
            data += piece
    except ConnectionResetError:
        pass
    return data


def is_silent(connection, seconds):
    """Whether nothing, not even an end, arrives in that time."""
    return not select.select([connection], [], [], seconds)[0]
