"""Paths that try to leave the html folder."""

import pytest

from support.headers import file_block, undated
from support.server import HTML_DIR, INSTALL_DIR

SECRET = b"nobody may read this\n"
INSIDE = b"everybody may read this\n"


@pytest.fixture
def server(running_server):
    """A file outside the folder, and files inside it."""
    (INSTALL_DIR / "secret").write_bytes(SECRET)
    (HTML_DIR / "folder").mkdir()
    for name in ("file", "folder/file"):
        (HTML_DIR / name).write_bytes(INSIDE)
    yield running_server
    (INSTALL_DIR / "secret").unlink()


UP = [
    "..",
    ".%2e",
    "%2e.",
    "%2e%2e",
    "%2E%2E",
    "%252e%252e",
    "%%32%65%%32%65",
    "%u002e%u002e",
    "0x2e0x2e",
    "&#46;&#46;",
    ".\0.",
    ".%00.",
    ". .",
    ".+.",
    ".%20.",
    ".\t.",
    ".%09.",
    ".\x01.",
    ".\x7f.",
    ".\\.",
    "./.",
    ".;.",
    ";..",
    "..;",
    "...",
    "....",
    "..%00",
    "..%20",
    "..%09",
    "..\t",
    "..\x0b",
    ".. ",
    "..%0d",
    "..%0a",
    "..?",
    "..#",
    "..%3f",
    "..%23",
    "..\\",
    "..%5c",
    "..%255c",
    "\\..",
    "%5c..",
    "\\..\\",
    ".\xc0\xae",
    "\xc0\xae\xc0\xae",
    "\xe0\x80\xae\xe0\x80\xae",
    "\xf0\x80\x80\xae\xf0\x80\x80\xae",
    "%c0%ae%c0%ae",
    "%e0%80%ae%e0%80%ae",
    "\xef\xbc\x8e\xef\xbc\x8e",
    "\xe2\x80\xa5",
    "\xe2\x80\xa4\xe2\x80\xa4",
    "\xae\xae",
    "~",
    "$HOME",
    "`pwd`",
    "*",
    "?",
    "[.][.]",
    "{..}",
    "'..'",
    '".."',
]

SLASHES = [
    "/",
    "//",
    "/./",
    "\\",
    "%2f",
    "%2F",
    "%252f",
    "%5c",
    "\xc0\xaf",
    "%c0%af",
    "\xe2\x88\x95",
    "\xef\xbc\x8f",
    "/\x01/",
]


def leads_outside(server, path):
    request = f"GET {path} HTTP/1.1\r\nHost: localhost\r\n\r\n".encode("latin-1")
    return SECRET in server.request(request)


@pytest.mark.parametrize("up", UP)
def test_no_spelling_of_the_folder_above_leads_out_of_it(server, up):
    for slash in SLASHES:
        for front in ("/", "/folder" + slash, "/folder/.." + slash + up + slash):
            assert not leads_outside(server, f"{front}{up}{slash}secret"), (front, slash)


@pytest.mark.parametrize(
    "path",
    [
        f"{INSTALL_DIR}/secret",
        f"/{INSTALL_DIR}/secret",
        f"//{INSTALL_DIR}/secret",
        f"file://{INSTALL_DIR}/secret",
        f"http://localhost{INSTALL_DIR}/secret",
        f"http://localhost/../secret",
        "//localhost/../secret",
        "\\\\localhost\\..\\secret",
        "/file/../../secret",
        "/file/..",
        "/file\0/../../secret",
        "/../secret\0.html",
        "/../secret%00.html",
        "/../secret?.html",
        "/../secret#.html",
        "/../secret .html",
        "/../secret\t.html",
        "/../secret;.html",
        "/../html/../secret",
        "/..//..//isam/secret",
        f"/{30 * '../'}{INSTALL_DIR}/secret",
        f"/{300 * './'}../secret",
        f"/{500 * '/'}../secret",
        f"/{400 * 'x/../'}../secret",
        f"/{5000 * '../'}secret",
        f"/{32000 * '.'}/secret",
        f"/{1100 * '/'}../secret",
        f"/{'folder/../' * 90}../secret",
        "/proc/self/root/etc/passwd",
        "/dev/stdin",
        "/\r\n../secret",
        "/%0d%0a../secret",
        "/..\x12/secret",
    ],
)
def test_no_other_way_leads_out_of_the_folder(server, path):
    request = f"GET {path} HTTP/1.1\r\nHost: localhost\r\n\r\n".encode("latin-1")
    response = server.request(request)
    assert SECRET not in response and b"root:" not in response
    assert undated(server.get("/file")) == file_block("text/plain", len(INSIDE)) + INSIDE


@pytest.mark.parametrize("length", range(1010, 1040))
def test_a_path_around_the_buffer_s_size_is_whole_or_nothing(server, length):
    """Two dots behind the end of the buffer count too, and so does the end of the name."""
    start = len(f"{INSTALL_DIR}//html/")
    filler = (length - start - len("file")) * "/"
    answers = {server.get(f"{filler}../secret"), server.get(f"{filler}..")}
    assert answers == {b""}
    answer = file_block("text/plain", len(INSIDE)) + INSIDE
    assert undated(server.get(f"{filler}file")) == (answer if length < 1024 else b"")
    assert server.get(f"{filler}filex") == b""


@pytest.mark.parametrize("method", ["GET", "POST"])
def test_a_device_or_a_folder_of_the_machine_is_no_file_of_ours(server, method):
    for path in ("/dev/null", "/dev/zero", "/proc/self/mem", "/etc", "/etc/passwd", "/etc/passwd/"):
        request = f"{method} {path} HTTP/1.1\r\nContent-Length: 3\r\n\r\na=1"
        assert server.request(request.encode()) == b""
