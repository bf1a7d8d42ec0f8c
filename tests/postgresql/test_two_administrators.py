"""Two administrators at once, each with a server of its own: everything that either asked for is done."""

from concurrent.futures import ThreadPoolExecutor

import pytest

from support.forms import form, press
from support.postgresql_database import ALL
from support.sample import Visitor
from support.server import wait_until

SCHEMAS = [f"s{number:02}" for number in range(20)]


@pytest.fixture(scope="module")
def servers(start_server):
    return start_server(), start_server()


@pytest.fixture
def at_once(servers, accounts):
    """Both do something at the same time."""
    visitors = [Visitor(server, None) for server in servers]

    def run(one, other):
        with ThreadPoolExecutor(2) as pool:
            list(pool.map(lambda act, visitor: act(visitor), (one, other), visitors))

    return run


@pytest.fixture
def tables(accounts):
    accounts.as_superuser("create role bob login; create role warehouse")
    accounts.as_administrator(
        "revoke connect on database accounts from public;"
        + "".join(f"create schema {schema}; create table {schema}.stock (id int);" for schema in SCHEMAS)
    )
    return accounts


@pytest.fixture
def while_unfinished(accounts, servers):
    """Lets a visitor do something that has to wait for what another administrator has done and not committed."""

    def run(statement, act):
        with accounts.session() as session, ThreadPoolExecutor(1) as pool:
            session.do("begin;" + statement)
            done = pool.submit(act, Visitor(servers[0], None))
            wait_until(lambda: accounts.as_superuser("select 1 from pg_stat_activity where wait_event_type = 'Lock'"))
            session.do("commit;")
            done.result()

    return run


@pytest.fixture
def errors(own_server):
    """The server's log since the test began."""
    log = own_server.folder / "log"
    before = log.stat().st_size
    return lambda: log.read_bytes()[before:].decode()


def everywhere(privileges):
    return {f"{schema}.stock": privileges for schema in SCHEMAS}


def test_everything_is_granted(tables, at_once, errors):
    at_once(
        lambda visitor: press(visitor, "rights_grant", user="mary"),
        lambda visitor: press(visitor, "rights_grant", user="bob"),
    )
    assert tables.held("mary") == tables.held("bob") == everywhere(ALL)
    assert "ERROR" not in errors()


def test_one_takes_back_what_the_other_does_not_touch(tables, at_once, errors):
    tables.as_administrator("".join(f"grant all on {schema}.stock to bob;" for schema in SCHEMAS))
    boxes = [f"accounts.{schema}.stock_select" for schema in SCHEMAS]
    at_once(
        lambda visitor: press(visitor, "submit_selection", boxes, user="mary"),
        lambda visitor: press(visitor, "rights_revoke", user="bob"),
    )
    assert tables.held("mary") == everywhere({"select"})
    assert tables.held("bob") == {}
    assert "ERROR" not in errors()


def test_a_user_is_deleted_while_the_other_gets_everything(tables, at_once, errors):
    tables.as_administrator("".join(f"grant all on {schema}.stock to bob;" for schema in SCHEMAS))
    at_once(
        lambda visitor: press(visitor, "rights_grant", user="mary"),
        lambda visitor: visitor.page([("users_refresh", ""), ("bob_checkbox", "OFF"), ("submit_users", "Submit")]),
    )
    assert tables.held("mary") == everywhere(ALL)
    assert tables.as_superuser("select 1 from pg_roles where rolname = 'bob'") == []


def test_the_way_to_a_table_is_opened_for_two_users_at_once(tables, while_unfinished):
    while_unfinished(
        """call tabwarden.change_privilege('grant', 'all', '"accounts"."s00"."stock"', '"bob"');""",
        lambda visitor: press(visitor, "rights_grant", user="mary"),
    )
    assert tables.held("mary") == everywhere(ALL)
    for schema in SCHEMAS:
        assert tables.as_superuser(f"select has_schema_privilege('mary', '{schema}', 'usage')") == ["t"]


@pytest.mark.parametrize(
    "button, privileges", [("rights_grant", ALL), ("rights_revoke", None), ("submit_selection", None)]
)
@pytest.mark.parametrize("verb", ["grant", "revoke"])
def test_rights_on_a_table_are_changed_behind_those_of_another_user(tables, while_unfinished, verb, button, privileges):
    tables.as_administrator(
        "".join(
            f"grant usage on schema {schema} to mary, bob; grant select on {schema}.stock to mary, bob;"
            for schema in SCHEMAS
        )
        + "grant connect on database accounts to mary, bob"
    )
    while_unfinished(
        f"""call tabwarden.change_privilege('{verb}', 'all', '"accounts"."s00"."stock"', '"bob"');""",
        lambda visitor: press(visitor, button, user="mary"),
    )
    assert tables.held("mary") == (everywhere(privileges) if privileges else {})
    assert tables.held("bob").get("s00.stock") == (ALL if verb == "grant" else None)


@pytest.mark.parametrize("first", ["password = 'first'", "description = 'first'"])
@pytest.mark.parametrize("second", ["mary_password", "mary_file", "mary_checkbox"])
def test_a_user_whom_another_administrator_changes_is_changed_behind_that(accounts, while_unfinished, first, second):
    while_unfinished(
        f"update tabwarden.user set {first} where username = 'mary';",
        lambda visitor: visitor.page([("users_refresh", ""), (second, "second"), ("submit_users", "Submit")]),
    )
    users = accounts.as_superuser("select shobj_description(oid, 'pg_authid') from pg_roles where rolname = 'mary'")
    if second == "mary_checkbox":
        assert users == []
    elif second == "mary_file":
        assert users == ["second"]
    else:
        assert accounts.try_as("mary", "second", "").returncode == 0
