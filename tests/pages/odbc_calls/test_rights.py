"""The calls of the rights page and of its buttons, for the sample's four tables."""

import pytest

from support.odbc_calls import Calls, text
from support.pages import INVOICES, PRIVILEGES, STOCK, TABLES
from support.statements import OFFERED_USERS, PRIVILEGES_HELD, all_at_once, singly

GRANTS = all_at_once("grant", 'to "mary"')
REVOKES = all_at_once("revoke", 'from "mary"')


def pressed(visitor, button, *boxes, user="mary"):
    ticked = [(box, "ON") for box in boxes]
    return visitor.post([("rights_refresh", ""), ("isamuser", user), *ticked, (button, "")])


@pytest.fixture
def expected():
    """Up to the body of the page."""
    calls = Calls()
    calls.beginning_of_page()
    calls.user_chooser(5)
    return calls


def rights_body(expected, user="mary", tables=4):
    """Without an action between."""
    expected.reset()
    expected.rights_list(user, tables)
    expected.disconnect()


# Whose rights


@pytest.mark.parametrize("field", ["rights.x", "rights_refresh"])
def test_the_first_visit_reads_the_users_then_the_rights_of_the_first(visitor, expected, compare_calls, field):
    rights_body(expected, "Abe")
    compare_calls(lambda: visitor.post([(field, "1")]), expected)


@pytest.mark.parametrize("user", ["mary", "public", "nobody"])
def test_a_chosen_user_s_rights_are_read(visitor, expected, compare_calls, user):
    rights_body(expected, user)
    compare_calls(lambda: visitor.post([("rights_refresh", ""), ("isamuser", user)]), expected)


def test_after_another_data_source_was_chosen_the_rights_of_its_first_user_are_read(visitor, compare_calls):
    expected = Calls()
    expected.beginning_of_page("branch")
    expected.user_chooser(3)
    rights_body(expected, "carol", tables=1)
    posted = [
        ("rights_refresh", ""),
        ("isamuser", "mary"),
        ("last_datasource", "accounts"),
        ("datasource", "branch"),
        ("datasource_refresh", "Refresh"),
    ]
    compare_calls(lambda: visitor.send(posted), expected)


def test_a_user_whose_name_breaks_the_query_has_nothing_fetched(visitor, expected, compare_calls):
    expected.reset()
    expected.reset()
    expected.execute(expected.stmt, PRIVILEGES_HELD.replace("%s", "o'brien"), "ERROR")
    expected.read_diagnostic("STMT", expected.stmt)
    expected.disconnect()
    compare_calls(lambda: visitor.post([("rights_refresh", ""), ("isamuser", "o'brien")]), expected)


# Submitting the list


def test_the_list_sends_four_statements_between_the_rows_of_the_tables(visitor, expected, compare_calls):
    expected.reset()
    expected.table_list()
    for table in TABLES:
        expected.table()
        for statement in singly(table, ("insert", "delete") if table == INVOICES else ()):
            expected.change(statement)
    expected.end_of_tables()
    expected.rights_list("mary", 4)
    expected.disconnect()
    boxes = ["books.invoices_insert", "books.invoices_delete"]
    compare_calls(lambda: pressed(visitor, "submit_selection", *boxes), expected)


def test_the_list_of_everybody_takes_the_keyword(visitor, expected, compare_calls):
    expected.reset()
    expected.table_list()
    for table in TABLES:
        expected.table()
        for statement in singly(table, ("select",) if table == TABLES[0] else (), "to public", "from public"):
            expected.change(statement)
    expected.end_of_tables()
    expected.rights_list("public", 4)
    expected.disconnect()
    compare_calls(lambda: pressed(visitor, "submit_selection", "notes_select", user="public"), expected)


def test_behind_each_refused_statement_the_list_goes_on_with_a_new_handle(visitor, accounts, expected, compare_calls):
    accounts.refuse("insert", INVOICES)
    expected.reset()
    expected.table_list()
    for table in TABLES:
        ticked = ("select", "update") if table == INVOICES else ()
        expected.table()
        for privilege, statement in zip(PRIVILEGES, singly(table, ticked)):
            if privilege in ticked:
                expected.failing_change_with_recovery(statement)
            else:
                expected.change(statement)
    expected.end_of_tables()
    expected.rights_list("mary", 4)
    expected.disconnect()
    boxes = ["books.invoices_select", "books.invoices_update"]
    compare_calls(lambda: pressed(visitor, "submit_selection", *boxes), expected)


# All at once


@pytest.mark.parametrize(
    "button, user, statements",
    [
        ("rights_grant", "mary", GRANTS),
        ("rights_revoke", "mary", REVOKES),
        ("rights_grant", "public", all_at_once("grant", "to public")),
        ("rights_revoke", "public", all_at_once("revoke", "from public")),
    ],
)
def test_all_at_once_is_one_statement_for_each_table(visitor, expected, compare_calls, button, user, statements):
    expected.reset()
    expected.change_all(statements)
    expected.rights_list(user, 4)
    expected.disconnect()
    compare_calls(lambda: pressed(visitor, button, user=user), expected)


@pytest.mark.parametrize(
    "button, refused, statements", [("rights_grant", "insert", GRANTS), ("rights_revoke", "delete", REVOKES)]
)
def test_all_at_once_ends_at_the_first_refused_statement_whose_handle_is_left(
    visitor, accounts, expected, compare_calls, button, refused, statements
):
    accounts.refuse(refused, STOCK)
    expected.reset()
    expected.table_list()
    expected.table()
    expected.change(statements[0])
    expected.table()
    expected.change(statements[1])
    expected.table()
    expected.failing_change(statements[2])
    expected.rights_list("mary", 4)
    expected.disconnect()
    compare_calls(lambda: pressed(visitor, button), expected)


@pytest.mark.parametrize("button", ["submit_selection", "rights_grant", "rights_revoke"])
def test_without_a_table_list_the_page_ends_and_gives_everything_back(visitor, expected, compare_calls, button):
    expected.reset()
    expected.failing_table_list()
    expected.disconnect()
    compare_calls(lambda: pressed(visitor, button), expected)


# Missing templates


@pytest.mark.parametrize("name", ["rightshelp.html", "footer.html"])
def test_without_a_template_behind_the_list_everything_is_given_back(visitor, templates, expected, compare_calls, name):
    templates.take_away(name)
    rights_body(expected, "Abe")
    compare_calls(lambda: visitor.post([("rights.x", "1")]), expected)


# Failures of a single call


def test_users_that_cannot_be_read_are_tried_to_be_fetched_and_closed_and_the_page_goes_on(visitor, compare_calls):
    expected = Calls()
    expected.beginning_of_page()
    expected.reset()
    expected.make_fail("SQLExecDirect", expected.stmt, text(OFFERED_USERS), "NTS")
    expected.read_diagnostic("STMT", expected.stmt, result="NO_DATA")
    expected.call("SQLFetch", expected.stmt, result="ERROR")
    expected.close_cursor(expected.stmt, result="ERROR")
    rights_body(expected, "")
    compare_calls(lambda: visitor.post([("rights.x", "1")]), expected)


def test_a_reset_before_the_user_chooser_that_fails_ends_the_page(visitor, compare_calls):
    expected = Calls()
    expected.beginning_of_page()
    expected.failing_reset()
    expected.disconnect()
    compare_calls(lambda: visitor.post([("rights.x", "1")]), expected)


def test_a_reset_before_the_action_that_fails_ends_the_page(visitor, expected, compare_calls):
    expected.failing_reset()
    expected.disconnect()
    compare_calls(lambda: pressed(visitor, "rights_grant"), expected)


@pytest.mark.parametrize("button", ["submit_selection", "rights_grant", "rights_revoke"])
def test_a_reset_of_the_action_that_fails_ends_the_page(visitor, expected, compare_calls, button):
    expected.reset()
    expected.failing_reset()
    expected.disconnect()
    compare_calls(lambda: pressed(visitor, button), expected)


def test_a_reset_before_the_list_that_fails_leaves_the_list_out(visitor, expected, compare_calls):
    expected.reset()
    expected.failing_reset()
    expected.disconnect()
    compare_calls(lambda: visitor.post([("rights.x", "1")]), expected)


def test_where_no_new_handle_comes_for_a_refused_statement_the_next_is_tried_without(
    visitor, accounts, expected, compare_calls
):
    accounts.refuse("insert", TABLES[-1])
    expected.reset()
    expected.table_list()
    for table in TABLES[:-1]:
        expected.table()
        for statement in singly(table):
            expected.change(statement)
    expected.table()
    grant, *others = singly(TABLES[-1], ("select",))
    expected.failing_change(grant)
    expected.free("STMT", expected.stmt2)
    expected.make_fail("SQLAllocHandle", "STMT", expected.dbc, "none")
    expected.execute("null", others[0], "INVALID_HANDLE")
    expected.read_diagnostic("STMT", "null", result="INVALID_HANDLE")
    expected.stmt2 = expected.allocate("STMT", expected.dbc)
    for statement in others[1:]:
        expected.change(statement)
    expected.end_of_tables()
    expected.rights_list("mary", 4)
    expected.disconnect()
    compare_calls(lambda: pressed(visitor, "submit_selection", "sales.north.orders_select"), expected)
