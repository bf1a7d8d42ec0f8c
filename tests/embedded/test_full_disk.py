"""Changes for which there is no room: nothing is half done, and the connection goes on when there is room again."""
import ctypes
import resource
import subprocess
from contextlib import contextmanager

import pytest

from direct_driver import NULL, length, pointer, short
from narrow_odbc import SQL_C_SLONG, SQL_ERROR, SQL_HANDLE_DBC, SQL_HANDLE_STMT, SQL_SUCCESS
from support.source import CREATE

AUTOCOMMIT, COMMIT, ROLLBACK = 102, 0, 1


@contextmanager
def no_room():
    """No file of this process grows."""
    limits = resource.getrlimit(resource.RLIMIT_FSIZE)
    resource.setrlimit(resource.RLIMIT_FSIZE, (0, limits[1]))
    yield
    resource.setrlimit(resource.RLIMIT_FSIZE, limits)


@pytest.fixture
def table(driver):
    driver.execute("create table T (a)")
    driver.execute("insert into T values ('old')")
    return driver


def count(driver, query):
    number = ctypes.c_int()
    driver.fetched(query)
    assert driver.call("SQLGetData", driver.stmt, 1, short(SQL_C_SLONG), ctypes.byref(number), length(4), NULL) == SQL_SUCCESS
    return number.value


def state_of_T(driver):
    return [count(driver, f"select count(*) from {what}") for what in (
        "T where a = 'old'", "T", "nordvale.system.table", "nordvale.system.tableprv")]


@pytest.mark.parametrize("statement", ["insert into T values ('new')", "update T set a = 'new'", "delete from T",
                                       "create table U (a)", "grant select on T to public", "drop table T"])
def test_a_change_without_room_fails_and_changes_nothing(table, statement):
    with no_room():
        assert table.call("SQLExecDirect", table.stmt, statement.encode(), -3) == SQL_ERROR
    assert table.state(SQL_HANDLE_STMT, table.stmt) == "HY000"
    assert state_of_T(table) == [1, 1, 1, 0]
    table.execute(statement)


def end_transaction(driver, completion):
    return driver.call("SQLEndTran", short(SQL_HANDLE_DBC), driver.dbc, short(completion))


def set_autocommit(driver, value):
    return driver.call("SQLSetConnectAttr", driver.dbc, AUTOCOMMIT, pointer(value), 0)


@pytest.mark.parametrize("commit", [lambda driver: end_transaction(driver, COMMIT), lambda driver: set_autocommit(driver, 1)],
                         ids=["commit", "autocommit"])
def test_a_transaction_without_room_is_not_committed(table, commit):
    assert set_autocommit(table, 0) == SQL_SUCCESS
    table.execute("insert into T values ('new')")
    with no_room():
        assert commit(table) == SQL_ERROR
    assert table.state(SQL_HANDLE_DBC, table.dbc) == "HY000"
    assert end_transaction(table, ROLLBACK) == SQL_SUCCESS
    assert state_of_T(table) == [1, 1, 1, 0]
    assert end_transaction(table, COMMIT) == SQL_SUCCESS


def test_isam_create_without_room_says_so_and_leaves_nothing(tmp_path):
    size = 20000        # less than a new database, but enough for the counters of an instrumented program
    result = subprocess.run([CREATE, tmp_path / "new.db", "boss"], input=b"pw\n", capture_output=True, restore_signals=False,
                            preexec_fn=lambda: resource.setrlimit(resource.RLIMIT_FSIZE, (size, size)))
    assert result.returncode == 1 and b"new.db: " in result.stderr
    assert list(tmp_path.iterdir()) == []
