"""A disk that takes no more, as a limit on the size of files makes it."""
import contextlib
import resource
import subprocess

import pytest

from direct_driver import pointer, short
from narrow_odbc import SQL_HANDLE_DBC, SQL_HANDLE_STMT
from support.source import CREATE

AUTOCOMMIT, COMMIT, ROLLBACK = 102, 0, 1
INSERT = b"insert into T values (randomblob(100000))"


@contextlib.contextmanager
def full_disk(limit=20000):
    """Files of this process do not grow beyond the limit meanwhile. Python ignores the signal that comes with it."""
    before = resource.getrlimit(resource.RLIMIT_FSIZE)
    resource.setrlimit(resource.RLIMIT_FSIZE, (limit, before[1]))
    try:
        yield
    finally:
        resource.setrlimit(resource.RLIMIT_FSIZE, before)


@pytest.fixture
def changed(driver):
    """The driver with an empty table T, and in a transaction that has filled it."""
    driver.execute("create table T (a)")
    driver.call("SQLSetConnectAttr", driver.dbc, AUTOCOMMIT, pointer(0), 0)
    driver.execute(INSERT.decode())
    return driver


def is_empty(driver):
    driver.call("SQLFreeStmt", driver.stmt, 0)
    driver.execute("select * from T")
    return driver.call("SQLFetch", driver.stmt) == 100


def test_a_change_that_cannot_be_written_is_told_and_undone(driver):
    driver.execute("create table T (a)")
    with full_disk():
        assert driver.call("SQLExecDirect", driver.stmt, INSERT, len(INSERT)) == -1
        assert driver.state(SQL_HANDLE_STMT, driver.stmt) == "HY000"
    assert is_empty(driver)
    driver.execute(INSERT.decode())
    assert not is_empty(driver)


@pytest.mark.parametrize("end", [("SQLEndTran", short(SQL_HANDLE_DBC), "dbc", short(COMMIT)),
                                 ("SQLSetConnectAttr", "dbc", AUTOCOMMIT, pointer(1), 0)], ids=["commit", "autocommit"])
def test_a_commit_that_cannot_be_written_is_told_and_can_be_rolled_back(changed, end):
    function, *arguments = [changed.dbc if part == "dbc" else part for part in end]
    with full_disk():
        assert changed.call(function, *arguments) == -1
        assert changed.state(SQL_HANDLE_DBC, changed.dbc) == "HY000"
    assert changed.call("SQLEndTran", short(SQL_HANDLE_DBC), changed.dbc, short(ROLLBACK)) == 0
    assert is_empty(changed)
    changed.call("SQLEndTran", short(SQL_HANDLE_DBC), changed.dbc, short(ROLLBACK))


def test_an_open_transaction_keeps_its_connection_open(changed):
    assert changed.call("SQLDisconnect", changed.dbc) == -1
    assert changed.state(SQL_HANDLE_DBC, changed.dbc) == "25000"
    changed.call("SQLEndTran", short(SQL_HANDLE_DBC), changed.dbc, short(ROLLBACK))


def test_a_database_that_cannot_be_made_leaves_no_file(tmp_path):
    limit = lambda: resource.setrlimit(resource.RLIMIT_FSIZE, (20000, 20000))  # noqa: E731
    made = subprocess.run([CREATE, tmp_path / "new.db", "boss"], input=b"pw\n", capture_output=True, preexec_fn=limit,
                          restore_signals=False)
    assert made.returncode == 1 and b"new.db" in made.stderr
    assert list(tmp_path.iterdir()) == []
