"""What is shown and done when a name or a value of the data source cannot be read: nothing with what is left of it."""

import re

import pytest

from support import pages
from support.fault_requests import REQUESTS, USERS, change_users, users_page
from support.pages import TABLES


def is_change(statement):
    return statement.startswith(("grant", "revoke", "update", "delete", "insert"))


@pytest.mark.parametrize("call", ["SQLExecDirect", "SQLFetch", "SQLGetData"])
def test_an_administrator_whose_name_the_page_cannot_read_is_still_the_administrator(laboratory, install, call):
    for name in ("users page", "two data sources"):
        page, _ = laboratory.send(REQUESTS[name])
        assert laboratory.send_with_fault(REQUESTS[name], call, "error", 2)[0] == page
    for changes in ({}, {"admin_password": "new"}, {"admin_checkbox": "OFF"}):
        _, sent = laboratory.send_with_fault(change_users(**changes), call, "error", 2)
        assert not any(is_change(statement) for statement in sent)


@pytest.mark.parametrize("user", range(4))
@pytest.mark.parametrize("column", range(3))
def test_a_user_that_cannot_be_read_whole_has_no_fields(laboratory, install, user, column):
    """Empty ones would be written back by the next Submit; without its name, the administrator's would be in clear."""
    # Two columns are read before, and "public" stands behind the administrator.
    before = 2 + 3 * (user + (user > 0))
    answer, _ = laboratory.send_with_fault(REQUESTS["users page"], "SQLGetData", "error", before + column + 1)
    users = list(USERS)
    if column == 0:
        users[user] = ("", "", "")
    assert pages.answered(answer) == users_page(users, blank=user)


@pytest.mark.parametrize("table", range(4))
@pytest.mark.parametrize("column", range(3))
def test_a_table_whose_name_cannot_be_read_whole_has_no_boxes(laboratory, install, table, column):
    """The rest of its name is another table's, and so would they be."""
    *_, reached = laboratory.count(REQUESTS["rights page of a user"])
    before = reached["SQLGetData"] - 9 * (len(TABLES) - table)
    fault = "SQLGetData", "error", before + column + 1
    answer, _ = laboratory.send_with_fault(REQUESTS["rights page of a user"], *fault)
    page = pages.answered(answer)
    assert re.findall(r'type=checkbox name="(.*)_select"', page) == [
        pages.row_key(*other) for number, other in enumerate(TABLES) if number != table
    ]


@pytest.mark.parametrize("request_name", ["grant all to the first user", "revoke all from the first user"])
@pytest.mark.parametrize("call", ["SQLExecDirect", "SQLFetch", "SQLGetData"])
def test_where_the_first_user_cannot_be_read_nothing_is_done_for_the_second(laboratory, install, request_name, call):
    _, sent = laboratory.send_with_fault(REQUESTS[request_name], call, "error", 3)
    assert not any(is_change(statement) for statement in sent)
