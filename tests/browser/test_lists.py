"""The long lists: what is drawn of them, filtered, sorted, kept for the next page, printed."""

import pytest

from support.browser import find, find_all, wait_until
from support.kinds import ON_EMBEDDED

pytestmark = ON_EMBEDDED

# Makes a list of 250 pens and gives it the name pens. Every tenth is red; the tail is no pen.
MAKE_LIST = """
const done = arguments[0];
run_files({name: "users"}).then(() => {
    const body = element("tbody", {}, element("tr", {}, element("td", {}, "Name"), element("td", {}, "Ink")));
    const records = [...Array(250).keys()].map(number => {
        const name = `Pen ${number + 1}`, ink = number % 10 ? "black" : "red";
        const box = element("input", {type: "checkbox", "aria-label": name});
        const row = element("tr", {}, element("td", {}, name), element("td", {}, ink, box));
        return {row, name, ink, text: `${name} ${ink}`.toLowerCase(), controls: [box]};
    });
    body.append(...records.map(record => record.row));
    const table = element("table", {}, body);
    shown.form.append(table);
    window.pens = make_list({table, records, noun: "pen", place: table,
        columns: [{title: "Name", key: record => record.name}, {title: "Ink", key: record => record.ink}],
        filters: [{label: "Only red", test: record => record.ink === "red"}]});
    watch_records(records, edited);
    done();
});
"""


@pytest.fixture
def pens(browser, site):
    browser.get(site)
    make_list(browser)
    return browser


def make_list(driver):
    driver.execute_async_script(MAKE_LIST)


def filter_for(driver, text):
    found = find(driver, ".filter input")
    found.clear()
    found.send_keys(text)


def drawn(driver):
    return driver.execute_script("return [...pens.body.rows].map(row => row.cells[0].innerText)")


def count(driver):
    return find(driver, ".count").text


def tick(driver, label):
    (found,) = [shown for shown in find_all(driver, ".tools label") if shown.text == label]
    found.click()


def tool(driver, label):
    return next(shown for shown in find_all(driver, ".tools button") if shown.text == label)


def title(driver, text):
    return find(driver, f"th:nth-child({['Name', 'Ink'].index(text) + 1}) button")


def test_the_rest_is_drawn_as_one_scrolls(pens):
    rows = drawn(pens)
    assert rows[:2] == ["Pen 1", "Pen 2"] and rows[-1].startswith("Show more (")
    pens.execute_script("window.scrollTo(0, document.body.scrollHeight)")
    wait_until(pens, lambda: len(drawn(pens)) > len(rows))
    for _ in range(3):
        pens.execute_script("window.scrollTo(0, document.body.scrollHeight)")
    wait_until(pens, lambda: len(drawn(pens)) == 250 and drawn(pens)[-1] == "Pen 250")


def test_the_rest_is_drawn_when_its_button_is_pressed(pens):
    before = len(drawn(pens))
    pens.execute_script("document.querySelector('.more button').click()")
    assert len(drawn(pens)) > before


def test_all_words_of_the_filter_have_to_be_there(pens):
    filter_for(pens, "RED 24")
    assert drawn(pens) == ["Pen 241"] and count(pens) == "1 of 250 pens"
    filter_for(pens, "no such")
    assert drawn(pens) == ["No pen matches."] and count(pens) == "0 of 250 pens"
    filter_for(pens, " ")
    assert count(pens) == "250 pens"


def test_a_filter_box_narrows_what_is_typed(pens):
    filter_for(pens, "pen 2")
    tick(pens, "Only red")
    assert drawn(pens) == [f"Pen {number}" for number in (21, 121, 201, 211, 221, 231, 241)]


def test_only_what_was_changed_is_shown_on_demand(pens):
    find(pens, "[aria-label='Pen 3']").click()
    assert count(pens) == "250 pens, 1 change not submitted"
    tick(pens, "Only changed")
    assert drawn(pens) == ["Pen 3"]


def test_titles_sort_up_and_down_and_back_with_numbers_as_numbers(pens):
    tick(pens, "Only red")
    as_written = drawn(pens)
    pens.execute_script("pens.records.reverse()")
    title(pens, "Name").click()
    assert drawn(pens) == as_written
    assert [shown.get_attribute("aria-sort") for shown in find_all(pens, "th")] == ["ascending", "none"]
    title(pens, "Name").click()
    assert drawn(pens) == as_written[::-1]
    assert find(pens, "th").get_attribute("aria-sort") == "descending"
    pens.execute_script("pens.records.reverse()")
    title(pens, "Name").click()
    assert drawn(pens) == as_written and find(pens, "th").get_attribute("aria-sort") == "none"


def test_the_next_page_has_the_same_filter_and_order(pens):
    filter_for(pens, "pen 24")
    tick(pens, "Only red")
    title(pens, "Name").click()
    title(pens, "Name").click()
    pens.execute_script("shown.form.querySelector('.tools').remove(); pens.table.remove()")
    make_list(pens)
    assert drawn(pens) == ["Pen 241"] and find(pens, "th").get_attribute("aria-sort") == "descending"
    assert find(pens, ".filter input").get_attribute("value") == "pen 24"


def test_the_focus_stays_at_hand_when_there_is_nothing_more_to_undo(pens):
    find(pens, "[aria-label='Pen 3']").click()
    tool(pens, "Undo all").click()
    assert pens.switch_to.active_element == tool(pens, "Undo")
    tool(pens, "Undo").click()
    tool(pens, "Undo").click()
    assert pens.switch_to.active_element == find(pens, ".filter input")


def test_paper_gets_all_that_match(pens):
    filter_for(pens, "black")
    pens.execute_script("dispatchEvent(new Event('beforeprint'))")
    assert len(drawn(pens)) == 225
    pens.execute_script("dispatchEvent(new Event('afterprint'))")
    assert len(drawn(pens)) < 225
