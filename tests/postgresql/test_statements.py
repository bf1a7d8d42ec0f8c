"""One text is one statement, whatever is typed or posted: PostgreSQL would run all that stand in it."""

import pytest

from support.forms import form, press
from support.kinds import sql_name

SECOND = "create table if not exists public.pwned()"

ENDS = (
    f"'; {SECOND}; --",
    f"''; {SECOND}; --",
    f"\\'; {SECOND}; --",
    f"\\\\'; {SECOND}; --",
    f'"; {SECOND}; --',
    f"$$; {SECOND}; --",
    f"*/; {SECOND}; --",
    f"\n; {SECOND}; --",
    f"\r'; {SECOND}; --",
    f"}}'; {SECOND}; --",
    f"?'; {SECOND}; --",
    f"'); {SECOND}; --",
    f"') or (1=1); {SECOND}; --",
    f"\u02bc; {SECOND}; --",
    f"\uff07; {SECOND}; --",
    f"\udcbf'; {SECOND}; --",
    f"\udcc3'; {SECOND}; --",
)

# The user of the rights page stands as it is in four places of one query. In PostgreSQL's eyes the backslash escapes the
# quote behind it, as the text begins in E'a': what follows is in quotes the one time and a statement the other.
IN_PIECES = (
    "x' or ''<E'a'\n'\\'||', tabwarden.tableprv c, tabwarden.tableprv d, tabwarden.tableprv e; "
    "create table public.pwned(); commit; select from tabwarden.table a join tabwarden.table b on a.catalog=--"
)

SIGNS = ("a?b", "{fn x}", "{d '2000-01-01'}", "a\\", "a\\'b", "?", "$1", ":x", "%s", "--", "/*", "a;b")


@pytest.fixture
def pwned(accounts):
    accounts.as_administrator("create table one (id int)")
    return lambda: accounts.as_superuser("select relname from pg_class where relname = 'pwned'") != []


@pytest.mark.parametrize("button", ["rights_refresh", "rights_grant", "rights_revoke", "submit_selection"])
def test_the_chosen_user_begins_no_second_statement(visitor, pwned, button):
    for end in (*ENDS, IN_PIECES):
        press(visitor, button, ["accounts.public.one_select"], user=end)
    assert not pwned()


def test_a_user_form_begins_no_second_statement(visitor, pwned):
    for end in ENDS:
        visitor.post(form([(field, end) for field in ("mary_file", "mary_password", "admin_file")]))
        visitor.post(form([("__newuser", "eve"), ("__newfile", end), ("__newpass", end)]))
        visitor.post(form([("__newuser", end)]))
    assert not pwned()


def test_names_begin_no_second_statement(visitor, accounts, pwned):
    """On their way from the catalog into the pages' statements."""
    for name in {sql_name(end.encode(errors="surrogateescape").decode(errors="replace")) for end in ENDS}:
        accounts.as_superuser(f"create role {name} login; create schema {name}; create table {name}.{name} (id int)")
    for button in ("rights_refresh", "rights_grant", "rights_revoke", "submit_selection"):
        press(visitor, button, user="mary")
    visitor.post(form([(f"{end}_file", "changed") for end in ENDS]))
    assert not pwned()


def test_several_statements_are_refused_with_their_own_state(through_adapter, pwned):
    (error,) = through_adapter(f"select 1; {SECOND}")
    assert error.startswith("[42601] ERROR: one statement at a time;")
    assert not pwned()


def test_signs_of_odbc_and_sql_in_names_are_plain_letters(accounts, through_adapter):
    for name in SIGNS:
        accounts.as_administrator(f"create table {sql_name(name)} (id int)")
    grants = [f'grant select on "accounts"."public".{sql_name(name)} to "mary"' for name in SIGNS]
    assert through_adapter(*grants) == [None] * len(SIGNS)
    assert accounts.held("mary") == {f"public.{name}": {"select"} for name in SIGNS}


def test_signs_of_odbc_and_sql_in_values_are_plain_letters(accounts, visitor):
    for value in SIGNS:
        visitor.page(form([("mary_file", value), ("mary_password", value)]))
        assert accounts.as_superuser("select shobj_description('mary'::regrole, 'pg_authid')") == [value]
        assert accounts.try_as("mary", value, "").returncode == 0
