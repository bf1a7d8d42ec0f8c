import pytest

NAMES = ['T', 'S.T', 'C.S.T', '"C".""."T"', '"a.b"."c"', '"a"."b.c"', '"it""s"."quo""te".""""', '"with blank"."and more"',
         '"Größe"."Maß"', "größe", '"%"."%2E"."a%"', '"sqlite_x"."y"."z"', '"select"."from"."table"', '"it\'s"', "[a b].[c]",
         '"nordvale"."system2"."user"']


@pytest.mark.parametrize("name", NAMES)
def test_a_table_of_any_name_is_created_filled_changed_granted_and_dropped(staffed, name):
    staffed.execute(f"create table {name} (a integer, b varchar(10))", f"insert into {name} values (1, 'x')",
                    f"insert into {name} (b, a) select b, a + 1 from {name}", f"update {name} set b = 'y' where a = 2",
                    f"delete from {name} where a = 1", f"grant select on {name} to anna")
    assert staffed.rows(f"select * from {name}", user="anna", password="pw") == [(2, "y")]
    staffed.execute(f"drop table {name}")
    assert staffed.failure(f"select * from {name}")[0] == "42S02"


def test_names_that_look_alike_are_different_tables(source):
    for number, name in enumerate(NAMES):
        source.execute(f"create table {name} (a)", f"insert into {name} values ({number})")
    assert [source.rows(f"select a from {name}")[0][0] for name in NAMES] == list(range(len(NAMES)))


def test_created_tables_are_registered_as_spelled_and_dropped_ones_forgotten(staffed):
    query = "select catalog, schema, a.table from nordvale.system.table a"
    staffed.execute("create table Plain (a)", "create table \"C\".\"\".\"T\" (a)", "grant all on plain to public")
    assert staffed.rows(query) == [("", "", "Plain"), ("C", "", "T"), ("shop", "stock", "item")]
    staffed.execute("drop table PLAIN", "drop table C..T")
    assert staffed.rows(query) == [("shop", "stock", "item")]
    assert staffed.rows("select * from nordvale.system.tableprv") == []


def test_a_table_is_created_from_a_query(staffed):
    staffed.execute("create table copy as select * from shop.stock.item where id = 2")
    assert staffed.rows("select copy.* from copy") == [(2, "screw")]


def test_an_existing_name_is_not_created_again(staffed):
    state, message = staffed.failure("create table SHOP.stock.item (a)")
    assert state == "42S01" and "shop.stock.item" in message
    staffed.execute("create table if not exists shop.stock.item (a)")


def test_a_missing_table_is_not_dropped(source):
    assert source.failure("drop table nothing")[0] == "42S02"
    source.execute("drop table if exists nothing")


def test_a_definition_with_an_error_leaves_nothing(source):
    assert source.failure("create table broken (a integer,")[0] == "42000"
    assert source.rows("select * from nordvale.system.table") == []


@pytest.mark.parametrize("statement, state", [
    ("select * from nothing", "42S02"), ("select colour from shop.stock.item", "42S22"), ("select from", "42000"),
    ("insert into shop.stock.item values (1, 'twice')", "23000"), ("select \"no such text\"", "42S22"),
    ("insert into shop.stock.item values (1)", "42000"), ("select * from shop.stock.item where", "42000"),
    ("insert into shop.stock.item (colour) values (1)", "42S22"), ("", "42000"), ("bogus", "42000"),
])
def test_failures_have_their_states(staffed, statement, state):
    if statement == "":
        import narrow_odbc
        connection = narrow_odbc.Connection("dsn=embedded;uid=admin;pwd=secret")
        handle = connection.statement()
        assert narrow_odbc.odbc.SQLExecDirect(handle, b" ", 1) == -1
        assert narrow_odbc.diagnostic(narrow_odbc.SQL_HANDLE_STMT, handle)[0] == state
        return connection.close()
    assert staffed.failure(statement)[0] == state


def test_messages_name_tables_as_their_users_do(staffed):
    assert "shop.stock.item.id" in staffed.failure("insert into shop.stock.item values (1, 'twice')")[1]
    staffed.execute("create table T (a integer primary key)", "insert into T values (1)")
    assert "failed: T.a" in staffed.failure("insert into T values (1)")[1]


def test_columns_are_reached_through_table_alias_and_whole_name(staffed):
    for column in ("item.name", "stock.item.name", "shop.stock.item.name"):
        assert staffed.rows(f"select {column} from shop.stock.item where {column} = 'nail'") == [("nail",)]
    assert staffed.rows("select i.name from shop.stock.item i join shop.stock.item as j on i.id = j.id - 1") == [("nail",)]
