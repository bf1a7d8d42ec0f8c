import pytest

STATEMENTS = {
    "select": "select * from shop.stock.item",
    "insert": "insert into shop.stock.item values (3, 'bolt')",
    "update": "update shop.stock.item set name = 'rivet'",
    "delete": "delete from shop.stock.item",
}


def as_anna(source, statement):
    source.execute(statement, user="anna", password="pw")


def denial(source, statement):
    return source.failure(statement, user="anna", password="pw")


@pytest.mark.parametrize("privilege", STATEMENTS)
def test_without_the_privilege_a_statement_is_denied_and_says_which(staffed, privilege):
    others = [other for other in STATEMENTS if other != privilege]
    staffed.execute(*(f"grant {other} on shop.stock.item to anna" for other in others))
    state, message = denial(staffed, STATEMENTS[privilege])
    assert state == "42000" and privilege in message and "shop.stock.item" in message
    assert staffed.rows("select name from shop.stock.item") == [("nail",), ("screw",)]


@pytest.mark.parametrize("grantee", ["\"anna\"", "public"])
@pytest.mark.parametrize("privilege", STATEMENTS)
def test_the_privilege_alone_suffices(staffed, privilege, grantee):
    staffed.execute(f"grant {privilege} on shop.stock.item to {grantee}")
    as_anna(staffed, STATEMENTS[privilege])


@pytest.mark.parametrize("privilege", STATEMENTS)
def test_the_administrator_needs_no_privilege(staffed, privilege):
    staffed.execute(STATEMENTS[privilege])


def test_a_privilege_of_another_user_does_not_help(staffed):
    staffed.execute("grant select on shop.stock.item to bernd", "grant select on shop.stock.item to \"Public\"")
    assert denial(staffed, STATEMENTS["select"])[0] == "42000"


@pytest.mark.parametrize("statement", [
    "select count(*) from shop.stock.item", "select 1 from shop.stock.item",
    "select (select max(id) from shop.stock.item)", "select 1 where 1 in shop.stock.item",
    "with q as (select * from shop.stock.item) select * from q", "select 1 union select id from shop.stock.item",
    "select * from open_table, shop.stock.item", "select * from open_table join shop.stock.item on 1",
    "insert into open_table select id from shop.stock.item", "select * from (open_table cross join shop.stock.item)",
    "update open_table set a = (select max(id) from shop.stock.item)", "select exists (select * from shop.stock.item)",
    "select * from [shop].`stock`.\"item\"", "select * from /* x */ shop . stock . item",
    "delete from open_table where a in (select id from shop.stock.item)",
])
def test_reading_is_denied_wherever_the_table_stands(staffed, statement):
    staffed.execute("create table open_table (a)", "grant all on open_table to anna")
    state, message = denial(staffed, statement)
    assert state == "42000" and "select" in message and "shop.stock.item" in message


@pytest.mark.parametrize("statement", ["update shop.stock.item set name = 'x' where id = 1",
                                       "update shop.stock.item set id = id + 10", "delete from shop.stock.item where id = 1",
                                       "insert into shop.stock.item values (9, 'x') returning name"])
def test_reading_columns_in_a_change_takes_select(staffed, statement):
    for privilege in ("insert", "update", "delete"):
        staffed.execute(f"grant {privilege} on shop.stock.item to anna")
    state, message = denial(staffed, statement)
    assert state == "42000" and "select" in message
    staffed.execute("grant select on shop.stock.item to anna")
    as_anna(staffed, statement)


def test_copying_a_whole_table_takes_select_on_it(staffed):
    staffed.execute("create table copy (id integer primary key, name varchar(20))", "grant all on copy to anna",
                    "grant insert on shop.stock.item to anna")
    for statement in ("insert into copy select * from shop.stock.item", "insert into copy select * from shop.stock.item c"):
        assert "select" in denial(staffed, statement)[1]
    assert staffed.rows("select * from copy") == []


def test_replacing_rows_takes_delete(staffed):
    staffed.execute("grant insert on shop.stock.item to anna", "grant select on shop.stock.item to anna")
    for statement in ("replace into shop.stock.item values (1, 'x')",
                      "insert or replace into shop.stock.item values (1, 'x')"):
        state, message = denial(staffed, statement)
        assert state == "42000" and "delete" in message


def test_an_upsert_takes_update(staffed):
    staffed.execute("grant insert on shop.stock.item to anna", "grant select on shop.stock.item to anna")
    assert "update" in denial(
        staffed, "insert into shop.stock.item values (1, 'x') on conflict (id) do update set name = 'x'")[1]


@pytest.mark.parametrize("statement", [
    "select * from nordvale.system.user", "insert into nordvale.system.user (username) values ('x')",
    "update nordvale.system.user set password = 'x'", "delete from nordvale.system.user",
    "select * from nordvale.system.tableprv", "delete from nordvale.system.table", "delete from nordvale.system.sysinfo",
    "insert into nordvale.system.tableprv values ('shop', 'stock', 'item', 'x', 'anna', 'SELECT')",
    "grant select on shop.stock.item to anna", "revoke select on shop.stock.item from anna",
    "create table own (a)", "drop table shop.stock.item",
])
def test_what_is_the_administrators_is_denied_to_others(staffed, statement):
    assert denial(staffed, statement)[0] == "42000"


def test_everybody_reads_the_table_list_and_the_system_information(staffed):
    assert staffed.rows("select a.table from nordvale.system.table a", user="anna", password="pw") == [("item",)]
    assert len(staffed.rows("select * from nordvale.system.sysinfo", user="anna", password="pw")) == 1


@pytest.mark.parametrize("statement", [
    "delete from nordvale.system.tableprv", "insert into nordvale.system.table values ('', '', 'x')",
    "update nordvale.system.sysinfo set \"VALUE\" = 'anna'", "drop table nordvale.system.user",
    "create table nordvale.system.more (a)", "pragma user_version = 3", "attach ':memory:' as x", "vacuum",
    "begin", "commit", "savepoint x", "create view v as select 1", "alter table shop.stock.item add b",
    "select load_extension('x')", "select * from sqlite_master", "delete from sqlite_master", "select 1; select 2",
    "select * from \"nordvale.system.user\"", "select * from main.sqlite_master", "select * from pragma_table_info('x')",
    "with sqlite_master as (select 1) select * from main.sqlite_master",
])
def test_not_even_the_administrator_gets_round_the_registry(staffed, statement):
    assert staffed.failure(statement)[0] in ("42000", "42S02")


@pytest.mark.parametrize("statement", [
    "select * from sqlite_master, (with sqlite_master as (select 1) select * from sqlite_master)",
    "select * from \"nordvale.system.user\", (with \"nordvale.system.user\" as (select 1) select 1)",
    "with \"nordvale.system.user\" as (select 1) select * from (select * from \"nordvale.system.user\") q, "
    "(with recursive r as (select 2) select * from r) s, \"nordvale.system.user\".x",
    "with \"nordvale.system.user.keep_administrator\" as (select * from nordvale.system.user) "
    "select * from \"nordvale.system.user.keep_administrator\"",
    "select \"nordvale.system.user\".password from nordvale.system.table", "select * from shop.stock.item.name",
    "select * from json_each('[1]')", "select * from sqlite_schema", "select * from dbstat", "select * from temp.x",
])
def test_tricks_with_names_lead_nowhere(staffed, statement):
    assert denial(staffed, statement)[0] in ("42000", "42S02", "42S22")


def test_changed_privileges_count_from_the_next_statement_on(staffed):
    anna = staffed.connect("anna", "pw")
    cursor = anna.cursor()
    for _ in range(2):
        with pytest.raises(Exception):
            cursor.execute("select * from shop.stock.item where id = ?", 1)
        staffed.execute("grant select on shop.stock.item to anna")
        assert cursor.execute("select * from shop.stock.item where id = ?", 1).fetchall()
        staffed.execute("revoke select on shop.stock.item from anna")
    anna.close()


def test_a_privilege_revoked_between_prepare_and_execute_is_gone(staffed):
    import narrow_odbc
    staffed.execute("grant select on shop.stock.item to anna")
    connection = narrow_odbc.Connection("dsn=embedded;uid=anna;pwd=pw")
    statement = connection.statement()
    assert narrow_odbc.odbc.SQLPrepare(statement, b"select * from shop.stock.item", -3) == 0
    staffed.execute("revoke select on shop.stock.item from anna")
    assert narrow_odbc.odbc.SQLExecute(statement) == -1
    assert narrow_odbc.diagnostic(narrow_odbc.SQL_HANDLE_STMT, statement)[0] == "42000"
    connection.close()


@pytest.mark.parametrize("statement", ["grant select on shop.stock.none to anna", "revoke all on shop.stock.none from anna"])
def test_privileges_are_those_of_tables_that_exist(staffed, statement):
    assert staffed.failure(statement)[0] == "42S02"
