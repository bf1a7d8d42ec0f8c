"""Posted forms: how the body is collected, and what becomes of its fields."""

import socket

import pytest

from support import pages
from support.server import is_silent, read_all, wait_until


def no_data_source():
    """What answers a form that was read: none of these names a data source."""
    return pages.error_page("No datasource specified, re-select<br>").encode()


def header(length=None):
    line = "" if length is None else f"Content-Length: {length}\r\n"
    return f"POST /isam.cgi HTTP/1.1\r\n{line}\r\n".encode()


def splitting(body):
    """The lines that begin the splitting of a body."""
    return [b"split_form_fields(ADDRESS,%d,..)\n" % len(body), *(body + b"\n").splitlines(keepends=True)]


def field(name, raw, value):
    return [b"urlunencode(ADDRESS)\n", raw + b"\n", name + b" = " + value + b"\n"]


@pytest.fixture
def log_behind(logging_server):
    """The lines that are logged behind the first of their kind."""

    def lines(first):
        log = logging_server.log_lines()
        return log[log.index(first) + 1 :]

    return lines


def post_body_apart(server, length, *pieces):
    """Posts a body of which nothing comes together with the header, and gives the answer."""
    with server.connect() as connection:
        connection.sendall(header(length))
        wait_until(lambda: b"0 bytes of remaining posted data\n" in server.log_lines())
        for piece in pieces:
            server.wait_until_read(connection)
            connection.sendall(piece)
        return read_all(connection)


@pytest.fixture
def split(logging_server):
    """Posts a body and gives the answer and the lines behind the splitting's beginning."""

    def post(body):
        answer = post_body_apart(logging_server, len(body), body)
        begin = splitting(body)
        log = logging_server.log_lines()
        start = log.index(begin[0])
        assert log[start : start + len(begin)] == begin
        return answer, [line for line in log[start + len(begin) :] if not line.startswith(b"load_template(")]

    return post


# The fields


@pytest.mark.parametrize(
    "body, fields",
    [
        (b"a=1&b=hello+world%21", [(b"a", b"1", b"1"), (b"b", b"hello+world%21", b"hello world!")]),
        (b"a=1&a=2", [(b"a", b"1", b"1"), (b"a", b"2", b"2")]),
        (b"x=3&y=4&go=1", [(b"go", b"1", b"1")]),
        (b"go=1&x=3&y=4", [(b"go", b"1", b"1")]),
        (b"X=3&xx=4", [(b"X", b"3", b"3"), (b"xx", b"4", b"4")]),
        (b"users.x=5&y_=6", [(b"users.x", b"5", b"5"), (b"y_", b"6", b"6")]),
        (b"a=&b=2", [(b"a", b"", b""), (b"b", b"2", b"2")]),
        (b"a=1&", [(b"a", b"1", b"1")]),
        (b"a=1&b=&", [(b"a", b"1", b"1"), (b"b", b"", b"")]),
        (b"a%20b=1", [(b"a%20b", b"1", b"1")]),
        (b"a+b=1", [(b"a+b", b"1", b"1")]),
        (b"a=1=2", [(b"a", b"1=2", b"1=2")]),
        (b"a==", [(b"a", b"=", b"=")]),
        (b"a&b=1", [(b"a&b", b"1", b"1")]),
        (b"&a=1", [(b"&a", b"1", b"1")]),
        (b"a=1&&b=2", [(b"a", b"1", b"1"), (b"&b", b"2", b"2")]),
        (b"=1", [(b"", b"1", b"1")]),
        (b"  a=1& b=2", [(b"a", b"1", b"1"), (b"b", b"2", b"2")]),
        (b"a =1", [(b"a ", b"1", b"1")]),
        (b"a= 1 ", [(b"a", b" 1 ", b" 1 ")]),
        (b"a=1;b=2", [(b"a", b"1;b=2", b"1;b=2")]),
        (b"a=\xc3\xa4%C3%a4", [(b"a", b"\xc3\xa4%C3%a4", "ää".encode())]),
        (b"a=%3D%26%2B%25", [(b"a", b"%3D%26%2B%25", b"=&+%")]),
        (b"a=%2541", [(b"a", b"%2541", b"%41")]),
        (b"a=b%zzc&d=e", [(b"a", b"b%zzc", b"b"), (b"d", b"e", b"e")]),
        (b"a=b%00c&d=e", [(b"a", b"b%00c", b"b"), (b"d", b"e", b"e")]),
        (b"a=%4&b=1", [(b"a", b"%4", b"\x04"), (b"b", b"1", b"1")]),
        (b"a=%4", [(b"a", b"%4", b"\x04")]),
        (b"a=%&b=1", [(b"a", b"%", b""), (b"b", b"1", b"1")]),
        (b"a=%4g", [(b"a", b"%4g", b"\x04")]),
        (b"a=%+4", [(b"a", b"%+4", b"\x04")]),
    ],
    ids=repr,
)
def test_a_body_is_split_into_decoded_fields(split, body, fields):
    assert split(body) == (no_data_source(), [line for name, raw, value in fields for line in field(name, raw, value)])


def test_line_ends_in_front_of_a_field_are_skipped(split):
    _, lines = split(b"a=1&\r\n b=2")
    assert lines == [*field(b"a", b"1", b"1"), *field(b"b", b"2", b"2")]


def test_encoded_line_ends_are_kept(split):
    assert split(b"a=1%0D%0A2")[1] == [b"urlunencode(ADDRESS)\n", b"1%0D%0A2\n", b"a = 1\r\n", b"2\n"]


def test_line_ends_in_a_value_are_dropped(split):
    assert split(b"a=1\r\n2&b=3")[1] == [
        b"urlunencode(ADDRESS)\n",
        b"1\r\n",
        b"2\n",
        b"a = 12\n",
        *field(b"b", b"3", b"3"),
    ]


def test_a_form_may_have_many_fields(split):
    names = [f"field{number}".encode() for number in range(2000)]
    answer, lines = split(b"&".join(name + b"=v" for name in names))
    assert answer == no_data_source()
    assert lines == [line for name in names for line in field(name, b"v", b"v")]


# Bodies that close the connection


@pytest.mark.parametrize("body", [b" ", b"    ", b"\r\n", b" \r\n \n"])
def test_a_body_of_blanks_alone_gets_no_answer(split, body):
    assert split(body) == (b"", [b"buflen <= 0 [1]\n"])


@pytest.mark.parametrize("tail", [b" ", b"\r\n", b"   "])
def test_blanks_behind_the_last_separator_get_no_answer(split, tail):
    assert split(b"a=1&" + tail) == (b"", [*field(b"a", b"1", b"1"), b"buflen <= 0 [1]\n"])


@pytest.mark.parametrize("body", [b"a", b"a&b", b"=", b"a=", b" a", b"&", b"datasource"])
def test_a_field_without_an_equals_sign_or_with_nothing_behind_it_gets_no_answer(split, body):
    assert split(body) == (b"", [b"buflen <= 0 [2]\n"])


@pytest.mark.parametrize("tail", [b"b", b"b=", b"=", b"x="])
def test_so_does_the_last_field_after_good_ones(split, tail):
    assert split(b"a=1&" + tail) == (b"", [*field(b"a", b"1", b"1"), b"buflen <= 0 [2]\n"])


@pytest.mark.parametrize("body", [b"x=1", b"y=1", b"x=1&y=2", b"x=1&x=2&y=3&"])
def test_click_coordinates_alone_get_no_answer(split, body):
    assert split(body) == (b"", [])


@pytest.mark.parametrize("length", [None, 0, 10])
def test_an_empty_body_gets_no_answer(logging_server, length):
    with logging_server.connect() as connection:
        connection.sendall(header(length))
        connection.shutdown(socket.SHUT_WR)
        assert read_all(connection) == b""
    assert logging_server.log_lines()[-3:] == [
        b"0 bytes of remaining posted data\n",
        b"split_form_fields(ADDRESS,0,..)\n",
        b"\n",
    ]


@pytest.mark.parametrize("path", ["/", "/index.html", "/isam.cgi"])
def test_a_malformed_form_gets_no_answer_whatever_the_page(running_server, path):
    assert running_server.post(path, b"datasource") == b""


def test_a_form_for_a_file_is_not_read(logging_server):
    assert logging_server.post("/style.css", b"a").startswith(b"HTTP/1.1 500 Internal Server Error\r\n")
    assert logging_server.log_lines()[3:] == [b"Converted content-length: 1\n"]


# Collecting the body


def test_the_rest_of_a_body_that_came_in_part_with_its_header_is_awaited(logging_server):
    with logging_server.connect() as connection:
        connection.sendall(header(10) + b"a=12")
        logging_server.wait_until_read(connection)
        assert is_silent(connection, 0.05)
        connection.sendall(b"34567")
        logging_server.wait_until_read(connection)
        assert is_silent(connection, 0.05)
        connection.sendall(b"8")
        assert read_all(connection) == no_data_source()
    assert b"a = 12345678\n" in logging_server.log_lines()


def test_a_body_may_come_in_any_pieces(logging_server, log_behind):
    body = b"a=1&b=hello+world%21"
    assert post_body_apart(logging_server, len(body), *(bytes([byte]) for byte in body)) == no_data_source()
    assert log_behind(b"0 bytes of remaining posted data\n")[:2] == splitting(body)


def test_header_and_body_may_meet_in_one_piece(logging_server):
    data = header(3) + b"a=1"
    with logging_server.connect() as connection:
        connection.sendall(data[:-4])
        logging_server.wait_until_read(connection)
        connection.sendall(data[-4:])
        assert read_all(connection) == no_data_source()


@pytest.mark.parametrize("length", [1, 3, 6, 7])
def test_of_a_body_that_is_longer_than_announced_all_that_came_at_once_is_taken(logging_server, log_behind, length):
    logging_server.request_at_once(header(length) + b"a=1&b=2")
    assert log_behind(b"0 bytes of remaining posted data\n")[:2] == splitting(b"a=1&b=2")


@pytest.mark.parametrize("length", [None, 0, "3x", 4294967295, 100])
def test_a_body_without_a_usable_length_or_with_one_too_large_ends_where_the_client_closes_its_side(
    logging_server, log_behind, length
):
    with logging_server.connect() as connection:
        connection.sendall(header(length) + b"a=1")
        logging_server.wait_until_read(connection)
        assert is_silent(connection, 0.05)
        connection.sendall(b"&b=2")
        connection.shutdown(socket.SHUT_WR)
        assert read_all(connection) == no_data_source()
    assert log_behind(b"0 bytes of remaining posted data\n")[:2] == splitting(b"a=1&b=2")


@pytest.mark.parametrize("length", [32767, 32768])
@pytest.mark.parametrize("announced", [0, 32768, 40000])
def test_a_body_as_large_as_the_buffer_is_taken_whole(logging_server, log_behind, length, announced):
    body = b"a=" + (length - 2) * b"v"
    with logging_server.connect() as connection:
        connection.sendall(header(announced))
        logging_server.wait_until_read(connection)
        connection.sendall(body)
        connection.shutdown(socket.SHUT_WR)
        assert read_all(connection) == no_data_source()
    assert log_behind(b"0 bytes of remaining posted data\n")[:2] == splitting(body)


def test_a_body_larger_than_the_buffer_is_taken_as_far_as_it_fits(logging_server, log_behind):
    with logging_server.connect() as connection:
        connection.sendall(header(40000))
        logging_server.wait_until_read(connection)
        connection.sendall(b"a=" + 39998 * b"v")
        read_all(connection)
    assert log_behind(b"0 bytes of remaining posted data\n")[:2] == splitting(b"a=" + 32766 * b"v")


def test_a_nul_byte_cuts_what_came_in_its_piece(logging_server, log_behind):
    assert post_body_apart(logging_server, 7, b"a=1\0&b=", b"&c=3") == no_data_source()
    assert log_behind(b"0 bytes of remaining posted data\n")[:2] == splitting(b"a=1&c=3")


def check_that_no_body_is_left(server, body):
    with server.connect() as holder, server.connect() as connection:
        connection.sendall(header(len(body)) + body)
        connection.shutdown(socket.SHUT_WR)
        holder.sendall(b"no request\r\n\r\n")
        assert read_all(connection) == b""
    assert server.log_lines()[-2:] == [b"split_form_fields(ADDRESS,0,..)\n", b"\n"]


def test_a_body_with_a_colon_that_came_with_its_header_is_taken_for_a_header_line(logging_server):
    for body in (b"a=b:c", b"a=1&time=12:30", b":", b"a=1:\r\n"):
        check_that_no_body_is_left(logging_server, body)


def test_a_body_with_a_blank_as_second_byte_that_came_with_its_header_continues_the_last_line(logging_server):
    for body in (b"a =1", b"a\t=1", b"  a=1"):
        check_that_no_body_is_left(logging_server, body)


def test_line_ends_that_came_with_the_header_are_no_part_of_the_body(logging_server):
    check_that_no_body_is_left(logging_server, b"\r\n\n")


def test_a_body_with_a_colon_that_comes_by_itself_is_a_body(logging_server):
    assert post_body_apart(logging_server, 5, b"a=b:c") == no_data_source()
    assert b"a = b:c\n" in logging_server.log_lines()


def test_lines_before_the_body_that_are_no_header_lines_belong_to_the_body(logging_server, log_behind):
    logging_server.request_at_once(b"POST /isam.cgi HTTP/1.1\r\nContent-Length: 5\r\nfirst\r\n\r\n&a=1")
    assert log_behind(b"0 bytes of remaining posted data\n")[:3] == splitting(b"first\r\n\r\n&a=1")[:1] + [
        b"first\r\n",
        b"\r\n",
    ]
