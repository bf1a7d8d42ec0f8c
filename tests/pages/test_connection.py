"""Connections: how a request is collected, who is served when, and what a client cannot do to the others."""

import os
import resource
import select
import signal
import socket
import struct
from contextlib import ExitStack, contextmanager

import pytest

from support.headers import file_block, undated
from support.server import HTML_DIR, is_silent, read_all, wait_until

REQUEST_SIZE = 32768
MOMENT = 0.05

FILE = b"the file\n"
ANSWER = file_block("text/plain", len(FILE)) + FILE
REQUEST = b"GET /file HTTP/1.1\r\nHost: localhost\r\n\r\n"


@pytest.fixture
def server(running_server):
    (HTML_DIR / "file").write_bytes(FILE)
    return running_server


def request_of_length(length, path="/file"):
    """A header of so many bytes, its blank line included."""
    begin, end = f"GET {path} HTTP/1.1\r\nX-Filler: ".encode(), b"\r\n\r\n"
    return begin + (length - len(begin) - len(end)) * b"x" + end


@contextmanager
def held(server, data=REQUEST[:10]):
    """A client that has sent the beginning of a request and keeps the server waiting for the rest."""
    with server.connect() as connection:
        connection.sendall(data)
        server.wait_until_read(connection)
        yield connection


def reset(connection):
    """Ends the connection without a farewell."""
    connection.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))
    connection.close()


# Collecting the header


def test_a_header_may_come_in_any_pieces(server):
    with server.connect() as connection:
        for byte in REQUEST:
            connection.sendall(bytes([byte]))
            server.wait_until_read(connection)
        assert undated(read_all(connection)) == ANSWER


@pytest.mark.parametrize("cut", range(len(REQUEST) - 4, len(REQUEST)))
def test_the_blank_line_may_come_in_two_pieces(server, cut):
    with held(server, REQUEST[:cut]) as connection:
        assert is_silent(connection, MOMENT)
        connection.sendall(REQUEST[cut:])
        assert undated(read_all(connection)) == ANSWER


@pytest.mark.parametrize("end", [b"\n\n", b"\r\r", b"\r\n", b"\n\r\n\r", b"\r\n \r\n", b"\r\n\0\r\n"])
def test_another_line_end_does_not_end_the_header(server, end):
    with held(server, REQUEST.replace(b"\r\n\r\n", end)) as connection:
        assert is_silent(connection, MOMENT)
        connection.sendall(b"\r\n\r\n")
        assert undated(read_all(connection)) == ANSWER


@pytest.mark.parametrize("length", [100, 16384, REQUEST_SIZE - 2, REQUEST_SIZE - 1])
def test_a_header_below_the_limit_is_answered(server, length):
    assert undated(server.request(request_of_length(length))) == ANSWER


@pytest.mark.parametrize("data", [request_of_length(REQUEST_SIZE), REQUEST_SIZE * b"x", 40000 * b"\r"])
def test_a_header_that_reaches_the_limit_closes_the_connection_without_an_answer(server, data):
    assert server.request(data) == b""
    assert undated(server.request(REQUEST)) == ANSWER


def test_the_limit_also_counts_pieces_together(server):
    with held(server, (REQUEST_SIZE - 1) * b"x") as connection:
        assert is_silent(connection, MOMENT)
        connection.sendall(b"x")
        assert read_all(connection) == b""


@pytest.mark.parametrize("length, answer", [(REQUEST_SIZE - 1, ANSWER), (REQUEST_SIZE, b"")])
def test_what_arrives_together_with_the_header_counts_for_the_limit(server, length, answer):
    assert undated(server.request_at_once(REQUEST + (length - len(REQUEST)) * b"x")) == answer


def test_a_request_without_any_header_line_is_answered(server):
    assert undated(server.request(b"GET /file HTTP/1.1\r\n\r\n")) == ANSWER


def test_one_connection_is_one_request(server):
    assert undated(server.request_at_once(REQUEST + REQUEST)) == ANSWER


def test_urgent_data_before_the_request_is_logged_and_closes_the_connection(logging_server):
    with logging_server.connect() as connection:
        connection.send(b"!", socket.MSG_OOB)
        assert read_all(connection) == b""
    assert logging_server.log_lines()[3:] == [b"Exception on socket\n"]


def test_urgent_data_counts_before_a_request_that_came_with_it(logging_server):
    with held(logging_server) as first, logging_server.connect() as connection:
        connection.sendall(REQUEST)
        connection.send(b"!", socket.MSG_OOB)
        first.sendall(b"\r\n\r\n")
        assert read_all(connection) == b""
    assert logging_server.log_lines()[3:] == [b"Exception on socket\n"]


# One client after the other


def test_a_client_that_stalls_holds_the_server_until_it_goes_on(server):
    with held(server) as first, server.connect() as second:
        second.sendall(REQUEST)
        assert is_silent(second, MOMENT)
        assert server.unread(second) == len(REQUEST)
        first.sendall(REQUEST[10:])
        assert undated(read_all(first)) == ANSWER
        assert undated(read_all(second)) == ANSWER


def test_a_client_that_sends_nothing_holds_the_server_too(server):
    with server.connect() as first, server.connect() as second:
        wait_until(server.children)
        second.sendall(REQUEST)
        assert is_silent(second, MOMENT)
        first.sendall(REQUEST)
        assert undated(read_all(second)) == ANSWER


def test_a_client_that_does_not_read_its_page_holds_the_server_too(server):
    with socket.socket() as first:
        # On one machine the page would fit into the connection otherwise.
        first.setsockopt(socket.IPPROTO_TCP, socket.TCP_MAXSEG, 536)
        first.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 1)
        first.connect(("127.0.0.1", server.port))
        first.sendall(b"GET / HTTP/1.1\r\n\r\n")
        with server.connect() as second:
            second.sendall(REQUEST)
            assert is_silent(second, MOMENT)
            assert server.unread(second) == len(REQUEST)
            first.close()
            assert undated(read_all(second)) == ANSWER


def test_waiting_clients_are_served_in_the_order_in_which_they_came(logging_server):
    with held(logging_server) as first:
        waiting = [logging_server.connect() for _ in range(4)]
        for number, client in reversed(list(enumerate(waiting))):
            client.sendall(b"GET /none HTTP/1.1\r\nContent-Length: %d\r\n\r\n" % number)
        first.sendall(b"\r\n\r\n")
        for client in waiting:
            assert read_all(client) == b""
            client.close()
    assert logging_server.log_lines()[3:] == [b"Converted content-length: %d\n" % number for number in range(4)]


def test_a_client_that_closes_its_side_before_the_blank_line_holds_its_child_until_that_is_killed(server):
    with held(server) as first, server.connect() as second:
        first.shutdown(socket.SHUT_WR)
        second.sendall(REQUEST)
        assert is_silent(first, MOMENT)
        assert is_silent(second, MOMENT)
        (child,) = server.children()
        os.kill(child, signal.SIGKILL)
        assert read_all(first) == b""
        assert undated(read_all(second)) == ANSWER


@pytest.mark.parametrize("data", [REQUEST[:10], b"POST / HTTP/1.1\r\nContent-Length: 9\r\n\r\na=1"])
def test_reading_a_request_may_cost_a_child_30_seconds_of_processor_time(server, data):
    with held(server, data):
        (child,) = server.children()
        limit, highest = resource.prlimit(child, resource.RLIMIT_CPU)
        assert (limit, highest) == (30, resource.getrlimit(resource.RLIMIT_CPU)[1])


def test_answering_a_request_may_cost_any_time(server):
    (HTML_DIR / "large").write_bytes(50_000_000 * b"x")
    with server.connect() as connection:
        connection.sendall(b"GET /large HTTP/1.1\r\n\r\n")
        assert connection.recv(1000)
        (child,) = server.children()
        assert resource.prlimit(child, resource.RLIMIT_CPU) == resource.getrlimit(resource.RLIMIT_CPU)


@pytest.mark.parametrize("data", [b"", REQUEST[:10]])
def test_a_child_that_waits_for_a_closed_client_ends_with_its_processor_time(server, data):
    with held(server, data) as first, server.connect() as second:
        second.sendall(REQUEST)
        wait_until(server.children)
        first.shutdown(socket.SHUT_WR)
        (child,) = server.children()
        # Not to wait for all of it.
        resource.prlimit(child, resource.RLIMIT_CPU, (1, resource.getrlimit(resource.RLIMIT_CPU)[1]))
        assert read_all(first) == b""
        assert undated(read_all(second)) == ANSWER


def test_a_client_may_close_its_side_after_the_blank_line(server):
    with server.connect() as connection:
        connection.sendall(REQUEST)
        connection.shutdown(socket.SHUT_WR)
        assert undated(read_all(connection)) == ANSWER


def begin_to_connect(server):
    """A client that is not waited for, and whether it is connected. On one host that is settled at once."""
    connection = socket.socket()
    connection.setblocking(False)
    connection.connect_ex(("127.0.0.1", server.port))
    _, writable, _ = select.select([], [connection], [], MOMENT)
    return connection, bool(writable)


def test_beside_the_served_client_as_many_wait_as_a_backlog_of_five_lets_in(server):
    with held(server), ExitStack() as waiting:
        clients = [begin_to_connect(server) for _ in range(7)]
        for connection, _ in clients:
            waiting.enter_context(connection)
        # Linux lets in one more than the backlog says.
        assert [connected for _, connected in clients] == 6 * [True] + [False]


def test_the_server_tries_again_after_a_failed_accept(server):
    _, hard = limits = resource.prlimit(server.process.pid, resource.RLIMIT_NOFILE)
    with held(server, b"GET /no-such-file HTTP/1.1\r\n") as first, server.connect() as second:
        resource.prlimit(server.process.pid, resource.RLIMIT_NOFILE, (0, hard))
        first.sendall(b"\r\n")
        assert read_all(first) == b""
        second.sendall(REQUEST)
        assert is_silent(second, MOMENT)
        resource.prlimit(server.process.pid, resource.RLIMIT_NOFILE, limits)
        assert undated(read_all(second)) == ANSWER
    assert server.standard_error() == b""


def test_the_server_has_one_child_for_a_connection_and_none_is_left_behind(server):
    for _ in range(10):
        server.get("/no-such-file")
        server.get("/")
    with held(server):
        assert len(server.children()) == 1


@pytest.mark.parametrize("number", [signal.SIGKILL, signal.SIGABRT, signal.SIGTERM])
def test_a_killed_child_ends_its_own_connection_only(server, number):
    with held(server) as connection:
        (child,) = server.children()
        os.kill(child, number)
        assert read_all(connection) == b""
    assert undated(server.request(REQUEST)) == ANSWER


def test_a_child_that_outlives_the_server_does_not_keep_its_port(server):
    with held(server) as connection:
        (child,) = server.children()
        server.process.kill()
        server.process.wait()
        try:
            with pytest.raises(ConnectionRefusedError):
                server.connect()
        finally:
            os.kill(child, signal.SIGKILL)


# Requests and clients that end badly


@pytest.mark.parametrize(
    "data",
    [
        b"FOO / HTTP/1.1\r\n\r\n",
        b"GET /no-such-file HTTP/1.1\r\n\r\n",
        b"GET /\r\n\r\n",
        b"POST /isam.cgi HTTP/1.1\r\nContent-Length: 1\r\n\r\na",
        b"POST /isam.cgi HTTP/1.1\r\nContent-Length: 12\r\nAuthorization: Basic\r\n\r\ndatasource=x",
        REQUEST_SIZE * b"x",
    ],
)
def test_after_a_request_that_ends_its_child_the_next_is_served(server, data):
    for _ in range(3):
        assert server.request(data) == b""
    assert undated(server.request(REQUEST)) == ANSWER


def test_a_client_that_vanishes_before_its_request_is_forgotten(server):
    for _ in range(3):
        reset(server.connect())
    assert undated(server.request(REQUEST)) == ANSWER


def test_a_client_that_vanishes_in_its_request_is_forgotten(server):
    with held(server) as connection:
        reset(connection)
    assert undated(server.request(REQUEST)) == ANSWER


def test_a_client_that_vanishes_before_its_answer_is_forgotten(server):
    with held(server) as first:
        for path in (b"/", b"/file", b"/isam.cgi"):
            connection = server.connect()
            connection.sendall(b"GET %s HTTP/1.1\r\n\r\n" % path)
            reset(connection)
        first.sendall(REQUEST[10:])
        assert undated(read_all(first)) == ANSWER
    assert undated(server.request(REQUEST)) == ANSWER


def test_a_client_that_vanishes_in_its_answer_is_forgotten(server):
    (HTML_DIR / "large").write_bytes(50_000_000 * b"x")
    with server.connect() as connection:
        connection.sendall(b"GET /large HTTP/1.1\r\n\r\n")
        assert connection.recv(1000)
        reset(connection)
    assert undated(server.request(REQUEST)) == ANSWER


# Core files


@pytest.fixture
def core_files_allowed(tmp_path, monkeypatch):
    """An empty working folder and no limit, for whoever is started from here."""
    folder = tmp_path / "cores"
    folder.mkdir()
    monkeypatch.chdir(folder)
    soft, hard = resource.getrlimit(resource.RLIMIT_CORE)
    resource.setrlimit(resource.RLIMIT_CORE, (hard, hard))
    yield folder
    resource.setrlimit(resource.RLIMIT_CORE, (soft, hard))


def test_a_child_leaves_no_core_file_which_would_hold_passwords(core_files_allowed, running_server):
    assert running_server.get("/no-such-file") == b""
    assert running_server.post("/isam.cgi", [("datasource", "x")], ["Authorization: Basic"]) == b""
    with held(running_server) as connection:
        (child,) = running_server.children()
        os.kill(child, signal.SIGABRT)
        assert read_all(connection) == b""
    assert list(core_files_allowed.iterdir()) == []
