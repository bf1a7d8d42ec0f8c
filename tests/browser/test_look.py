"""What the style does to the pages, at the widths of a phone, a tablet and a desk."""

import threading
from http.server import BaseHTTPRequestHandler, ThreadingHTTPServer
from urllib.request import urlopen

import pytest

from support.browser import (
    PAGES,
    button,
    field,
    find,
    find_all,
    next_page,
    press,
    resize,
    show_as,
    switch_script_off,
    visit,
    wait_until,
)
from support.kinds import NAME, ON_EMBEDDED
from support.sample import user_statement
from support.source import ADMINISTRATOR

pytestmark = ON_EMBEDDED

WIDTHS = (360, 768, 1280)
LONG_TABLES = [(NAME, "s" * 60, f"table_{number}_" + "t" * 100) for number in range(40)]
ROW = "form > [align] ~ [bgcolor='#0a1965'] table tr"

PAGE_AND_SCREEN = "return [document.documentElement.scrollWidth, document.documentElement.clientWidth]"


@pytest.fixture
def long_lists(either):
    either.make_tables(*LONG_TABLES)
    either.source.execute(
        user_statement("u" * 60, "d" * 200, "x"), *(user_statement(f"user{number}", "", "x") for number in range(30))
    )


@pytest.fixture(params=["with script", "without script"])
def reader(request, browser):
    """A browser of each kind of reader."""
    if request.param == "without script":
        switch_script_off(browser)
    return browser


def pages(driver, site):
    """Shows one page after the other, the start page first, and gives their names."""
    driver.get(site)
    yield "start"
    for page in PAGES:
        press(driver, page)
        yield page


def in_every_width(driver, site):
    for page in pages(driver, site):
        for width in WIDTHS:
            resize(driver, width)
            yield page, width


def test_no_page_is_wider_than_the_screen(reader, site, long_lists):
    for page, width in in_every_width(reader, site):
        needed, there = reader.execute_script(PAGE_AND_SCREEN)
        assert needed <= there, (page, width)


def test_a_wide_report_scrolls_beside_its_names_in_a_frame_of_its_own(browser, site, long_lists):
    visit(browser, site, "reports")
    resize(browser, 360)
    find(browser, "section .actions button").click()
    wait_until(browser, lambda: find(browser, ".matrix"))
    for only_what_is_held in find_all(browser, ".report input[type=checkbox]"):
        only_what_is_held.click()
    assert browser.execute_script(PAGE_AND_SCREEN) == [345, 345]
    measure = """
        const frame = document.querySelector(".matrix");
        frame.scrollTo(1000, 0);
        const name = frame.querySelector("tbody th").getBoundingClientRect().left - frame.getBoundingClientRect().left;
        return [frame.scrollLeft > 500, name >= 0 && name < 5]"""
    assert browser.execute_script(measure) == [True, True]


def test_whatever_can_be_pressed_is_24_pixels_wide_and_high(reader, site, long_lists):
    measure = """
        return [...document.querySelectorAll("a, button, input, select, summary")]
            .filter(control => control.checkVisibility() && !control.closest(".skip"))
            .map(control => [control.outerHTML.slice(0, 80), control.getBoundingClientRect()])
            .filter(([, {width, height}]) => width < 24 || height < 24).map(([control]) => control)"""
    for page, width in in_every_width(reader, site):
        assert reader.execute_script(measure) == [], (page, width)


def test_a_long_name_leaves_the_buttons_of_its_list_their_room(browser, site, either):
    either.make_tables((NAME, "north", "n" * 150))
    visit(browser, site, "rights")
    outside = """
        return [...document.querySelectorAll(".fill")].filter(button => button.checkVisibility()).filter(button => {
            const {left, right} = button.getBoundingClientRect(), cell = button.closest("th, td").getBoundingClientRect();
            return button.scrollWidth > button.clientWidth || left < cell.left || right > cell.right + 1;
        }).map(button => button.outerHTML)"""
    for width in (768, 1280):
        resize(browser, width)
        assert browser.execute_script(outside) == [], width


def test_the_menu_marks_the_page_that_is_shown_by_a_bar(reader, site):
    barred = {}
    for page in pages(reader, site):
        bars = {name: button(reader, name).value_of_css_property("border-bottom-color") for name in PAGES}
        barred[page] = [name for name, colour in bars.items() if colour != "rgba(0, 0, 0, 0)"]
    assert barred == {"start": [], "users": ["users"], "rights": ["rights"], "reports": ["reports"]}


def test_each_page_has_a_heading_of_its_own(reader, site):
    shown = [[title.text for title in find_all(reader, "h1") if title.is_displayed()] for _ in pages(reader, site)]
    assert shown == [["Choose a data source"], ["Users"], ["Rights"], ["Reports"]]


@pytest.mark.parametrize("page", ["users", "rights"])
def test_the_titles_stay_in_sight_above_a_long_list(reader, site, long_lists, page):
    visit(reader, site, page)
    measure = """
        const title = arguments[0].firstElementChild;
        const {left, top, height} = title.getBoundingClientRect();
        const at = document.elementFromPoint(left + 2, top + height / 2);
        return [scrollY > 500, top >= 0 && top < 20, title.contains(at)]"""
    for width in WIDTHS:
        resize(reader, width, 500)
        titles, *others = find_all(reader, ROW)
        reader.execute_script("arguments[0].scrollIntoView({block: 'center'})", others[25])
        assert reader.execute_script(measure, titles) == [True, True, True], width


def test_nothing_covers_what_has_the_focus(reader, site, long_lists):
    covered = """
        const controls = [...document.querySelectorAll(arguments[0])].filter(control => control.checkVisibility());
        document.activeElement.blur();
        return [...controls, ...controls.reverse()].filter(control => {
            control.focus();
            const {left, width, top, bottom} = control.getBoundingClientRect();
            return [top + 2, bottom - 2].some(y => document.elementFromPoint(left + width / 2, y) !== control);
        }).map(control => control.outerHTML)"""
    for page in ("users", "rights"):
        visit(reader, site, page)
        for width in WIDTHS:
            resize(reader, width, 500)
            assert reader.execute_script(covered, f"{ROW} :is(input, button):enabled") == [], (page, width)


def test_print_has_the_list_with_its_titles_on_each_sheet_and_nothing_to_press(reader, site, long_lists):
    visit(reader, site, "rights")
    rows = len(find_all(reader, ROW))
    show_as(reader, scheme="dark", media="print")
    display = "return getComputedStyle(document.querySelector('thead') ?? arguments[0]).display"
    titles, *others = find_all(reader, ROW)
    assert reader.execute_script(display, titles) == "table-header-group"
    assert rows > 40 and all(row.is_displayed() for row in others if row.text)
    pressed = "input[type=submit], input[type=image], .tools, .help, footer"
    assert not [control for control in find_all(reader, pressed) if control.is_displayed()]
    assert colours(reader) == ("rgba(255, 255, 255, 1)", "rgba(27, 30, 46, 1)")


def test_print_has_no_button_among_the_titles(browser, site):
    """Browsers print one on the first sheet only."""
    visit(browser, site, "rights")
    show_as(browser, media="print")
    titles = """return [...document.querySelectorAll("thead th")].filter(title => title.checkVisibility()).map(title =>
        [title.innerText, getComputedStyle(title, "::before").content])"""
    names = ("Catalog", "Schema", "Table", "Grantor", "Grantee", "Select", "Insert", "Update", "Delete")
    assert browser.execute_script(titles) == [["", f'"{name}"'] for name in names]


def test_a_mark_below_a_field_moves_nothing_beside_it(browser, site):
    visit(browser, site, "users")
    description, password = field(browser, "mary_file"), field(browser, "mary_password")
    for width in WIDTHS[1:]:
        resize(browser, width)
        password.send_keys("mary")
        assert find(browser, ".mark").is_displayed()
        assert description.location["y"] == password.location["y"], width
        browser.execute_script("undo_all()")


def colours(driver):
    body = find(driver, "body")
    return tuple(body.value_of_css_property(name) for name in ("background-color", "color"))


def test_a_long_question_has_its_title_and_its_buttons_in_sight_on_a_phone(browser, site):
    resize(browser, 360, 640)
    browser.get(site)
    browser.execute_script("ask({title: 'Go on?', text: 'and so on, '.repeat(200), go: 'Go'})")
    seen = """return [...document.querySelectorAll("dialog :is(h2, .actions button)")].filter(element => {
        const {left, top, bottom} = element.getBoundingClientRect();
        return [top + 2, bottom - 2].every(y => document.elementFromPoint(left + 20, y) === element);
    }).map(element => element.textContent)"""
    assert browser.execute_script(seen) == ["Go on?", "Cancel", "Go"]


def test_a_dark_screen_gets_a_dark_page(browser, site):
    browser.get(site)
    assert colours(browser) == ("rgba(255, 255, 255, 1)", "rgba(27, 30, 46, 1)")
    show_as(browser, "dark")
    assert colours(browser) == ("rgba(16, 19, 31, 1)", "rgba(228, 231, 243, 1)")


def test_an_error_page_looks_like_the_others(browser, site):
    switch_script_off(browser)
    visit(browser, site, "users")
    field(browser, f"{ADMINISTRATOR}_oldpassword").send_keys("wrong")
    with next_page(browser):
        button(browser, "submit_users").click()
    assert find(browser, "main > h1").text == "Error"
    assert "Invalid manager password specified." in find(browser, "main").text
    assert find(browser, "header").value_of_css_property("background-color") == "rgba(10, 25, 101, 1)"


@pytest.fixture
def half_page(site):
    """A server of the beginning of the start page, down to its list. Gives its address and what was posted."""
    posted = []
    with urlopen(site) as whole:
        beginning = whole.read().partition(b"</select>")[0]

    class Half(BaseHTTPRequestHandler):
        def do_GET(self):
            self.send_response(200)
            self.send_header("Content-Type", "text/html")
            self.end_headers()
            self.wfile.write(beginning)

        def do_POST(self):
            posted.append(self.path)

        def log_message(self, *_):
            pass

    with ThreadingHTTPServer(("127.0.0.1", 0), Half) as server:
        thread = threading.Thread(target=server.serve_forever)
        thread.start()
        yield f"http://localhost:{server.server_port}/", posted
        server.shutdown()
        thread.join()


def test_a_page_whose_end_has_not_come_sends_nothing(browser, half_page):
    address, posted = half_page
    browser.get(address)
    button(browser, "users").click()
    alert = browser.switch_to.alert
    assert alert.text == "Nothing was sent: this page has not arrived whole yet. Wait until it has, or load it again."
    alert.accept()
    assert browser.current_url == address
    assert posted == []
