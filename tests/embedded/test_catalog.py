import pytest


@pytest.fixture
def cursor(staffed):
    """A cursor of the administrator on a source with five tables."""
    staffed.execute("create table T (a)", "create table S.T (a)", "create table \"C\".\"\".\"T\" (a)",
                    "create table shop.stock.shelf (id integer not null, hall char(5) default 'n', primary key (id))")
    connection = staffed.connect()
    yield connection.cursor()
    connection.close()


def listed(rows):
    return [tuple(row)[:3] for row in rows]


ALL = [("", "", "T"), ("", "S", "T"), ("C", "", "T"), ("shop", "stock", "item"), ("shop", "stock", "shelf")]


def test_all_user_tables_are_listed_by_name(cursor):
    rows = cursor.tables().fetchall()
    assert listed(rows) == ALL
    assert {row[3] for row in rows} == {"TABLE"}


def test_an_empty_type_lists_the_user_tables(staffed, cursor):
    import narrow_odbc
    connection = narrow_odbc.Connection("dsn=embedded;uid=admin;pwd=secret")
    statement = connection.statement()
    assert narrow_odbc.odbc.SQLTables(statement, None, -3, None, -3, None, -3, b"", -3) == 0
    assert narrow_odbc.texts(statement, 3) == ALL
    connection.close()


def test_the_privilege_query_lists_tables_in_the_same_order(staffed, cursor):
    assert listed(cursor.execute("select * from nordvale.system.table").fetchall()) == ALL


@pytest.mark.parametrize("pattern, tables", [
    ({"table": "i%"}, [("shop", "stock", "item")]), ({"table": "_"}, ALL[:3]), ({"schema": "S%"}, ALL[1:2] + ALL[3:]),
    ({"catalog": "shop", "table": "SHELF"}, ALL[4:]), ({"catalog": "C", "schema": ""}, ALL[2:3]),
    ({"table": "nothing"}, []), ({"tableType": "TABLE"}, ALL), ({"tableType": "'VIEW','TABLE'"}, ALL),
    ({"tableType": "VIEW"}, []), ({"table": "\\_"}, []),
])
def test_tables_are_found_by_pattern_and_type(cursor, pattern, tables):
    assert listed(cursor.tables(**pattern).fetchall()) == tables


def test_system_tables_are_listed_by_their_type(cursor):
    rows = cursor.tables(tableType="SYSTEM TABLE").fetchall()
    assert listed(rows) == [("nordvale", "system", name) for name in ("sysinfo", "table", "tableprv", "user")]


@pytest.mark.parametrize("arguments, column, values", [
    ({"catalog": "%", "schema": "", "table": ""}, 0, ["", "C", "nordvale", "shop"]),
    ({"catalog": "", "schema": "%", "table": ""}, 1, ["", "S", "stock", "system"]),
    ({"catalog": "", "schema": "", "table": "", "tableType": "%"}, 3, ["SYSTEM TABLE", "TABLE"]),
])
def test_catalogs_schemas_and_types_are_listed(cursor, arguments, column, values):
    assert [row[column] for row in cursor.tables(**arguments).fetchall()] == values


def test_columns_are_described(cursor):
    rows = [tuple(row) for row in cursor.columns(table="shelf").fetchall()]
    assert [(row[3], row[4], row[6], row[10], row[12], row[16]) for row in rows] == [
        ("id", -5, 19, 0, None, 1), ("hall", 12, 5, 1, "'n'", 2)]


def test_columns_are_found_by_pattern(cursor):
    assert [row[3] for row in cursor.columns(catalog="shop", column="%a%").fetchall()] == ["name", "hall"]


def test_primary_keys_are_listed(cursor):
    rows = cursor.primaryKeys(table="shelf", catalog="shop", schema="stock").fetchall()
    assert [tuple(row)[:5] for row in rows] == [("shop", "stock", "shelf", "id", 1)]


def privileges(source, user, password):
    import ctypes
    import narrow_odbc
    function = narrow_odbc.odbc.SQLTablePrivileges
    function.argtypes, function.restype = narrow_odbc.odbc.SQLTables.argtypes[:7], ctypes.c_short
    connection = narrow_odbc.Connection(f"dsn=embedded;uid={user};pwd={password}")
    statement = connection.statement()
    assert function(statement, None, -3, None, -3, b"%", -3) == 0
    rows = narrow_odbc.texts(statement, 7)
    connection.close()
    return rows


def test_table_privileges_are_listed_for_the_administrator_all_and_for_others_their_own(staffed):
    staffed.execute("grant select on shop.stock.item to anna", "grant insert on shop.stock.item to bernd",
                    "grant update on shop.stock.item to public")
    item = ("shop", "stock", "item", "admin")
    anna, bernd, public = (item + ("anna", "SELECT", "NO"), item + ("bernd", "INSERT", "NO"),
                           item + ("public", "UPDATE", "NO"))
    assert privileges(staffed, "admin", "secret") == [bernd, anna, public]
    assert privileges(staffed, "anna", "pw") == [anna, public]


def test_types_are_listed(cursor):
    assert [row[0] for row in cursor.getTypeInfo().fetchall()] == [
        "bigint", "varbinary", "double", "varchar", "date", "time", "timestamp"]
