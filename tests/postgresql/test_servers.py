"""Servers that are stopped, say nothing or speak another language."""

import socket
import struct
from concurrent.futures import ThreadPoolExecutor
from contextlib import contextmanager
from threading import Thread

import pytest

from support import pages
from support.forms import press
from support.postgresql_database import ALL, list_sources
from support.server import wait_until
from support.source import PASSWORD


@contextmanager
def stopped(server):
    server.halt()
    try:
        yield
    finally:
        server.start()


def test_a_stopped_server_is_an_error_page_and_a_restarted_one_is_used_again(accounts, visitor, own_server):
    accounts.as_administrator("create table one (id int)")
    drawn = press(visitor, "rights_refresh")
    with stopped(own_server):
        for page in ([("rights.x", "1")], [("rights_refresh", ""), ("isamuser", "mary"), ("rights_grant", "pressed")]):
            message = pages.message_of(visitor.post(page).decode())
            assert message.startswith("SQLDriverConnect failed with ") and "refused" in message
    assert press(visitor, "rights_refresh") == drawn
    press(visitor, "rights_grant")
    assert accounts.held("mary") == {"public.one": ALL}


def test_a_server_that_is_stopped_while_a_page_waits_ends_the_page(accounts, visitor, own_server):
    accounts.as_administrator("create table one (id int)")
    with accounts.session() as session, ThreadPoolExecutor(1) as pool:
        session.do("begin; lock table tabwarden.turn;")
        answer = pool.submit(press, visitor, "rights_grant")
        wait_until(lambda: accounts.as_superuser("select 1 from pg_stat_activity where wait_event_type = 'Lock'"))
        with stopped(own_server):
            assert "</html>" in answer.result(20)
        session.process.stdin.close()
        session.process.wait()
    press(visitor, "rights_grant")
    assert accounts.held("mary") == {"public.one": ALL}


@pytest.fixture
def trusting(own_server):
    """The server while it asks for no password."""
    rules = own_server.folder / "data" / "pg_hba.conf"
    before = rules.read_text()

    def let(text):
        rules.write_text(text)
        own_server.execute("select pg_reload_conf()")

    let("host accounts all 127.0.0.1/32 trust\n" + before)
    yield own_server
    let(before)


@pytest.mark.parametrize("password", [PASSWORD, "wrong"])
def test_a_server_that_asks_for_no_password_lets_nobody_in(accounts, visitor, trusting, password):
    """It would have been anybody."""
    message = pages.message_of(visitor.post(password=password).decode())
    assert message.startswith("SQLDriverConnect failed with the server has not asked for the password")


def test_a_name_that_a_server_without_passwords_does_not_know_is_a_wrong_log_in(accounts, visitor, trusting):
    assert pages.is_refused(visitor.post(user="nobody"))


@pytest.fixture
def listening():
    with socket.create_server(("127.0.0.1", 0)) as listener:
        yield listener


def test_a_silent_server_is_given_up(accounts, visitor, own_server, listening):
    list_sources(own_server, silent={"Port": listening.getsockname()[1], "Pqopt": "connect_timeout=1"})
    message = pages.message_of(visitor.post(source="silent").decode())
    assert message.startswith("SQLDriverConnect failed with ") and "the server does not answer" in message


def test_a_server_that_falls_silent_during_the_log_in_is_given_up(accounts, visitor, own_server, listening):
    def begin():
        connection, _ = listening.accept()
        with connection:
            read_start(connection)
            connection.sendall(b"R" + struct.pack(">II", 8, 3))
            while connection.recv(1000):
                pass

    thread = Thread(target=begin)
    thread.start()
    list_sources(own_server, silent={"Port": listening.getsockname()[1], "Pqopt": "connect_timeout=1"})
    message = pages.message_of(visitor.post(source="silent").decode())
    assert "the server does not answer" in message
    thread.join()


def read_exactly(connection, length):
    data = b""
    while len(data) < length:
        piece = connection.recv(length - len(data))
        assert piece
        data += piece
    return data


def read_start(connection):
    """The message that begins a session, behind refusals of the encryptions that are asked for before."""
    while True:
        length, code = struct.unpack(">II", read_exactly(connection, 8))
        rest = read_exactly(connection, length - 8)
        if code not in (80877103, 80877104):
            return rest
        connection.sendall(b"N")


def error_response(severity, code, message, routine):
    fields = {"S": severity, "V": "FATAL", "C": code, "M": message, "F": "miscinit.c", "L": "705", "R": routine}
    body = b"".join(f"{name}{value}\0".encode() for name, value in fields.items()) + b"\0"
    return b"E" + struct.pack(">I", len(body) + 4) + body


@pytest.fixture
def answer_of(accounts, visitor, own_server, listening):
    """What a visitor gets whose log-in the server answers so."""

    def answer(*error):
        def serve():
            connection, _ = listening.accept()
            with connection:
                read_start(connection)
                connection.sendall(error_response(*error))

        thread = Thread(target=serve)
        thread.start()
        list_sources(own_server, foreign={"Port": listening.getsockname()[1]})
        response = visitor.post(source="foreign")
        thread.join()
        return response

    return answer


@pytest.mark.parametrize(
    "severity, code, message, routine",
    [
        ("FATAL", "28P01", "Passwort-Authentifizierung für Benutzer »admin« fehlgeschlagen", "auth_failed"),
        ("KATASTROFALNY", "28P01", 'uwierzytelnianie hasłem nie powiodło się dla użytkownika "admin"', "auth_failed"),
        ("FATAL", "28000", "Rolle »admin« existiert nicht", "InitializeSessionUserId"),
        ("FATAL", "28000", "Rolle »admin« hat keine Berechtigung zum Einloggen", "InitializeSessionUserId"),
        ("ВАЖНО", "28000", 'роль "admin" не существует', "InitializeSessionUserId"),
    ],
)
def test_a_wrong_log_in_is_known_in_every_language(answer_of, severity, code, message, routine):
    assert pages.is_refused(answer_of(severity, code, message, routine))


@pytest.mark.parametrize(
    "code, message, routine",
    [
        ("3D000", "Datenbank »28P01« existiert nicht", "InitPostgres"),
        ("28000", "kein pg_hba.conf-Eintrag für Host »127.0.0.1«, Benutzer »admin«, keine Verschlüsselung", "ClientAuthentication"),
        ("53300", "tut mir leid, schon zu viele Verbindungen", "InitProcess"),
        ("57P03", "das Datenbanksystem startet", "ProcessStartupPacket"),
        ("42501", "keine Berechtigung für Datenbank »accounts«", "CheckMyDatabase"),
        ("XX000", "<b>&\"'</b>", "somewhere"),
    ],
)
def test_another_error_is_told_in_the_servers_words_without_its_code(answer_of, code, message, routine):
    told = pages.message_of(answer_of("FATAL", code, message, routine).decode())
    assert f"FATAL:  {pages.text(message)}" in told
    assert code not in told.replace(message, "") and routine not in told and "LOCATION" not in told


def test_the_end_of_a_connection_in_place_of_an_answer_is_an_error_page(accounts, visitor, own_server, listening):
    def serve():
        connection, _ = listening.accept()
        connection.close()

    thread = Thread(target=serve)
    thread.start()
    list_sources(own_server, foreign={"Port": listening.getsockname()[1]})
    assert "SQLDriverConnect failed with" in pages.message_of(visitor.post(source="foreign").decode())
    thread.join()


def test_bytes_that_are_no_answer_are_an_error_page(accounts, visitor, own_server, listening):
    def serve():
        connection, _ = listening.accept()
        with connection:
            connection.sendall(b"HTTP/1.1 400 Bad Request\r\n\r\n<b>")

    thread = Thread(target=serve)
    thread.start()
    list_sources(own_server, foreign={"Port": listening.getsockname()[1]})
    assert "SQLDriverConnect failed with" in pages.message_of(visitor.post(source="foreign").decode())
    thread.join()
