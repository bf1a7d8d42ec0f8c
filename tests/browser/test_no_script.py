"""The pages as plain HTML forms, for whoever has switched script off: on a telephone, a tablet and a desk."""

import pytest
from selenium.webdriver.support.ui import Select

from support.browser import box, field, find, find_all, press, resize, send_header, show_rights, switch_script_off, visit
from support.kinds import NAME, NOTES, ORDERS, STOCK, TABLES
from support.source import ADMINISTRATOR, PASSWORD

EVERYTHING = ("select", "insert", "update", "delete")


@pytest.fixture(params=[360, 768, 1280])
def plain_browser(request, browser):
    switch_script_off(browser)
    resize(browser, request.param)
    return browser


@pytest.fixture
def narrow_browser(browser):
    switch_script_off(browser)
    resize(browser, 360)
    return browser


def listed_users(driver):
    return [name.text for name in find_all(driver, "form > table table tr > td:first-child > font") if name.text]


def held(driver, table):
    return tuple(privilege for privilege in EVERYTHING if box(driver, table, privilege).is_selected())


def type_into(driver, name, text):
    field(driver, name).clear()
    field(driver, name).send_keys(text)


def test_who_logs_in_comes_to_the_users_of_the_chosen_data_source(narrow_browser, site):
    send_header(narrow_browser)
    narrow_browser.get(site.replace("//", f"//{ADMINISTRATOR}:{PASSWORD}@"))
    assert Select(field(narrow_browser, "initial_datasource")).first_selected_option.text == NAME
    press(narrow_browser, "users")
    assert Select(field(narrow_browser, "datasource")).first_selected_option.text == NAME
    assert field(narrow_browser, f"{ADMINISTRATOR}_oldpassword").is_displayed()


def test_users_are_added_changed_and_deleted(plain_browser, site, either):
    visit(plain_browser, site, "users")
    type_into(plain_browser, "bob_file", "Bob B.")
    type_into(plain_browser, "bob_password", "it's new")
    field(plain_browser, "Abe_checkbox").click()
    type_into(plain_browser, "__newuser", "zoe")
    type_into(plain_browser, "__newpass", "secret")
    press(plain_browser, "submit_users")
    assert not find_all(plain_browser, "[name=Abe_file]")
    assert field(plain_browser, "bob_file").get_attribute("value") == "Bob B."
    assert field(plain_browser, "zoe_file").get_attribute("value") == ""
    assert [either.admits(*user) for user in (("Abe", "honest"), ("bob", "it's new"), ("zoe", "secret"))] == [
        False,
        True,
        True,
    ]


def test_refresh_shows_the_users_as_they_are_stored(narrow_browser, site):
    visit(narrow_browser, site, "users")
    type_into(narrow_browser, "bob_file", "typed and not submitted")
    press(narrow_browser, "refresh_users")
    assert field(narrow_browser, "bob_file").get_attribute("value") == ""


def test_enter_in_a_text_field_neither_submits_nor_loses_what_was_typed(narrow_browser, site):
    visit(narrow_browser, site, "users")
    typed = field(narrow_browser, "__newuser")
    typed.send_keys("carl\n")
    # Of a page that another one has replaced no element can be read.
    assert typed.get_attribute("value") == "carl"
    press(narrow_browser, "refresh_users")
    assert not find_all(narrow_browser, "[name=carl_file]")


def test_ticked_and_cleared_boxes_become_rights(plain_browser, site, either):
    visit(plain_browser, site, "rights", user="mary")
    box(plain_browser, ORDERS, "update").click()
    box(plain_browser, STOCK, "delete").click()
    press(plain_browser, "submit_selection")
    assert [held(plain_browser, table) for table in (ORDERS, STOCK)] == [("select",), ("insert", "delete")]
    assert either.allowed("mary", "lamb", ORDERS, STOCK) == [("select",), ("insert", "delete")]


def test_grant_all_and_revoke_all_change_every_table(plain_browser, site, either):
    visit(plain_browser, site, "rights", user="mary")
    press(plain_browser, "rights_grant")
    assert {held(plain_browser, table) for table in TABLES} == {EVERYTHING}
    assert set(either.allowed("mary", "lamb", *TABLES)) == {EVERYTHING}
    press(plain_browser, "rights_revoke")
    assert {held(plain_browser, table) for table in TABLES} == {()}
    assert either.allowed("mary", "lamb", ORDERS, STOCK) == [(), ()]


def test_refresh_shows_the_chosen_users_rights_as_they_are(narrow_browser, site):
    visit(narrow_browser, site, "rights", user="mary")
    box(narrow_browser, STOCK, "select").click()
    press(narrow_browser, "rights_refresh")
    assert held(narrow_browser, STOCK) == ("insert",)
    show_rights(narrow_browser, "public")
    assert held(narrow_browser, NOTES) == ("select",)
    press(narrow_browser, "datasource_refresh")
    assert Select(field(narrow_browser, "isamuser")).first_selected_option.text == "public"


def test_the_reports_page_opens_and_leads_back(narrow_browser, site):
    visit(narrow_browser, site, "reports")
    press(narrow_browser, "users")
    assert field(narrow_browser, "__newuser").is_displayed()


@pytest.mark.parametrize("page", ("users", "rights", "reports"))
def test_nothing_is_offered_or_explained_that_only_script_does(narrow_browser, site, page):
    visit(narrow_browser, site, page)
    assert [shown.text for shown in find_all(narrow_browser, "button, dialog, .with_script") if shown.is_displayed()] == []
    assert [hidden.text for hidden in find_all(narrow_browser, ".without_script") if not hidden.is_displayed()] == []


def test_a_wrong_old_password_leads_to_an_error_page_that_tells_so_and_leads_back(plain_browser, site):
    visit(plain_browser, site, "users")
    type_into(plain_browser, f"{ADMINISTRATOR}_password", "new")
    type_into(plain_browser, f"{ADMINISTRATOR}_oldpassword", "wrong")
    press(plain_browser, "submit_users")
    assert find(plain_browser, "main").text == "Error\nInvalid manager password specified."
    find(plain_browser, "header a").click()
    assert field(plain_browser, "initial_datasource").is_displayed()
