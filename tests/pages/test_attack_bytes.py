"""Every byte and every format directive in every place: no response header, no log line and no child but its own."""

import base64

import pytest

from support import pages
from support.headers import header_block, refusal_block, undated
from support.pages import USERS, error_page
from support.server import RunningServer

BYTES = [bytes([code]) for code in range(256)]

FORMATS = [
    "%s%s%s%s%s%s%s%s",
    "%n%n%n%n",
    "%hhn",
    "%x.%x.%x.%x",
    "%08x%p",
    "%*d%*s%-*.*s",
    "%1$s %2$n %99$x",
    "%65536d",
    "%2147483647s",
    "%.2147483648d",
    "%99999999999999999999c",
    "%",
    "%%",
    "%%%",
    "100% sure",
    "%lc%ls%C%S%m",
    "%I64d%zq%jn%Lf",
    "{0}{}%{x}",
    "%s" * 127,
]


@pytest.fixture(scope="module")
def landing(pages_server):
    page = pages.page(pages.source_chooser(pages.SOURCES, "accounts", "initial_datasource"))
    return header_block() + page.encode()


def no_data_source():
    return error_page("No datasource specified, re-select<br>").encode()


def request(path=b"/", method=b"GET", protocol=b"HTTP/1.1", header=b"Host: localhost", body=b""):
    return b"%b %b %b\r\n%b\r\n\r\n%b" % (method, path, protocol, header, body)


def post(body, header=b"Host: localhost"):
    return request(b"/isam.cgi", b"POST", header=b"Content-Length: %d\r\n%b" % (len(body), header), body=body)


# Bytes


@pytest.mark.parametrize(
    "place, unanswered",
    [
        (lambda byte: request(b"/?a" + byte + b"b"), b"\r"),
        (lambda byte: request(protocol=b"HTTP/1.1" + byte + b"Set-Cookie: a=b"), b""),
        (lambda byte: request(header=b"Host: a" + byte + b"Set-Cookie: a=b"), b""),
        (lambda byte: request(header=b"Ho" + byte + b"st: a"), b""),
        (lambda byte: request(header=byte), b""),
    ],
    ids=["query", "protocol", "header value", "header name", "header line"],
)
def test_a_byte_in_a_request_line_or_header_gets_into_no_response(visitor, landing, place, unanswered):
    """A carriage return in the query leaves the request without a protocol."""
    for byte in BYTES:
        expected = b"" if byte in unanswered else landing
        assert undated(visitor.server.request(place(byte))) == expected, byte


def test_a_byte_in_a_path_or_method_is_another_path_or_method(visitor, landing):
    server = visitor.server
    for byte in BYTES:
        if byte not in b" ?\r\n":
            assert server.request(request(b"/index" + byte + b".html")) == b"", byte
        if byte != b" ":
            assert server.request(request(method=b"G" + byte + b"ET")) == b"", byte
    assert undated(server.request(request())) == landing


def test_a_byte_in_a_form_field_s_name_or_value_gets_into_no_response(visitor):
    for byte in BYTES[1:]:
        for body in (b"name" + byte + b"b=1&c=d", b"name=1" + byte + b"b&c=d", b"name=%%%02x&c=d" % byte[0]):
            # A colon makes a header line of what came with the header.
            if b":" not in body:
                assert visitor.server.request(post(body)) == no_data_source(), body


def test_every_byte_of_a_posted_user_is_shown_and_asked_for_as_it_is(visitor, accounts):
    letters = "".join(chr(code) for code in range(1, 128) if chr(code) not in "'\\") + "äöü€\udc80\udcff\udcc3"
    for start in range(0, len(letters), 16):
        user = letters[start : start + 16]
        assert visitor.page([("rights_refresh", ""), ("isamuser", user)]) == pages.rights_page(user)


def test_every_byte_of_a_stored_value_is_shown_as_it_is(visitor, accounts):
    values = ["".join(chr(code) for code in range(start, start + 16)) for start in range(16, 128, 16)]
    values = [
        *values,
        *("".join(chr(0xDC00 + code) for code in range(start, start + 16)) for start in range(128, 256, 16)),
    ]
    values.append("".join(chr(code) for code in range(1, 16)))
    texts = [f"cast(x'{value.encode(errors='surrogateescape').hex()}' as text)" for value in values]
    rows = ", ".join(f"({text}, {text}, {text})" for text in texts)
    accounts.change(f'insert into "nordvale.system.user" values {rows}')
    assert visitor.page([("users.x", "1")]) == pages.users_page((*USERS, *((value, value, value) for value in values)))


@pytest.mark.parametrize("code", [1, 9, 10, 11, 12, 13, 27, 31, 127, 128, 160, 192, 245, 255])
def test_a_byte_in_credentials_or_data_source_gets_into_no_response_header(visitor, code):
    byte = bytes([code]).decode(errors="surrogateescape")
    for log_in in ({"user": f"admin{byte}"}, {"password": f"manager{byte}"}, {"user": f"{byte}Set-Cookie: a=b"}):
        assert undated(visitor.post(**log_in)) == refusal_block() + pages.REFUSAL.encode()
    message = pages.message_of(visitor.post(source=f"accounts{byte}").decode())
    assert message == pages.message_of(visitor.post(source="accountsx").decode())


@pytest.mark.parametrize("scheme", ["Basic", "\x01", "\x7f\x1b", "B\tb", "ä", "%s"])
def test_a_byte_behind_the_credentials_ends_them(visitor, scheme):
    credentials = base64.b64encode(b"admin:manager!!").rstrip(b"=")
    for byte in BYTES[1:]:
        if byte.isalnum() or byte in b"+/\r\x12:":
            continue
        header = b"Authorization: " + scheme.encode() + b" " + credentials + byte + b"x"
        body = b"datasource=nowhere"
        response = visitor.server.request(post(body, header))
        assert response.startswith(b"<HTML><HEAD>\r\n<TITLE>Error</TITLE>"), byte


# Format directives


@pytest.mark.parametrize("text", FORMATS)
def test_format_directives_in_the_data_are_shown_as_they_are(visitor, accounts, text):
    stored = f"cast(x'{text.encode().hex()}' as text)"
    accounts.change(f'insert into "nordvale.system.user" values ({stored}, {stored}, {stored})')
    accounts.execute(f"create table {pages.quoted_name((text, text, text))} (id integer)")
    assert visitor.page([("users.x", "1")]) == pages.users_page((*USERS, (text, text, text)))
    tables = sorted([*pages.TABLES, (text, text, text)])
    users = sorted([*pages.OFFERED, text])
    assert visitor.page([("rights_refresh", ""), ("isamuser", text)]) == pages.rights_page(
        text, tables=tables, users=users
    )
    page = visitor.page([("rights_refresh", ""), ("isamuser", f"{text[:200]}'")])
    # Behind what has been sent by then: the longest names fill a piece of the page.
    assert error_page("\0").partition("\0")[0] + "SQLTables failed with [NORDVALE][ISAM]" in page


@pytest.mark.parametrize("text", FORMATS)
def test_format_directives_in_a_request_do_nothing(visitor, landing, text):
    server, data = visitor.server, text.encode()
    for sent in (
        request(b"/?" + data.replace(b" ", b"")),
        request(header=b"Host: " + data),
        request(header=data + b": x"),
        request(protocol=data),
        request(header=b"User-Agent: " + data + b"\r\nX-Forwarded-For: " + data),
    ):
        assert undated(server.request(sent)) == landing
    for sent in (request(b"/" + data), request(method=data), request(b"/" + data + b".html")):
        assert server.request(sent) == b""
    assert undated(visitor.post(user=text, password=text)) == refusal_block() + pages.REFUSAL.encode()


@pytest.mark.parametrize("text", FORMATS)
def test_format_directives_in_a_template_are_text(visitor, templates, text):
    templates.put("header.html", f'{text}<!--#include file="{text.replace(" ", "").replace("-", "")}"-->\n{text}\n')
    note = f"<p>Include file {pages.INSTALL_DIR}//html/{text.replace(' ', '').replace('-', '')} not found/readable"
    header = f"{text}{note}{text}\n"
    assert visitor.page().startswith(header + "<form")
    assert header in visitor.send([("datasource", text)]).decode()


def test_format_directives_in_data_source_names(visitor_of):
    names = [text for text in FORMATS if len(text) < 33]
    server = visitor_of(*((name, "NORDVALE_ISAM") for name in names)).server
    assert pages.answered(server.get("/")) == pages.page(pages.source_chooser(names, names[0], "initial_datasource"))


@pytest.mark.parametrize("text", FORMATS)
def test_format_directives_are_logged_as_they_are(installed_html, no_data_sources, text):
    server = RunningServer(logging=True)
    try:
        start = server.log_lines()
        data = text.encode()
        body = data.replace(b"%", b"%25").replace(b" ", b"+") + b"=" + data.replace(b"%", b"%25").replace(b" ", b"+")
        assert server.request_at_once(post(body)) == no_data_source()
        log = [line for line in server.log_lines()[len(start) :] if not line.startswith(b"load_template(")]
    finally:
        server.stop()
    name = body.partition(b"=")[0]
    assert log[-3:] == [b"urlunencode(ADDRESS)\n", name + b"\n", name + b" = " + data + b"\n"]
    assert body + b"\n" in log
