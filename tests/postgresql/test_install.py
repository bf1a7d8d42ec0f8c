"""What install.sql adds to a database, what remove.sql takes away, and what stops either."""

import pytest

from support.postgresql import INSTALL, REMOVE
from support.source import ADMINISTRATOR, PASSWORD

# Everything that a script can change, without what the server counts about tables.
CATALOGS = {
    "pg_class": ("relpages", "reltuples", "relallvisible", "relfrozenxid", "relminmxid", "relhastriggers"),
    "pg_database": ("datfrozenxid", "datminmxid"),
    **dict.fromkeys(
        "pg_attribute pg_auth_members pg_authid pg_constraint pg_default_acl pg_depend pg_description pg_init_privs"
        " pg_namespace pg_proc pg_rewrite pg_seclabel pg_shdepend pg_shdescription pg_db_role_setting pg_trigger"
        " pg_type pg_operator pg_cast pg_event_trigger pg_extension".split(),
        (),
    ),
}


@pytest.fixture
def catalog(empty):
    """All rows of the catalogs, as a script must leave them."""

    script = "".join(
        f"select '{name}', to_jsonb(c) - '{{{','.join(without)}}}'::text[] from {name} c;"
        for name, without in CATALOGS.items()
    )

    def rows():
        return set(empty.as_superuser(script))

    return rows


@pytest.fixture
def empty(make_database):
    """A database in which install.sql has not been run, with a table of the users."""
    database = make_database("empty")
    database.as_administrator("create schema store; create table store.stock (id int)")
    return database


def run(database, script, user=ADMINISTRATOR, password=PASSWORD):
    """psql's result; the scripts stop at errors by themselves."""
    return database.try_as(user, password, script)


def test_what_was_installed_is_removed_to_the_last_row(empty, catalog):
    before = catalog()
    assert run(empty, INSTALL).returncode == 0
    assert catalog() != before
    assert run(empty, REMOVE).returncode == 0
    assert catalog() == before


def test_what_was_removed_can_be_installed_again(empty):
    assert [run(empty, script).returncode for script in (INSTALL, REMOVE, INSTALL)] == [0, 0, 0]


def test_users_and_rights_outlive_the_removal(empty, own_server):
    assert run(empty, INSTALL).returncode == 0
    empty.as_administrator(
        "insert into tabwarden.user values ('bob', 'Bob B.', 'builder');"
        """call tabwarden.change_privilege('grant', 'all', '"empty"."store"."stock"', '"bob"')"""
    )
    assert run(empty, REMOVE).returncode == 0
    assert empty.states("bob", "builder", "select from store.stock", "delete from store.stock") == 2 * ["00000"]
    assert empty.as_superuser("select shobj_description('bob'::regrole, 'pg_authid')") == ["Bob B."]


def test_nobody_but_the_owner_installs(empty, own_server, catalog):
    empty.as_superuser(
        "grant create on database empty to mary; create role other login createrole password 'x'; grant admin to other"
    )
    before = catalog()
    for user, password in (("mary", "lamb"), ("other", "x"), ("postgres", own_server.password)):
        result = run(empty, INSTALL, user, password)
        assert result.returncode == 3
        assert "install.sql is run by the owner of the database, admin" in result.stderr
    assert catalog() == before


def test_it_is_not_installed_twice(empty, catalog):
    assert run(empty, INSTALL).returncode == 0
    before = catalog()
    result = run(empty, INSTALL)
    assert result.returncode == 3 and 'schema "tabwarden" already exists' in result.stderr
    assert catalog() == before


def test_it_is_not_installed_into_somebody_elses_schema(empty, catalog):
    empty.as_superuser("create schema tabwarden authorization mary")
    before = catalog()
    assert run(empty, INSTALL).returncode == 3
    assert catalog() == before


FOREIGN = {
    "table tabwarden.mine": "(id int)",
    "view tabwarden.mine": "as select 1",
    "function tabwarden.mine()": "returns int language sql as 'select 1'",
    "function tabwarden.tables(int)": "returns int language sql as 'select 1'",
    "procedure tabwarden.change_privilege(int)": "language sql as 'select 1'",
    "type tabwarden.mine": "as enum ('a')",
    "sequence tabwarden.mine": "",
    "view public.mine": "as select * from tabwarden.user",
    "view store.mine": "as select * from tabwarden.tables()",
}


def test_a_foreign_object_stops_the_removal(empty, catalog):
    assert run(empty, INSTALL).returncode == 0
    for name, definition in FOREIGN.items():
        empty.as_administrator(f"create {name} {definition}")
        before = catalog()
        assert run(empty, REMOVE).returncode == 3, name
        assert catalog() == before, name
        empty.as_administrator(f"drop {name}")


def test_nobody_but_the_owner_removes(empty, catalog):
    assert run(empty, INSTALL).returncode == 0
    before = catalog()
    assert run(empty, REMOVE, "mary", "lamb").returncode == 3
    assert catalog() == before


def test_there_is_nothing_to_remove_where_nothing_was_installed(empty, catalog):
    before = catalog()
    assert run(empty, REMOVE).returncode == 3
    assert catalog() == before


def rights_of_others(database):
    """What anybody but the owner may do with the schema and what is in it."""
    return database.as_superuser(
        "select o.name, pg_get_userbyid(a.grantee), a.privilege_type from ("
        "  select nspname::text, nspacl, 'n'::\"char\", nspowner from pg_namespace where nspname = 'tabwarden'"
        "  union all select relname, relacl, 'r', relowner from pg_class where relnamespace = 'tabwarden'::regnamespace"
        "  union all select proname, proacl, 'f', proowner from pg_proc where pronamespace = 'tabwarden'::regnamespace"
        ") o (name, acl, kind, owner), aclexplode(coalesce(o.acl, acldefault(o.kind, o.owner))) a"
        " where a.grantee <> o.owner"
    )


@pytest.mark.parametrize("grantee", ["public", 'mary, "Mary ""Ann"""', "mary with grant option"])
def test_default_privileges_open_nothing_of_the_schema(empty, grantee):
    empty.as_administrator(
        'create role "Mary ""Ann""";'
        + "".join(
            f"alter default privileges grant all on {kind} to {grantee};"
            for kind in ("schemas", "tables", "routines", "types")
        )
    )
    assert run(empty, INSTALL).returncode == 0
    assert rights_of_others(empty) == []
    assert empty.states("mary", "lamb", "select from tabwarden.user", "select tabwarden.tables()") == 2 * ["42501"]


# Better for what install.sql calls than PostgreSQL's own, which take other types or what has to be converted.
TRAPS = """
create function public.trap(oid, int) returns bool language sql as 'select true';
create function public.trap(name, text) returns bool language sql as 'select true';
create function public.trap(name, name) returns bool language sql as 'select true';
create function public.trap(text, text) returns bool language sql as 'select true';
create function public.strpos(name, text) returns int language sql as 'select 0';
create function public.acldefault(text, oid) returns aclitem[] language sql as 'select null::aclitem[]';
create function public.pg_get_userbyid(oid) returns name language sql as 'select ''mary''::name';
create function public.current_database() returns name language sql as 'select ''mary''::name';
create operator public.= (leftarg = oid, rightarg = int, function = public.trap);
create operator public.>= (leftarg = oid, rightarg = int, function = public.trap);
create operator public.!~ (leftarg = name, rightarg = text, function = public.trap);
create operator public.!~ (leftarg = name, rightarg = name, function = public.trap);
create operator public.= (leftarg = name, rightarg = name, function = public.trap);
create operator public.= (leftarg = text, rightarg = text, function = public.trap);
create operator public.<> (leftarg = name, rightarg = name, function = public.trap);
create table public.pg_class (); create table public.pg_roles (); create table public.pg_database ();
"""


@pytest.mark.parametrize("path", ["public", "public, pg_catalog"])
def test_nothing_of_the_users_is_bound_into_the_schema(empty, path):
    empty.as_superuser(f"grant create on schema public to mary; alter database empty set search_path = {path}")
    assert empty.try_as("mary", "lamb", TRAPS).stderr == ""
    assert run(empty, INSTALL).returncode == 0
    bound = empty.as_superuser(
        "set search_path = pg_catalog; select distinct pg_describe_object(d.refclassid, d.refobjid, d.refobjsubid)"
        " from pg_depend d, pg_identify_object(d.refclassid, d.refobjid, d.refobjsubid) o"
        " where o.schema = 'public' and d.classid = 'pg_rewrite'::regclass"
    )
    assert bound == []
    assert run(empty, REMOVE).returncode == 0
