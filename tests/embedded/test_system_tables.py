"""The statements with which the administration pages work, word for word."""
import narrow_odbc
import pytest

PRIVILEGE_QUERY = (
    "select a.catalog, a.schema, a.table, b.grantor, b.grantee, b.privilege, c.privilege, d.privilege, e.privilege   "
    "from nordvale.system.table a     left outer join nordvale.system.tableprv b on a.catalog = b.catalog and "
    "a.schema = b.schema and       a.table = b.table and b.privilege = 'SELECT' and b.grantee = '%s'    left outer "
    "join nordvale.system.tableprv c on a.catalog = c.catalog and a.schema = c.schema and       a.table = c.table and "
    "c.privilege = 'INSERT' and c.grantee = '%s'    left outer join nordvale.system.tableprv d on a.catalog = "
    "d.catalog and a.schema = d.schema and       a.table = d.table and d.privilege = 'UPDATE' and d.grantee = '%s'    "
    "left outer join nordvale.system.tableprv e on a.catalog = e.catalog and a.schema = e.schema and       a.table = "
    "e.table and e.privilege = 'DELETE' and e.grantee = '%s'")


def rights(source, user):
    return source.rows(PRIVILEGE_QUERY % ((user,) * 4))


def test_the_administrators_name_is_read(source):
    assert source.rows("select \"VALUE\" from nordvale.system.sysinfo where attribute = 'dbo_user';") == [("admin",)]


def test_users_are_inserted_listed_updated_and_deleted(source):
    source.execute("insert into nordvale.system.user (username, password, description) values ('anna','a''b','it''s');")
    query = "select username, description, password from nordvale.system.user order by 1;"
    assert source.rows(query)[1] == ("anna", "it's", "a'b")
    source.execute("update nordvale.system.user set password='n', description='d' where username='anna';")
    assert source.rows("select username, description, password from nordvale.system.user;")[2] == ("anna", "d", "n")
    source.execute("delete from nordvale.system.user where username = 'anna'")
    assert source.rows("select username from nordvale.system.user order by 1;") == [("admin",), ("public",)]


def test_user_names_are_unique_without_regard_to_case(staffed):
    assert staffed.failure("insert into nordvale.system.user (username) values ('ANNA')")[0] == "23000"


def test_the_administrator_is_not_deleted(source):
    state, message = source.failure("delete from nordvale.system.user where username = 'admin'")
    assert state == "23000" and "cannot be deleted" in message


def test_the_privilege_query_shows_each_table_with_the_users_privileges(staffed):
    staffed.execute("grant select on \"shop\".\"stock\".\"item\" to \"anna\"",
                    "grant delete on \"shop\".\"stock\".\"item\" to \"anna\"")
    assert rights(staffed, "anna") == [("shop", "stock", "item", "admin", "anna", "SELECT", None, None, "DELETE")]
    assert rights(staffed, "bernd") == [("shop", "stock", "item") + (None,) * 6]


def test_public_grants_are_found_under_public(staffed):
    staffed.execute("grant insert on shop.stock.item to public")
    assert rights(staffed, "public") == [("shop", "stock", "item", None, None, None, "INSERT", None, None)]


def test_an_unescaped_quote_in_the_privilege_query_is_an_error(source):
    assert source.failure(PRIVILEGE_QUERY % (("o'neil",) * 4))[0] == "42000"


@pytest.mark.parametrize("privilege", ["select", "insert", "update", "delete"])
def test_one_privilege_is_granted_and_revoked_again_and_again(staffed, privilege):
    for _ in range(2):
        staffed.execute(f"grant {privilege} on \"shop\".\"stock\".\"item\" to \"anna\"")
    assert staffed.rows("select privilege from nordvale.system.tableprv") == [(privilege.upper(),)]
    for _ in range(2):
        staffed.execute(f"revoke {privilege} on \"shop\".\"stock\".\"item\" from \"anna\"")
    assert staffed.rows("select * from nordvale.system.tableprv") == []


def test_all_stands_for_the_four_privileges(staffed):
    staffed.execute("grant all on \"shop\".\"stock\".\"item\" to public")
    assert len(staffed.rows("select * from nordvale.system.tableprv where grantee = 'public'")) == 4
    staffed.execute("revoke all on \"shop\".\"stock\".\"item\" from public")
    assert staffed.rows("select * from nordvale.system.tableprv") == []


def test_quoted_Public_is_an_ordinary_user(staffed):
    staffed.execute("grant select on shop.stock.item to \"Public\"")
    assert staffed.rows("select grantee from nordvale.system.tableprv") == [("Public",)]


def test_a_grant_is_recorded_under_the_users_own_spelling(staffed):
    staffed.execute("grant select on SHOP.Stock.ITEM to \"ANNA\"")
    assert rights(staffed, "anna")[0][4:6] == ("anna", "SELECT")


def test_a_grant_to_nobody_is_refused(staffed):
    state, message = staffed.failure("grant select on shop.stock.item to \"nobody\"")
    assert state == "42000" and "nobody" in message


def test_a_grant_on_a_missing_table_is_refused(staffed):
    state, message = staffed.failure("grant select on shop.stock.nothing to anna")
    assert state == "42S02" and "shop.stock.nothing" in message


def test_privileges_on_system_tables_are_not_granted(staffed):
    assert staffed.failure("grant select on nordvale.system.user to anna")[0] == "42000"


def test_revoking_from_a_deleted_user_removes_what_is_left(staffed):
    staffed.execute("grant all on shop.stock.item to anna", "delete from nordvale.system.user where username = 'anna'",
                    "revoke all on \"shop\".\"stock\".\"item\" from \"anna\"")
    assert staffed.rows("select * from nordvale.system.tableprv") == []


def test_a_reading_cursor_is_stable_while_a_second_statement_changes_its_rows(source):
    for number in range(20):
        source.add_user(f"user{number:02}")
    connection = narrow_odbc.Connection("dsn=embedded;uid=admin;pwd=secret")
    reader = connection.execute("select username, description, password from nordvale.system.user order by 1;")
    writer, names = connection.statement(), []
    while narrow_odbc.succeeded(narrow_odbc.odbc.SQLFetch(reader)):
        name = narrow_odbc.text_of(reader, 1)
        names.append(name)
        if "user00" <= name <= "user09":
            connection.execute(f"delete from nordvale.system.user where username = '{name}'", writer)
            connection.execute(f"insert into nordvale.system.user (username) values ('z{name}')", writer)
    connection.close()
    assert names == ["admin", "public"] + [f"user{number:02}" for number in range(20)]


def test_grants_run_on_a_second_statement_while_the_table_list_is_open(staffed):
    staffed.execute("create table T (a)", "create table S.T (a)", "create table \"C\".\"\".\"T\" (a)")
    connection = narrow_odbc.Connection("dsn=embedded;uid=admin;pwd=secret")
    tables, writer = connection.statement(), connection.statement()
    assert narrow_odbc.odbc.SQLTables(tables, None, -3, None, -3, None, -3, b"", -3) == 0
    while narrow_odbc.succeeded(narrow_odbc.odbc.SQLFetch(tables)):
        catalog, schema, table = (narrow_odbc.text_of(tables, column) for column in (1, 2, 3))
        name = (f'"{catalog}".' if catalog else "") + (f'"{schema}".' if catalog or schema else "") + f'"{table}"'
        connection.execute(f"grant all on {name} to \"anna\"", writer)
    connection.close()
    assert [row[:3] + row[6:] for row in rights(staffed, "anna")] == [
        key + ("INSERT", "UPDATE", "DELETE")
        for key in (("", "", "T"), ("", "S", "T"), ("C", "", "T"), ("shop", "stock", "item"))]


def test_the_privilege_query_looks_up_each_join_by_its_key(source):
    import sqlite3
    database = sqlite3.connect(source.database)
    query = PRIVILEGE_QUERY % (("x",) * 4)
    for table in ("tableprv", "table"):
        query = query.replace(f"nordvale.system.{table} ", f'"nordvale.system.{table}" ')
    query = query.replace("a.table", 'a."table"')
    for alias in "bcde":
        query = query.replace(f"{alias}.table", f'{alias}."table"')
    plan = [row[3] for row in database.execute("explain query plan " + query)]
    database.close()
    assert [step.split()[0] for step in plan] == ["SCAN", "SEARCH", "SEARCH", "SEARCH", "SEARCH"]
    assert all("grantee=? AND privilege=?" in step for step in plan[1:])
