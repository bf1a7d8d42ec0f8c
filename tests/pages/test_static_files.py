"""Files of the html folder: their types, their sizes, and the paths that lead to none."""

import os

import pytest

from support.headers import file_block, undated
from support.server import HTML_DIR, INSTALL_DIR, ROOT

CONTENT = b"content\n"

# The program's own path to the folder, with its double slash.
FOLDER = f"{INSTALL_DIR}//html/"
PATH_SIZE = 1024


def put(name, content=CONTENT):
    path = HTML_DIR / name
    path.parent.mkdir(parents=True, exist_ok=True)
    path.write_bytes(content)


def answer(content=CONTENT, content_type="text/plain"):
    return file_block(content_type, len(content)) + content


@pytest.mark.parametrize(
    "name, content_type",
    [
        ("file.html", "text/html"),
        ("file.htm", "text/html"),
        ("file.jpg", "image/jpeg"),
        ("file.jpeg", "image/jpeg"),
        ("file.gif", "image/gif"),
        ("file.png", "image/png"),
        ("file.css", "text/css"),
        ("sound.au", "audio/basic"),
        ("file.wav", "audio/wav"),
        ("file.avi", "video/x-msvideo"),
        ("file.mov", "video/quicktime"),
        ("movie.qt", "video/quicktime"),
        ("file.mpeg", "video/mpeg"),
        ("file.mpe", "video/mpeg"),
        ("file.vrml", "model/vrml"),
        ("file.wrl", "model/vrml"),
        ("file.midi", "audio/midi"),
        ("file.mid", "audio/midi"),
        ("file.mp3", "audio/mpeg"),
        ("proxy.pac", "application/x-ns-proxy-autoconfig"),
        ("app.js", "text/plain"),
        ("favicon.ico", "text/plain"),
        ("file.mpg", "text/plain"),
        ("file.svg", "text/plain"),
        ("file.txt", "text/plain"),
        ("Page.HTML", "text/plain"),
        ("file.Css", "text/plain"),
        ("file.PNG", "text/plain"),
        ("file", "text/plain"),
        ("file.", "text/plain"),
        ("html", "text/plain"),
        (".html", "text/html"),
        ("file.tar.gif", "image/gif"),
        ("file.gif.tar", "text/plain"),
        ("file.html~", "text/plain"),
        ("file.htmlx", "text/plain"),
        ("folder/file.png", "image/png"),
        ("folder.css/file", "text/plain"),
        ("folder.css/file.gif", "image/gif"),
    ],
)
def test_the_end_of_the_name_gives_the_type(running_server, name, content_type):
    put(name)
    assert undated(running_server.get(f"/{name}")) == answer(content_type=content_type)


@pytest.mark.parametrize("length", [0, 1, 32766, 32767, 32768, 65534, 65535, 70000, 3_000_000])
def test_a_file_of_any_size_comes_whole(running_server, length):
    content = os.urandom(length)
    put("file.png", content)
    assert undated(running_server.get("/file.png")) == answer(content, "image/png")


@pytest.mark.parametrize("path", sorted(str(file.relative_to(ROOT / "html")) for file in (ROOT / "html").rglob("*.*")))
def test_every_shipped_file_can_be_fetched_as_it_is(running_server, path):
    response = running_server.get(f"/{path}")
    assert response.partition(b"\r\n\r\n")[2] == (ROOT / "html" / path).read_bytes()


def test_a_template_that_is_fetched_keeps_its_directives(running_server):
    template = b'<!--#include file="style.css"-->\nheader\0\n'
    put("header.html", template)
    assert undated(running_server.get("/header.html")) == answer(template, "text/html")


@pytest.mark.parametrize("path", ["/file", "//file", "/./file", "file", "///.//file"])
def test_the_path_is_put_behind_that_of_the_folder_as_it_is(running_server, path):
    put("file")
    assert undated(running_server.get(path)) == answer()


@pytest.mark.parametrize(
    "path",
    [
        "/../html/file",
        "/folder/../file",
        "/..",
        "..",
        "/../../../../../../../../etc/passwd",
        "/a..b.html",
        "/file..",
        "/...",
        "/....",
        "/folder../file",
    ],
)
def test_a_path_with_two_dots_in_a_row_gets_no_answer(running_server, path):
    put("file")
    put("folder/file")
    put("a..b.html")
    put("file..")
    put("...")
    put("folder../file")
    assert running_server.get(path) == b""


def test_dots_apart_do_no_harm(running_server):
    put("a.b.c")
    assert undated(running_server.get("/a.b.c")) == answer()


@pytest.mark.parametrize(
    "path",
    ["/no-such-file", "/FILE", "/file/", "/file/x", "/file%", "/%66ile", "/%2e%2e/html/file", "/folder\\file"],
)
def test_a_path_without_a_file_gets_no_answer(running_server, path):
    put("file")
    put("folder/file")
    assert running_server.get(path) == b""


def test_a_file_may_be_asked_for_with_a_post(running_server):
    put("file")
    assert undated(running_server.post("/file", b"a=1")) == answer()


@pytest.mark.parametrize("path", ["/folder", "/folder/", "//"])
def test_a_folder_is_a_header_block_and_then_the_end(running_server, path):
    (HTML_DIR / "folder").mkdir()
    size = os.stat(f"{FOLDER}{path}").st_size
    assert undated(running_server.get(path)) == file_block("text/plain", size)
    put("file")
    assert undated(running_server.get("/file")) == answer()


@pytest.mark.parametrize("line", ["GET  HTTP/1.1", "GET ?x HTTP/1.1", "GET "])
def test_no_path_at_all_is_the_folder_itself(running_server, line):
    size = os.stat(FOLDER).st_size
    assert undated(running_server.request(f"{line}\r\n\r\n".encode())) == file_block("text/plain", size)


def test_a_path_as_long_as_the_buffer_allows_is_served_and_a_longer_one_is_not(running_server):
    put("file")
    longest = "/" * (PATH_SIZE - 1 - len(FOLDER) - len("file")) + "file"
    assert undated(running_server.get(longest)) == answer()
    assert running_server.get("/" + longest) == b""
    assert running_server.get(20000 * "/" + "file") == b""


def test_a_shortened_path_is_never_used(running_server):
    room = PATH_SIZE - 1 - len(FOLDER)
    put("file")
    assert running_server.get("/" * (room - 4) + "file" + 100 * "x") == b""
