"""Arguments and files that are wrong, given to the driver's own entry points, which the driver manager does not guard here."""
import ctypes
import os

import pytest

import narrow_odbc
from direct_driver import NULL, Driver, length, short
from narrow_odbc import SQL_HANDLE_DBC, SQL_HANDLE_STMT


@pytest.mark.parametrize("call, arguments", [
    ("SQLRowCount", ("stmt", NULL)), ("SQLNumResultCols", ("stmt", NULL)), ("SQLNumParams", ("stmt", NULL)),
    ("SQLGetConnectAttr", ("dbc", 102, NULL, 0, NULL)), ("SQLGetConnectAttrW", ("dbc", 102, NULL, 0, NULL)),
    ("SQLGetStmtAttr", ("stmt", 0, NULL, 0, NULL)), ("SQLGetEnvAttr", ("env", 200, NULL, 0, NULL)),
    ("SQLGetFunctions", ("dbc", 1, NULL)),
])
def test_a_value_without_room_is_HY009(driver, call, arguments):
    kind = {"env": 1, "dbc": 2, "stmt": 3}[arguments[0]]
    handle = driver.handle(kind)
    assert driver.call(call, handle, *arguments[1:]) == -1
    assert driver.state(kind, handle) == "HY009"


@pytest.mark.parametrize("negative", [-1, -2, -5, -32768])
def test_a_text_of_negative_length_is_empty(driver, negative):
    assert short(driver.calls.SQLExecDirect(driver.stmt, b"select 1", negative)).value == -1
    assert driver.state(3, driver.stmt) == "42000"
    assert driver.calls.SQLTables(driver.stmt, b"x", short(negative), NULL, 0, NULL, 0, NULL, 0) == 0


@pytest.mark.parametrize("c_type", [1, -8, -2])
@pytest.mark.parametrize("indicator, state", [(-2, "HYC00"), (-100, "HYC00"), (-5000, "HYC00"), (-4, "HY090"), (-5, "HY090")])
def test_a_parameter_of_no_length_is_refused(driver, c_type, indicator, state):
    value, told = ctypes.create_string_buffer(8), length(indicator)
    driver.calls.SQLBindParameter(driver.stmt, 1, 1, c_type, 12, length(8), 0, value, length(8), ctypes.byref(told))
    assert short(driver.calls.SQLExecDirect(driver.stmt, b"select ?", -3)).value == -1
    assert driver.state(3, driver.stmt) == state


@pytest.mark.parametrize("count", [11000, 16000, 30000])
def test_wide_texts_that_grow_beyond_a_short_length_are_taken(driver, count):
    text = ctypes.create_string_buffer(("UID=" + "€" * count).encode("utf-16-le") + b"\0\0")
    dbc = driver.allocate(SQL_HANDLE_DBC, driver.env)
    assert short(driver.calls.SQLDriverConnectW(dbc, NULL, text, short(count + 4), NULL, 0, NULL, 0)).value == -1
    assert driver.state(SQL_HANDLE_DBC, dbc) == "08001"
    driver.calls.SQLFreeHandle(short(SQL_HANDLE_DBC), dbc)
    assert driver.calls.SQLTablesW(driver.stmt, text, short(count), NULL, 0, NULL, 0, NULL, 0) == 0


def test_statements_left_open_do_not_keep_a_connection_from_ending(source):
    for _ in range(3):
        driver = Driver(source)
        for _ in range(1000):
            driver.calls.SQLExecDirect(driver.allocate(SQL_HANDLE_STMT, driver.dbc), b"select 1", -3)
        assert driver.calls.SQLDisconnect(driver.dbc) == 0
        driver.close()


@pytest.mark.parametrize("make", [
    lambda path: path.write_bytes(b""), lambda path: path.write_bytes(b"SQLite format 3\0" + b"\0" * 4080),
    lambda path: path.write_bytes(os.urandom(8192)), lambda path: path.mkdir(), lambda path: path.symlink_to(path),
    lambda path: path.symlink_to("/nonexistent/file"), lambda path: os.mkfifo(path),
], ids=["empty", "header", "noise", "folder", "loop", "dangling", "pipe"])
def test_a_file_that_is_no_database_of_ours_is_refused(source, tmp_path, make):
    make(tmp_path / "file.db")
    connection = narrow_odbc.Connection(f"dsn=embedded;Database={tmp_path}/file.db;uid=admin;pwd=secret")
    failure = connection.failure
    connection.close()
    assert failure[0] == "08001" and "file.db" in failure[1]


@pytest.mark.parametrize("string", [
    "dsn=embedded;uid=admin;uid=eve;pwd=secret;pwd=x", "DSN=embedded;UiD=ADMIN;pWd={secret}", "dsn=embedded;;;uid=admin;=x;pwd=secret;",
    "dsn=embedded;uid={admin} ;pwd= secret ", "dsn=embedded;x=" + "y" * 30000 + ";uid=admin;pwd=secret",
])
def test_an_unusual_connection_string_connects(source, string):
    connection = narrow_odbc.Connection(string)
    failure = connection.failure
    connection.close()
    assert failure is None


@pytest.mark.parametrize("statement", [
    "update nordvale.system.user set username = 'boss' where username = 'admin'", "delete from nordvale.system.user",
    "replace into nordvale.system.user values ('admin', '', 'x')", "replace into nordvale.system.user values ('ADMIN', '', 'x')",
    "update or replace nordvale.system.user set username = 'ADMIN' where username = 'public'",
])
def test_the_administrators_row_and_name_stay(source, statement):
    assert source.failure(statement)[0] == "23000"
    assert source.rows("select username from nordvale.system.user order by 1") == [("admin",), ("public",)]


def test_a_deleted_users_catalog_calls_are_refused(staffed):
    anna = staffed.connect("anna", "pw")
    staffed.execute("delete from nordvale.system.user where username = 'anna'")
    for call in (anna.cursor().tables, anna.cursor().columns, lambda: anna.cursor().primaryKeys("item")):
        with pytest.raises(Exception) as raised:
            call()
        assert raised.value.args[0] == "28000"
    anna.close()


def test_a_deleted_users_privileges_are_not_listed(staffed, driver):
    staffed.add_user("eve", "pw")
    dbc = driver.allocate(SQL_HANDLE_DBC, driver.env)
    string = f"Database={staffed.database};UID=eve;PWD=pw".encode()
    assert driver.call("SQLDriverConnect", dbc, NULL, string, short(-3), NULL, short(0), NULL, 0) == 0
    stmt = driver.allocate(SQL_HANDLE_STMT, dbc)
    staffed.execute("delete from nordvale.system.user where username = 'eve'")
    assert driver.call("SQLTablePrivileges", stmt, NULL, short(0), NULL, short(0), NULL, short(0)) == -1
    assert driver.state(SQL_HANDLE_STMT, stmt) == "28000"
    driver.call("SQLDisconnect", dbc)
    driver.call("SQLFreeHandle", short(SQL_HANDLE_DBC), dbc)
