"""Static files and the landing page."""

from contextlib import contextmanager

from cases import Case, Side
from place import PROGRAMS, Floor, stopped

from support.server import HTML_DIR, RunningServer
from support.source import list_sources

FILES = {"4 KB": 4 * 1024, "70 KB": 70 * 1024, "10 MB": 10 * 1024 * 1024}
SOURCES = (1, 20, 500)

# Requests that take some 50 milliseconds together, where several do.
BLOCKS = {"4 KB": 100, "70 KB": 100, "10 MB": 10, 1: 50, 20: 20, 500: 1}

# How much tabwarden sends at once: of a file what it has read at once, of a page what is more than this.
FILE_PIECE, PAGE_PIECE = 32767, 16384

# The least part of the bare loop's requests per second that is aimed at, and the least multiple of the peer's.
LOOP_AIM, PEER_AIM = 0.9, 1.3


def get(path):
    return f"GET {path} HTTP/1.1\r\nHost: localhost\r\n\r\n".encode()


def loop(program, folder, answer, piece, end, environment=None):
    """A bare loop that sends what tabwarden has sent."""
    path = folder / f"answer_of_{program}_{end}"
    path.write_bytes(answer)
    return Floor(PROGRAMS / program, "{port}", path, piece, end, environment=environment)


@contextmanager
def file_servers(folder, name, content):
    """Tabwarden, the loops with its libraries and without any, the peer: all send this file."""
    (HTML_DIR / name).write_bytes(content)
    ours = RunningServer()
    with stopped(ours):
        answer = ours.get(f"/{name}")
        same, sudden, static = (
            loop(program, folder, answer, FILE_PIECE, end)
            for program, end in (("answer_loop", "exit"), ("answer_loop", "_exit"), ("answer_loop_static", "exit"))
        )
        peer = Floor("busybox", "httpd", "-f", "-p", "127.0.0.1:{port}", "-h", HTML_DIR)
        with stopped(same, sudden, static, peer):
            yield ours, same, sudden, static, peer


def file_cases(folder, size):
    name = f"bench_{FILES[size]}.html"
    request = get(f"/{name}")
    content = b"".join(b"<p>line %08d</p>\n" % number for number in range(FILES[size] // 21 + 1))[: FILES[size]]
    aimed = size == "4 KB"
    with file_servers(folder, name, content) as (ours, same, sudden, static, peer):
        tabwarden = Side("tabwarden", ours, request)
        floors = [
            Side("bare loop, same libraries", same, request, LOOP_AIM if aimed else None),
            Side("bare loop, same libraries, _exit", sudden, request),
            Side("bare loop, static", static, request),
            Side("busybox httpd", peer, request, PEER_AIM if aimed else None),
        ]
        yield Case("static file", "", size, tabwarden, floors, block=BLOCKS[size])
        peer_alone = [Side("busybox httpd", peer, request)]
        yield Case("static file, 4 clients", "", size, tabwarden, peer_alone, block=BLOCKS[size], clients=4)


def landing_case(folder, count):
    environment = list_sources([f"source_{number:03}" for number in range(count)], folder / f"sources_{count}")
    ours = RunningServer(environment)
    with stopped(ours):
        same, sudden = (loop("walking_loop", folder, ours.get("/"), PAGE_PIECE, end, environment) for end in ("exit", "_exit"))
        with stopped(same, sudden):
            floors = [
                Side("bare loop, same libraries", same, get("/"), LOOP_AIM if count == 1 else None),
                Side("bare loop, same libraries, _exit", sudden, get("/")),
            ]
            yield Case("landing page", "listed", count, Side("tabwarden", ours, get("/")), floors, block=BLOCKS[count])


def cases(wants, folder):
    """Each with its servers, which end when the next one is asked for; `folder` is in memory."""
    for size in FILES:
        if wants("static file"):
            yield from file_cases(folder, size)
    for count in SOURCES:
        if wants("landing page"):
            yield from landing_case(folder, count)
