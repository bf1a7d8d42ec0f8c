"""Databases with settings, encodings and orders of their own."""

import pytest

from support import pages
from support.forms import form, press
from support.postgresql_database import ALL, list_sources
from support.sample import Visitor

# What a database may be set to, or its administrator.
SETTINGS = (
    "standard_conforming_strings = off",
    "backslash_quote = on",
    "escape_string_warning = off",
    "search_path = 'no such schema'",
    "search_path = ''",
    "client_encoding = 'LATIN1'",
    "default_transaction_isolation = 'serializable'",
    "lock_timeout = 1000",
    "row_security = off",
    "lc_messages = 'C'",
    "DateStyle = 'German'",
    "transform_null_equals = on",
    "client_min_messages = 'debug1'",
    "quote_all_identifiers = on",
    "bytea_output = 'escape'",
    "plpgsql.variable_conflict = 'use_column'",
    "plpgsql.extra_errors = 'all'",
    "check_function_bodies = off",
    "default_toast_compression = 'pglz'",
)
ODD = "back\\slash it''s ünï"


def use(visitor, database, name="accounts", user="Größe \\ one"):
    """One round through the pages with names and values of every kind."""
    database.as_administrator('create schema "Ü \\"; create table "Ü \\"."T\\" (id int)')
    inserted = [("__newuser", user), ("__newfile", ODD), ("__newpass", "a\\")]
    shown = visitor.page([("users_refresh", ""), *inserted, ("submit_users", "pressed")], source=name)
    assert pages.user_row(user, ODD, "") in shown
    shown = visitor.page([("rights_refresh", ""), ("isamuser", user), ("rights_grant", "pressed")], source=name)
    assert pages.rights_row((name, "Ü \\", "T\\"), pages.PRIVILEGES, grantor="admin", grantee=user) in shown
    assert database.held(user) == {"Ü \\.T\\": ALL}
    assert database.states(user, "a\\", 'select from "Ü \\"."T\\"') == ["00000"]


@pytest.mark.parametrize("whose", ["database accounts", "role admin"])
def test_settings_of_the_database_or_the_administrator_change_nothing(accounts, visitor, whose):
    for setting in SETTINGS:
        accounts.as_superuser(f"alter {whose} set {setting}")
    use(visitor, accounts)


@pytest.mark.parametrize(
    "environment",
    [
        {"LC_ALL": "C"},
        {"LC_ALL": "de_DE.ISO-8859-1"},
        {"LC_ALL": "C.UTF-8"},
        {"PGCLIENTENCODING": "LATIN1"},
        {"PGCLIENTENCODING": "SQL_ASCII"},
        {"PGOPTIONS": "-c client_encoding=LATIN1 -c standard_conforming_strings=off"},
    ],
)
def test_the_environment_of_the_program_changes_nothing(accounts, start_server, environment):
    use(Visitor(start_server(**environment), None), accounts)


def test_backslashes_escape_nothing_where_the_database_says_so(accounts, visitor):
    accounts.as_superuser("alter database accounts set standard_conforming_strings = off")
    trick = "\\'; create table public.pwned(); --"
    visitor.page(form([("mary_file", trick), ("mary_password", trick)]))
    press(visitor, "rights_grant", user=trick)
    assert accounts.as_superuser("select shobj_description('mary'::regrole, 'pg_authid')") == [trick]
    assert accounts.as_superuser("select relname from pg_class where relname = 'pwned'") == []


@pytest.mark.parametrize(
    "settings",
    [
        "encoding 'SQL_ASCII' locale 'C'",
        "encoding 'UTF8' locale_provider icu icu_locale 'de-u-co-phonebk'",
        "encoding 'UTF8' locale 'POSIX'",
    ],
)
def test_encodings_and_orders(own_server, visitor, make_database, settings):
    database = make_database("other", f"{settings} template template0")
    database.install()
    list_sources(own_server, other={})
    use(visitor, database, "other")


@pytest.fixture
def latin(own_server, make_database):
    database = make_database("latin", "encoding 'LATIN1' locale 'C' template template0")
    database.install()
    list_sources(own_server, latin={})
    return database


def test_a_latin_database(latin, visitor):
    use(visitor, latin, "latin", user="plain")


def test_a_latin_database_makes_no_user_and_no_password_that_would_be_another_elsewhere(latin, visitor):
    def submit(*fields):
        return visitor.page([("users_refresh", ""), *fields, ("submit_users", "pressed")], source="latin")

    assert "Größe" not in submit(("__newuser", "Größe"), ("__newpass", "x"))
    assert "秘密" not in submit(("__newuser", "秘密"), ("__newpass", "x"))
    assert "eve_file" not in submit(("__newuser", "eve"), ("__newpass", "ünï"))
    submit(("mary_password", "ünï"), ("admin_password", "ünï"))
    assert latin.try_as("mary", "lamb", "").returncode == 0
    assert pages.administrator_row("admin", "Größe") in submit(("admin_file", "Größe"))


def test_lists_are_in_the_order_of_bytes_whatever_the_databases_own(own_server, visitor, make_database):
    database = make_database("icu", "encoding 'UTF8' locale_provider icu icu_locale 'de' template template0")
    database.install()
    list_sources(own_server, icu={})
    names = ("Zoe", "abe", "ärger", "zoe")
    database.as_administrator("".join(f'create role "{name}" login; create table "{name}" ();' for name in names))
    listed = visitor.page([("users.x", "1")], source="icu")
    rows = [pages.user_row(name, "", "") for name in ("Zoe", "abe", "mary", "zoe", "ärger")]
    assert rows[0] in listed and [listed.index(row) for row in rows] == sorted(listed.index(row) for row in rows)
    listed = visitor.page([("rights_refresh", ""), ("isamuser", "mary")], source="icu")
    assert "".join(pages.rights_row(("icu", "public", name)) for name in ("Zoe", "abe", "zoe", "ärger")) in listed


def test_default_privileges_of_everything_to_everybody_give_nobody_more_than_before(accounts, visitor):
    for kind in ("schemas", "tables", "routines", "types", "sequences"):
        accounts.as_administrator(f"alter default privileges grant all on {kind} to public")
    use(visitor, accounts)
    assert accounts.states("mary", "lamb", "select from tabwarden.user", "select tabwarden.tables()") == 2 * ["42501"]
