"""An ordinary user with everything that the pages grant, on connections of its own, remains an ordinary user."""

import pytest

from support import pages
from support.forms import form, press
from support.kinds import sql_text
from support.postgresql import INSTALL
from support.postgresql_database import ALL, list_sources
from support.source import PASSWORD

@pytest.fixture
def granted(accounts, visitor):
    """Mary has everything that there is to tick, and public, too."""
    accounts.as_administrator(
        "create schema store; create table store.stock (id int); create table one (id int primary key);"
        "create view seen as select * from one"
    )
    for user in ("mary", "public"):
        press(visitor, "rights_grant", user=user)
    assert accounts.held("mary") == {"public.one": ALL, "public.seen": ALL, "store.stock": ALL}
    return accounts


NOT_ALLOWED = (
    # what install.sql has made
    'select * from tabwarden."user"',
    'select * from tabwarden."table"',
    "select * from tabwarden.tableprv",
    "select * from tabwarden.sysinfo",
    "select * from tabwarden.relation",
    "select * from tabwarden.managed_role",
    "select * from tabwarden.turn",
    "do 'begin lock table tabwarden.turn in access share mode; end'",
    """insert into tabwarden."user" values ('eve', '', 'x')""",
    """update tabwarden."user" set password = 'x' where username = 'admin'""",
    'delete from tabwarden."user"',
    "select tabwarden.tables()",
    "select tabwarden.held(1, 1)",
    "select tabwarden.grantee_oid('mary')",
    "select tabwarden.relation_of('one')",
    """call tabwarden.change_privilege('grant', 'all', '"accounts"."public"."one"', 'mary')""",
    "call tabwarden.open_way('store', 0, 'public')",
    "call tabwarden.revoke_everything('admin')",
    "create table tabwarden.mine (id int)",
    "create or replace function tabwarden.tables() returns int language sql as 'select 1'",
    "grant usage on schema tabwarden to mary",
    "alter schema tabwarden rename to mine",
    "drop schema tabwarden cascade",
    # roles
    "create role eve",
    "alter role admin password 'x'",
    "alter role mary createrole",
    "alter role mary superuser",
    "alter role admin set search_path = public",
    "comment on role admin is '<b>'",
    "comment on role mary is '<b>'",
    "drop role admin",
    "set role admin",
    "set session authorization admin",
    "grant admin to mary",
    "grant mary to admin",
    "select rolpassword from pg_authid",
    # the granted tables
    "alter table one owner to mary",
    "alter table one add column word text",
    "alter table one disable trigger all",
    "create policy mine on one",
    "create rule mine as on insert to one do also select 1",
    "create index mine on one (id)",
    "create trigger mine before insert on one for each row execute function suppress_redundant_updates_trigger()",
    "create trigger mine instead of insert on seen for each row execute function suppress_redundant_updates_trigger()",
    "comment on table one is '<b>'",
    "truncate one",
    "drop table one",
    # the way to them
    "create table store.mine (id int)",
    "create table public.mine (id int)",
    "create function store.mine() returns int language sql as 'select 1'",
    "create operator public.= (leftarg = name, rightarg = text, function = nameeqtext)",
    "create schema mine",
    "create schema nordvale",
    "alter database accounts set search_path = public",
    "alter database accounts owner to mary",
    "alter default privileges for role admin grant all on tables to mary",
    # the server
    "create event trigger mine on ddl_command_start execute function suppress_redundant_updates_trigger()",
    "copy one from program 'true'",
    "copy one from '/etc/passwd'",
    "select pg_read_file('/etc/passwd')",
    "select pg_reload_conf()",
)


def test_what_goes_beyond_the_four_privileges_is_refused(granted):
    states = granted.states("mary", "lamb", *NOT_ALLOWED)
    assert [pair for pair in zip(states, NOT_ALLOWED, strict=True) if pair[0] != "42501"] == []


def test_what_was_granted_cannot_be_granted_on(granted):
    granted.as_superuser("create role bob login")
    granted.states("mary", "lamb", "grant all on one to bob", "grant usage on schema store to bob")
    assert granted.held("bob") == {}
    assert granted.as_superuser("select has_schema_privilege('bob', 'store', 'create')") == ["f"]


@pytest.mark.parametrize("user", ["mary", "Admin", "ADMIN", "admin "])
def test_an_ordinary_user_does_not_log_in_to_the_pages(granted, visitor, user):
    """Nor one whose name is the administrator's but for letter case or blanks."""
    granted.as_superuser(f"""create role "{user}" login""" if user != "mary" else "")
    granted.as_superuser(f"""alter role "{user}" password 'lamb'; grant all on one to "{user}" """)
    for page in ([], [("users.x", "1")], [("rights.x", "1")]):
        assert pages.is_refused(visitor.post(page, user=user, password="lamb"))
        assert pages.is_refused(visitor.post(page, user=user.lower(), password="lamb"))
        assert pages.is_refused(visitor.post(page, user=user.upper(), password="lamb"))


def test_the_administrators_name_in_another_letter_case_is_nobody(granted, visitor):
    for user in ("Admin", "ADMIN"):
        assert pages.is_refused(visitor.post(user=user, password=PASSWORD))


# Roles that can do more than an ordinary one, and one in which such a role is.
MORE = """
create role root login superuser; create role maker login createrole; create role copier login replication;
create role seer login bypassrls; create role "like root" login; grant root to "like root";
create role "like maker" login noinherit; grant maker to "like maker";
create role "far maker" login; create role between; grant between to "far maker"; grant maker to between;
create role "like admin" login; grant admin to "like admin"; create role "no log-in";
"""
MORE_NAMES = (
    "root", "maker", "copier", "seer", "like root", "like maker", "far maker", "between", "like admin", "no log-in",
    "postgres", "pg_read_all_data", "pg_execute_server_program",
)  # fmt: skip


@pytest.fixture
def more(accounts):
    accounts.as_superuser(MORE + "create table one (id int); alter table one owner to admin")
    accounts.roles = lambda: accounts.as_superuser(
        "select rolname, rolcanlogin, rolsuper, rolpassword, shobj_description(oid, 'pg_authid')"
        " from pg_authid order by 1"
    )
    return accounts


def insert(visitor, name):
    posted = [("__newuser", name), ("__newpass", "x"), ("__newfile", "x")]
    visitor.page([("users_refresh", ""), *posted, ("submit_users", "Submit")])


def test_roles_that_can_do_more_are_not_shown(more, visitor):
    for page in ("users.x", "rights.x"):
        shown = visitor.page([(page, "1")])
        assert "mary" in shown
        assert [name for name in MORE_NAMES if f">{name}<" in shown or f'"{name}_' in shown] == []


def test_who_may_become_the_administrator_is_not_shown(visitor, make_database, own_server):
    """Also where the administrator is an ordinary role besides."""
    own_server.execute("create role keeper login password 'x'; create role helper login; grant keeper to helper")
    database = make_database("kept", owner="keeper")
    assert database.try_as("keeper", "x", INSTALL).returncode == 0
    list_sources(own_server, kept={})
    shown = visitor.page([("users.x", "1")], source="kept", user="keeper", password="x")
    assert "mary_file" in shown and "keeper_file" in shown and "helper" not in shown


def test_roles_that_can_do_more_are_not_changed(more, visitor):
    before = more.roles()
    fields = [(f"{name}_{field}", "x") for name in MORE_NAMES for field in ("file", "password", "checkbox")]
    visitor.page([("users_refresh", ""), *fields, ("submit_users", "Submit")])
    for name in MORE_NAMES:
        insert(visitor, name)
    assert more.roles() == before


def test_roles_that_can_do_more_are_given_and_lose_nothing(more, visitor):
    more.as_administrator("".join(f'grant select on one to "{name}";' for name in MORE_NAMES))
    for name in MORE_NAMES:
        for button in ("rights_grant", "rights_revoke", "submit_selection"):
            press(visitor, button, user=name)
        assert more.held(name) == {"public.one": {"select"}}, name


def test_statements_on_the_list_of_users_do_not_reach_them(more, through_adapter):
    before = more.roles()
    names = ", ".join(f"'{name}'" for name in MORE_NAMES)
    assert through_adapter(
        f"update nordvale.system.user set password = 'x' where username in ({names})",
        f"delete from nordvale.system.user where username in ({names})",
    ) == [None, None]
    for name in MORE_NAMES:
        (error,) = through_adapter(f'grant all on "accounts"."public"."one" to "{name}"')
        assert "is none of the users that are managed here" in error
    assert more.roles() == before


@pytest.mark.parametrize(
    "name", ["public", "PUBLIC", "none", "current_user", "session_user", "pg_mine", "postgres", "mary"]
)
def test_names_with_a_meaning_are_no_new_users(more, visitor, name):
    before = more.roles()
    insert(visitor, name)
    made = set(more.roles()) - set(before)
    # A name that is only reserved where it has no quotes is an ordinary one within them.
    assert {line.split("|")[0] for line in made} == {name} & {"PUBLIC", "current_user", "session_user"}


def test_markup_in_comments_is_text(more, visitor):
    comment = """</td><script>"&'"""
    more.as_superuser(f"comment on role mary is {sql_text(comment)}")
    assert pages.user_row("mary", comment, "") in visitor.page([("users.x", "1")])


def test_passwords_are_shown_to_nobody(more, visitor):
    more.as_administrator("update tabwarden.user set password = 'secret word' where username <> 'public'")
    shown = visitor.page([("users.x", "1")], password="secret word")
    assert "mary" in shown and "secret word" not in shown and "SCRAM" not in shown


# What a user makes that may make things: code that raises the user to superuser, if only somebody else runs it.
HOSTILE = """
create function {0}.evil() returns text language plpgsql as
    $$ begin execute 'alter role mary createrole'; return ''; exception when others then return ''; end $$;
create function {0}.current_database() returns name language sql as $$ select {0}.evil()::name $$;
create function {0}.strpos(name, text) returns int language sql as $$ select length({0}.evil()) $$;
create function {0}.pg_get_userbyid(oid) returns name language sql as $$ select {0}.evil()::name $$;
create function {0}.same(text, text) returns bool language sql as $$ select {0}.evil() = '' $$;
create function {0}.same(name, name) returns bool language sql as $$ select {0}.evil() = '' $$;
create function {0}.same(name, text) returns bool language sql as $$ select {0}.evil() = '' $$;
create function {0}.same(text, name) returns bool language sql as $$ select {0}.evil() = '' $$;
create operator {0}.= (leftarg = text, rightarg = text, function = {0}.same);
create operator {0}.= (leftarg = name, rightarg = name, function = {0}.same);
create operator {0}.= (leftarg = name, rightarg = text, function = {0}.same);
create operator {0}.= (leftarg = text, rightarg = name, function = {0}.same);
create view {0}."user" as select {0}.evil() as username, ''::text as description, ''::text as password;
create view {0}."table" as select {0}.evil() as catalog, ''::text as schema, ''::text as "table";
create view {0}.pg_class as select {0}.evil() as relname;
create view {0}.pg_roles as select {0}.evil() as rolname;
create table {0}."';--""</td><script>" (id int default length({0}.evil()), check ({0}.evil() = ''));
grant all on all tables in schema {0} to public;
alter default privileges grant all on tables to public;
"""


def use_every_page(visitor):
    visitor.page([("users.x", "1")])
    visitor.page(form([("mary_file", "changed"), ("__newuser", "eve"), ("__newpass", "apple")]))
    for button in ("rights_refresh", "rights_grant", "submit_selection", "rights_revoke"):
        press(visitor, button, user="mary")
        press(visitor, button, user="public")
    visitor.page([("users_refresh", ""), ("eve_checkbox", "OFF"), ("submit_users", "Submit")])


def is_ordinary(server):
    return server.execute("select rolcreaterole from pg_roles where rolname = 'mary'") == ["f"]


@pytest.mark.parametrize("path", ['"$user", public', "public, nordvale", "public, pg_catalog", "nordvale, pg_catalog"])
def test_the_pages_run_nothing_that_a_user_has_made(accounts, visitor, own_server, path):
    """In no schema that the administrator's path leads through; it begins in the one of the administrator's name."""
    for schema in ("admin", "nordvale", "public"):
        accounts.as_superuser(f"create schema if not exists {schema}; grant all on schema {schema} to public")
        assert accounts.try_as("mary", "lamb", HOSTILE.format(schema)).stderr == ""
    accounts.as_superuser(f"alter database accounts set search_path = {path}")
    use_every_page(visitor)
    assert is_ordinary(own_server)
    assert accounts.states("admin", "manager", "select nordvale.evil()") == ["00000"]
    assert not is_ordinary(own_server)


# What the pages read, made by a user before install.sql was run.
SQUATTED = """
create schema tabwarden;
create function tabwarden.evil() returns text language plpgsql as
    $$ begin execute 'alter role mary createrole'; return ''; end $$;
create view tabwarden.sysinfo as select 'dbo_user'::text as attribute, 'admin'::text as "VALUE";
create view tabwarden."user" as select 'bob' as username, tabwarden.evil() as description, '' as password;
create function tabwarden.tables(out schema name, out name name, out kind text, out acl aclitem[]) returns setof record
    language sql as $$ select tabwarden.evil(), '', '', null::aclitem[] $$;
grant all on schema tabwarden to public;
grant all on all tables in schema tabwarden to public;
"""


def test_a_schema_that_a_user_has_made_is_not_taken_for_ours(visitor, make_database, own_server):
    squatted = make_database("squatted")
    squatted.as_superuser("grant create on database squatted to mary")
    assert squatted.try_as("mary", "lamb", SQUATTED).stderr == ""
    list_sources(own_server, squatted={})
    for field in ("users.x", "rights.x"):
        response = visitor.post([(field, "1")], source="squatted").decode()
        assert "SQLDriverConnect failed with" in response
        assert "the schema tabwarden belongs to somebody else" in response
    assert is_ordinary(own_server)
    assert squatted.states("admin", "manager", 'select * from tabwarden."user"') == ["00000"]
    assert not is_ordinary(own_server)
