"""An administrator's way through the pages: data sources, the browser's history, what goes wrong on the way."""

import pytest

from support import browser as browsers
from support.browser import notices, press, visit, wait_until
from support.kinds import NAME, ON_EMBEDDED, UNREACHABLE
from support.relay import Relay
from support.sample import SampleSource, user_statement
from support.server import RunningServer, install_html
from support.source import ODBC_DIR, list_sources


@pytest.fixture
def office():
    """The address of a server whose data source has blanks in its name."""
    folder = ODBC_DIR / "office"
    name = "main office 7"
    environment = list_sources((name,), folder)
    source = SampleSource(name, folder)
    source.prepare(user_statement("anna", "", "x"), user_statement("bob", "", "x"))
    source.reset()
    install_html()
    server = RunningServer(environment=environment)
    with Relay(server.port) as between:
        yield between.address
    server.stop()


def test_a_data_source_with_blanks_in_its_name_keeps_the_chosen_user(browser, office):
    visit(browser, office, "rights", user="bob")
    assert browser.title == "Rights of bob – main office 7 – tabwarden"
    assert browsers.field(browser, "last_datasource").get_attribute("value") == "main office 7"


@ON_EMBEDDED
def test_each_page_tells_its_name_in_the_title(browser, site):
    browser.get(site)
    titles = [browser.title]
    for page in browsers.PAGES:
        press(browser, page)
        titles.append(browser.title)
    assert titles == [
        "tabwarden", f"Users – {NAME} – tabwarden", f"Rights of Abe – {NAME} – tabwarden", f"Reports – {NAME} – tabwarden"
    ]


def titled(browser, beginning):
    return wait_until(browser, lambda: browser.title.startswith(beginning) and not browsers.find_all(browser, ".busy"))


@ON_EMBEDDED
def test_back_and_forward_show_the_pages_that_were_seen(browser, site):
    visit(browser, site, "rights", user="mary")
    press(browser, "users")
    browser.back()
    titled(browser, "Rights of mary")
    browser.back()
    titled(browser, "tabwarden")
    browser.forward()
    titled(browser, "Rights of mary")


@ON_EMBEDDED
def test_reloading_shows_the_same_page_again(browser, relay):
    visit(browser, relay.address, "rights", user="mary")
    relay.posts.clear()
    browser.refresh()
    titled(browser, "Rights of mary")
    assert relay.bodies == [b"datasource=accounts&last_datasource=accounts&isamuser=mary&rights_refresh=&form_end=1"]


@ON_EMBEDDED
def test_the_name_on_top_leads_to_the_start_page(browser, relay):
    visit(browser, relay.address, "users")
    relay.posts.clear()
    browsers.find(browser, "header a").click()
    wait_until(browser, lambda: browser.title == "tabwarden")
    press(browser, "reports")
    assert [body for body in relay.bodies if b"users_refresh" in body] == []


@ON_EMBEDDED
def test_the_user_whose_rights_were_shown_is_shown_again(browser, site):
    visit(browser, site, "rights", user="mary")
    press(browser, "users")
    press(browser, "rights")
    assert browser.title.startswith("Rights of mary")


@ON_EMBEDDED
def test_a_data_source_that_cannot_be_opened_is_explained_and_the_page_stays(browser, site):
    visit(browser, site, "users")
    browsers.Select(browsers.field(browser, "datasource")).select_by_value(UNREACHABLE)
    browsers.button(browser, "rights").click()
    ((kind, text),) = wait_until(browser, lambda: notices(browser))
    assert kind == "bad" and "could not open the data source" in text and f"Data source: {UNREACHABLE}" in text
    assert browser.title.startswith("Users")
    assert browsers.Select(browsers.field(browser, "datasource")).first_selected_option.text == UNREACHABLE


SPOILED = {
    "closed": (lambda answer: b"", "No answer came that a browser can show."),
    "cut": (lambda answer: answer[:-20], "The answer stopped in the middle."),
    "log-in given up": (lambda answer: b"HTTP/1.1 401 Authorization Required\r\n\r\n", "The log-in was refused or given up."),
    "an error of the server's": (
        lambda answer: answer[: answer.index(b"\r\n\r\n") + 4]
        + b"<HTML><HEAD>\r\n<TITLE>Error</TITLE>\r\n</HEAD><BODY>\r\n<H1>Error</H1>\r\n<p>It&#39;s &lt;off&gt;\n<p>\r\n</BODY></HTML>",
        "It's <off>",
    ),
}


@ON_EMBEDDED
@pytest.mark.parametrize("spoiled", SPOILED)
def test_without_a_page_the_reader_is_told_why_and_can_go_on(browser, relay, spoiled):
    spoil, words = SPOILED[spoiled]
    good = relay.spoil
    browser.get(relay.address)
    relay.spoil = spoil
    browsers.button(browser, "users").click()
    ((kind, text),) = wait_until(browser, lambda: notices(browser))
    assert kind == "bad" and text.startswith(words)
    relay.spoil = good
    press(browser, "users")
    assert not notices(browser) and browser.title.startswith("Users")


@pytest.fixture
def without_data_sources(running_server):
    with Relay(running_server.port) as between:
        yield between.address


@pytest.mark.parametrize("script", [True, False])
def test_without_any_data_source_the_start_page_says_how_to_add_one(browser, without_data_sources, script):
    if not script:
        browsers.switch_script_off(browser)
    browser.get(without_data_sources)
    assert "/etc/odbc.ini" in browsers.find(browser, "form").text


@ON_EMBEDDED
def test_where_a_data_source_can_be_chosen_the_start_page_does_not(browser, site):
    browser.get(site)
    assert "/etc/odbc.ini" not in browsers.find(browser, "form").text


@ON_EMBEDDED
def test_a_user_who_is_gone_by_now_is_named_as_such(browser, site, either):
    visit(browser, site, "rights", user="mary")
    press(browser, "users")
    either.drop_user("mary")
    press(browser, "rights")
    assert browsers.find(browser, ".choice").text.startswith("There is no user mary to be changed here.")
    assert not browsers.button(browser, "submit_selection").is_enabled()
