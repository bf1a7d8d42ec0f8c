"""Stands between a browser and the server, sees what is sent and can spoil what is answered."""

import re
import socket
import threading
from contextlib import suppress

from support.server import read_all


class Relay:
    """Listens on a port of its own until the end of its block; a browser goes to `address`. `posts` has each posted request;
    `spoil` makes of an answer's bytes what goes on."""

    def __init__(self, port):
        self.server_port = port
        self.posts = []
        self.spoil = lambda answer: answer
        self.listener = socket.create_server(("127.0.0.1", 0))
        self.port = self.listener.getsockname()[1]
        self.address = f"http://localhost:{self.port}/"
        self.thread = threading.Thread(target=self._serve, daemon=True)
        self.thread.start()

    def __enter__(self):
        return self

    def __exit__(self, *_):
        # A thread that waits in accept is not woken by close.
        with suppress(OSError):
            self.listener.shutdown(socket.SHUT_RDWR)
        self.listener.close()
        self.thread.join(20)

    @property
    def bodies(self):
        """Those of the posts."""
        return [post.partition(b"\r\n\r\n")[2] for post in self.posts]

    def _serve(self):
        while True:
            try:
                connection, _ = self.listener.accept()
            except OSError:
                return
            # Browsers open connections in advance, which they may never use: one does not wait for the other.
            threading.Thread(target=self._pass_on, args=(connection,), daemon=True).start()

    def _pass_on(self, connection):
        with connection, suppress(OSError):
            connection.settimeout(60)
            request = whole_request(connection)
            if not request:
                return
            posted = request.startswith(b"POST")
            if posted:
                self.posts.append(request)
            with socket.create_connection(("127.0.0.1", self.server_port)) as server:
                server.settimeout(60)
                server.sendall(request)
                answer = read_all(server)
            connection.sendall(self.spoil(answer) if posted else answer)


def whole_request(connection):
    request = b""
    while len(request) < length_of(request):
        received = connection.recv(65536)
        if not received:
            return b""
        request += received
    return request


def length_of(request):
    """At least one byte more than there is, as long as the header is not complete."""
    header, blank_line, _ = request.partition(b"\r\n\r\n")
    if not blank_line:
        return len(request) + 1
    announced = re.search(rb"content-length: *(\d+)", header, re.IGNORECASE)
    return len(header) + len(blank_line) + (int(announced[1]) if announced else 0)
