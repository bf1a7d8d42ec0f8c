"""What docs/security.md advises: the configurations as they stand there, between Chromium and the running program."""

import base64
import re
import socket
import ssl
from urllib.parse import urlsplit

import pytest

from support import guide
from support.browser import box, find, press, press_and_agree, show_rights
from support.browser import wait_until as wait_until_shown
from support.forms import MARYS_RIGHTS
from support.guide import Front
from support.kinds import NAME, STOCK, UNREACHABLE
from support.other_site import SEND_FORM, log_in
from support.server import HTML_DIR, is_silent, read_all, wait_until
from support.source import ADMINISTRATOR, PASSWORD

USERS_PAGE = (("datasource", NAME), ("last_datasource", NAME), ("users_refresh", "1"))
FILE = b"GET /images/users.png HTTP/1.1\r\nHost: localhost\r\n\r\n"
MOMENT = 0.05
BROKEN_OFF = (*MARYS_RIGHTS, ("rights_refresh", "1"), ("submit_selection", "Submit"))


def posted(fields, length=None, password=PASSWORD):
    """A request with the header that browsers add to a page's own form."""
    credentials = base64.b64encode(f"{ADMINISTRATOR}:{password}".encode()).decode()
    body = "&".join(f"{name}={value}" for name, value in fields)
    lines = ("POST /isam.cgi HTTP/1.1", "Host: localhost", f"Authorization: Basic {credentials}")
    return "\r\n".join(
        (*lines, "Sec-Fetch-Site: same-origin", f"Content-Length: {length or len(body)}", "", body)
    ).encode()


def post(front, fields, **log_in):
    with front.connect() as connection:
        connection.sendall(posted(fields, **log_in))
        return read_all(connection)


@pytest.mark.parametrize("name", ("nginx", "stunnel", "ssh"))
def test_a_privilege_is_changed_through_the_front(browser, front_of, either, name):
    log_in(browser, front_of(name, for_browser=True).address)
    press(browser, "rights")
    show_rights(browser, "mary")
    box(browser, STOCK, "delete").click()
    press_and_agree(browser, "submit_selection")
    assert box(browser, STOCK, "delete").is_selected()


def test_nginx_asks_for_the_log_in_again_after_a_wrong_password(front_of, either):
    answer = post(front_of("nginx"), USERS_PAGE, password="wrong")
    assert answer.startswith(b"HTTP/1.1 401 ")
    assert b'WWW-Authenticate: Basic realm="Isam Permissions Administration"\r\n' in answer


def test_nginx_passes_on_an_error_page_that_has_no_status_line(front_of, either):
    answer = post(front_of("nginx"), [("initial_datasource", UNREACHABLE), ("users.x", "1")])
    assert b"<p>SQLDriverConnect failed with " in answer
    assert answer.endswith(b"</BODY></HTML>")


def test_nginx_tells_browsers_to_keep_no_page_with_passwords(front_of, either):
    header = post(front_of("nginx"), USERS_PAGE).partition(b"\r\n\r\n")[0]
    assert [line for line in header.splitlines() if b"cache" in line.lower()] == [b"Cache-Control: no-store"]


def test_a_form_that_breaks_off_is_not_obeyed_behind_nginx(front_of, rights):
    before = rights()
    front = front_of("nginx")
    with front.connect() as connection:
        connection.sendall(posted(BROKEN_OFF, length=5000))
    post(front, USERS_PAGE)
    assert rights() == before


def test_without_it_the_part_that_came_is_obeyed(kinds_server, rights):
    with kinds_server.connect() as connection:
        connection.sendall(posted(BROKEN_OFF, length=5000))
    kinds_server.get("/")
    assert not [grantee for grantee, *_ in rights() if grantee == "mary"]


def test_nginx_refuses_a_form_that_would_be_cut(front_of, rights):
    before = rights()
    rest = 32769 - len(posted([*BROKEN_OFF, ("rest", "")]).partition(b"\r\n\r\n")[2])
    answer = post(front_of("nginx"), [*BROKEN_OFF, ("rest", rest * "x")])
    assert answer.startswith(b"HTTP/1.1 413 ")
    assert rights() == before


def test_nginx_lets_no_other_site_show_a_page_in_a_frame(front_of, either):
    header = post(front_of("nginx"), USERS_PAGE).partition(b"\r\n\r\n")[0]
    assert b"X-Frame-Options: DENY" in header.splitlines()


def test_nginx_says_502_where_no_answer_comes(front_of, either):
    with front_of("nginx").connect() as connection:
        connection.sendall(b"GET /no-such-file HTTP/1.1\r\nHost: localhost\r\n\r\n")
        assert read_all(connection).startswith(b"HTTP/1.1 502 ")


def test_nginx_notes_the_address_and_the_name_of_a_wrong_log_in(front_of, either):
    front = front_of("nginx")
    post(front, USERS_PAGE, password="wrong")
    line = r'^127\.0\.0\.1 - admin \[.*\] "POST /isam\.cgi HTTP/1\.1" 401 '
    wait_until(lambda: re.search(line, (front.folder / "access.log").read_text(), re.MULTILINE))


def test_nginx_writes_neither_a_form_nor_a_page_into_a_file(front_of, kinds_server, either):
    front = front_of("nginx")
    post(front, [*USERS_PAGE, ("rest", 30000 * "x")])
    # More than waits in a connection whose client does not read.
    (HTML_DIR / "large").write_bytes(7_000_000 * b"x")
    with front.connect() as connection:
        connection.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 1)
        connection.sendall(b"GET /large HTTP/1.1\r\nHost: localhost\r\n\r\n")
        connection.recv(1)
        wait_until(lambda: not kinds_server.children())
    assert "temporary file" not in (front.folder / "error.log").read_text()


@pytest.mark.parametrize(
    "begin, answer",
    [
        (b"POST /isam.cgi HTTP/1.1", b"HTTP/1.1 403 "),
        (b"PUT /isam.cgi HTTP/1.1\r\nSec-Fetch-Site: same-origin", b"HTTP/1.1 403 "),
        (b"post /isam.cgi HTTP/1.1\r\nSec-Fetch-Site: same-origin", b"HTTP/1.1 400 "),
        (b"POST /isam.cgi HTTP/1.1\r\nSec-Fetch-Site: same-origin\r\nTransfer-Encoding: chunked", b"HTTP/1.1 400 "),
    ],
)
def test_nginx_refuses_what_is_no_form_of_the_pages(front_of, rights, begin, answer):
    before = rights()
    rest = posted(BROKEN_OFF).partition(b"\r\n")[2].replace(b"Sec-Fetch-Site: same-origin\r\n", b"")
    with front_of("nginx").connect() as connection:
        connection.sendall(begin + b"\r\n" + rest)
        assert read_all(connection).startswith(answer)
    assert rights() == before


def test_nginx_makes_one_request_of_a_form_that_looks_like_two(front_of, kinds_server, rights):
    before = rights()
    with front_of("nginx").connect() as connection:
        connection.sendall(posted(USERS_PAGE) + posted(BROKEN_OFF))
        assert read_all(connection).count(b"HTTP/1.1 ") == 1
    kinds_server.get("/")
    assert rights() == before


@pytest.mark.filterwarnings("ignore:ssl.TLSVersion")
def test_nginx_speaks_no_tls_before_1_2(front_of, either):
    front = front_of("nginx")
    context = ssl.create_default_context(cafile=front.folder / "certificate.pem")
    context.set_ciphers("ALL:@SECLEVEL=0")
    context.minimum_version = ssl.TLSVersion.TLSv1
    context.maximum_version = ssl.TLSVersion.TLSv1_1
    with socket.create_connection(("127.0.0.1", front.port)) as connection, pytest.raises(ssl.SSLError):
        context.wrap_socket(connection, server_hostname="localhost")


# Who holds the server


@pytest.mark.parametrize("begun", (b"", FILE[:20], posted(BROKEN_OFF, length=5000)), ids=("silent", "header", "form"))
def test_an_unfinished_request_does_not_hold_nginx(front_of, either, begun):
    front = front_of("nginx")
    with front.connect() as first, front.connect() as connection:
        first.sendall(begun)
        connection.sendall(FILE)
        connection.settimeout(10)
        header, _, image = read_all(connection).partition(b"\r\n\r\n")
    assert header.startswith(b"HTTP/1.1 500 ") and image == (HTML_DIR / "images" / "users.png").read_bytes()


@pytest.mark.parametrize("name", ("stunnel", "ssh"))
def test_a_silent_connection_through_the_others_holds_the_server(front_of, kinds_server, either, name):
    address = urlsplit(front_of(name).address)
    with socket.create_connection((address.hostname, address.port)) as first:
        wait_until(kinds_server.children)
        with kinds_server.connect() as second:
            second.sendall(FILE)
            assert is_silent(second, MOMENT)
            first.sendall(FILE)
            assert read_all(second)


# What Chromium makes of an answer


@pytest.fixture
def nginx_on_443(kinds_server, tmp_path):
    try:
        socket.create_server(("127.0.0.1", 443)).close()
    except OSError as reason:
        pytest.skip(f"port 443: {reason.strerror}")
    front = Front(tmp_path, kinds_server.port, 443)
    with guide.nginx(front):
        yield front


def test_on_port_443_a_browser_shows_an_error_page_without_a_status_line(browser, nginx_on_443):
    browser.get("https://localhost/isam.cgi")
    assert "No datasource specified, re-select" in find(browser, "body").text


def test_on_another_port_it_does_not(browser, front_of):
    browser.get(front_of("nginx").address + "isam.cgi")
    assert "ERR_INVALID_HTTP_RESPONSE" in browser.page_source


def test_with_stunnel_on_the_server_alone_nobody_can_log_in(browser, front_of):
    far_end = f"https://localhost:{front_of('stunnel', for_browser=True).port}/"
    browser.get(far_end)
    browser.execute_script(SEND_FORM, far_end + "isam.cgi", USERS_PAGE)
    wait_until_shown(browser, lambda: "ERR_RESPONSE_HEADERS_TRUNCATED" in browser.page_source)
