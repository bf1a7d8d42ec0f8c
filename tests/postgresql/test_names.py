"""Names of every kind, and of every length around the 63 bytes after which PostgreSQL cuts them."""

import pytest

from support import pages
from support.forms import press
from support.kinds import sql_name
from support.postgresql_database import ALL, Database, list_sources

LONGEST = "n" * 63
LONGEST_UMLAUTS = "ä" * 31 + "n"
TOO_LONG = (LONGEST + "x", LONGEST + "x" * 100, LONGEST + "x" * 191, "ä" * 32, LONGEST_UMLAUTS + "ä")

USERS = (
    "Mary", "MARY", "mary ann", " mary", "a.b", 'say "it"', '"', "Größe", "-", "select", LONGEST, LONGEST_UMLAUTS,
)  # fmt: skip
TABLES = (
    ("public", "Stock"), ("public", "STOCK"), ("public", "stock"), ("My Schema", "My.Table"), ("a.b", "c"), ('"', '""'),
    ("Größe", "Ü"), ("it's", "it's"), ("n" * 63, "ä" * 31), ("tabwarden2", "user"), ("pgx", "pg_class"),
    ("nordvale", "system"),
)  # fmt: skip


def insert(visitor, name, description="new", password="apple"):
    posted = [("__newuser", name), ("__newfile", description), ("__newpass", password)]
    return visitor.page([("users_refresh", ""), *posted, ("submit_users", "pressed")])


def names(database):
    return set(database.as_superuser("select rolname from pg_roles where oid >= 16384"))


@pytest.fixture
def tables(accounts):
    for schema, table in TABLES:
        schema, table = sql_name(schema), sql_name(table)
        accounts.as_administrator(f"create schema if not exists {schema}; create table {schema}.{table} (id int)")
    return accounts


EVERYTHING = {f"{schema}.{table}": ALL for schema, table in TABLES}


def test_users_of_any_name_are_made_listed_and_log_in(accounts, visitor):
    for name in USERS:
        assert pages.user_row(name, "new", "") in insert(visitor, name)
        assert accounts.try_as(name, "apple", "").returncode == 0
    assert names(accounts) == {*USERS, "admin", "mary"}


def test_users_of_any_name_get_and_lose_everything_on_tables_of_any_name(tables, visitor):
    tables.as_administrator("".join(f"create role {sql_name(name)} login;" for name in USERS))
    for name in USERS:
        press(visitor, "rights_grant", user=name)
        assert tables.held(name) == EVERYTHING
        press(visitor, "rights_revoke", user=name)
        assert tables.held(name) == {}


def test_tables_are_listed_by_their_bytes(tables, visitor):
    listed = press(visitor, "rights_refresh")
    in_order = sorted(TABLES, key=lambda name: [part.encode() for part in name])
    rows = [pages.rights_row(("accounts", *name)) for name in in_order]
    assert "".join(rows) in listed


def test_users_are_listed_by_their_bytes(accounts, visitor):
    accounts.as_administrator("".join(f"create role {sql_name(name)} login;" for name in USERS))
    in_order = sorted((*USERS, "mary", "public"), key=str.encode)
    assert pages.user_chooser(in_order, "mary") in press(visitor, "rights_refresh")


@pytest.mark.parametrize("name", TOO_LONG)
def test_a_name_that_is_too_long_is_no_new_user(accounts, visitor, name):
    before = names(accounts)
    insert(visitor, name)
    assert names(accounts) == before


@pytest.mark.parametrize("name", TOO_LONG)
def test_a_name_that_is_too_long_does_not_reach_the_user_of_the_cut_name(tables, visitor, name):
    cut = name.encode()[:63].decode(errors="ignore")
    tables.as_administrator(
        f"create role {sql_name(cut)} login password 'apple'; grant select on public.stock to {sql_name(cut)}"
    )
    for button in ("rights_grant", "rights_revoke", "submit_selection"):
        press(visitor, button, ["accounts.public.stock_delete"], user=name)
        assert tables.held(cut) == {"public.stock": {"select"}}
    posted = [(f"{name}_checkbox", "OFF"), (f"{name}_password", "x")]
    visitor.page([("users_refresh", ""), *posted, ("submit_users", "pressed")])
    insert(visitor, name, password="x")
    assert tables.try_as(cut, "apple", "").returncode == 0


def test_a_statement_of_ones_own_does_not_reach_the_user_of_the_cut_name_either(accounts, through_adapter):
    accounts.as_administrator(f"create table one (id int); create role {LONGEST} login password 'apple'")
    name = LONGEST + "x"
    errors = through_adapter(
        f"insert into nordvale.system.user values ('{name}', '', '')",
        f"update nordvale.system.user set password = 'x' where username = '{name}'",
        f"delete from nordvale.system.user where username = '{name}'",
        f'grant all on "accounts"."public"."one" to "{name}"',
        f'revoke all on "accounts"."public"."one" from {name}',
    )
    assert [error is not None for error in errors] == [True, False, False, True, True]
    assert "a user name has at most 63 bytes" in errors[0]
    assert accounts.try_as(LONGEST, "apple", "").returncode == 0


def test_a_table_name_that_is_too_long_does_not_reach_the_table_of_the_cut_name(accounts, through_adapter):
    accounts.as_administrator(f"create table {LONGEST} (id int)")
    (error,) = through_adapter(f'grant all on "accounts"."public"."{LONGEST}x" to "mary"')
    assert "there is no table" in error
    assert accounts.held("mary") == {}


def test_names_that_mean_no_table_are_errors(accounts, through_adapter):
    accounts.as_administrator("create table one (id int)")
    for table in (
        '"accounts"."public"."One"',
        '"Accounts"."public"."one"',
        '"x"."public"."one"',
        '"accounts"."public"."two"',
        '"accounts"."tabwarden"."turn"',
        '"accounts"."pg_catalog"."pg_authid"',
        '"accounts"."information_schema"."tables"',
    ):
        (error,) = through_adapter(f'grant select on {table} to "mary"')
        assert f"there is no table {table}" in error


@pytest.mark.parametrize(
    "name", ["my data", "Accounts", 'the "best"', "it's", "a.b", "größe", "d" * 63, "select", "a-b", "back\\slash"]
)
def test_databases_of_any_name(own_server, visitor, make_database, name):
    make_database(name, "template prepared")
    list_sources(own_server, source={"Database": name})
    database = Database(own_server, name)
    database.as_administrator("create table one (id int); create schema store; create table store.stock (id int)")
    database.as_administrator(f"revoke connect on database {sql_name(name)} from public")
    shown = visitor.page([("rights_refresh", ""), ("isamuser", "mary"), ("rights_grant", "pressed")], source="source")
    privileges = {"grantor": "admin", "grantee": "mary"}
    assert pages.rights_row((name, "public", "one"), pages.PRIVILEGES, **privileges) in shown
    assert pages.rights_row((name, "store", "stock"), pages.PRIVILEGES, **privileges) in shown
    assert database.states("mary", "lamb", "select from store.stock") == ["00000"]


SCHEMAS = [f"s{number}" for number in range(10)]


@pytest.fixture
def thousand(accounts):
    """1,000 tables in the order of their names, which is neither that in which they were made nor that without schemas."""
    accounts.as_administrator(
        "".join(f"create schema {schema};" for schema in SCHEMAS)
        + "do $$ begin for n in reverse 999..0 loop"
        "  execute format('create table %I.%I (id int)', 's' || 9 - n % 10, 't' || n + 1000);"
        " end loop; end $$"
    )
    return [(schema, f"t{1000 + 10 * ten + 9 - at}") for at, schema in enumerate(SCHEMAS) for ten in range(100)]


def rows_of(tables, privileges):
    return "".join(
        pages.rights_row(("accounts", *table), privileges, grantor="admin", grantee="mary") for table in tables
    )


def test_a_thousand_tables_are_listed_and_granted(accounts, visitor, thousand):
    assert rows_of(thousand, pages.PRIVILEGES) in press(visitor, "rights_grant")
    assert accounts.held("mary") == {f"{schema}.{table}": ALL for schema, table in thousand}


def test_a_thousand_tables_are_submitted(accounts, visitor, thousand):
    press(visitor, "submit_selection", ["accounts.s9.t1000_select", "accounts.s0.t1999_delete"])
    assert accounts.held("mary") == {"s9.t1000": {"select"}, "s0.t1999": {"delete"}}


@pytest.mark.parametrize("setting", ["work_mem = '64kB'", "enable_hashjoin = off", "enable_mergejoin = off"])
def test_both_lists_of_tables_are_in_the_same_order(accounts, visitor, table_list, thousand, setting):
    """The one that the page shows and the one that its buttons go through, however PostgreSQL comes by them."""
    accounts.as_superuser(
        f"alter database accounts set {setting}; analyze;"
        + "".join(f"grant select, update on all tables in schema {schema} to mary;" for schema in SCHEMAS)
    )
    assert table_list() == [("accounts", *table) for table in thousand]
    assert rows_of(thousand, ("select", "update")) in press(visitor, "rights_refresh")
