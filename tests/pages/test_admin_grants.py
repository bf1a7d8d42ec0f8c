"""Granting and revoking on the rights page: the statements sent, the page that comes back, and the effect."""

import pyodbc
import pytest

from support import pages
from support.forms import boxes_of, press
from support.pages import HELD, INVOICES, NOTES, ORDERS, PRIVILEGES, STOCK, TABLES, quoted_name, rights_page
from support.statements import OFFERED_USERS, all_at_once, singly

EVERYTHING = {("mary", table): PRIVILEGES for table in TABLES}
NOTHING = {key: held for key, held in HELD.items() if key[0] != "mary"}


def changes(source):
    """What the button sent: between the query of the users and that of the privileges."""
    names, *statements, privileges = source.sent()
    assert names == OFFERED_USERS and privileges.startswith("select a.catalog")
    return statements


def refused(source):
    return [statement for _, outcome, statement in source.statements() if outcome != "ok"]


# Submitting the list


def test_a_list_without_ticks_revokes_all_four_privileges_on_every_table(visitor, accounts):
    assert press(visitor, "submit_selection") == rights_page("mary", NOTHING)
    assert changes(accounts) == ["{SQLTables}", *(line for table in TABLES for line in singly(table))]


def test_a_list_full_of_ticks_grants_all_four_privileges_on_every_table(visitor, accounts):
    boxes = [box for table in TABLES for box in boxes_of(table)]
    assert press(visitor, "submit_selection", boxes) == rights_page("mary", {**HELD, **EVERYTHING})
    assert changes(accounts) == ["{SQLTables}", *(line for table in TABLES for line in singly(table, PRIVILEGES))]


@pytest.mark.parametrize("number", range(16))
def test_each_box_of_a_table_decides_over_its_own_privilege(visitor, accounts, number):
    ticked = tuple(name for position, name in enumerate(PRIVILEGES) if number >> position & 1)
    page = press(visitor, "submit_selection", reversed(boxes_of(INVOICES, ticked)))
    assert page == rights_page("mary", {**NOTHING, ("mary", INVOICES): ticked})
    assert changes(accounts)[5:9] == singly(INVOICES, ticked)


@pytest.mark.parametrize("table", TABLES, ids=pages.quoted_name)
def test_a_table_s_boxes_are_found_under_the_parts_that_its_name_has(visitor, accounts, table):
    page = press(visitor, "submit_selection", boxes_of(table, ("select", "delete")))
    assert page == rights_page("mary", {**NOTHING, ("mary", table): ("select", "delete")})
    assert singly(table, ("select", "delete")) == changes(accounts)[1:][4 * TABLES.index(table) :][:4]


def test_a_table_is_addressed_by_its_quoted_parts_with_an_empty_schema_kept(visitor, accounts):
    press(visitor, "submit_selection", ["notes_select", "sales..stock_select"])
    sent = changes(accounts)
    assert 'grant select on "notes" to "mary"' in sent
    assert 'revoke select on "books"."invoices" from "mary"' in sent
    assert 'grant select on "sales".""."stock" to "mary"' in sent
    assert 'revoke select on "sales"."north"."orders" from "mary"' in sent


@pytest.mark.parametrize("value", ["", "OFF", "ON", "no"])
def test_a_box_counts_as_ticked_whatever_its_value(visitor, accounts, value):
    posted = [("rights_refresh", ""), ("isamuser", "mary"), ("notes_select", value), ("submit_selection", "")]
    assert visitor.page(posted) == rights_page("mary", {**NOTHING, ("mary", NOTES): ("select",)})


@pytest.mark.parametrize("box", ["Notes_select", "notes_SELECT", "north.orders_select", "sales.stock_select", "notes"])
def test_a_box_of_another_name_ticks_nothing(visitor, accounts, box):
    assert press(visitor, "submit_selection", [box]) == rights_page("mary", NOTHING)


def test_the_privileges_of_everybody_take_the_keyword(visitor, accounts):
    page = press(visitor, "submit_selection", boxes_of(ORDERS, ("select", "insert")), user="public")
    held = {key: value for key, value in HELD.items() if key[0] != "public"}
    assert page == rights_page("public", {**held, ("public", ORDERS): ("select", "insert")})
    statements = [
        line
        for table in TABLES
        for line in singly(table, ("select", "insert") if table == ORDERS else (), "to public", "from public")
    ]
    assert changes(accounts) == ["{SQLTables}", *statements]


def test_a_user_whose_name_differs_from_public_in_letter_case_is_quoted(visitor, accounts):
    accounts.change("insert into \"nordvale.system.user\" values ('Public', '', 'pw')")
    users = ("Abe", "Public", "bob", "mary", "public")
    page = press(visitor, "submit_selection", ["notes_insert"], user="Public")
    assert page == rights_page("Public", {**HELD, ("Public", NOTES): ("insert",)}, users=users)
    assert changes(accounts)[1:5] == singly(NOTES, ("insert",), 'to "Public"', 'from "Public"')


def test_a_refused_grant_stops_neither_the_table_s_other_privileges_nor_the_other_tables(visitor, accounts):
    accounts.refuse("insert", INVOICES)
    boxes = [box for table in TABLES for box in boxes_of(table, ("select", "update"))]
    held = {("mary", table): ("select", "update") for table in TABLES if table != INVOICES}
    assert press(visitor, "submit_selection", boxes) == rights_page("mary", {**NOTHING, **held})
    assert changes(accounts) == [
        "{SQLTables}",
        *(line for table in TABLES for line in singly(table, ("select", "update"))),
    ]
    assert refused(accounts) == [line for line in singly(INVOICES, ("select", "update")) if line.startswith("grant")]


def test_a_refused_revoke_stops_nothing_either(visitor, accounts):
    accounts.refuse("delete", STOCK)
    assert press(visitor, "submit_selection") == rights_page("mary", {**NOTHING, ("mary", STOCK): ("insert",)})
    assert refused(accounts) == [f'revoke insert on {quoted_name(STOCK)} from "mary"']


def test_a_name_that_is_no_user_s_can_be_granted_nothing_and_no_error_is_shown(visitor, accounts):
    assert press(visitor, "submit_selection", ["notes_select"], user="nobody") == rights_page("nobody")
    assert refused(accounts) == ['grant select on "notes" to "nobody"']
    assert len(changes(accounts)) == 17


# All at once


@pytest.mark.parametrize(
    "button, user, statements",
    [
        ("rights_grant", "mary", all_at_once("grant", 'to "mary"')),
        ("rights_grant", "public", all_at_once("grant", "to public")),
        ("rights_revoke", "mary", all_at_once("revoke", 'from "mary"')),
        ("rights_revoke", "public", all_at_once("revoke", "from public")),
        ("rights_revoke", "nobody", all_at_once("revoke", 'from "nobody"')),
        ("rights_revoke", "Public", all_at_once("revoke", 'from "Public"')),
        ("rights_revoke", "Mary", all_at_once("revoke", 'from "Mary"')),
    ],
)
def test_the_buttons_for_all_send_one_statement_for_each_table(visitor, accounts, button, user, statements):
    press(visitor, button, user=user)
    assert changes(accounts) == ["{SQLTables}", *statements]
    assert refused(accounts) == []


@pytest.mark.parametrize("user", ["mary", "bob", "public"])
def test_after_grant_all_every_box_is_ticked(visitor, user):
    held = {(user, table): PRIVILEGES for table in TABLES}
    assert press(visitor, "rights_grant", user=user) == rights_page(user, held)


@pytest.mark.parametrize("user", ["mary", "bob", "public"])
def test_after_revoke_all_no_box_is_ticked(visitor, user):
    assert press(visitor, "rights_revoke", user=user) == rights_page(user, {})


def test_all_at_once_looks_at_no_box(visitor, accounts):
    press(visitor, "rights_grant", ["notes_select"])
    assert changes(accounts) == ["{SQLTables}", *all_at_once("grant", 'to "mary"')]


def test_grant_all_stops_without_a_word_at_the_first_refused_table(visitor, accounts):
    accounts.refuse("insert", STOCK)
    held = {**HELD, ("mary", NOTES): PRIVILEGES, ("mary", INVOICES): PRIVILEGES}
    assert press(visitor, "rights_grant") == rights_page("mary", held)
    assert changes(accounts) == ["{SQLTables}", *all_at_once("grant", 'to "mary"')[:3]]
    assert refused(accounts) == [f'grant all on {quoted_name(STOCK)} to "mary"']


def test_grant_all_to_a_name_that_is_no_user_s_stops_at_the_first_table(visitor, accounts):
    assert press(visitor, "rights_grant", user="nobody") == rights_page("nobody")
    assert changes(accounts) == ["{SQLTables}", *all_at_once("grant", 'to "nobody"')[:1]]


def test_revoke_all_stops_without_a_word_at_the_first_refused_table(visitor, accounts):
    accounts.execute(*(f'grant all on {quoted_name(table)} to "mary"' for table in TABLES))
    accounts.forget_statements()
    accounts.refuse("delete", INVOICES)
    held = {("mary", table): PRIVILEGES for table in TABLES if table != NOTES}
    assert press(visitor, "rights_revoke") == rights_page("mary", held)
    assert changes(accounts) == ["{SQLTables}", *all_at_once("revoke", 'from "mary"')[:2]]


@pytest.mark.parametrize(
    "buttons, verb",
    [
        (["rights_grant", "rights_revoke"], "revoke all"),
        (["submit_selection", "rights_revoke"], "revoke all"),
        (["submit_selection", "rights_grant"], "grant all"),
        (["submit_selection", "rights_grant", "rights_revoke"], "revoke all"),
        (["submit_selection"], "revoke select"),
    ],
    ids=" ".join,
)
def test_of_several_buttons_one_is_obeyed(visitor, accounts, buttons, verb):
    visitor.post([("rights_refresh", ""), ("isamuser", "mary"), *((button, "") for button in buttons)])
    sent = changes(accounts)
    assert sent.count("{SQLTables}") == 1
    assert sent[1].startswith(verb + " on ")


def test_a_button_of_the_rights_page_does_nothing_on_another_page(visitor, accounts):
    visitor.post([("users_refresh", ""), ("isamuser", "mary"), ("rights_revoke", "Revoke All")])
    assert not any(statement.startswith("revoke") for statement in accounts.sent())


def test_a_data_source_without_tables_has_nothing_to_grant(visitor, accounts):
    accounts.execute(*(f"drop table {quoted_name(table)}" for table in TABLES))
    accounts.forget_statements()
    assert press(visitor, "rights_grant") == rights_page("mary", {}, ())
    assert changes(accounts) == ["{SQLTables}"]


# Names with double quotes, and others that are not plain


@pytest.mark.parametrize(
    "table",
    [
        ("", "", 'a"b'),
        ('c"', '"s', '"t"'),
        ("c", "", '""'),
        ("c.d", "e.f", "g.h"),
        ("", "", "two words"),
        ("", "", 'x" to public --'),
        ("", "", "semi;colon"),
        ("", "", "%s%n"),
        ("c" * 128, "s" * 128, "t" * 128),
    ],
    ids=lambda table: ".".join(table)[:30],
)
def test_double_quotes_in_a_table_s_name_are_doubled_and_nothing_else_changes(visitor, accounts, table):
    accounts.execute(*(f"drop table {quoted_name(other)}" for other in TABLES))
    accounts.execute(f"create table {quoted_name(table)} (id integer)")
    accounts.forget_statements()
    page = press(visitor, "submit_selection", boxes_of(table, ("insert",)))
    assert page == rights_page("mary", {("mary", table): ("insert",)}, [table])
    assert changes(accounts) == ["{SQLTables}", *singly(table, ("insert",))]
    accounts.forget_statements()
    assert press(visitor, "rights_grant") == rights_page("mary", {("mary", table): PRIVILEGES}, [table])
    assert changes(accounts)[1:] == [f'grant all on {quoted_name(table)} to "mary"']


@pytest.mark.parametrize("user", ['a"b', '"', 'x" --', "two words", "semi;colon", "%s%n", "u" * 254])
def test_double_quotes_in_a_user_s_name_are_doubled_and_nothing_else_changes(visitor, accounts, user):
    accounts.change("delete from \"nordvale.system.user\" where username <> 'admin'")
    accounts.execute(f"insert into nordvale.system.user values ('{user}', '', 'pw')")
    accounts.forget_statements()
    grantee = '"' + user.replace('"', '""') + '"'
    page = press(visitor, "submit_selection", ["notes_select"], user=user)
    assert page == rights_page(user, {(user, NOTES): ("select",)}, users=(user,))
    assert changes(accounts)[1:5] == singly(NOTES, ("select",), f"to {grantee}", f"from {grantee}")
    accounts.forget_statements()
    assert press(visitor, "rights_revoke", user=user) == rights_page(user, {}, users=(user,))
    assert changes(accounts)[1:] == [f"revoke all on {quoted_name(table)} from {grantee}" for table in TABLES]


@pytest.mark.parametrize("part", ["catalog", "schema", "table"])
@pytest.mark.parametrize("button", ["submit_selection", "rights_grant", "rights_revoke"])
def test_a_table_s_name_that_does_not_fit_is_passed_over_and_never_used_shortened(visitor, accounts, button, part):
    """The shortened name may be another table's."""
    short, long, last = (
        tuple({"catalog": "c", "schema": "s", "table": "t", part: name}.values())
        for name in (254 * "m", 255 * "m", "z")
    )
    accounts.execute(*(f"drop table {quoted_name(table)}" for table in TABLES))
    accounts.execute(*(f"create table {quoted_name(table)} (id integer)" for table in (short, long, last)))
    accounts.forget_statements()
    press(visitor, button)
    statements = {
        "submit_selection": [*singly(short), *singly(last)],
        "rights_grant": all_at_once("grant", 'to "mary"', (short, last)),
        "rights_revoke": all_at_once("revoke", 'from "mary"', (short, last)),
    }
    assert changes(accounts) == ["{SQLTables}", *statements[button]]


def test_a_name_cannot_become_another_grantee(visitor, accounts):
    press(visitor, "rights_grant", user='mary" to public')
    assert accounts.rows("select count(*) from nordvale.system.tableprv") == [(4,)]


# The effect


def select(source, user="mary", password="lamb", table=ORDERS):
    source.rows(f"select * from {quoted_name(table)}", user=user, password=password)


def test_what_a_ticked_box_grants_can_be_done_and_what_it_no_longer_grants_cannot(visitor, accounts):
    press(visitor, "submit_selection", boxes_of(INVOICES, ("select",)))
    select(accounts, table=INVOICES)
    press(visitor, "submit_selection")
    with pytest.raises(pyodbc.Error, match="42000.*select privilege on table books.invoices"):
        select(accounts, table=INVOICES)


@pytest.mark.parametrize(
    "privilege, statement",
    [
        ("insert", "insert into {} values (1, 'one')"),
        ("update", "update {} set word = 'two'"),
        ("delete", "delete from {}"),
    ],
)
def test_each_box_grants_its_own_privilege(visitor, accounts, privilege, statement):
    statement = statement.format(quoted_name(INVOICES))
    press(visitor, "submit_selection", boxes_of(INVOICES, [name for name in PRIVILEGES if name != privilege]))
    with pytest.raises(pyodbc.Error, match="42000"):
        accounts.execute(statement, user="mary", password="lamb")
    press(visitor, "submit_selection", boxes_of(INVOICES, [privilege]))
    accounts.execute(statement, user="mary", password="lamb")


def test_what_is_granted_to_everybody_every_user_can_do(visitor, accounts):
    with pytest.raises(pyodbc.Error, match="42000"):
        select(accounts, "bob", "builder")
    press(visitor, "rights_grant", user="public")
    select(accounts, "bob", "builder")
    press(visitor, "rights_revoke", user="public")
    with pytest.raises(pyodbc.Error, match="42000"):
        select(accounts, "bob", "builder")


def test_after_revoke_all_nothing_can_be_read(visitor, accounts):
    select(accounts)
    press(visitor, "rights_revoke")
    for table in TABLES:
        if table != NOTES:
            with pytest.raises(pyodbc.Error, match="42000"):
                select(accounts, table=table)


def test_a_form_with_hundreds_of_ticked_boxes_is_applied_whole(visitor, accounts):
    tables = [("", "", f"t{number:03}") for number in range(50)]
    accounts.change(
        'delete from "nordvale.system.tableprv"; delete from "nordvale.system.table";'
        + "".join(f"insert into \"nordvale.system.table\" values ('', '', '{table[2]}');" for table in tables)
    )
    boxes = [box for table in tables for box in boxes_of(table)]
    assert len(boxes) == 200
    held = {("mary", table): PRIVILEGES for table in tables}
    assert press(visitor, "submit_selection", boxes) == rights_page("mary", held, tables)
    assert changes(accounts) == ["{SQLTables}", *(line for table in tables for line in singly(table, PRIVILEGES))]
