"""What the deletion of a user leaves behind."""

import pytest

from support.postgresql_database import Database
from support.source import ADMINISTRATOR


@pytest.fixture
def delete_mary(visitor):
    return lambda: visitor.page([("users_refresh", ""), ("mary_checkbox", "OFF"), ("submit_users", "Submit")])


@pytest.fixture
def tables(accounts):
    accounts.as_administrator(
        "create schema store; create table store.stock (id int); create table one (id int); create table two (id int);"
    )
    return accounts


def mary(database):
    """Whether mary may log in; None if there is no such role."""
    states = database.as_superuser("select rolcanlogin from pg_roles where rolname = 'mary'")
    return states[0] == "t" if states else None


def may(database, *statements):
    """Whether each statement is allowed to mary, who may be without log-in."""
    script = "".join(f"set role mary;{statement}\n\\g /dev/null\n\\echo :SQLSTATE\n" for statement in statements)
    return [state == "00000" for state in database.try_as("postgres", database.server.password, script).stdout.split()]


def test_a_user_with_everything_that_the_pages_grant_is_gone(tables, button, delete_mary):
    tables.as_administrator("revoke connect on database accounts from public")
    button("rights_grant")
    delete_mary()
    assert mary(tables) is None


def test_a_user_with_further_rights_on_tables_is_gone(tables, delete_mary):
    tables.as_administrator(
        "grant all on one to mary with grant option; grant usage on schema store to mary with grant option;"
        "grant connect on database accounts to mary with grant option"
    )
    delete_mary()
    assert mary(tables) is None


def test_an_owner_of_a_table_keeps_it_and_loses_the_rest(tables, button, delete_mary):
    tables.as_superuser("create table mine (id int); alter table mine owner to mary")
    button("submit_selection", ["public.one_select", "store.stock_select"])
    assert may(tables, "select from one", "select from store.stock") == [True, True]
    delete_mary()
    assert mary(tables) is False
    assert tables.held("mary") == {}
    assert tables.as_superuser("select has_schema_privilege('mary', 'store', 'usage')") == ["f"]
    assert may(tables, "select from mine", "select from one", "select from store.stock") == [True, False, False]


def test_who_has_handed_a_right_on_keeps_that_right_and_loses_the_rest(tables, delete_mary):
    tables.as_superuser("create role bob login")
    tables.as_administrator(
        "grant select on one, store.stock to mary; grant select, insert on two to mary with grant option"
    )
    tables.as_superuser("set role mary; grant select on two to bob")
    delete_mary()
    assert mary(tables) is False
    assert tables.held("mary") == {"public.two": {"select"}}
    assert tables.held("bob") == {"public.two": {"select"}}


def test_rights_in_another_database_are_left_alone(tables, make_database, delete_mary):
    branch = make_database("branch")
    branch.as_administrator("create table other (id int); grant select on other to mary")
    tables.as_administrator("grant select on one to mary")
    delete_mary()
    assert mary(tables) is False
    assert tables.held("mary") == {}
    assert branch.held("mary") == {"public.other": {"select"}}


def test_a_right_on_what_the_pages_do_not_show_keeps_the_role(tables, delete_mary):
    tables.as_administrator(
        "create sequence numbers; grant usage on sequence numbers to mary; grant all on one to mary"
    )
    delete_mary()
    assert mary(tables) is False
    assert tables.held("mary") == {"public.numbers": {"usage"}}


def test_a_table_of_another_role_does_not_keep_what_can_be_taken_back(tables, delete_mary):
    tables.as_superuser(
        "create role warehouse; create table three (id int); alter table three owner to warehouse;"
        "grant select on three to mary"
    )
    tables.as_administrator("grant select on one, two to mary")
    delete_mary()
    assert mary(tables) is False
    assert tables.held("mary") == {"public.three": {"select"}}


def test_what_the_administrator_has_handed_on_is_taken_back(tables, button, delete_mary):
    tables.as_superuser(
        "create role warehouse; create schema hall authorization warehouse; create table hall.three (id int);"
        "alter table hall.three owner to warehouse; grant select on hall.three to admin with grant option;"
        "grant usage on schema hall to admin with grant option"
    )
    button("submit_selection", ["hall.three_select"])
    assert tables.held("mary") == {"hall.three": {"select"}}
    delete_mary()
    assert mary(tables) is None


def test_who_is_logged_in_has_no_rights_from_then_on(tables, button, delete_mary):
    button("rights_grant")
    with tables.session("mary", "lamb") as session:
        session.do("select from one;")
        delete_mary()
        assert mary(tables) is None
        with pytest.raises(AssertionError):
            session.do("select from one;")


def test_who_is_no_longer_listed_cannot_log_in_and_cannot_be_made_again(tables, visitor, delete_mary):
    tables.as_superuser("create table mine (id int); alter table mine owner to mary")
    delete_mary()
    assert tables.try_as("mary", "lamb", "").returncode == 2
    assert "mary_" not in visitor.page([("users.x", "1")])
    visitor.page([("users_refresh", ""), ("__newuser", "mary"), ("__newpass", "lamb"), ("submit_users", "Submit")])
    assert mary(tables) is False


def test_the_administrator_is_not_deleted(tables, visitor, through_adapter):
    visitor.page([("users_refresh", ""), (f"{ADMINISTRATOR}_checkbox", "OFF"), ("submit_users", "Submit")])
    (error,) = through_adapter(f"delete from nordvale.system.user where username = '{ADMINISTRATOR}'")
    assert "the owner of the database is not deleted here" in error
    assert tables.as_administrator("select 1") == ["1"]


def test_users_are_the_servers_and_rights_the_databases(tables, make_database, own_server, through_adapter):
    branch = make_database("branch", "template prepared")
    assert through_adapter(
        "insert into nordvale.system.user values ('bob', 'Bob B.', 'builder')",
        'grant all on "accounts"."public"."one" to "bob"',
    ) == [None, None]
    assert branch.as_administrator("select description from tabwarden.user where username = 'bob'") == ["Bob B."]
    assert branch.held("bob") == {}
    assert Database(own_server, "accounts").held("bob") == {"public.one": {"select", "insert", "update", "delete"}}
    (error,) = through_adapter('grant all on "branch"."public"."one" to "bob"')
    assert 'there is no table "branch"."public"."one"' in error
