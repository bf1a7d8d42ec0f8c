"""What the script posts, byte for byte, as it leaves the browser."""

import pytest

from support import browser as browsers
from support.browser import press
from support.kinds import ON_EMBEDDED

pytestmark = ON_EMBEDDED


@pytest.fixture
def start(browser, relay):
    browser.get(relay.address)
    return relay


def run(browser, script, *arguments):
    return browser.execute_script(f"return {script}", *arguments)


def test_names_go_as_they_are_and_values_encoded(browser, start):
    fields = [["datasource", "x"], ['a b+%&"ü_select', 'a b+%&=:"ü\r\n'], ["form_end", "1"]]
    expected = 'datasource=x&a b+%&"ü_select=a%20b%2B%25%26%3D%3A%22%C3%BC%0D%0A&form_end=1'
    assert run(browser, "encoded_form(arguments[0])", fields) == expected
    browser.execute_async_script("request_page(arguments[0]).then(arguments[1])", fields)
    assert start.bodies == [expected.encode()]


def test_half_a_character_is_replaced(browser, start):
    assert run(browser, r'encoded_form([["a", "\uD800b"]])') == "a=%EF%BF%BDb"


@pytest.mark.parametrize(
    ("name", "problem"),
    [
        ("a.b.c_select", ""),
        ('"Größe" & 50% + more\t_select', ""),
        ("&_select", ""),
        ("a b ", ""),
        ("a:b", "its name holds a “:”"),
        ("a=b", "its name holds a “=”"),
        (" a", "its name begins with a blank"),
        ("a\nb", "its name holds the end of a line"),
        ("a\rb", "its name holds the end of a line"),
        ("a\ufffdb", "its name holds a character that cannot be read"),
    ],
)
def test_a_name_that_cannot_be_sent_is_known(browser, start, name, problem):
    assert run(browser, "name_problem(arguments[0])", name) == problem


@pytest.mark.parametrize(("length", "sent"), [(30000, True), (30001, False)])
def test_a_form_is_measured_before_it_leaves(browser, start, length, sent):
    name = "ü" * 100  # each of them one character and two bytes
    value = "a" * (length - len(name.encode()) - len("datasource=x&="))
    script = "request_page(arguments[0]).then(answer => arguments[1](answer.kind))"
    kind = browser.execute_async_script(script, [["datasource", "x"], [name, value]])
    assert (kind != "too long", [len(body) for body in start.bodies]) == (sent, [length] * sent)


def test_a_view_posts_what_shows_it_and_nothing_else(browser, start):
    press(browser, "rights")
    browsers.show_rights(browser, "mary")
    press(browser, "users")
    source = "datasource=accounts&last_datasource=accounts"
    assert start.bodies == [
        f"{source}&{fields}&form_end=1".encode()
        for fields in ("rights_refresh=", "isamuser=mary&rights_refresh=", "users_refresh=")
    ]
