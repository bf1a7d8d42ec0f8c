"""What becomes of grants that PostgreSQL refuses, or seems to take."""

import pytest
from support import pages
from support.postgresql_database import ALL

TABLES = "create table one (id int); create table three (id int); create table two (id int);"


@pytest.fixture
def tables(accounts):
    """Three tables in name order; "three" is another role's."""
    accounts.as_administrator(TABLES)
    accounts.as_superuser("create role warehouse; alter table three owner to warehouse")
    return accounts


def test_a_list_goes_on_behind_a_table_of_another_role(tables, button):
    button("submit_selection", ["public.one_select", "public.three_select", "public.two_delete"])
    assert tables.held("mary") == {"public.one": {"select"}, "public.two": {"delete"}}


def test_grant_all_stops_at_a_table_of_another_role(tables, button):
    button("rights_grant")
    assert tables.held("mary") == {"public.one": ALL}


def test_revoke_all_stops_at_a_table_of_another_role(tables, button):
    tables.as_superuser("grant select on one, two, three to mary")
    button("rights_revoke")
    assert tables.held("mary") == {"public.three": {"select"}, "public.two": {"select"}}


def test_a_table_of_another_role_on_which_nothing_is_held_does_not_stop_revoke_all(tables, button):
    tables.as_superuser("grant select on one, two to mary")
    button("rights_revoke")
    assert tables.held("mary") == {}


def test_a_right_that_cannot_be_handed_on_is_an_error(tables, through_adapter):
    tables.as_superuser("grant select on three to admin")
    (error,) = through_adapter('grant select on "accounts"."public"."three" to "mary"')
    assert 'no right to grant on "accounts"."public"."three"' in error
    assert tables.held("mary") == {}


def test_grant_all_stops_where_only_some_rights_can_be_handed_on(tables, button):
    tables.as_superuser("grant select on three to admin with grant option; grant insert on three to admin")
    button("rights_grant")
    assert tables.held("mary") == {"public.one": ALL}


def test_a_right_that_can_be_handed_on_is_granted_and_taken_back(tables, button):
    tables.as_superuser("grant select on three to admin with grant option")
    button("submit_selection", ["public.three_select"])
    assert tables.held("mary") == {"public.three": {"select"}}
    button("submit_selection")
    assert tables.held("mary") == {}


def test_a_schema_of_another_role_stays_closed_and_the_table_in_it_with_it(tables, through_adapter):
    tables.as_superuser(
        "create schema store authorization warehouse; create table store.stock (id int);"
        "grant usage on schema store to admin; grant select on store.stock to admin with grant option"
    )
    (error,) = through_adapter('grant select on "accounts"."store"."stock" to "mary"')
    assert "no right to grant" in error
    assert tables.held("mary") == {}


def test_the_way_to_a_table_is_opened_with_it(accounts, button):
    accounts.as_administrator(
        "create schema store; create table store.stock (id int); revoke connect on database accounts from public"
    )
    assert accounts.try_as("mary", "lamb", "").returncode == 2
    button("submit_selection", ["store.stock_select"])
    assert accounts.states("mary", "lamb", "select from store.stock") == ["00000"]


def test_everybody_is_not_let_into_a_closed_database(accounts, button):
    accounts.as_administrator("create table one (id int); revoke connect on database accounts from public")
    button("rights_grant", user="public")
    assert accounts.as_superuser("select has_table_privilege('mary', 'one', 'select')") == ["t"]
    assert accounts.try_as("mary", "lamb", "").returncode == 2


@pytest.mark.parametrize("grantee", ["current_user", "session_user", "current_role"])
def test_a_role_named_like_a_word_for_the_administrator_is_not_the_administrator(accounts, through_adapter, grantee):
    accounts.as_superuser(
        f'create role "{grantee}" login; create role warehouse; create table one (id int);'
        "alter table one owner to warehouse; grant select on one to admin with grant option"
    )
    assert through_adapter(f'grant select on "accounts"."public"."one" to {grantee}') == [None]
    assert accounts.held(grantee) == {"public.one": {"select"}}


@pytest.mark.parametrize("privilege", ["trigger", "truncate", "references", "all privileges", "select (id)"])
def test_other_grants_are_postgresqls_own(accounts, through_adapter, privilege):
    accounts.as_administrator("create table one (id int)")
    assert through_adapter(f'grant {privilege} on "accounts"."public"."one" to "mary"') == [None]


def test_revoke_all_takes_every_privilege(accounts, button):
    accounts.as_administrator("create table one (id int); grant all on one to mary")
    button("rights_revoke")
    assert accounts.held("mary") == {}


def test_columns_and_grant_options_are_left_alone(accounts, button):
    accounts.as_administrator("create table one (id int); grant select on one to mary with grant option")
    button("rights_grant")
    assert accounts.states("mary", "lamb", "grant select on one to public") == ["00000"]


KINDS = """
create table "a table" (id int);
create table "b parted" (id int) partition by list (id);
create table "c part" partition of "b parted" for values in (1);
create view "d view" as select 1 as id;
create materialized view "e kept view" as select 1 as id;
create foreign table "f foreign" (id int) server far;
create unlogged table "g unlogged" (id int);
create index "not this" on "a table" (id);
create sequence "nor this";
create type "nor that" as (id int);
"""


def test_everything_that_can_be_read_like_a_table_is_listed_and_granted(accounts, button):
    accounts.as_superuser("create foreign data wrapper far; create server far foreign data wrapper far")
    accounts.as_superuser("grant usage on foreign server far to admin")
    accounts.as_administrator(KINDS)
    with accounts.session() as session:
        session.do("create temporary table mine (id int);")
        shown = button("rights_grant")
    names = ("a table", "b parted", "c part", "d view", "e kept view", "f foreign", "g unlogged")
    mary = {"held": pages.PRIVILEGES, "grantor": "admin", "grantee": "mary"}
    rows = [pages.rights_row(("accounts", "public", name), **mary) for name in names]
    assert pages.rights_body("mary", rows) in shown
    assert accounts.held("mary") == {f"public.{name}": ALL for name in names}


def test_a_user_who_has_locked_a_table_does_not_stop_its_rights(accounts, button):
    accounts.as_administrator("create table one (id int); grant select, delete on one to mary")
    with accounts.session("mary", "lamb") as session:
        session.do("begin; lock table one in access exclusive mode;")
        button("rights_revoke")
        assert accounts.held("mary") == {}
