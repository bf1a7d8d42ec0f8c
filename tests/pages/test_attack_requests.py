"""Requests put together to be read as something else: two in one, one credential behind another, fields without end."""

import base64
import socket

import pytest

from support import pages
from support.headers import header_block, refusal_block, undated
from support.server import read_all
from support.source import ADMINISTRATOR, PASSWORD

GOOD = base64.b64encode(f"{ADMINISTRATOR}:{PASSWORD}".encode()).decode()
BAD = base64.b64encode(b"admin:wrong").decode()
BODY = b"datasource=accounts"


@pytest.fixture
def answer_to(visitor):
    """Sends a request whose client closes its side behind it, and gives the answer."""

    def send(request):
        with visitor.server.connect() as connection:
            connection.sendall(request)
            connection.shutdown(socket.SHUT_WR)
            return undated(read_all(connection))

    return send


def posted(*header, body=BODY):
    lines = [b"POST /isam.cgi HTTP/1.1", *(line.encode() for line in header)]
    return b"".join(line + b"\r\n" for line in [*lines, b""]) + body


def logged_in(*header, body=BODY):
    return posted(f"Authorization: Basic {GOOD}", *header, body=body)


def landing_page():
    return header_block() + pages.page(pages.source_chooser(pages.SOURCES, "accounts", "initial_datasource")).encode()


def chooser():
    return header_block() + pages.page(pages.choosers()).encode()


REFUSED = refusal_block() + pages.REFUSAL.encode()


# Lengths and encodings of the body


@pytest.mark.parametrize(
    "length",
    [
        "-1",
        "-0",
        "-18446744073709551615",
        "-9223372036854775808",
        "18446744073709551616",
        "4294967295",
        "4294967296",
        "99999999999999999999999999",
        "0x13",
        "1e3",
        "19,19",
        "19;",
        "19 19",
        "",
        " ",
        "+19",
        "019",
        "nineteen",
        "%d",
        "\x0119",
    ],
)
def test_any_content_length_leaves_the_body_whole(answer_to, length):
    assert answer_to(logged_in(f"Content-Length: {length}")) == chooser()


@pytest.mark.parametrize("lengths", [("19", "5"), ("5", "19"), ("0", "19"), ("19", "x"), ("19", "19")])
def test_of_contradicting_content_lengths_none_cuts_the_body_that_came(answer_to, lengths):
    assert answer_to(logged_in(*(f"Content-Length: {length}" for length in lengths))) == chooser()


@pytest.mark.parametrize("coding", ["chunked", "gzip, chunked", "identity", "\tchunked", "xchunked"])
def test_a_transfer_coding_is_not_known(answer_to, accounts, coding):
    """The chunks' own lines are part of the fields' names, so that the fields are others."""
    chunks = b"13\r\n" + BODY + b"\r\n0\r\n\r\n"
    response = answer_to(logged_in(f"Transfer-Encoding: {coding}", body=chunks))
    assert response == pages.error_page("No datasource specified, re-select<br>").encode()
    assert accounts.statements() == []


@pytest.mark.parametrize(
    "second",
    [
        b"GET /style.css HTTP/1.1\r\n\r\n",
        b"\r\nGET /style.css HTTP/1.1\r\n\r\n",
        b"0\r\n\r\nGET /style.css HTTP/1.1\r\nX: ",
        b"HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n",
    ],
)
def test_a_second_request_on_the_connection_is_none(answer_to, second):
    assert answer_to(b"GET / HTTP/1.1\r\nHost: localhost\r\n\r\n" + second) == landing_page()
    assert answer_to(b"GET / HTTP/1.1\r\nContent-Length: %d\r\n\r\n" % len(second) + second) == landing_page()
    assert answer_to(b"GET / HTTP/1.1\r\nTransfer-Encoding: chunked\r\n\r\n" + second) == landing_page()


@pytest.mark.parametrize(
    "header",
    ["Expect: 100-continue", "Upgrade: websocket", "Connection: keep-alive", "Range: bytes=0-1", "TE: trailers"],
)
def test_no_header_line_changes_how_a_form_is_answered(answer_to, header):
    assert answer_to(logged_in("Content-Length: 19", header)) == chooser()


@pytest.mark.parametrize(
    "start",
    [
        b"CONNECT localhost:1 HTTP/1.1",
        b"GET http://localhost/ HTTP/1.1",
        b"PRI * HTTP/2.0",
        b"\x16\x03\x01\x02",
        b"SSH-2.0-x",
        b"HTTP/1.1 200 OK",
        b"\x00",
        b"\xff" * 100,
        b"{}",
        b"GET",
        b"\r\n\r",
        b" GET / HTTP/1.1",
        b"GET\t/\tHTTP/1.1",
        b":",
        b"a:b",
    ],
)
def test_what_is_no_request_gets_no_answer(answer_to, start):
    assert answer_to(start + b"\r\n\r\n") == b""
    assert answer_to(b"GET / HTTP/1.1\r\n\r\n") == landing_page()


# Credentials


@pytest.mark.parametrize(
    "values, answered",
    [
        ([f"Basic {GOOD}", f"Basic {BAD}"], True),
        ([f"Basic {BAD}", f"Basic {GOOD}"], False),
        ([f"Basic {GOOD},Basic {BAD}"], True),
        ([f"Basic {BAD},Basic {GOOD}"], False),
        ([f"Basic {GOOD} {BAD}"], True),
        ([f"Basic {BAD} {GOOD}"], False),
        ([f"Basic {BAD}={GOOD}"], False),
        ([f"Basic {BAD}\t{GOOD}"], False),
        ([f"Basic {BAD}\n{GOOD}"], False),
    ],
)
def test_of_several_credentials_the_first_count(answer_to, values, answered):
    header = [f"Authorization: {value}" for value in values]
    assert answer_to(posted(*header, "Content-Length: 19")) == (chooser() if answered else REFUSED)


@pytest.mark.parametrize(
    "header",
    [
        f"Proxy-Authorization: Basic {GOOD}",
        f"X-Authorization: Basic {GOOD}",
        f"Authorization : Basic {GOOD}",
        f" Authorization: Basic {GOOD}",
        f"Host: x\nAuthorization: Basic {GOOD}",
        f"Cookie: Authorization: Basic {GOOD}",
        f"From: admin\r\nCookie: {GOOD}",
    ],
)
def test_credentials_in_another_place_are_none(answer_to, accounts, header):
    assert answer_to(posted(header, "Content-Length: 19")) == refusal_block()
    assert accounts.statements() == []


@pytest.mark.parametrize("query", ["datasource=accounts&users.x=1", f"authorization=Basic%20{GOOD}", "__newuser=x"])
def test_nothing_is_read_from_the_query(answer_to, accounts, query):
    request = posted("Content-Length: 19").replace(b"/isam.cgi", f"/isam.cgi?{query}".encode())
    assert answer_to(request) == refusal_block()
    assert accounts.statements() == []


def test_credentials_in_the_form_are_none(answer_to, accounts):
    body = f"datasource=accounts&authorization=Basic+{GOOD}&logonuser=admin&logonauth=manager&uid=admin".encode()
    assert answer_to(posted(f"Content-Length: {len(body)}", body=body)) == refusal_block()
    assert accounts.statements() == []


# Forms


@pytest.mark.parametrize("field", [b"a=", b"a=1", b"=", b"datasource=branch", b"users.x=1", b"x=1"])
def test_thousands_of_fields_are_as_good_as_one(answer_to, field):
    fields = [field] * (30000 // (len(field) + 1))
    body = BODY + b"&" + b"&".join(fields) + b"&z=1"
    assert len(fields) > 1600
    response = answer_to(logged_in(f"Content-Length: {len(body)}", body=body))
    assert response.startswith(header_block()) and response.count(b"<form ") == 1


def test_a_repeated_field_counts_once_and_the_first_time(visitor, accounts):
    twice = [("__newuser", "dave"), ("__newuser", "eve"), ("__newpass", "1"), ("__newpass", "2"), ("submit_users", "")]
    visitor.post([("users_refresh", ""), *twice, *twice])
    assert [line for line in accounts.sent() if line.startswith("insert")] == [
        "insert into nordvale.system.user (username, password, description) values ('dave','1','');"
    ]


@pytest.mark.parametrize(
    "user",
    [
        "a_password",
        "a_file",
        "a_oldpassword",
        "a_checkbox",
        "_",
        "__newuser",
        "__newpass",
        "datasource",
        "users.x",
        "x",
    ],
)
def test_a_user_whose_name_looks_like_a_field_gets_no_other_field_s_value(visitor, accounts, user):
    accounts.change(f"insert into \"nordvale.system.user\" values ('{user}', 'd', 'p'), ('a', 'd', 'p')")
    visitor.post(
        [("users_refresh", ""), ("a_password", "1"), ("__newfile", "2"), ("__newpass", "3"), ("submit_users", "")]
    )
    rows = {row[0]: row[1:] for row in accounts.contents()["nordvale.system.user"]}
    assert rows[user.encode()] == (b"d", b"p")
    assert rows[b"a"] == (b"d", b"1")


@pytest.mark.parametrize("table", ["submit", "rights", "users", "isamuser", "last", "x", "datasource"])
def test_a_table_whose_name_looks_like_a_field_is_granted_by_its_box_alone(visitor, accounts, table):
    accounts.execute(f"create table {table} (id integer)")
    before = accounts.contents()["nordvale.system.tableprv"]
    held = [row for row in before if row[4] != b"mary"]
    visitor.post([("rights_refresh", "1"), ("isamuser", "mary"), ("users", "1"), ("x", "1"), ("submit_selection", "1")])
    assert accounts.contents()["nordvale.system.tableprv"] == held


@pytest.mark.parametrize("fields", [1, 2, 50])
def test_a_client_that_closes_its_side_in_the_body_has_sent_that_much(answer_to, fields):
    body = BODY + b"&" + b"&".join([b"a=1"] * fields)
    assert answer_to(logged_in("Content-Length: 30000", body=body)) == chooser()
