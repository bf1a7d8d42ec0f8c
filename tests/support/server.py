"""A running tabwarden and raw requests to it."""

import os
import select
import shutil
import signal
import socket
import subprocess
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
BUILD = Path(os.environ.get("TABWARDEN_BUILD", ROOT / "build" / "tests"))
PROGRAM = BUILD / "tabwarden"
INSTALL_DIR = BUILD / "isam"
HTML_DIR = INSTALL_DIR / "html"
PRODUCT_INI = BUILD / "product.ini"
LOG_DIR = BUILD / "log"
LOG_FILE = LOG_DIR / "kelvohttp.log"


def install_html():
    """Puts the pages' files where the tests' build of the program looks for them."""
    shutil.rmtree(HTML_DIR, ignore_errors=True)
    shutil.copytree(ROOT / "html", HTML_DIR)


def write_product_ini(log_dir=LOG_DIR):
    LOG_DIR.mkdir(parents=True, exist_ok=True)
    PRODUCT_INI.write_text(f"[Settings]\nLogDir={log_dir}\n")


def free_port():
    with socket.socket() as probe:
        probe.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]


class RunningServer:
    """The program on a port of its own. `environment` is added to the process environment."""

    def __init__(self, environment=None, logging=False):
        LOG_FILE.unlink(missing_ok=True)
        if logging:
            LOG_DIR.mkdir(parents=True, exist_ok=True)
            LOG_FILE.touch(0o600)
        self.port = free_port()
        self.process = subprocess.Popen(
            [PROGRAM, "-p", str(self.port)],
            stdout=subprocess.PIPE,
            stderr=subprocess.PIPE,
            env={**os.environ, **(environment or {})},
        )
        self.start_line = self.process.stdout.readline().decode()
        self._wait_until_listening()

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
            body = "&".join(f"{name}={value}" for name, value in body).encode()
        lines = [f"POST {path} HTTP/1.1", "Host: localhost", f"Content-Length: {len(body)}", *headers]
        return self.request("\r\n".join(lines).encode() + b"\r\n\r\n" + body)

    def children(self):
        path = Path(f"/proc/{self.process.pid}/task/{self.process.pid}/children")
        return [int(child) for child in path.read_text().split()]

    def log(self):
        return LOG_FILE.read_bytes()

    def stop(self):
        for child in self.children():
            os.kill(child, signal.SIGKILL)
        self.process.kill()
        self.process.wait()
        self.process.stdout.close()
        self.process.stderr.close()
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
