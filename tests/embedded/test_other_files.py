"""Database files that are not as this driver leaves them: of another version, with tables from outside."""
import sqlite3

import pyodbc
import pytest


def change(source, *statements):
    """Changes the file behind the driver's back."""
    database = sqlite3.connect(source.database)
    for statement in statements:
        database.execute(statement)
    database.commit()
    database.close()


@pytest.mark.parametrize("pragma", ["user_version = 2", "user_version = 0", "application_id = 1413632847", "application_id = 0"])
def test_a_database_of_another_kind_or_version_is_refused(source, pragma):
    change(source, f"pragma {pragma}")
    state, message = source.log_in_failure("DSN=embedded;UID=admin;PWD=secret")
    assert state == "08001" and f"{source.database}: it is not a database of this driver" in message


@pytest.mark.parametrize("table", ["nordvale.system.user", "nordvale.system.table", "nordvale.system.tableprv"])
def test_without_a_system_table_nobody_reads_other_tables(staffed, table):
    staffed.execute("grant select on shop.stock.item to anna")
    change(staffed, f'drop table "{table}"')
    with pytest.raises(pyodbc.Error):
        staffed.rows("select * from shop.stock.item", user="anna", password="pw")


@pytest.mark.parametrize("loss", ['delete from "nordvale.system.sysinfo"', 'update "nordvale.system.sysinfo" set "VALUE" = null'])
def test_without_the_name_of_an_administrator_nobody_is_one(source, loss):
    change(source, loss)
    assert source.failure("select * from nordvale.system.user")[0] == "42000"


def test_a_table_that_was_created_from_outside_does_not_exist(source):
    change(source, 'create table "..T" (a)', "create table plain (a)")
    for name in ("T", "plain"):
        state, message = source.failure(f"select * from {name}")
        assert state == "42S02" and f"There is no table {name}" in message


def test_a_table_is_not_created_in_the_place_of_one_from_outside(source):
    change(source, 'create table "..T" (a)', 'insert into "..T" values (1)')
    assert source.failure("create table T (a)")[0] == "42S01"
    assert source.rows("select * from nordvale.system.table") == []


def test_a_virtual_table_from_outside_is_neither_read_nor_dropped(source):
    change(source, 'create virtual table "..T" using fts5 (a)', 'insert into "nordvale.system.table" values (\'\', \'\', \'T\')')
    assert source.failure("select * from T")[0] == "42000"
    state, message = source.failure("drop table T")
    assert state == "42000" and "The statement does what is not allowed here" in message
    assert source.rows("select count(*) from nordvale.system.table") == [(1,)]


def test_a_privilege_of_an_unknown_word_gives_nothing(staffed):
    change(staffed, "pragma ignore_check_constraints = on",
           "insert into \"nordvale.system.tableprv\" values ('shop', 'stock', 'item', 'admin', 'anna', 'ALL')")
    assert staffed.failure("select * from shop.stock.item", "anna", "pw")[0] == "42000"
