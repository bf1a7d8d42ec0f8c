"""What docs/security.md says of other sites in a browser that remembers the log-in."""

from pathlib import Path

import pytest

from support.browser import find, find_all, wait_until
from support.forms import MARYS_RIGHTS
from support.kinds import NAME
from support.other_site import SEND_FORM, OnIpv6, log_in, other_site

GRANT_ALL = (*MARYS_RIGHTS, ("rights_refresh", "x"), ("rights_grant", "x"))

SHOW_FRAME = """
const [name, address] = arguments;
document.body.append(Object.assign(document.createElement("iframe"), {name, src: address}));
"""

FETCH = """
const [address, fields] = arguments;
fetch(address, {method: "POST", credentials: "include", mode: "no-cors", body: new URLSearchParams(fields)});
"""

# Whether it is shown or not.
SHOW_IMAGE = """
const [address, finished] = arguments;
document.body.append(Object.assign(new Image(), {src: address, onload: finished, onerror: finished}));
"""


def send_from_elsewhere(driver, address):
    """Another site's form grants mary everything; gives the text of what the browser shows then."""
    with other_site() as elsewhere:
        driver.get(elsewhere.address)
        body = find(driver, "body")
        driver.execute_script(SEND_FORM, address + "isam.cgi", GRANT_ALL)
        wait_until(driver, lambda: driver.current_url.startswith(address) and body not in find_all(driver, "body"))
        return find(driver, "body").text


def test_nginx_refuses_a_form_of_another_site(browser, front_of, rights):
    address = front_of("nginx").address
    before = rights()
    log_in(browser, address)
    assert "403 Forbidden" in send_from_elsewhere(browser, address)
    assert rights() == before


def test_without_it_the_same_form_is_obeyed(browser, relay, rights):
    before = rights()
    log_in(browser, relay.address)
    assert "Permissions currently allowed for user mary." in send_from_elsewhere(browser, relay.address)
    assert len(rights()) > len(before)


def into_frame(driver, address):
    driver.execute_script(SHOW_FRAME, "frame", "about:blank")
    driver.execute_script(SEND_FORM, address, GRANT_ALL, "frame")


def by_fetch(driver, address):
    driver.execute_script(FETCH, address, GRANT_ALL)


@pytest.mark.parametrize("send", (into_frame, by_fetch))
def test_a_form_that_is_sent_beside_the_page_arrives_without_the_log_in(browser, relay, send):
    log_in(browser, relay.address)
    with other_site() as elsewhere:
        browser.get(elsewhere.address)
        relay.posts.clear()
        send(browser, relay.address + "isam.cgi")
        wait_until(browser, lambda: relay.posts)
    assert b"rights_grant=x" in relay.posts[0]
    assert b"authorization:" not in relay.posts[0].lower()


def test_under_another_name_the_server_is_not_given_the_log_in(browser, relay):
    log_in(browser, relay.address)
    other_name = relay.address.replace("localhost", "127.0.0.1")
    browser.get(other_name)
    relay.posts.clear()
    by_fetch(browser, other_name + "isam.cgi")
    wait_until(browser, lambda: relay.posts)
    assert b"authorization:" not in relay.posts[0].lower()


def is_asked_for_an_image(driver, site):
    driver.execute_async_script(SHOW_IMAGE, site.address + "image")
    return "/image" in site.paths


def test_a_page_shows_no_image_of_another_site(browser, relay):
    browser.get(relay.address)
    with other_site() as elsewhere:
        assert not is_asked_for_an_image(browser, elsewhere)


def test_an_error_page_has_no_policy_and_shows_it(browser, relay):
    browser.get(relay.address)
    browser.execute_script(SEND_FORM, relay.address, [("users.x", "1"), ("datasource", NAME)])
    wait_until(browser, lambda: "SQLDriverConnect failed" in find(browser, "body").text)
    with other_site() as elsewhere:
        assert is_asked_for_an_image(browser, elsewhere)


def test_another_site_shows_the_start_page_in_a_frame(browser, relay):
    with other_site() as elsewhere:
        browser.get(elsewhere.address)
        browser.execute_script(SHOW_FRAME, "frame", relay.address)
        browser.switch_to.frame("frame")
        wait_until(browser, lambda: find(browser, "h1.start"))
        browser.switch_to.default_content()


def has_ipv6():
    addresses = Path("/proc/net/if_inet6")
    return addresses.exists() and 31 * "0" + "1 " in addresses.read_text()


@pytest.mark.skipif(not has_ipv6(), reason="there is no IPv6 here")
def test_localhost_is_first_of_all_who_listens_on_ipv6(browser, kinds_server, either):
    with other_site(OnIpv6, ("::1", kinds_server.port)) as neighbour:
        browser.get(f"http://localhost:{kinds_server.port}/")
    assert "/" in neighbour.paths
