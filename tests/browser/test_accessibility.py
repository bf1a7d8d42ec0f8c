"""Whether everybody can use the pages: axe-core on each of their states, and the keyboard alone."""

import pytest
from selenium.webdriver.common.action_chains import ActionChains
from selenium.webdriver.common.by import By
from selenium.webdriver.common.keys import Keys

from support.browser import (
    answer_question,
    box,
    button,
    field,
    find,
    find_all,
    next_page,
    press,
    press_and_agree,
    question,
    resize,
    show_as,
    show_rights,
    switch_script_off,
    visit,
    wait_until,
)
from support.kinds import ODD_TABLES, ODD_USERS, ON_EMBEDDED, STOCK, UNREACHABLE
from support.server import ROOT

AXE = (ROOT / "tests" / "browser" / "node_modules" / "axe-core" / "axe.min.js").read_text()
RULES = ("wcag2a", "wcag2aa", "wcag21a", "wcag21aa", "wcag22aa", "best-practice")

# In the dark the colours are others and nothing else is.
RULES_OF_SCHEME = {"light": RULES, "dark": ("cat.color",)}

# What the server's markup breaks and no template can mend: its lists of data sources and users, text fields and boxes
# bear no label, and nothing in a template can name an element without an id.
BROKEN_WITHOUT_SCRIPT = {"label", "select-name"}

# The two kinds of data source differ in nothing that these tests look at.
pytestmark = ON_EMBEDDED


def violations(driver, rules):
    """What axe-core finds in the page as it is: [rule, element, what to mend]."""
    driver.execute_script(AXE)
    return driver.execute_async_script(
        """const [rules, done] = arguments;
        axe.run({runOnly: rules, resultTypes: ["violations"]}).then(({violations}) => done(violations.flatMap(
            ({id, nodes}) => nodes.map(({target, failureSummary}) => [id, target.join(" "), failureSummary]))));""",
        rules,
    )


def expect_no_violations(driver, except_for=()):
    """Neither on a telephone nor on a desk, neither by day nor by night."""
    for width in (360, 1280):
        # So high that nothing scrolls: what the bar at the window's end covers now is not covered when one gets there.
        resize(driver, width, 4000)
        for scheme, rules in RULES_OF_SCHEME.items():
            show_as(driver, scheme)
            found = violations(driver, rules)
            assert [violation for violation in found if violation[0] not in except_for] == [], (width, scheme)


def filter_field(driver):
    return find(driver, ".tools input[type=search]")


def visit_with_changes(driver, site, page):
    if page == "users":
        visit(driver, site, "users")
        field(driver, "bob_file").send_keys("changed")
        field(driver, "Abe_checkbox").click()
    else:
        visit(driver, site, "rights", user="mary")
        box(driver, STOCK, "delete").click()
        box(driver, STOCK, "insert").click()


SUBMIT = {"users": "submit_users", "rights": "submit_selection"}
LISTS = tuple(SUBMIT)


def test_the_start_page_breaks_no_rule(browser, site):
    browser.get(site)
    expect_no_violations(browser)


@pytest.mark.parametrize("page", LISTS)
def test_a_list_breaks_no_rule(browser, site, page):
    visit(browser, site, page)
    expect_no_violations(browser)
    filter_field(browser).send_keys("o")
    expect_no_violations(browser)
    filter_field(browser).send_keys("no such row")
    expect_no_violations(browser)


@pytest.mark.parametrize("page", LISTS)
def test_changes_and_the_question_about_them_break_no_rule(browser, site, page):
    visit_with_changes(browser, site, page)
    expect_no_violations(browser)
    button(browser, SUBMIT[page]).click()
    question(browser)
    expect_no_violations(browser)


def test_the_message_of_success_breaks_no_rule(browser, site):
    visit_with_changes(browser, site, "users")
    press_and_agree(browser, "submit_users")
    assert find(browser, ".notice.good").is_displayed()
    expect_no_violations(browser)


def test_the_message_of_a_refusal_breaks_no_rule(browser, site, either):
    visit_with_changes(browser, site, "rights")
    either.refuse("grant", STOCK)
    press_and_agree(browser, "submit_selection")
    assert find(browser, ".notice.bad").is_displayed()
    expect_no_violations(browser)


def test_the_message_of_a_missing_answer_breaks_no_rule(browser, site):
    browser.get(site)
    find(browser, f"option[value={UNREACHABLE}]").click()
    button(browser, "users").click()
    wait_until(browser, lambda: find(browser, ".notice.bad"))
    expect_no_violations(browser)


def press_in_report(driver, label):
    next(shown for shown in find_all(driver, ".report button") if shown.text == label).click()


def gather(driver, site):
    visit(driver, site, "reports")
    press_in_report(driver, "Gather")
    wait_until(driver, lambda: find(driver, ".matrix td"))


def test_the_reports_break_no_rule(browser, site):
    visit(browser, site, "reports")
    expect_no_violations(browser)
    gather(browser, site)
    expect_no_violations(browser)
    press_in_report(browser, "notes")
    expect_no_violations(browser)


@pytest.mark.parametrize("page", ("start", *LISTS, "reports"))
def test_without_script_a_page_breaks_no_rule_but_those_of_labels(browser, site, page):
    switch_script_off(browser)
    if page == "start":
        browser.get(site)
    else:
        visit(browser, site, page)
    allow_script_of_tests(browser)
    expect_no_violations(browser, except_for=BROKEN_WITHOUT_SCRIPT)


def test_without_script_an_error_page_breaks_no_rule(browser, site):
    switch_script_off(browser)
    visit(browser, site, "users")
    field(browser, "admin_oldpassword").send_keys("wrong")
    press(browser, "submit_users")
    allow_script_of_tests(browser)
    expect_no_violations(browser)


def allow_script_of_tests(driver):
    """That of the page in the browser stays off: it was not run while the page came."""
    driver.execute_cdp_cmd("Emulation.setScriptExecutionDisabled", {"value": False})


def focused(driver):
    return driver.switch_to.active_element


# What can be reached with the Tab key, in the order of the document.
REACHABLE = """return [...document.querySelectorAll("a[href], button, input, select, textarea, summary, [tabindex='0']")]
    .filter((element) => !element.disabled && element.type !== "hidden" && element.checkVisibility({visibilityProperty: true}))"""


# The pairs of which the second does not stand behind the first in its line, nor below it. Titles are read one by one,
# whatever stands in each; what sticks to the window's edge is taken for where it belongs.
OUT_OF_ORDER = """const loose = document.createElement("style");
    loose.textContent = "* { position: static !important; }";
    document.head.append(loose);
    scrollTo(0, 0);
    const place = (element) => element.getBoundingClientRect();
    return arguments[0].slice(1).map((element, at) => [arguments[0][at], element]).filter(([first, second]) => {
        const [title, next] = [first.closest("th"), second.closest("th")];
        const [before, after] = title && next && title !== next ? [place(title), place(next)] : [place(first), place(second)];
        const same_line = after.top < before.bottom && before.top < after.bottom;
        return same_line ? after.left < before.left : after.top < before.top;
    }).map((pair) => pair.map((element) => element.outerHTML))"""


# The outline of the element, and whether it is seen at one of five places at least.
SEEN = """const [element] = arguments;
    const {outlineStyle, outlineWidth} = getComputedStyle(element);
    const {left, top, width, height} = element.getBoundingClientRect();
    const places = [[0.5, 0.5], [0.1, 0.1], [0.9, 0.1], [0.1, 0.9], [0.9, 0.9]];
    const seen = places.some(([x, y]) => element.contains(document.elementFromPoint(left + x * width, top + y * height)));
    return [[outlineStyle, outlineWidth], seen];"""


def tab_through(driver):
    """Every element that the Tab key gives the focus, from the beginning of the page until it leaves it."""
    driver.execute_script("document.body.tabIndex = -1; document.body.focus(); document.body.removeAttribute('tabindex');")
    return presses(driver, lambda keys: keys.send_keys(Keys.TAB))


def tab_back(driver):
    """The same from the end, with Shift."""
    driver.execute_script("arguments[0].at(-1).focus()", driver.execute_script(REACHABLE))
    return presses(driver, lambda keys: keys.key_down(Keys.SHIFT).send_keys(Keys.TAB).key_up(Keys.SHIFT))


def presses(driver, press_keys):
    """What gets the focus each time, until nothing does or the same again."""
    reached = set()
    while True:
        press_keys(ActionChains(driver)).perform()
        element = focused(driver)
        if element.tag_name == "body" or element in reached:
            return
        reached.add(element)
        yield element


@pytest.mark.parametrize("width", (360, 1280))
@pytest.mark.parametrize("page", ("start", *LISTS, "reports"))
def test_the_tab_key_reaches_everything_in_the_order_of_reading(browser, site, page, width):
    resize(browser, width)
    if page == "start":
        browser.get(site)
    elif page == "reports":
        gather(browser, site)
    else:
        visit(browser, site, page)
    reachable = browser.execute_script(REACHABLE)
    reached = list(tab_through(browser))
    assert [element.get_attribute("outerHTML") for element in reached] == [
        element.get_attribute("outerHTML") for element in reachable
    ]
    assert browser.execute_script(OUT_OF_ORDER, reached) == []


@pytest.mark.parametrize("way", (tab_through, tab_back))
@pytest.mark.parametrize("page", (*LISTS, "reports"))
def test_what_has_the_focus_is_outlined_and_not_covered(browser, site, either, page, way):
    either.make_tables(*ODD_TABLES)
    for user in ODD_USERS:
        either.add_user(user, "", "")
    gather(browser, site) if page == "reports" else visit(browser, site, page)
    # So low that one has to scroll, and that something sticks to the edges.
    resize(browser, 1280, 500)
    for element in way(browser):
        style, seen = browser.execute_script(SEEN, element)
        assert style[0] != "none" and style[1] >= "2px" and seen, element.get_attribute("outerHTML")


@pytest.mark.parametrize("page", LISTS)
def test_a_dialog_takes_the_focus_and_gives_it_back(browser, site, page):
    visit_with_changes(browser, site, page)
    pressed = button(browser, SUBMIT[page])
    pressed.send_keys(Keys.ENTER)
    dialog = question(browser)
    assert browser.execute_script("return arguments[0].contains(document.activeElement)", dialog)
    focused(browser).send_keys(Keys.ESCAPE)
    wait_until(browser, lambda: not find_all(browser, "dialog"))
    assert focused(browser) == pressed
    pressed.send_keys(Keys.ENTER)
    answer_question(browser, agree=False)
    assert focused(browser) == pressed


@pytest.mark.parametrize("page", LISTS)
def test_the_focus_comes_back_to_the_button_in_the_page_that_answers_it(browser, site, page):
    visit_with_changes(browser, site, page)
    press_and_agree(browser, SUBMIT[page])
    wait_until(browser, lambda: find(browser, ".notice"))
    assert focused(browser).get_attribute("name") == SUBMIT[page]


def test_the_focus_stays_in_the_page_when_another_one_takes_its_place(browser, site):
    browser.get(site)
    with next_page(browser):
        button(browser, "rights").send_keys(Keys.ENTER)
    assert focused(browser).get_attribute("name") == "rights"
    show_rights(browser, "mary")
    assert focused(browser).get_attribute("name") == "rights_refresh"
    press(browser, "users")
    with next_page(browser):
        browser.back()
    assert focused(browser).tag_name != "body"


def test_a_message_that_is_closed_leaves_the_focus_in_the_page(browser, site):
    browser.get(site)
    find(browser, f"option[value={UNREACHABLE}]").click()
    button(browser, "users").click()
    wait_until(browser, lambda: find(browser, ".notice.bad")).find_element(By.CSS_SELECTOR, "button.close").send_keys(Keys.ENTER)
    assert not find_all(browser, ".notice")
    assert focused(browser).tag_name != "body"
