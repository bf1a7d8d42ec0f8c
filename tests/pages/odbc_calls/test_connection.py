"""The calls of the landing page, of the log-in and of what every page begins with."""

import pytest

from support.odbc_calls import Calls
from support.statements import ADMINISTRATOR_NAME

# The landing page


@pytest.mark.parametrize(
    "listed, first",
    [
        ([], None),
        ([("only", "NORDVALE_ISAM")], 1),
        ([("foreign", "SQLite3")], None),
        ([("foreign", "SQLite3"), ("ours", "NORDVALE_ISAM"), ("ours_too", "Tabrin")], 2),
        ([("ours", "Tabrin"), ("foreign", "SQLite3"), ("ours_too", "NORDVALE_ISAM")], 1),
    ],
    ids=["none", "one", "one of another driver", "three, the second is ours", "three, the first is ours"],
)
@pytest.mark.parametrize("path", ["/", "/index.html"])
def test_the_landing_page_walks_to_the_first_of_our_data_sources_then_through_all(
    visitor_of, compare_calls, path, listed, first
):
    visitor = visitor_of(*listed)
    expected = Calls()
    expected.first_data_source_chooser(len(listed), first)
    compare_calls(lambda: visitor.server.get(path), expected)


def test_a_form_for_the_landing_page_is_sent_to_the_data_source_without_a_log_in(visitor, compare_calls):
    expected = Calls()
    expected.data_source_chooser()
    expected.failing_connect("accounts", user="", password="")
    compare_calls(lambda: visitor.send([("datasource", "accounts")], path="/"), expected)


# The log-in


def test_without_a_data_source_credentials_or_a_page_nothing_is_called(visitor, compare_calls):
    def requests():
        visitor.send([("users.x", "1")])
        visitor.server.post("/isam.cgi", [("datasource", "accounts")])
        visitor.server.get("/style.css")
        visitor.server.get("/nowhere")

    compare_calls(requests, Calls())


@pytest.mark.parametrize("name", ["initial_datasource", "datasource"])
@pytest.mark.parametrize("user", ["admin", "ADMIN"])
def test_an_accepted_log_in_gives_everything_back_and_the_page_connects_anew(visitor, compare_calls, name, user):
    expected = Calls()
    expected.log_in(user=user)
    expected.data_source_chooser()
    expected.connect(user=user)
    expected.reset()
    expected.disconnect()
    compare_calls(lambda: visitor.send([(name, "accounts")], user=user), expected)


def test_the_log_in_goes_to_the_initial_data_source_and_the_page_to_the_other(visitor, compare_calls):
    expected = Calls()
    expected.log_in("accounts")
    expected.data_source_chooser()
    expected.connect("branch")
    expected.reset()
    expected.disconnect()
    compare_calls(lambda: visitor.send([("datasource", "branch"), ("initial_datasource", "accounts")]), expected)


@pytest.mark.parametrize("user, password", [("admin", "wrong"), ("nobody", "manager"), ("", "")])
def test_a_refused_log_in_reads_the_diagnostic_and_leaves_its_handles(visitor, compare_calls, user, password):
    expected = Calls()
    expected.failing_connect("accounts", user, password)
    compare_calls(lambda: visitor.post(user=user, password=password), expected)


def test_an_unknown_data_source_is_tried_once_and_its_handles_are_left(visitor, compare_calls):
    expected = Calls()
    expected.failing_connect("nowhere")
    compare_calls(lambda: visitor.post(source="nowhere"), expected)


def test_a_user_who_is_not_the_administrator_stays_connected(visitor, compare_calls):
    expected = Calls()
    expected.connect(user="mary", password="lamb")
    compare_calls(lambda: visitor.post(user="mary", password="lamb"), expected)


def test_where_the_administrator_cannot_be_asked_for_the_statement_is_renewed_all_the_same(
    visitor, accounts, compare_calls
):
    accounts.change('drop table "nordvale.system.sysinfo"')
    expected = Calls()
    expected.driver_connect("accounts", "admin", "manager")
    expected.allocate_statements()
    expected.failing_query(expected.stmt, ADMINISTRATOR_NAME)
    expected.renew_statement()
    compare_calls(visitor.post, expected)


def test_where_no_administrator_is_recorded_no_column_is_read(visitor, accounts, compare_calls):
    accounts.change('delete from "nordvale.system.sysinfo"')
    expected = Calls()
    expected.driver_connect("accounts", "admin", "manager")
    expected.allocate_statements()
    expected.query(expected.stmt, ADMINISTRATOR_NAME, rows=0, columns=1)
    expected.renew_statement()
    compare_calls(visitor.post, expected)


@pytest.mark.parametrize("name", ["initial_datasource", "datasource"])
def test_an_empty_data_source_is_not_connected_and_the_rest_is_tried_without_handles(visitor, compare_calls, name):
    refused = {"result": "INVALID_HANDLE"}
    expected = Calls()
    expected.execute("null", ADMINISTRATOR_NAME, **refused)
    expected.read_diagnostic("STMT", "null", **refused)
    expected.call("SQLFetch", "null", **refused)
    expected.close_cursor("null", **refused)
    expected.call("SQLAllocHandle", "STMT", "null", "none", **refused)
    expected.read_diagnostic("DBC", "null", **refused)
    compare_calls(lambda: visitor.send([(name, ""), ("last_datasource", "accounts")]), expected)


# The page


def test_a_page_that_cannot_connect_leaves_its_handles(visitor, compare_calls):
    expected = Calls()
    expected.log_in("accounts")
    expected.data_source_chooser()
    expected.failing_connect("nowhere")
    compare_calls(lambda: visitor.send([("initial_datasource", "accounts"), ("datasource", "nowhere")]), expected)


@pytest.mark.parametrize("field", ["reports.x", "reports_refresh", "datasource_refresh"])
def test_a_page_without_a_body_has_only_what_every_page_begins_with(visitor, compare_calls, field):
    expected = Calls()
    expected.beginning_of_page()
    expected.disconnect()
    compare_calls(lambda: visitor.post([(field, "")]), expected)


# Missing templates


@pytest.mark.parametrize("name", ["header.html", "menu.html"])
def test_without_a_template_of_its_head_a_page_calls_nothing(visitor, templates, compare_calls, name):
    templates.take_away(name)
    compare_calls(lambda: visitor.server.get("/"), Calls())
    expected = Calls()
    expected.log_in()
    compare_calls(lambda: visitor.post([("users.x", "1")]), expected)


def test_without_its_footer_the_landing_page_has_called_everything(visitor, templates, compare_calls):
    templates.take_away("footer.html")
    expected = Calls()
    expected.first_data_source_chooser(listed=2, first=1)
    compare_calls(lambda: visitor.server.get("/"), expected)


def test_without_its_footer_a_page_gives_everything_back(visitor, templates, compare_calls):
    templates.take_away("footer.html")
    expected = Calls()
    expected.beginning_of_page()
    expected.disconnect()
    compare_calls(visitor.post, expected)


@pytest.mark.parametrize("name", ["header.html", "footer.html"])
def test_an_error_page_without_a_template_changes_no_call(visitor, templates, compare_calls, name):
    templates.take_away(name)
    expected = Calls()
    expected.failing_connect("nowhere")
    compare_calls(lambda: visitor.post(source="nowhere"), expected)


# Handles that cannot be allocated


def test_without_an_environment_the_data_sources_are_asked_for_all_the_same(visitor, compare_calls):
    refused = {"result": "INVALID_HANDLE"}
    expected = Calls()
    expected.make_fail("SQLAllocHandle", "ENV", "null", "none")
    expected.call("SQLSetEnvAttr", "null", "ODBC_VERSION", 3, **refused)
    for _ in ("the first", "all"):
        expected.call("SQLDataSources", "null", "FIRST", 255, 255, **refused)
    expected.call("SQLFreeHandle", "ENV", "null", **refused)
    compare_calls(lambda: visitor.server.get("/"), expected)


def test_a_log_in_without_an_environment_shows_the_failing_connection_handle(visitor, compare_calls):
    refused = {"result": "INVALID_HANDLE"}
    expected = Calls()
    expected.make_fail("SQLAllocHandle", "ENV", "null", "none")
    expected.call("SQLSetEnvAttr", "null", "ODBC_VERSION", 3, **refused)
    expected.call("SQLAllocHandle", "DBC", "null", "none", **refused)
    expected.read_diagnostic("ENV", "null", **refused)
    compare_calls(visitor.post, expected)


def test_without_a_connection_handle_the_environment_is_asked_why_and_left(visitor, compare_calls):
    expected = Calls()
    env = expected.environment()
    expected.failing_allocation("DBC", env, ("ENV", env))
    compare_calls(visitor.post, expected)


@pytest.mark.parametrize("allocated", [0, 1], ids=["the first", "the second"])
def test_without_a_statement_the_connection_is_asked_why_and_left_and_no_other_is_tried(
    visitor, compare_calls, allocated
):
    expected = Calls()
    expected.driver_connect("accounts", "admin", "manager")
    for _ in range(allocated):
        expected.allocate("STMT", expected.dbc)
    expected.failing_allocation("STMT", expected.dbc, ("DBC", expected.dbc))
    compare_calls(visitor.post, expected)


def test_without_a_new_statement_behind_the_administrator_s_name_everything_is_left(visitor, compare_calls):
    expected = Calls()
    expected.driver_connect("accounts", "admin", "manager")
    expected.allocate_statements()
    expected.administrator_name()
    expected.free("STMT", expected.stmt)
    expected.failing_allocation("STMT", expected.dbc, ("DBC", expected.dbc))
    compare_calls(visitor.post, expected)


def test_the_first_reset_of_a_page_that_fails_leaves_everything(visitor, compare_calls):
    expected = Calls()
    expected.log_in()
    expected.data_source_chooser()
    expected.connect()
    expected.failing_reset()
    compare_calls(visitor.post, expected)
