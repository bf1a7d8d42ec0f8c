"""One administrator's visit in a real browser, with the effect looked at through an ordinary ODBC program."""

import os
import subprocess

import pytest
from selenium.webdriver.support.ui import Select

from support.browser import (
    answer_question,
    box,
    button,
    field,
    find,
    find_all,
    next_page,
    press,
    question,
    show_rights,
    wait_until,
)
from support.kinds import NAME, ORDERS, STOCK
from support.pages import quoted_name


@pytest.fixture
def isql(either):
    """Runs a statement as a user; gives what isql prints."""

    def run(user, password, statement):
        result = subprocess.run(
            ["isql", "-b", "-d,", NAME, user, password],
            input=statement + "\n",
            capture_output=True,
            text=True,
            env={**os.environ, **either.environment},
        )
        return result.stdout + result.stderr

    return run


def press_and_read(driver, name):
    """Presses the button, agrees to what the question says, waits for the answer. Gives what the question said."""
    with next_page(driver):
        button(driver, name).click()
        items = question(driver).text
        answer_question(driver)
    return items


def test_an_administrator_changes_users_and_rights_and_reads_who_may_do_what(browser, site, either, isql):
    orders = quoted_name(ORDERS)
    either.fill(ORDERS, "Adams")
    browser.get(site)
    assert Select(field(browser, "initial_datasource")).first_selected_option.text == NAME

    press(browser, "users")
    assert field(browser, "Abe_password").get_attribute("value") == either.shown_password("honest")
    field(browser, "Abe_password").clear()
    field(browser, "Abe_password").send_keys("it's new")
    field(browser, "__newuser").send_keys("zoe")
    field(browser, "__newpass").send_keys("secret")
    asked = press_and_read(browser, "submit_users")
    assert "Abe" in asked and "zoe" in asked and "mary" not in asked
    assert field(browser, "Abe_password").get_attribute("value") == either.shown_password("it's new")
    assert field(browser, "zoe_password").get_attribute("value") == either.shown_password("secret")

    press(browser, "rights")
    assert Select(field(browser, "isamuser")).first_selected_option.text == "Abe"
    assert "Adams" not in isql("Abe", "it's new", f"select * from {orders}")
    box(browser, ORDERS, "select").click()
    assert f"grant select on {'.'.join(ORDERS)} to Abe" in press_and_read(browser, "submit_selection")
    assert box(browser, ORDERS, "select").is_selected()
    assert not box(browser, STOCK, "select").is_selected()
    assert "Adams" in isql("Abe", "it's new", f"select * from {orders}")

    press_and_read(browser, "rights_revoke")
    assert not box(browser, ORDERS, "select").is_selected()
    assert "Adams" not in isql("Abe", "it's new", f"select * from {orders}")

    show_rights(browser, "zoe")
    assert "Permissions currently allowed for user zoe." in find(browser, "main").text
    press_and_read(browser, "rights_grant")
    assert box(browser, STOCK, "delete").is_selected()
    assert "ERROR" not in isql("zoe", "secret", f"delete from {orders}")
    assert either.count(ORDERS) == 0

    press(browser, "reports")
    next(shown for shown in find_all(browser, ".report button") if shown.text == "Gather").click()
    titles = wait_until(browser, lambda: [title.text for title in find_all(browser, ".matrix thead th")])
    assert "zoe" in titles and "mary" in titles
