"""The log: where it is, when it is written, and every line of it."""

from pathlib import Path

import pytest

from support.server import (
    HTML_DIR,
    INSTALL_DIR,
    LOG_DIR,
    LOG_FILE,
    PRODUCT_INI,
    free_port,
    start_line_of,
    started,
    wait_until,
    write_product_ini,
)

DEFAULT_LOG_FILE = Path("/tmp/kelvohttp.log")


def opening(port):
    return [
        b"Logging started\n",
        b"Started logging Gantry HTTP Server\n",
        f"Using port {port}\n".encode(),
    ]


def template_line(name):
    return f"load_template({name},ADDRESS,32768,ADDRESS)\n".encode()


def start_once():
    """Starts the program, waits for its start-up line, ends it. Gives the port and what stood on standard error."""
    port = free_port()
    with started("-p", str(port)) as process:
        assert start_line_of(process) == f"html server accepting requests on port {port}\n".encode()
        process.kill()
        return port, process.stderr.read()


@pytest.fixture(autouse=True)
def own_configuration(installed_html, no_data_sources):
    LOG_DIR.mkdir(parents=True, exist_ok=True)
    yield
    LOG_FILE.unlink(missing_ok=True)
    write_product_ini()


# Whether and where


def test_without_a_log_file_nothing_is_logged(running_server):
    running_server.get("/")
    assert list(LOG_DIR.iterdir()) == []


def test_an_existing_log_file_is_emptied_and_opened():
    LOG_FILE.write_text("a line of the last run\n" * 100)
    port, _ = start_once()
    assert LOG_FILE.read_bytes() == b"".join(opening(port))


def test_a_log_directory_may_end_with_a_slash():
    LOG_FILE.touch()
    write_product_ini(f"{LOG_DIR}/")
    port, _ = start_once()
    assert LOG_FILE.read_bytes() == b"".join(opening(port))


@pytest.mark.parametrize(
    "configuration",
    [None, "", "[Settings]\n", "[Settings]\nOther=/\n", f"[Others]\nLogDir={LOG_DIR}\n"],
)
def test_without_the_configuration_value_the_log_is_in_tmp(configuration):
    if DEFAULT_LOG_FILE.exists():
        pytest.skip(f"somebody else logs to {DEFAULT_LOG_FILE}")
    PRODUCT_INI.unlink()
    if configuration is not None:
        PRODUCT_INI.write_text(configuration)
    LOG_FILE.touch()
    try:
        DEFAULT_LOG_FILE.touch(0o600)
        port, _ = start_once()
        assert DEFAULT_LOG_FILE.read_bytes() == b"".join(opening(port))
    finally:
        DEFAULT_LOG_FILE.unlink()
    assert LOG_FILE.read_bytes() == b""


@pytest.mark.parametrize("prepare", [LOG_FILE.mkdir, lambda: LOG_FILE.symlink_to("/no/such/file")])
def test_a_log_file_that_cannot_be_opened_leaves_logging_off(prepare):
    prepare()
    try:
        assert start_once()[1] == b""
    finally:
        LOG_FILE.rmdir() if LOG_FILE.is_dir() else LOG_FILE.unlink()


def test_a_log_directory_that_does_not_exist_leaves_logging_off():
    write_product_ini(LOG_DIR / "missing")
    assert start_once()[1] == b""
    assert not (LOG_DIR / "missing").exists()


def folder_of_length(base, length):
    """An existing folder whose path has so many characters."""
    path = str(base)
    while len(path) < length:
        rest = length - len(path) - 1
        path += "/" + "d" * (rest if rest <= 200 else min(200, rest - 2))
    Path(path).mkdir(parents=True)
    assert len(path) == length
    return Path(path)


# The path has 512 characters with its end, and its last part 15 with the slash.
LONGEST = 512 - 1 - len("/kelvohttp.log")


@pytest.mark.parametrize("length", [LONGEST - 1, LONGEST])
def test_a_log_path_that_just_fits_is_used(tmp_path, length):
    folder = folder_of_length(tmp_path, length)
    write_product_ini(folder)
    (folder / "kelvohttp.log").touch()
    port, errors = start_once()
    assert (folder / "kelvohttp.log").read_bytes() == b"".join(opening(port))
    assert errors == b""


@pytest.mark.parametrize("length", [LONGEST + 1, LONGEST + 13, 511, 512, 600])
def test_a_log_path_that_does_not_fit_is_refused_and_no_shorter_file_is_touched(tmp_path, length):
    folder = folder_of_length(tmp_path, length)
    write_product_ini(folder)
    path = folder / "kelvohttp.log"
    shortened = [Path(str(path)[:511]), Path(str(folder)[:511] + "/kelvohttp.log")]
    for file in {path, *shortened}:
        if not file.is_dir() and file.parent.is_dir():
            file.write_bytes(b"earlier\n")
    assert start_once()[1] == b"Log path is too long, logging stays off\n"
    for file in {path, *shortened}:
        if file.is_file():
            assert file.read_bytes() == b"earlier\n"


# Its lines


@pytest.fixture
def log_of(logging_server):
    """What the log gains by one request."""

    def lines(data):
        before = len(logging_server.log_lines())
        logging_server.request(data)
        return logging_server.log_lines()[before:]

    return lines


def test_the_log_begins_with_the_start(logging_server):
    assert logging_server.log_lines() == opening(logging_server.port)


@pytest.mark.parametrize("path", ["/", "/index.html"])
def test_the_landing_page_logs_its_templates(log_of, path):
    assert log_of(f"GET {path} HTTP/1.1\r\n\r\n".encode()) == [
        template_line("header.html"),
        template_line("menu.html"),
        template_line("footer.html"),
    ]


def test_the_page_about_the_missing_data_source_logs_its_templates(log_of):
    assert log_of(b"GET /isam.cgi HTTP/1.1\r\n\r\n") == [template_line("header.html"), template_line("footer.html")]


@pytest.mark.parametrize("path", ["/style.css", "/header.html", "/no-such-file", "/../isam", "/images"])
def test_files_are_not_logged(log_of, path):
    assert log_of(f"GET {path} HTTP/1.1\r\n\r\n".encode()) == []


@pytest.mark.parametrize("data", [b"FOO / HTTP/1.1\r\n\r\n", b"HEAD / HTTP/1.1\r\n\r\n", b"GET\r\n\r\n", 32768 * b"x"])
def test_refused_requests_are_not_logged(log_of, data):
    assert log_of(data) == []


def test_a_form_is_logged_field_by_field(log_of):
    body = b"a=1&b=hello+world%21&c="
    assert log_of(b"POST /isam.cgi HTTP/1.1\r\nContent-Length: 24\r\n\r\n" + body + b"&") == [
        b"Converted content-length: 24\n",
        b"0 bytes of remaining posted data\n",
        b"split_form_fields(ADDRESS,24,..)\n",
        b"a=1&b=hello+world%21&c=&\n",
        b"urlunencode(ADDRESS)\n",
        b"1\n",
        b"a = 1\n",
        b"urlunencode(ADDRESS)\n",
        b"hello+world%21\n",
        b"b = hello world!\n",
        b"urlunencode(ADDRESS)\n",
        b"\n",
        b"c = \n",
        template_line("header.html"),
        template_line("footer.html"),
    ]


@pytest.mark.parametrize("text", [b"%s%s%n", b"100%", b"%d%%"])
def test_data_is_logged_as_it_is_and_not_as_a_format(log_of, text):
    body = b"%s=" + text
    lines = log_of(b"POST /isam.cgi HTTP/1.1\r\nContent-Length: %d\r\n\r\n%s" % (len(body), body))
    assert lines[3] == body + b"\n"
    assert lines[5] == text + b"\n"
    assert lines[6].startswith(b"%s = ")


@pytest.mark.parametrize("name", ["header.html", "menu.html", "footer.html"])
def test_a_missing_template_is_logged(log_of, name):
    (HTML_DIR / name).unlink()
    lines = log_of(b"GET / HTTP/1.1\r\n\r\n")
    assert lines[-2:] == [
        template_line(name),
        f"Failed to open or read template {INSTALL_DIR}//html/{name}\n".encode(),
    ]


def test_an_empty_template_is_logged(log_of):
    (HTML_DIR / "menu.html").write_bytes(b"")
    assert log_of(b"GET / HTTP/1.1\r\n\r\n") == [
        template_line("header.html"),
        template_line("menu.html"),
        f"Failed to read {INSTALL_DIR}//html/menu.html\n".encode(),
    ]


def test_a_missing_include_file_is_logged_and_the_page_goes_on(log_of):
    (HTML_DIR / "menu.html").write_bytes(b'<!--#include file="missing.html"-->\nmenu')
    assert log_of(b"GET / HTTP/1.1\r\n\r\n") == [
        template_line("header.html"),
        template_line("menu.html"),
        f"Failed to open include file {INSTALL_DIR}//html/missing.html\n".encode(),
        template_line("footer.html"),
    ]


def test_the_lines_of_several_requests_stand_in_their_order(logging_server):
    for length in (3, 1, 2):
        logging_server.request(b"GET /no-such-file HTTP/1.1\r\nContent-Length: %d\r\n\r\n" % length)
    assert logging_server.log_lines() == opening(logging_server.port) + [
        b"Converted content-length: 3\n",
        b"Converted content-length: 1\n",
        b"Converted content-length: 2\n",
    ]


def test_a_line_is_in_the_file_while_its_request_is_still_served(logging_server):
    with logging_server.connect() as connection:
        connection.sendall(b"POST / HTTP/1.1\r\nContent-Length: 3\r\n\r\n")
        wait_until(lambda: logging_server.log().endswith(b"0 bytes of remaining posted data\n"))


def test_every_part_is_served_without_a_log_too(running_server):
    (HTML_DIR / "menu.html").write_bytes(b'<!--#include file="missing.html"-->\nmenu')
    assert running_server.get("/").startswith(b"HTTP/1.1 200 OK\r\n")
    (HTML_DIR / "footer.html").unlink()
    assert b"Failed to open or read template" in running_server.get("/")
    assert running_server.post("/isam.cgi", b"a=1") != b""
    assert running_server.post("/isam.cgi", b"a") == b""
    assert running_server.get("/style.css") != b""
