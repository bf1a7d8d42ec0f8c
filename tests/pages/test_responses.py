"""The header block of every response, byte for byte, and the answers that have none."""

import base64
import os
import time
from calendar import timegm

import pytest

from support import pages
from support.headers import (
    DATE,
    NOT_CACHED_BY_OLD_BROWSERS,
    file_block,
    header_block,
    refusal_block,
    undated,
)
from support.server import HTML_DIR, RunningServer

POSTED = b"Content-Length: 12\r\n\r\ndatasource=x"


def credentials(text):
    return f"Authorization: Basic {base64.b64encode(text.encode()).decode()}"


@pytest.mark.parametrize("path", ["/", "/index.html", "/?x=1"])
def test_a_page_is_not_cached(running_server, path):
    assert undated(running_server.get(path)).startswith(header_block() + b"<")


@pytest.mark.parametrize("path", ["/", "/index.html"])
def test_a_page_for_an_old_browser_is_not_cached_in_its_words(running_server, path):
    expected = header_block(cache=NOT_CACHED_BY_OLD_BROWSERS) + b"<"
    assert undated(running_server.get(path, version=" HTTP/1.0")).startswith(expected)


@pytest.mark.parametrize("version", [" HTTP/1.1", " HTTP/1.0", ""])
def test_a_file_is_cached_whatever_the_browser_and_has_its_length_and_the_line_of_status_500(running_server, version):
    (HTML_DIR / "file.css").write_bytes(b"12345")
    assert undated(running_server.get("/file.css", version)) == file_block("text/css", 5) + b"12345"


def test_a_page_s_header_block_comes_before_a_failure_of_the_page(running_server):
    (HTML_DIR / "header.html").unlink()
    page = pages.missing_template_page("header.html", running_server.port)
    assert undated(running_server.get("/")) == header_block() + page.encode()


@pytest.mark.parametrize("body", [b"datasource=x", b"initial_datasource=x", b"datasource=&", b"a=1&datasource=x&b=2"])
def test_without_credentials_there_is_the_challenge_without_a_blank_line_or_body(running_server, body):
    assert undated(running_server.post("/isam.cgi", body)) == refusal_block()


@pytest.mark.parametrize("header", ["Authorization:", "Proxy-Authorization: Basic eA==", "X-Authorization: Basic eA=="])
def test_an_empty_credentials_line_or_another_one_is_no_credentials(running_server, header):
    assert undated(running_server.post("/isam.cgi", b"datasource=x", [header])) == refusal_block()


def test_the_challenge_for_an_old_browser(running_server):
    response = running_server.request(b"POST /isam.cgi HTTP/1.0\r\n" + POSTED)
    assert undated(response) == refusal_block(NOT_CACHED_BY_OLD_BROWSERS)


@pytest.mark.parametrize(
    "value",
    [
        "Basic",
        " Basic",
        "Basic ",
        "   ",
        "Basic dXNlcg==",
        "Basic dXNlcg",
        "Basic =",
        "Basic !dXNlcjpwYXNz",
        "Basic d",
        "Basic :",
        "dXNlcjpwYXNz",
        "user:pass",
    ],
)
def test_malformed_credentials_get_no_answer(running_server, value):
    assert running_server.post("/isam.cgi", b"datasource=x", [f"Authorization: {value}"]) == b""


@pytest.mark.parametrize("version", ["HTTP/1.1", "HTTP/1.0"])
def test_a_get_of_the_administration_is_the_bare_page_about_the_missing_data_source(running_server, version):
    response = running_server.request(f"GET /isam.cgi {version}\r\n\r\n".encode())
    assert response == pages.error_page("No datasource specified, re-select<br>").encode()


@pytest.mark.parametrize("body", [b"a=1", b"Datasource=x", b"datasourc=x", b"last_datasource=x", b"a=datasource"])
def test_a_form_without_a_data_source_gets_the_same_page_also_with_credentials(running_server, body):
    response = running_server.post("/isam.cgi", body, [credentials("admin:manager")])
    assert response == pages.error_page("No datasource specified, re-select<br>").encode()


def test_a_data_source_that_cannot_be_connected_to_is_a_bare_error_page(running_server):
    response = running_server.post("/isam.cgi", b"datasource=x", [credentials("admin:manager")]).decode()
    message = pages.message_of(response)
    assert message.startswith("SQLDriverConnect failed with ") and message.endswith("\n")


def test_a_form_for_the_landing_page_needs_no_credentials_for_its_header_block(running_server):
    response = undated(running_server.post("/", b"datasource=x"))
    block = header_block()
    assert response.startswith(block)
    assert pages.message_of(response[len(block) :].decode()).startswith("SQLDriverConnect failed with ")


def test_dates_are_the_present_in_utc(installed_html, no_data_sources):
    server = RunningServer(environment={"TZ": "Pacific/Kiritimati"})
    try:
        (HTML_DIR / "file").write_bytes(b"file")
        before = int(time.time())
        dates = [
            *DATE.findall(server.get("/", version=" HTTP/1.0")),
            *DATE.findall(server.get("/file")),
        ]
        assert len(dates) == 5
        for date in dates:
            moment = time.strptime(date.decode(), "%a, %d %b %Y %H:%M:%S GMT")
            assert before <= timegm(moment) <= time.time()
            assert date.decode() == time.strftime("%a, %d %b %Y %H:%M:%S GMT", moment)
    finally:
        server.stop()


def test_a_file_s_date_is_that_of_the_response_and_not_of_the_file(running_server):
    (HTML_DIR / "file").write_bytes(b"file")
    os.utime(HTML_DIR / "file", (0, 0))
    assert b"1970" not in running_server.get("/file")


def test_ranges_and_conditions_are_not_honoured(running_server):
    (HTML_DIR / "file").write_bytes(b"0123456789")
    response = running_server.request(
        b"GET /file HTTP/1.1\r\nRange: bytes=2-3\r\nIf-Modified-Since: Fri, 31 Dec 9999 23:59:59 GMT\r\n\r\n"
    )
    assert undated(response) == file_block("text/plain", 10) + b"0123456789"
