"""Granting and revoking on the rights page: the page that comes back, and what the user can do afterwards."""

import pytest

from support.forms import boxes_of
from support.forms import press as press_button
from support.kinds import HELD, INVOICES, NOTES, ODD_TABLES, ODD_USERS, ORDERS, STOCK, TABLES
from support.pages import OFFERED, PRIVILEGES, quoted_name

PUBLIC_HOLDS = {("public", NOTES): ("select",)}

USERS = {"mary": "lamb", "bob": "builder", "Abe": "honest"}


@pytest.fixture
def press(visitor):
    """The page after a button was pressed for a user, with these boxes ticked."""
    return lambda button, user, boxes=(): press_button(visitor, button, boxes, user)


@pytest.fixture
def abilities(either):
    """What the user can do with each table on a connection of its own, everybody's rights included."""
    return lambda user, tables=TABLES: either.allowed(user, USERS[user], *tables)


def everything(user, tables=TABLES):
    return {(user, table): PRIVILEGES for table in tables}


def all_boxes(privileges=PRIVILEGES, tables=TABLES):
    return [box for table in tables for box in boxes_of(table, privileges)]


# Submitting the list


def test_a_list_without_ticks_revokes_everything(press, rights_page, abilities):
    assert abilities("mary") == [(), ("select", "update"), ("insert",), ("select",)]
    assert press("submit_selection", "mary") == rights_page("mary", PUBLIC_HOLDS)
    assert abilities("mary") == [(), (), (), ("select",)]


def test_a_list_full_of_ticks_grants_everything(press, rights_page, abilities):
    assert press("submit_selection", "bob", all_boxes()) == rights_page("bob", everything("bob"))
    assert abilities("bob") == [PRIVILEGES] * 4


def test_a_list_as_it_was_drawn_changes_nothing(press, rights_page, abilities):
    boxes = [*boxes_of(ORDERS, ("select", "update")), *boxes_of(STOCK, ("insert",))]
    assert press("submit_selection", "mary", boxes) == rights_page("mary")
    assert abilities("mary") == [(), ("select", "update"), ("insert",), ("select",)]


@pytest.mark.parametrize("number", range(16))
def test_each_box_decides_over_its_own_privilege(press, rights_page, abilities, number):
    ticked = tuple(name for position, name in enumerate(PRIVILEGES) if number >> position & 1)
    page = press("submit_selection", "mary", boxes_of(ORDERS, ticked))
    assert page == rights_page("mary", {("mary", ORDERS): ticked})
    assert abilities("mary") == [(), ticked, (), ("select",)]


@pytest.mark.parametrize("table", TABLES, ids=quoted_name)
def test_a_box_decides_over_its_own_table(press, rights_page, abilities, table):
    ticked = ("select", "delete")
    assert press("submit_selection", "bob", boxes_of(table, ticked)) == rights_page("bob", {("bob", table): ticked})
    of_everybody = {NOTES: ("select",)}
    assert abilities("bob") == [ticked if other == table else of_everybody.get(other, ()) for other in TABLES]


def test_one_user_s_rights_leave_the_others_theirs(press, rights_page, abilities, visitor):
    press("submit_selection", "bob", all_boxes())
    press("rights_revoke", "bob")
    assert visitor.page([("rights_refresh", ""), ("isamuser", "mary")]) == rights_page("mary")
    assert abilities("mary") == [(), ("select", "update"), ("insert",), ("select",)]


def test_what_is_granted_to_everybody_anybody_can_do(press, rights_page, abilities):
    page = press("submit_selection", "public", boxes_of(INVOICES, ("select", "insert")))
    assert page == rights_page("public", {("public", INVOICES): ("select", "insert")})
    assert abilities("bob") == [("select", "insert"), (), (), ()]
    assert abilities("mary") == [("select", "insert"), ("select", "update"), ("insert",), ()]


def test_what_is_revoked_from_everybody_a_user_keeps_who_was_granted_it(press, either, abilities):
    either.grant("bob", NOTES, "select")
    press("submit_selection", "public")
    assert abilities("bob", [NOTES]) == [("select",)]
    assert abilities("Abe", [NOTES]) == [()]


def test_what_is_revoked_from_a_user_everybody_keeps(press, abilities, rights_page, either):
    either.grant("bob", NOTES, "select")
    assert press("submit_selection", "bob") == rights_page("bob", {})
    assert abilities("bob", [NOTES]) == [("select",)]


def test_a_user_whose_name_differs_from_public_in_letter_case_is_not_everybody(press, either, rights_page, abilities):
    either.add_user("Public", "", "pw")
    page = press("submit_selection", "Public", boxes_of(INVOICES, ("select",)))
    users = sorted((*OFFERED, "Public"))
    assert page == rights_page("Public", {("Public", INVOICES): ("select",)}, users=users)
    assert either.allowed("Public", "pw", INVOICES) == [("select",)]
    assert abilities("bob", [INVOICES]) == [()]


def test_a_refused_grant_stops_no_other(press, either, rights_page, abilities):
    either.refuse("grant", STOCK)
    held = {("bob", table): ("select", "update") for table in TABLES if table != STOCK}
    assert press("submit_selection", "bob", all_boxes(("select", "update"))) == rights_page("bob", held)
    assert abilities("bob") == [("select", "update"), ("select", "update"), (), ("select", "update")]


def test_a_refused_revoke_stops_no_other(press, either, rights_page, abilities):
    for table in TABLES:
        either.grant("bob", table, *PRIVILEGES)
    either.refuse("revoke", STOCK)
    assert press("submit_selection", "bob") == rights_page("bob", everything("bob", [STOCK]))
    assert abilities("bob") == [(), (), PRIVILEGES, ("select",)]


# All at once


@pytest.mark.parametrize("user", ["mary", "bob"])
def test_grant_all_grants_everything(press, rights_page, abilities, user):
    assert press("rights_grant", user) == rights_page(user, everything(user))
    assert abilities(user) == [PRIVILEGES] * 4


def test_grant_all_to_everybody_lets_anybody_do_everything(press, rights_page, abilities):
    assert press("rights_grant", "public") == rights_page("public", everything("public"))
    assert abilities("bob") == abilities("mary") == [PRIVILEGES] * 4


@pytest.mark.parametrize("user", ["mary", "bob"])
def test_revoke_all_revokes_everything(press, either, rights_page, abilities, user):
    either.grant(user, INVOICES, *PRIVILEGES)
    assert press("rights_revoke", user) == rights_page(user, {})
    assert abilities(user) == [(), (), (), ("select",)]


def test_revoke_all_from_everybody_leaves_users_what_they_were_granted(press, either, rights_page, abilities):
    either.grant("public", INVOICES, *PRIVILEGES)
    assert press("rights_revoke", "public") == rights_page("public", {})
    assert abilities("bob") == [()] * 4
    assert abilities("mary") == [(), ("select", "update"), ("insert",), ()]


def test_revoke_all_takes_back_what_grant_all_gave(press, rights_page, abilities):
    press("rights_grant", "bob")
    assert press("rights_revoke", "bob") == rights_page("bob", {})
    assert abilities("bob") == [(), (), (), ("select",)]


def test_grant_all_stops_without_a_word_at_the_first_refused_table(press, either, rights_page, abilities):
    either.refuse("grant", STOCK)
    assert press("rights_grant", "bob") == rights_page("bob", everything("bob", [INVOICES, ORDERS]))
    assert abilities("bob") == [PRIVILEGES, PRIVILEGES, (), ("select",)]


def test_revoke_all_stops_without_a_word_at_the_first_refused_table(press, either, rights_page, abilities):
    for table in TABLES:
        either.grant("bob", table, *PRIVILEGES)
    either.refuse("revoke", STOCK)
    assert press("rights_revoke", "bob") == rights_page("bob", everything("bob", [STOCK, NOTES]))
    assert abilities("bob") == [(), (), PRIVILEGES, PRIVILEGES]


@pytest.mark.parametrize("user", ["nobody", "Mary", "postgres", "pg_read_all_data", "n" * 64])
@pytest.mark.parametrize("button", ["submit_selection", "rights_grant"])
def test_a_name_that_is_no_user_s_is_granted_nothing_and_no_error_is_shown(press, rights_page, button, user):
    assert press(button, user, all_boxes()) == rights_page(user, {})


# Names


@pytest.mark.parametrize("table", ODD_TABLES, ids=quoted_name)
def test_a_table_of_any_name_is_granted_and_revoked(press, either, rights_page, abilities, table):
    either.make_tables(table)
    tables = (*TABLES, table)
    page = press("submit_selection", "bob", boxes_of(table, ("select", "update")))
    assert page == rights_page("bob", {("bob", table): ("select", "update")}, tables)
    assert abilities("bob", [table]) == [("select", "update")]
    assert press("rights_grant", "bob") == rights_page("bob", everything("bob", tables), tables)
    assert abilities("bob", tables) == [PRIVILEGES] * 5
    assert press("rights_revoke", "bob") == rights_page("bob", {}, tables)
    assert abilities("bob", [table]) == [()]


@pytest.mark.parametrize("user", ODD_USERS)
def test_a_user_of_any_name_is_granted_and_revoked(press, either, rights_page, user):
    either.add_user(user, "", "pw")
    users = sorted((*OFFERED, user))
    page = press("submit_selection", user, boxes_of(ORDERS, ("select", "update")))
    assert page == rights_page(user, {(user, ORDERS): ("select", "update")}, users=users)
    assert either.allowed(user, "pw", ORDERS) == [("select", "update")]
    assert press("rights_grant", user) == rights_page(user, everything(user), users=users)
    assert either.allowed(user, "pw", INVOICES) == [PRIVILEGES]
    assert press("rights_revoke", user) == rights_page(user, {}, users=users)
    assert either.allowed(user, "pw", ORDERS) == [()]
