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
    ({"tableType": "VIEW"}, []), ({"table": "\\_"}, []), ({"table": "\\t"}, ALL[:3]), ({"table": "\\"}, []),
    ({"table": "%\\%"}, []), ({"table": "%e%"}, ALL[3:]), ({"table": "it_m%%"}, ALL[3:4]), ({"table": "item_"}, []),
    ({"tableType": ", ' ', table"}, ALL), ({"tableType": ","}, []), ({"tableType": "VIEW,"}, []),
    ({"tableType": "%", "table": "i%"}, [("shop", "stock", "item")]), ({"catalog": "%", "schema": "", "table": "T"}, [ALL[0], ALL[2]]),
    ({"catalog": "", "schema": "%", "table": "T"}, ALL[:2]), ({"catalog": "%", "schema": "S", "table": ""}, []),
    ({"catalog": "", "schema": "", "table": "T", "tableType": "%"}, ALL[:1]), ({"catalog": "", "schema": "S", "table": "", "tableType": "%"}, []),
    ({"catalog": "C", "schema": "%", "table": ""}, []),
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


def test_a_column_of_no_declared_type_is_a_varchar(staffed, cursor):
    staffed.execute("create table U (t, r double, b blob(9) not null)")
    rows = [tuple(row) for row in cursor.columns(table="U").fetchall()]
    assert [(row[3], row[4], row[5], row[7], row[9], row[15], row[17]) for row in rows] == [
        ("t", 12, "varchar", 255, None, 255, "YES"), ("r", 8, "double", 8, 10, None, "YES"), ("b", -3, "blob", 9, None, 9, "NO")]


METADATA_ID = 10014


@pytest.mark.parametrize("table, columns", [("ITEM", ["id", "name"]), ("it%", []), ("item_", []), ("item", ["id", "name"])])
def test_plain_names_are_no_patterns(staffed, driver, table, columns):
    import ctypes
    from direct_driver import NULL, length, pointer, short
    assert driver.call("SQLSetStmtAttr", driver.stmt, METADATA_ID, pointer(1), 0) == 0
    assert driver.call("SQLColumns", driver.stmt, b"SHOP", short(-3), b"Stock", short(-3), table.encode(), short(-3), NULL, short(0)) == 0
    found = []
    while driver.call("SQLFetch", driver.stmt) == 0:
        name = ctypes.create_string_buffer(20)
        driver.call("SQLGetData", driver.stmt, 4, short(1), name, length(20), NULL)
        found.append(name.value.decode())
    assert found == columns


def test_columns_are_found_by_pattern(cursor):
    assert [row[3] for row in cursor.columns(catalog="shop", column="%a%").fetchall()] == ["name", "hall"]


def test_primary_keys_are_listed(cursor):
    rows = cursor.primaryKeys(table="shelf", catalog="shop", schema="stock").fetchall()
    assert [tuple(row)[:5] for row in rows] == [("shop", "stock", "shelf", "id", 1)]


def privileges(source, user, password, table=b"%"):
    import ctypes
    import narrow_odbc
    function = narrow_odbc.odbc.SQLTablePrivileges
    function.argtypes, function.restype = narrow_odbc.odbc.SQLTables.argtypes[:7], ctypes.c_short
    connection = narrow_odbc.Connection(f"dsn=embedded;uid={user};pwd={password}")
    statement = connection.statement()
    assert function(statement, None, -3, None, -3, table, -3) == 0
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
    assert privileges(staffed, "anna", "pw", b"shelf") == []


def test_types_are_listed(cursor):
    assert [row[0] for row in cursor.getTypeInfo().fetchall()] == [
        "bigint", "varbinary", "double", "varchar", "date", "time", "timestamp"]
