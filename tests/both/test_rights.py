"""The rights page: whose rights it shows, which tables, and what is held on them."""

import pytest

from support import pages
from support.kinds import HELD, NAME, NOTES, ODD_TABLES, ODD_USERS, ORDERS, STOCK, TABLES
from support.pages import OFFERED, quoted_name, rights_row
from support.source import ADMINISTRATOR


@pytest.fixture
def shown(visitor):
    """The rights page for a user chosen on it."""
    return lambda user: visitor.page([("rights_refresh", "Refresh"), ("isamuser", user)])


# Whose rights


def test_the_first_visit_shows_the_first_user_in_name_order(visitor, rights_page):
    assert visitor.page([("rights.x", "1")]) == rights_page("Abe")


@pytest.mark.parametrize("user", OFFERED)
def test_the_chosen_user_is_selected_and_the_list_shows_that_user_s_rights(shown, rights_page, user):
    assert shown(user) == rights_page(user)


@pytest.mark.parametrize("user", ["nobody", "Mary", "PUBLIC", "mary ", "n" * 254, "Jörg", "%s%n", "postgres"])
def test_a_name_that_is_no_user_s_leaves_nothing_selected_and_holds_nothing(shown, rights_page, user):
    assert shown(user) == rights_page(user, {})


def test_the_administrator_is_never_offered_even_when_the_name_is_posted(shown, rights_page, either):
    assert shown(ADMINISTRATOR) == rights_page(ADMINISTRATOR, either.administrators_rights)


@pytest.mark.parametrize("user", ODD_USERS)
def test_a_user_of_any_name_is_offered_and_shown(shown, rights_page, either, user):
    either.add_user(user, "", "pw")
    either.grant(user, ORDERS, "select", "delete")
    held = {**HELD, (user, ORDERS): ("select", "delete")}
    assert shown(user) == rights_page(user, held, users=sorted((*OFFERED, user)))


# What is held


def test_the_privileges_of_everybody_are_listed_as_public_s_and_as_no_user_s(shown):
    assert rights_row(NOTES, ("select",), ADMINISTRATOR, "public") in shown("public")
    assert rights_row(NOTES) in shown("mary")


def test_without_select_there_is_neither_grantor_nor_grantee(shown):
    assert rights_row(STOCK, ("insert",), "", "") in shown("mary")
    assert rights_row(ORDERS, ("select", "update"), ADMINISTRATOR, "mary") in shown("mary")


@pytest.mark.parametrize("number", range(16))
def test_each_privilege_ticks_its_own_box(shown, rights_page, either, number):
    held = tuple(name for position, name in enumerate(pages.PRIVILEGES) if number >> position & 1)
    either.grant("bob", NOTES, *held)
    assert shown("bob") == rights_page("bob", {("bob", NOTES): held})


# Which tables


def test_a_new_table_stands_in_its_place(shown, rights_page, either):
    new = (NAME, "north", "patterns")
    either.make_tables(new)
    assert shown("mary") == rights_page("mary", tables=(*TABLES, new))


def test_a_dropped_table_is_gone(shown, rights_page, either):
    either.drop_table(ORDERS)
    left = [table for table in TABLES if table != ORDERS]
    assert shown("mary") == rights_page("mary", tables=left)


def test_where_there_is_no_table_the_list_is_empty(shown, rights_page, either):
    for table in TABLES:
        either.drop_table(table)
    assert shown("mary") == rights_page("mary", tables=())


@pytest.mark.parametrize("table", ODD_TABLES, ids=quoted_name)
def test_a_table_of_any_name_is_listed_with_what_is_held_on_it(shown, rights_page, either, table):
    either.make_tables(table)
    either.grant("bob", table, "select", "insert")
    held = {("bob", table): ("select", "insert")}
    assert shown("bob") == rights_page("bob", held, (*TABLES, table))


def test_a_long_list_is_complete(shown, rights_page, either):
    many = [(NAME, "north", f"table_{number:03}") for number in range(200)]
    either.make_tables(*many)
    assert shown("mary") == rights_page("mary", tables=(*TABLES, *many))
