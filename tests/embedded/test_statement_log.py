import os
import re
import stat

import pytest


def entries(source):
    return [line[1:] for line in source.logged()]


def test_a_line_has_time_user_outcome_and_statement(source):
    source.execute("select 1")
    time, user, outcome, statement = source.logged()[-1]
    assert re.fullmatch(r"\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3}Z", time)
    assert (user, outcome, statement) == ("admin", "ok", "select 1")


def test_a_failure_is_logged_with_state_and_message(source):
    source.failure("select * from nothing1")
    user, outcome, statement = entries(source)[-1]
    assert outcome.startswith("42S02 ") and "nothing1" in outcome


def test_log_ins_are_logged_and_passwords_are_not(source):
    source.connect().close()
    source.log_in_failure("DSN=embedded;UID=eve;PWD=guessed")
    assert entries(source)[0] == ("admin", "ok", "{connect}")
    assert entries(source)[1][0] == "eve" and entries(source)[1][1].startswith("28000 ")
    assert "secret" not in source.log.read_text() and "guessed" not in source.log.read_text()


def test_control_characters_are_escaped(source):
    source.execute("select 'a\tb\nc\rd\\e\x01\x7f'")
    assert entries(source)[-1][2] == r"select 'a\tb\nc\rd\\e\x01\x7F'"


def test_a_line_break_in_a_user_name_makes_no_line(source):
    source.log_in_failure("DSN=embedded;UID={a\nb};PWD=x")
    assert {(user, statement) for user, _, statement in entries(source)} == {("a\\nb", "{connect}")}


def test_catalog_calls_are_logged_by_name(source):
    connection = source.connect()
    connection.cursor().tables().fetchall()
    connection.cursor().columns().fetchall()
    connection.close()
    assert [entry[2] for entry in entries(source)[-2:]] == ["{SQLTables}", "{SQLColumns}"]


def test_a_prepared_statement_is_logged_at_each_execution(staffed):
    connection = staffed.connect()
    connection.cursor().executemany("insert into shop.stock.item values (?, 'x')", [(3,), (4,)])
    connection.close()
    assert [entry[2] for entry in entries(staffed)].count("insert into shop.stock.item values (?, 'x')") == 2


def test_the_log_is_readable_for_its_owner_alone(source):
    source.execute("select 1")
    assert stat.S_IMODE(os.stat(source.log).st_mode) == 0o600


def test_a_log_that_cannot_be_written_lets_nobody_in(source):
    state, message = source.log_in_failure(
        f"Driver=NORDVALE_ISAM;Database={source.database};StatementLog=/nonexistent/log;UID=admin;PWD=secret")
    assert state == "08001" and "/nonexistent/log" in message


def test_the_data_sources_log_cannot_be_led_elsewhere(source):
    import pyodbc
    elsewhere = source.folder / "elsewhere.log"
    pyodbc.connect(f"DSN=embedded;StatementLog={elsewhere};UID=admin;PWD=secret").close()
    assert not elsewhere.exists()
    assert len(source.logged()) == 1
