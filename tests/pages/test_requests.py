"""The request line and the header lines: what is accepted and what closes the connection without an answer."""

import pytest

from support import pages
from support.headers import NOT_CACHED, NOT_CACHED_BY_OLD_BROWSERS, file_block, header_block, undated
from support.server import HTML_DIR

FILE = b"the file\n"
ANSWER = file_block("text/plain", len(FILE)) + FILE


@pytest.fixture
def server(running_server):
    (HTML_DIR / "file").write_bytes(FILE)
    return running_server


def landing_page(cache=NOT_CACHED):
    page = pages.page(pages.source_chooser([], "", "initial_datasource"))
    return header_block(cache=cache) + page.encode()


def no_data_source():
    return pages.error_page("No datasource specified, re-select<br>").encode()


# Method


@pytest.mark.parametrize("method", ["GET", "get", "Get", "gEt"])
def test_get_is_known_in_any_letter_case(server, method):
    assert undated(server.request(f"{method} / HTTP/1.1\r\n\r\n".encode())) == landing_page()


@pytest.mark.parametrize("method", ["POST", "post", "pOsT"])
def test_post_is_known_in_any_letter_case(server, method):
    request = f"{method} /isam.cgi HTTP/1.1\r\nContent-Length: 3\r\n\r\na=1"
    assert server.request(request.encode()) == no_data_source()


@pytest.mark.parametrize(
    "method",
    ["OPTIONS", "HEAD", "head", "PUT", "PATCH", "COPY", "MOVE", "DELETE", "LINK", "UNLINK", "TRACE", "WRAPPED"],
)
@pytest.mark.parametrize("path", ["/", "/file"])
def test_a_known_method_that_is_not_served_gets_no_answer(server, method, path):
    assert server.request(f"{method} {path} HTTP/1.1\r\n\r\n".encode()) == b""


@pytest.mark.parametrize("method", ["FOO", "GETS", "GE", "", "\r\nGET", "\tGET", "GET\t", "P\0ST", "1", 30000 * "G"])
def test_an_unknown_method_gets_no_answer(server, method):
    assert server.request(f"{method} / HTTP/1.1\r\n\r\n".encode()) == b""


@pytest.mark.parametrize("line", ["", "GET", "FOO", "GET/", "GET/HTTP/1.1", "\r\n"])
def test_a_request_line_without_a_blank_gets_no_answer(server, line):
    assert server.request(f"{line}\r\n\r\n".encode()) == b""


def test_a_get_may_have_a_body_that_nobody_reads(server):
    request = b"GET /isam.cgi HTTP/1.1\r\nContent-Length: 12\r\n\r\ndatasource=x"
    assert server.request(request) == no_data_source()


# Path and query


@pytest.mark.parametrize("path", ["/", "/index.html"])
def test_the_landing_page_has_two_paths(server, path):
    assert undated(server.get(path)) == landing_page()


@pytest.mark.parametrize(
    "path",
    [
        "/INDEX.HTML",
        "/index.html/",
        "/index.htm",
        "/isam.cgi/",
        "/ISAM.CGI",
        "/isam.cgi&datasource=x",
        "/isam%2Ecgi",
        "isam.cgi",
        "http://localhost/isam.cgi",
        "*",
    ],
)
def test_a_path_that_is_written_differently_is_a_file_and_there_is_none(server, path):
    assert server.get(path) == b""


@pytest.mark.parametrize("query", ["?", "?x", "?x=1", "?x=1&y=2", "?a?b", "?/../", "?a:b", f"?{30000 * 'q'}"])
def test_the_query_is_cut_off_the_path(server, query):
    assert undated(server.get(f"/{query}")) == landing_page()
    assert undated(server.get(f"/file{query}")) == ANSWER
    assert server.get(f"/isam.cgi{query}") == no_data_source()


def test_a_query_is_never_read_as_a_form(server):
    assert server.get("/isam.cgi?datasource=x&initial_datasource=x") == no_data_source()


def test_the_path_is_not_decoded(server):
    (HTML_DIR / "a b").write_bytes(b"blank")
    (HTML_DIR / "a%20b").write_bytes(b"percent")
    (HTML_DIR / "a+b").write_bytes(b"plus")
    assert server.get("/a%20b").endswith(b"\r\n\r\npercent")
    assert server.get("/a+b").endswith(b"\r\n\r\nplus")


def test_a_path_may_have_bytes_beyond_ascii(server):
    (HTML_DIR / "größe").write_bytes(b"file")
    assert server.request("GET /größe HTTP/1.1\r\n\r\n".encode()).endswith(b"\r\n\r\nfile")


# Protocol


@pytest.mark.parametrize("path", ["/", "/index.html", "/?", "/?x=1", "/index.html?x"])
def test_a_page_without_a_protocol_gets_no_answer(server, path):
    assert server.get(path, version="") == b""


def test_a_refusal_without_a_protocol_gets_no_answer(server):
    assert server.request(b"POST /isam.cgi\r\nContent-Length: 12\r\n\r\ndatasource=x") == b""


def test_the_page_about_the_missing_data_source_has_no_header_block_and_needs_no_protocol(server):
    assert server.get("/isam.cgi", version="") == no_data_source()


def test_a_file_needs_no_protocol(server):
    assert undated(server.get("/file", version="")) == ANSWER


@pytest.mark.parametrize("line", ["GET /\n", "GET /?x\n", "GET /index.html?\n", "get /\n\r\n"])
def test_a_line_feed_behind_the_path_is_an_empty_protocol(server, line):
    assert undated(server.request(f"{line}Host: localhost\r\n\r\n".encode())) == landing_page()


@pytest.mark.parametrize("protocol", ["HTTP/1.0", "http/1.0", "1.0", "HTTP/1.01", "HTTP/11.0", "HTTP/1.1 not 1.0"])
def test_a_protocol_with_1_0_in_it_is_that_of_an_old_browser(server, protocol):
    assert undated(server.get("/", version=f" {protocol}")) == landing_page(NOT_CACHED_BY_OLD_BROWSERS)


@pytest.mark.parametrize("protocol", ["HTTP/1.1", "HTTP/2", "HTTP/0.9", "HTTP/10", "x", "HTTP/1.1 HTTP/1.1"])
def test_every_other_protocol_is_that_of_a_new_one(server, protocol):
    assert undated(server.get("/", version=f" {protocol}")) == landing_page()


def test_the_protocol_ends_at_a_line_feed_too(server):
    request = b"GET / HTTP/1.1\nHost: 1.0\r\n\r\n"
    assert undated(server.request(request)) == landing_page()


# Header lines


def content_length_lines(server, header):
    before = len(server.log_lines())
    assert server.request(b"GET /no-such-file HTTP/1.1\r\n" + header + b"\r\n\r\n") == b""
    return server.log_lines()[before:]


@pytest.mark.parametrize(
    "header, number",
    [
        (b"Content-Length: 12", 12),
        (b"Content-Length:12", 12),
        (b"Content-Length:   12", 12),
        (b"Content-Length:\t12", 12),
        (b"CONTENT-LENGTH: 12", 12),
        (b"content-length: 12", 12),
        (b"Content-Length: 0012", 12),
        (b"Content-Length: +12", 12),
        (b"Content-Length: 0", 0),
        (b"Content-Length: 4294967294", 4294967294),
        (b"Host: localhost\r\nContent-Length: 12", 12),
        (b"Content-Length: 12\r\nHost: localhost", 12),
        (b"X-Unknown: 1\r\nContent-Length: 12", 12),
        (b"\nContent-Length: 12", 12),
        (b"\r\r\n\n\nContent-Length: 12", 12),
        (b"Host: localhost\r\n\nContent-Length: 12", 12),
        (b"Content-Length: 12\x12Host: localhost", 12),
        (b"Host: localhost\x12Content-Length: 12", 12),
    ],
)
def test_a_content_length_is_converted(logging_server, header, number):
    assert content_length_lines(logging_server, header) == [b"Converted content-length: %d\n" % number]


def test_a_blank_line_before_header_lines_is_skipped_when_all_came_in_one_read(logging_server):
    logging_server.request_at_once(b"GET /no-such-file HTTP/1.1\r\n\r\nContent-Length: 12\r\n\r\n")
    assert logging_server.log_lines()[3:] == [b"Converted content-length: 12\n"]


@pytest.mark.parametrize(
    "header",
    [
        b"Content-Length: 12x",
        b"Content-Length: x12",
        b"Content-Length: 12 ",
        b"Content-Length: 1 2",
        b"Content-Length: 12,12",
        b"Content-Length: 0x12",
        b"Content-Length: 1.2",
        b"Content-Length: 4294967295",
        b"Content-Length: 4294967296",
        b"Content-Length: 99999999999999999999",
        b"Content-Length : 12",
        b" Content-Length: 12",
        b"Content-Lengths: 12",
        b"Content_Length: 12",
        b"X: 1\nContent-Length: 12",
        b"Content-Length: 12\nHost: localhost",
    ],
)
def test_another_content_length_is_none(logging_server, header):
    assert content_length_lines(logging_server, header) == []


def test_of_two_content_lengths_each_is_converted_by_itself(logging_server):
    assert content_length_lines(logging_server, b"Content-Length: 3\r\nContent-Length: 4") == [
        b"Converted content-length: 3\n",
        b"Converted content-length: 4\n",
    ]


@pytest.mark.parametrize("blank", [b" ", b"\t"])
def test_a_line_with_a_blank_as_its_second_byte_continues_the_one_before(logging_server, blank):
    assert content_length_lines(logging_server, b"Content-Length: 3\r\n-" + blank + b"4") == [
        b"Converted content-length: 3\n",
        b"Converted content-length: 4\n",
    ]


def test_a_line_with_a_blank_as_its_first_byte_is_a_line_of_its_own(logging_server):
    assert content_length_lines(logging_server, b"Content-Length: 3\r\n 4: x") == [b"Converted content-length: 3\n"]


def test_header_lines_that_nobody_knows_are_dropped(server):
    header = "".join(f"X-{number}: {number}\r\n" for number in range(1000))
    assert undated(server.request(f"GET / HTTP/1.1\r\n{header}\r\n".encode())) == landing_page()


@pytest.mark.parametrize(
    "header", [b"no colon", b":", b": value", b"Name:", b"Host", b"a:b:c", b"\x00: x", b"\xff: \xff"]
)
def test_an_odd_header_line_does_no_harm(server, header):
    assert undated(server.request(b"GET / HTTP/1.1\r\n" + header + b"\r\n\r\n")) == landing_page()


def test_a_header_line_may_be_repeated_as_often_as_it_fits(server):
    header = 1500 * "Accept: text/html\r\n"
    assert undated(server.request(f"GET / HTTP/1.1\r\n{header}\r\n".encode())) == landing_page()
