"""What docs/security.md advises: the configurations as they stand there, between Chromium and the running program."""

import base64
import threading
from contextlib import contextmanager
from http.server import BaseHTTPRequestHandler, ThreadingHTTPServer

import pytest

from support.browser import box, field, find, find_all, press, press_and_agree, show_rights, wait_until
from support.kinds import NAME, STOCK, UNREACHABLE
from support.server import HTML_DIR, read_all
from support.source import ADMINISTRATOR, PASSWORD

MARYS_RIGHTS = (("datasource", NAME), ("last_datasource", NAME), ("isamuser", "mary"), ("last_isamuser", "mary"))
USERS_PAGE = (("datasource", NAME), ("last_datasource", NAME), ("users_refresh", "1"))
BROKEN_OFF = (*MARYS_RIGHTS, ("rights_refresh", "1"), ("submit_selection", "Submit"))
GRANT_ALL = (*MARYS_RIGHTS, ("rights_refresh", "x"), ("rights_grant", "x"))

SEND_FORM = """
const [action, fields] = arguments;
const form = document.createElement("form");
form.method = "post";
form.action = action;
for (const [name, value] of fields)
    form.append(Object.assign(document.createElement("input"), {name, value}));
document.body.append(form);
form.submit();
"""


def log_in(driver, address):
    """A log-in that the browser remembers, as it does that of its dialog, which no program can fill in."""
    driver.get(address)
    with_name = address.replace("://", f"://{ADMINISTRATOR}:{PASSWORD}@")
    driver.execute_script(SEND_FORM, with_name + "isam.cgi", [("initial_datasource", NAME), ("users.x", "1")])
    wait_until(driver, lambda: field(driver, "__newuser"))
    driver.get(address)


@contextmanager
def other_site():
    """The address of an empty page."""

    class EmptyPage(BaseHTTPRequestHandler):
        def do_GET(self):
            self.send_response(200)
            self.send_header("Content-Type", "text/html")
            self.end_headers()

        def log_message(self, *_):
            pass

    with ThreadingHTTPServer(("127.0.0.1", 0), EmptyPage) as site:
        threading.Thread(target=site.serve_forever, daemon=True).start()
        yield f"http://127.0.0.1:{site.server_port}/"
        site.shutdown()


def send_from_elsewhere(driver, address):
    """Another site's form grants mary everything; gives the text of what the browser shows then."""
    with other_site() as elsewhere:
        driver.get(elsewhere)
        body = find(driver, "body")
        driver.execute_script(SEND_FORM, address + "isam.cgi", GRANT_ALL)
        wait_until(driver, lambda: driver.current_url.startswith(address) and body not in find_all(driver, "body"))
        return find(driver, "body").text


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


def rights(either):
    query = 'select * from nordvale.system.tableprv'
    return sorted(either.source.rows(query))


@pytest.mark.parametrize("name", ("nginx", "stunnel", "ssh"))
def test_a_privilege_is_changed_through_the_front(browser, front_of, either, name):
    log_in(browser, front_of(name).address)
    press(browser, "rights")
    show_rights(browser, "mary")
    box(browser, STOCK, "delete").click()
    press_and_agree(browser, "submit_selection")
    assert box(browser, STOCK, "delete").is_selected()


def test_nginx_refuses_a_form_of_another_site(browser, front_of, either):
    address = front_of("nginx").address
    before = rights(either)
    log_in(browser, address)
    assert "403 Forbidden" in send_from_elsewhere(browser, address)
    assert rights(either) == before


def test_without_it_the_same_form_is_obeyed(browser, kinds_server, either):
    address = f"http://localhost:{kinds_server.port}/"
    before = rights(either)
    log_in(browser, address)
    assert "Permissions currently allowed for user mary." in send_from_elsewhere(browser, address)
    assert len(rights(either)) > len(before)


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


def test_a_form_that_breaks_off_is_not_obeyed_behind_nginx(front_of, either):
    before = rights(either)
    front = front_of("nginx")
    with front.connect() as connection:
        connection.sendall(posted(BROKEN_OFF, length=5000))
    post(front, USERS_PAGE)
    assert rights(either) == before


def test_without_it_the_part_that_came_is_obeyed(kinds_server, either):
    with kinds_server.connect() as connection:
        connection.sendall(posted(BROKEN_OFF, length=5000))
    kinds_server.get("/")
    assert not [grantee for grantee, *_ in rights(either) if grantee == "mary"]


def test_nginx_refuses_a_form_that_would_be_cut(front_of, either):
    before = rights(either)
    rest = 32769 - len(posted([*BROKEN_OFF, ("rest", "")]).partition(b"\r\n\r\n")[2])
    answer = post(front_of("nginx"), [*BROKEN_OFF, ("rest", rest * "x")])
    assert answer.startswith(b"HTTP/1.1 413 ")
    assert rights(either) == before


def test_a_silent_connection_does_not_hold_nginx(front_of, either):
    front = front_of("nginx")
    with front.connect(), front.connect() as connection:
        connection.sendall(b"GET /images/users.png HTTP/1.1\r\nHost: localhost\r\n\r\n")
        connection.settimeout(10)
        header, _, image = read_all(connection).partition(b"\r\n\r\n")
    assert header.startswith(b"HTTP/1.1 500 ") and image == (HTML_DIR / "images" / "users.png").read_bytes()
