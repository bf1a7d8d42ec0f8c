import ctypes
import shutil
import subprocess
import sys

import pytest

from direct_driver import NULL, pointer, short
from narrow_odbc import SQL_ERROR, SQL_HANDLE_DBC, SQL_HANDLE_STMT, SQL_SUCCESS

AUTOCOMMIT, COMMIT, ROLLBACK = 102, 0, 1

WRITER = """
import sys, pyodbc
pyodbc.pooling = False
connection = pyodbc.connect("DSN=embedded;UID=admin;PWD=secret", autocommit=sys.argv[2] == "auto")
for number in range(60):
    connection.execute("insert into T values (?, ?)", sys.argv[1], number)
    connection.execute("grant select on T to anna" if number % 2 else "revoke select on T from anna")
    connection.execute("select count(*) from T").fetchall()
    if sys.argv[2] != "auto":
        connection.commit()
"""


@pytest.fixture
def two(staffed):
    """A connection in manual-commit mode and one in autocommit mode."""
    connections = staffed.connect(autocommit=False), staffed.connect()
    yield connections
    connections[0].rollback()
    for connection in connections:
        connection.close()


def names(connection):
    return [row[0] for row in connection.execute("select name from shop.stock.item order by id")]


def test_a_change_is_seen_by_others_after_commit_only(two):
    manual, other = two
    manual.execute("update shop.stock.item set name = 'bolt' where id = 1")
    assert names(other) == ["nail", "screw"]
    assert names(manual) == ["bolt", "screw"]
    manual.commit()
    assert names(other) == ["bolt", "screw"]


def test_rollback_undoes_rows_tables_and_grants(two):
    manual, other = two
    manual.execute("delete from shop.stock.item")
    manual.execute("create table new (a)")
    manual.execute("grant all on shop.stock.item to anna")
    manual.rollback()
    assert names(other) == ["nail", "screw"]
    assert other.execute("select count(*) from nordvale.system.table").fetchall()[0][0] == 1
    assert other.execute("select count(*) from nordvale.system.tableprv").fetchall()[0][0] == 0


def test_a_table_is_served_where_another_one_was_rolled_back(two):
    manual, other = two
    manual.execute("create table never (a)")
    assert manual.execute("select * from never").fetchall() == []
    manual.rollback()
    other.execute("create table instead (a)")
    assert manual.execute("select * from instead").fetchall() == []


def test_a_table_is_served_where_another_one_was_dropped_meanwhile(two):
    manual, other = two
    assert names(manual) == ["nail", "screw"]
    other.execute("drop table shop.stock.item")
    other.execute("create table instead (a)")
    assert manual.execute("select * from instead").fetchall() == []


def test_a_handle_that_connects_to_another_file_serves_that_ones_tables(source, driver):
    def connect(file):
        driver.call("SQLDisconnect", driver.dbc)
        string = f"Database={file};UID=admin;PWD=secret".encode()
        assert driver.call("SQLDriverConnect", driver.dbc, NULL, string, short(-3), NULL, short(0), NULL, 0) == SQL_SUCCESS
        driver.stmt = driver.allocate(SQL_HANDLE_STMT, driver.dbc)

    other = source.folder / "other.db"
    shutil.copy(source.database, other)
    for file, table in ((source.database, "here"), (other, "there")):
        connect(file)
        driver.execute(f"create table {table} (a)")
    connect(source.database)
    driver.execute("select * from here")
    connect(other)
    driver.execute("select * from there")


def test_a_failed_statement_undoes_itself_alone(two):
    manual, other = two
    manual.execute("insert into shop.stock.item values (3, 'bolt')")
    with pytest.raises(Exception):
        manual.execute("insert into shop.stock.item values (4, 'x'), (1, 'twice')")
    manual.commit()
    assert names(other) == ["nail", "screw", "bolt"]


def test_a_reader_in_manual_mode_keeps_nobody_from_writing_and_writes_afterwards(two):
    manual, other = two
    assert names(manual) == ["nail", "screw"]
    other.execute("insert into shop.stock.item values (3, 'bolt')")
    manual.execute("insert into shop.stock.item values (4, 'rivet')")
    manual.commit()
    assert names(other) == ["nail", "screw", "bolt", "rivet"]


def test_a_failed_first_change_holds_no_lock(two):
    manual, other = two
    with pytest.raises(Exception):
        manual.execute("insert into shop.stock.item values (1, 'twice')")
    other.execute("insert into shop.stock.item values (3, 'bolt')")


def test_a_failing_statement_in_autocommit_mode_leaves_nothing_half_done(staffed):
    staffed.failure("insert into shop.stock.item values (5, 'x'), (1, 'twice')")
    assert staffed.rows("select count(*) from shop.stock.item") == [(2,)]


@pytest.mark.parametrize("autocommit", [True, False])
def test_a_failed_statement_keeps_nothing_even_if_its_text_says_so(staffed, autocommit):
    connection = staffed.connect(autocommit=autocommit)
    connection.execute("insert into shop.stock.item values (3, 'bolt')")
    with pytest.raises(Exception):
        connection.execute("insert or fail into shop.stock.item values (4, 'x'), (1, 'twice')")
    connection.commit()
    assert names(connection) == ["nail", "screw", "bolt"]
    connection.close()


@pytest.mark.parametrize("mode", ["auto", "manual"])
def test_two_processes_write_at_once(staffed, mode):
    staffed.execute("create table T (writer varchar(8), number integer)")
    writers = [subprocess.Popen([sys.executable, "-c", WRITER, name, mode], env=staffed.environment)
               for name in ("one", "two")]
    assert [writer.wait() for writer in writers] == [0, 0]
    assert staffed.rows("select writer, count(*) from T group by writer order by 1") == [("one", 60), ("two", 60)]
    assert all(len(line) == 4 for line in staffed.logged())


def test_switching_autocommit_on_commits(two):
    manual, other = two
    manual.execute("delete from shop.stock.item where id = 1")
    manual.autocommit = True
    assert names(other) == ["screw"]


@pytest.mark.parametrize("way", ["rollback", "abort", "fail"])
def test_the_transaction_goes_on_behind_a_failed_statement_unless_that_says_rollback(two, way):
    manual, other = two
    manual.execute("insert into shop.stock.item values (3, 'bolt')")
    with pytest.raises(Exception) as raised:
        manual.execute(f"insert or {way} into shop.stock.item values (4, 'x'), (1, 'twice')")
    assert raised.value.args[0] == "23000"
    manual.execute("insert into shop.stock.item values (5, 'rivet')")
    manual.commit()
    assert names(other) == ["nail", "screw"] + ["bolt"] * (way != "rollback") + ["rivet"]


@pytest.mark.parametrize("state, statement", [
    ("HYT00", "with recursive n (i) as (select 1 union all select i + 1 from n) insert into shop.stock.item select i, 'x' from n "
     "where i < 0"),
    ("23000", "insert or rollback into shop.stock.item values (4, 'x'), (1, 'twice')"),
], ids=["time-out", "rollback"])
def test_a_failed_statement_with_which_the_whole_transaction_is_undone_says_so(two, state, statement):
    manual, other = two
    manual.execute("insert into shop.stock.item values (3, 'bolt')")
    manual.timeout = 1
    with pytest.raises(Exception) as raised:
        manual.execute(statement)
    assert raised.value.args[0] == state
    assert "; the whole transaction has been rolled back" in raised.value.args[1]
    manual.commit()
    assert names(other) == ["nail", "screw"]


@pytest.mark.parametrize("autocommit", [True, False])
def test_a_failed_statement_that_says_rollback_is_undone(staffed, autocommit):
    connection = staffed.connect(autocommit=autocommit)
    with pytest.raises(Exception):
        connection.execute("insert or rollback into shop.stock.item values (4, 'x'), (1, 'twice')")
    assert names(connection) == ["nail", "screw"]
    connection.rollback()
    connection.close()


def end_transaction(driver, completion, dbc=None):
    return driver.call("SQLEndTran", short(SQL_HANDLE_DBC), dbc or driver.dbc, short(completion))


def set_autocommit(driver, value):
    assert driver.call("SQLSetConnectAttr", driver.dbc, AUTOCOMMIT, pointer(value), 0) == SQL_SUCCESS


def rows_in_T(driver):
    number = ctypes.c_int(-1)
    driver.fetched("select count(*) from T")
    driver.call("SQLGetData", driver.stmt, 1, short(-16), ctypes.byref(number), ctypes.c_ssize_t(4), None)
    return number.value


@pytest.mark.parametrize("completion", [COMMIT, ROLLBACK])
@pytest.mark.parametrize("autocommit", [0, 1])
def test_no_transaction_is_ended_at_any_time(driver, completion, autocommit):
    driver.execute("create table T (a)")
    set_autocommit(driver, autocommit)
    assert end_transaction(driver, completion) == SQL_SUCCESS
    assert rows_in_T(driver) == 0


def test_a_connection_that_is_not_open_has_no_transaction(driver):
    dbc = driver.allocate(SQL_HANDLE_DBC, driver.env)
    assert end_transaction(driver, COMMIT, dbc) == SQL_SUCCESS
    driver.call("SQLFreeHandle", short(SQL_HANDLE_DBC), dbc)


def test_a_connection_with_an_open_transaction_is_not_ended(driver):
    driver.execute("create table T (a)")
    set_autocommit(driver, 0)
    driver.execute("insert into T values (1)")
    assert driver.call("SQLDisconnect", driver.dbc) == SQL_ERROR
    assert driver.state(SQL_HANDLE_DBC, driver.dbc) == "25000"
    assert end_transaction(driver, ROLLBACK) == SQL_SUCCESS
    assert rows_in_T(driver) == 0


def test_each_way_to_end_a_transaction_keeps_or_undoes_the_statements_since_the_last(driver):
    driver.execute("create table T (a)")
    set_autocommit(driver, 0)
    for completion, rows in ((COMMIT, 2), (ROLLBACK, 2), (COMMIT, 4)):
        driver.execute("insert into T values (1)")
        driver.execute("insert into T values (2)")
        assert end_transaction(driver, completion) == SQL_SUCCESS
        assert rows_in_T(driver) == rows
    driver.execute("delete from T")
    assert driver.call("SQLExecDirect", driver.stmt, b"insert into missing values (1)", -3) == SQL_ERROR
    assert driver.state(SQL_HANDLE_STMT, driver.stmt) == "42S02"
    assert end_transaction(driver, ROLLBACK) == SQL_SUCCESS
    assert rows_in_T(driver) == 4


def test_what_is_changed_after_autocommit_is_switched_on_is_not_rolled_back(driver):
    driver.execute("create table T (a)")
    set_autocommit(driver, 0)
    driver.execute("insert into T values (1)")
    set_autocommit(driver, 1)
    driver.execute("insert into T values (2)")
    assert end_transaction(driver, ROLLBACK) == SQL_SUCCESS
    assert rows_in_T(driver) == 2
