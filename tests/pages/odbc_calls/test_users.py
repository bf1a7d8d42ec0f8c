"""The calls of the users page and of its changes; in name order the users are Abe, admin, bob, mary and public."""

import pytest

from support.odbc_calls import Calls
from support.pages import INVOICES, quoted_name
from support.statements import LISTED_USERS, SORTED_USERS, all_at_once, delete, insert, update


def submitted(visitor, *fields):
    return visitor.post([("users_refresh", ""), *fields, ("submit_users", "Submit")])


@pytest.fixture
def expected():
    calls = Calls()
    calls.beginning_of_page()
    return calls


@pytest.mark.parametrize("field", ["users.x", "users_refresh"])
def test_the_page_lists_the_users_on_fresh_statements(visitor, expected, compare_calls, field):
    expected.users_list(5)
    expected.disconnect()
    compare_calls(lambda: visitor.post([(field, "1")]), expected)


def test_the_user_chooser_of_the_rights_button_comes_before_the_list(visitor, expected, compare_calls):
    expected.user_chooser(5)
    expected.users_list(5)
    expected.disconnect()
    compare_calls(lambda: visitor.post([("users.x", "1"), ("rights.x", "1")]), expected)


def test_a_list_that_fails_is_tried_to_be_fetched_and_closed_and_the_page_goes_on(
    visitor, accounts, expected, compare_calls
):
    accounts.change('alter table "nordvale.system.user" rename column description to other')
    expected.reset()
    expected.failing_query(expected.stmt, LISTED_USERS)
    expected.disconnect()
    compare_calls(lambda: visitor.post([("users.x", "1")]), expected)


# Changes


@pytest.mark.parametrize("fields", [[], [("mary_password", "lamb"), ("mary_file", "Mary M.")], [("__newfile", "x")]])
def test_without_a_change_the_users_are_only_read(visitor, expected, compare_calls, fields):
    reader, writer = expected.beginning_of_submitted_users()
    expected.users(reader, 5)
    expected.end_of_rows(reader)
    expected.end_of_submitted_users(reader, writer, shown=5)
    compare_calls(lambda: submitted(visitor, *fields), expected)


@pytest.mark.parametrize("refused", [False, True])
def test_an_update_is_sent_between_the_user_s_row_and_the_next_whatever_comes_of_it(
    visitor, accounts, expected, compare_calls, refused
):
    if refused:
        accounts.refuse_users("update")
    reader, writer = expected.beginning_of_submitted_users()
    expected.users(reader, 3)
    expected.execute(writer, update("bob", "it''s bob", "builder"), "ERROR" if refused else "SUCCESS")
    expected.users(reader, 1)
    expected.execute(writer, update("mary", "Mary M.", "sheep"), "ERROR" if refused else "SUCCESS")
    expected.users(reader, 1)
    expected.end_of_rows(reader)
    expected.end_of_submitted_users(reader, writer, shown=5)
    compare_calls(lambda: submitted(visitor, ("mary_password", "sheep"), ("bob_file", "it's bob")), expected)


@pytest.mark.parametrize("refused", [False, True])
def test_a_new_user_is_inserted_behind_the_last_row_whatever_comes_of_it(
    visitor, accounts, expected, compare_calls, refused
):
    if refused:
        accounts.refuse_users("insert")
    reader, writer = expected.beginning_of_submitted_users()
    expected.users(reader, 5)
    expected.end_of_rows(reader)
    expected.execute(writer, insert("carl", "", "clock"), "ERROR" if refused else "SUCCESS")
    expected.end_of_submitted_users(reader, writer, shown=5 if refused else 6)
    compare_calls(lambda: submitted(visitor, ("__newuser", "carl"), ("__newpass", "clock")), expected)


def test_a_deleted_user_loses_the_rights_on_the_page_s_statements_while_the_users_are_read_on(
    visitor, expected, compare_calls
):
    reader, writer = expected.beginning_of_submitted_users()
    expected.users(reader, 1)
    expected.execute(writer, delete("Abe"))
    expected.change_all(all_at_once("revoke", 'from "Abe"'))
    expected.users(reader, 3)
    expected.execute(writer, delete("mary"))
    expected.change_all(all_at_once("revoke", 'from "mary"'))
    expected.users(reader, 1)
    expected.end_of_rows(reader)
    expected.end_of_submitted_users(reader, writer, shown=3)
    compare_calls(lambda: submitted(visitor, ("mary_checkbox", "OFF"), ("Abe_checkbox", "OFF")), expected)


def test_a_refused_delete_still_revokes(visitor, accounts, expected, compare_calls):
    accounts.refuse_users("delete")
    reader, writer = expected.beginning_of_submitted_users()
    expected.users(reader, 4)
    expected.execute(writer, delete("mary"), "ERROR")
    expected.change_all(all_at_once("revoke", 'from "mary"'))
    expected.users(reader, 1)
    expected.end_of_rows(reader)
    expected.end_of_submitted_users(reader, writer, shown=5)
    compare_calls(lambda: submitted(visitor, ("mary_checkbox", "OFF")), expected)


def deleted_and_changed(visitor, expected, compare_calls, revoke):
    """Bob is deleted and his privileges are revoked, or not quite, as `revoke` expects; Mary's change is applied."""
    reader, writer = expected.beginning_of_submitted_users()
    expected.users(reader, 3)
    expected.execute(writer, delete("bob"))
    revoke()
    expected.users(reader, 1)
    expected.execute(writer, update("mary", "Mary M.", "sheep"))
    expected.users(reader, 1)
    expected.end_of_rows(reader)
    expected.end_of_submitted_users(reader, writer, shown=4)
    compare_calls(lambda: submitted(visitor, ("bob_checkbox", "OFF"), ("mary_password", "sheep")), expected)


def test_a_refused_revocation_ends_those_of_the_user_and_the_next_rows_are_applied(
    visitor, accounts, expected, compare_calls
):
    accounts.refuse("delete", INVOICES)
    accounts.execute(f'grant all on {quoted_name(INVOICES)} to "bob"')
    first, second, *_ = all_at_once("revoke", 'from "bob"')

    def revoke():
        expected.table_list()
        expected.table()
        expected.change(first)
        expected.table()
        expected.failing_change(second)

    deleted_and_changed(visitor, expected, compare_calls, revoke)


def test_without_a_table_list_a_deletion_revokes_nothing_and_the_next_rows_are_applied(
    visitor, expected, compare_calls
):
    deleted_and_changed(visitor, expected, compare_calls, expected.failing_table_list)


def test_the_administrator_s_password_is_updated_with_the_right_old_one(visitor, expected, compare_calls):
    reader, writer = expected.beginning_of_submitted_users()
    expected.users(reader, 2)
    expected.execute(writer, update("admin", "Administrator", "new"))
    expected.users(reader, 3)
    expected.end_of_rows(reader)
    expected.end_of_submitted_users(reader, writer, shown=5)
    compare_calls(lambda: submitted(visitor, ("admin_oldpassword", "manager"), ("admin_password", "new")), expected)


@pytest.mark.parametrize("old", ["wrong", ""])
def test_a_wrong_old_password_ends_the_reading_at_the_administrator_s_row(visitor, expected, compare_calls, old):
    reader, writer = expected.beginning_of_submitted_users()
    expected.users(reader, 1)
    expected.execute(writer, update("Abe", "done", "honest"))
    expected.users(reader, 1)
    expected.give_back(reader, writer)
    expected.disconnect()
    fields = [("Abe_file", "done"), ("admin_oldpassword", old), ("admin_password", "new"), ("bob_file", "not done")]
    compare_calls(lambda: submitted(visitor, *fields), expected)


def test_a_new_name_with_a_quote_ends_behind_the_last_row(visitor, expected, compare_calls):
    reader, writer = expected.beginning_of_submitted_users()
    expected.users(reader, 3)
    expected.execute(writer, update("bob", "done", "builder"))
    expected.users(reader, 2)
    expected.end_of_rows(reader)
    expected.give_back(reader, writer)
    expected.disconnect()
    compare_calls(lambda: submitted(visitor, ("bob_file", "done"), ("__newuser", "o'brien")), expected)


def test_where_the_users_cannot_be_read_only_the_new_one_is_tried(visitor, accounts, expected, compare_calls):
    accounts.change('alter table "nordvale.system.user" rename column description to other')
    expected.reset()
    reader, writer = expected.own_statements()
    expected.execute(reader, SORTED_USERS, "ERROR")
    expected.read_diagnostic("STMT", reader)
    expected.call("SQLFetch", reader, result="ERROR")
    expected.execute(writer, insert("carl", "", "clock"), "ERROR")
    expected.close_cursor(reader, "ERROR")
    expected.give_back(reader, writer)
    expected.reset()
    expected.failing_query(expected.stmt, LISTED_USERS)
    expected.disconnect()
    fields = [("bob_file", "not done"), ("__newuser", "carl"), ("__newpass", "clock")]
    compare_calls(lambda: submitted(visitor, *fields), expected)


@pytest.mark.parametrize("name", ["userhelp.html", "footer.html"])
def test_without_a_template_behind_the_list_everything_is_given_back(visitor, templates, expected, compare_calls, name):
    templates.take_away(name)
    expected.users_list(5)
    expected.disconnect()
    compare_calls(lambda: visitor.post([("users.x", "1")]), expected)


# Handles that cannot be allocated


def test_without_statements_of_its_own_nothing_is_changed_and_the_page_ends(visitor, expected, compare_calls):
    expected.reset()
    expected.failing_allocation("STMT", expected.dbc, ("DBC", expected.dbc))
    expected.disconnect()
    compare_calls(lambda: submitted(visitor, ("bob_file", "not done")), expected)


def test_without_the_second_statement_of_its_own_the_first_is_given_back(visitor, expected, compare_calls):
    expected.reset()
    reader = expected.allocate("STMT", expected.dbc)
    expected.failing_allocation("STMT", expected.dbc, ("DBC", expected.dbc))
    expected.free("STMT", reader)
    expected.disconnect()
    compare_calls(lambda: submitted(visitor, ("bob_file", "not done")), expected)


def test_a_reset_that_fails_ends_the_page_and_gives_back_what_there_is(visitor, expected, compare_calls):
    expected.failing_reset()
    expected.disconnect()
    compare_calls(lambda: visitor.post([("users.x", "1")]), expected)


def test_a_revocation_without_statements_is_given_up_and_the_next_rows_are_applied(visitor, expected, compare_calls):
    deleted_and_changed(visitor, expected, compare_calls, expected.failing_reset)
