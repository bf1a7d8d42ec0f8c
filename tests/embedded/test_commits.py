"""What a statement writes: the write-ahead log tells its commits apart, by the frame that ends each."""

import struct

import pytest

HEADER, FRAME_HEADER = 32, 24


def commits(source):
    """How many transactions the log holds (https://www.sqlite.org/fileformat2.html, "The Write-Ahead Log")."""
    log = source.database.with_name(source.database.name + "-wal").read_bytes()
    page_size, salt = struct.unpack(">I", log[8:12])[0], log[16:24]
    frames = [log[at : at + FRAME_HEADER] for at in range(HEADER, len(log), FRAME_HEADER + page_size)]
    # What an earlier round has left behind the newest frame has other salts.
    return sum(frame[4:8] != b"\0\0\0\0" and frame[8:16] == salt for frame in frames)


@pytest.fixture
def connection(source):
    source.execute(
        "create table t (a integer)",
        "create table u (a integer)",
        "insert into nordvale.system.user values ('anna', 'a', '')",
    )
    connection = source.connect()
    connection.execute("grant select on u to anna")
    yield connection
    connection.close()


@pytest.mark.parametrize(
    "statement",
    [
        "grant select on t to anna",
        "grant all on t to anna",
        "revoke select on u from anna",
        "revoke all on u from anna",
        "grant all on t to public",
        "update nordvale.system.user set password='b', description='' where username='anna'",
        "insert into nordvale.system.user (username, password, description) values ('bert','b','')",
        "delete from nordvale.system.user where username = 'anna'",
    ],
)
def test_a_change_is_one_commit(source, connection, statement):
    before = commits(source)
    connection.execute(statement)
    assert commits(source) == before + 1


@pytest.mark.parametrize(
    "statement",
    [
        "grant select on u to anna",
        "revoke all on t from anna",
        "revoke insert on u from anna",
        "revoke all on u from public",
        "delete from nordvale.system.user where username = 'nobody'",
        "select username from nordvale.system.user",
    ],
)
def test_what_changes_nothing_commits_nothing(source, connection, statement):
    before = commits(source)
    connection.execute(statement)
    assert commits(source) == before


def test_each_of_many_changes_is_a_commit_of_its_own(source, connection):
    connection.execute("revoke select on u from anna")
    before = commits(source)
    for _ in range(10):
        connection.execute("grant select on u to anna")
        connection.execute("revoke select on u from anna")
    assert commits(source) == before + 20
