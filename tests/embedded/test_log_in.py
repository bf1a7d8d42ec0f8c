import sqlite3

import pytest

import narrow_odbc

WRONG = "Invalid user and or password specified"


def test_the_administrator_logs_in(source):
    assert source.rows("select 1") == [(1,)]


def test_user_names_are_compared_without_regard_to_case(staffed):
    assert staffed.rows("select 1", user="ANNA", password="pw") == [(1,)]


@pytest.mark.parametrize("user, password", [("admin", "wrong"), ("admin", "SECRET"), ("admin", ""), ("nobody", "secret"),
                                            ("", ""), ("", "secret"), ("public", ""), ("public", "pw")])
def test_a_wrong_name_or_password_is_refused(source, user, password):
    state, message = source.log_in_failure(f"DSN=embedded;UID={user};PWD={password}")
    assert state == "28000" and WRONG in message


def test_missing_name_and_password_are_refused(source):
    assert source.log_in_failure("DSN=embedded")[0] == "28000"


def test_nobody_logs_in_as_public_even_with_a_password_in_the_table(source):
    source.execute("update nordvale.system.user set password = 'pw' where username = 'public'")
    assert source.log_in_failure("DSN=embedded;UID=public;PWD=pw")[0] == "28000"
    assert source.log_in_failure("DSN=embedded;UID=PUBLIC;PWD=pw")[0] == "28000"


def test_an_ordinary_user_may_be_called_Public(staffed):
    assert staffed.rows("select 1", user="Public", password="pw") == [(1,)]


def test_a_user_with_an_empty_password_logs_in_with_an_empty_one_only(source):
    source.add_user("guest", "")
    assert source.rows("select 1", user="guest", password="") == [(1,)]
    assert source.log_in_failure("DSN=embedded;UID=guest;PWD=x")[0] == "28000"


def test_a_user_without_password_cannot_log_in(source):
    source.execute("insert into nordvale.system.user (username) values ('guest')")
    assert source.log_in_failure("DSN=embedded;UID=guest;PWD=")[0] == "28000"


def test_a_missing_database_file_is_named_and_not_created(source):
    state, message = source.log_in_failure("DSN=nofile;UID=admin;PWD=secret")
    assert state == "08001" and str(source.folder / "missing.db") in message
    assert not (source.folder / "missing.db").exists()


def test_a_data_source_without_database_file_is_refused(source):
    assert source.log_in_failure("DSN=nodatabase;UID=admin;PWD=secret")[0] == "08001"


def test_a_file_that_is_no_database_is_refused(source):
    file = source.folder / "text.db"
    file.write_text("no database at all, but long enough to be looked at" * 20)
    state, message = source.log_in_failure(f"DSN=embedded;Database={file};UID=admin;PWD=secret")
    assert state == "08001" and str(file) in message


def test_a_database_of_another_program_is_refused(source):
    file = source.folder / "other.db"
    other = sqlite3.connect(file)
    other.execute("create table t (a)")
    other.close()
    state, message = source.log_in_failure(f"DSN=embedded;Database={file};UID=admin;PWD=secret")
    assert state == "08001" and "not a database of this driver" in message


def test_the_database_may_be_named_in_the_connection_string_alone(source):
    import pyodbc
    pyodbc.connect(f"Driver=NORDVALE_ISAM;database={source.database};uid=admin;pwd=secret").close()


@pytest.mark.parametrize("value", ["a;b", "{a}b;c}", "a}}b", "{a", "a}", "}", " lead", "trail ", "a=b", "it's", 'a"b',
                                   "x;DSN=nofile", "};DSN=nofile;x={", "müller", "{}"])
def test_a_value_in_braces_arrives_whole_as_name_and_password(source, value):
    quoted = value.replace("'", "''")
    source.execute(f"insert into nordvale.system.user (username, password) values ('{quoted}', '{quoted}')")
    braced = "{" + value.replace("}", "}}") + "}"
    connection = narrow_odbc.Connection(f"dsn=embedded;uid={braced};pwd={braced}")
    failure = connection.failure
    connection.close()
    assert failure is None


def test_a_connection_string_without_its_closing_brace_is_refused(source):
    connection = narrow_odbc.Connection("dsn=embedded;uid=admin;pwd={secret")
    assert connection.failure[0] == "08001"
    connection.close()


def test_a_deleted_user_executes_nothing_any_more(staffed):
    anna = staffed.connect("anna", "pw")
    staffed.execute("delete from nordvale.system.user where username = 'anna'")
    with pytest.raises(Exception) as raised:
        anna.execute("select 1")
    assert raised.value.args[0] == "28000"
    anna.close()
