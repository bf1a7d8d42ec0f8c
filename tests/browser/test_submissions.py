"""Between the question and the outcome of a submission: others' changes, answers that do not come, changes kept."""

import threading

import pytest

from support import browser as browsers
from support.browser import (
    answer_question,
    box,
    button,
    field,
    find,
    find_all,
    notices,
    press,
    press_and_agree,
    question,
    visit,
    wait_until,
)
from support.kinds import NAME, NOTES, ON_EMBEDDED, ORDERS, STOCK, UNREACHABLE

pytestmark = ON_EMBEDDED


def spoil_submissions(relay, button):
    """The server carries them out, but the browser gets no answer."""
    relay.spoil = lambda answer: b"" if button in relay.bodies[-1] else answer


def texts(driver, kind):
    return [text for shown, text in notices(driver) if shown == kind]


def changed_count(driver):
    return driver.execute_script("return changed_controls().length")


def type_into(driver, name, text):
    typed = field(driver, name)
    typed.clear()
    typed.send_keys(text)


def test_what_was_carried_out_without_an_answer_is_found_out(browser, relay, either):
    visit(browser, relay.address, "rights", user="mary")
    box(browser, NOTES, "delete").click()
    spoil_submissions(relay, b"submit_selection")
    button(browser, "submit_selection").click()
    answer_question(browser)
    (text,) = wait_until(browser, lambda: texts(browser, "bad"))
    assert text.startswith("No answer came") and "The list has been read again" in text
    assert box(browser, NOTES, "delete").is_selected() and changed_count(browser) == 0


def test_without_any_answer_what_was_typed_and_asked_is_kept(browser, relay):
    visit(browser, relay.address, "users")
    type_into(browser, "Abe_file", "moved")
    good, relay.spoil = relay.spoil, lambda answer: b"" if b"submit" in b"".join(relay.bodies) else answer
    button(browser, "submit_users").click()
    answer_question(browser)
    (text,) = wait_until(browser, lambda: texts(browser, "bad"))
    assert "is not known" in text and "change the description of Abe" in text
    assert field(browser, "Abe_file").get_attribute("value") == "moved" and changed_count(browser) == 1
    relay.spoil = good


def test_a_submission_is_not_sent_when_the_page_cannot_be_read_before(browser, relay):
    visit(browser, relay.address, "users")
    type_into(browser, "Abe_file", "moved")
    relay.spoil = lambda answer: b""
    relay.posts.clear()
    button(browser, "submit_users").click()
    (text,) = wait_until(browser, lambda: texts(browser, "bad"))
    assert text.startswith("No answer came") and "Nothing has been submitted." in text
    assert not any(b"submit" in body for body in relay.bodies) and changed_count(browser) == 1


def test_what_others_have_changed_meanwhile_is_not_taken_back(browser, site, either):
    visit(browser, site, "rights", user="mary")
    box(browser, NOTES, "update").click()
    either.grant("mary", NOTES, "insert")
    button(browser, "submit_selection").click()
    assert "insert" not in question(browser).text
    assert any("has changed since this page was read" in text for text in texts(browser, "info"))
    with browsers.next_page(browser):
        answer_question(browser)
    assert [box(browser, NOTES, privilege).is_selected() for privilege in ("insert", "update")] == [True, True]


def test_what_others_change_while_a_question_stands_open_makes_it_a_new_one(browser, site, either):
    visit(browser, site, "rights", user="mary")
    box(browser, NOTES, "update").click()
    button(browser, "submit_selection").click()
    question(browser)
    either.grant("mary", NOTES, "insert")
    find(browser, "dialog .go").click()
    wait_until(browser, lambda: any("has changed since this page was read" in text for text in texts(browser, "info")))
    question(browser)
    with browsers.next_page(browser):
        answer_question(browser)
    assert [box(browser, NOTES, privilege).is_selected() for privilege in ("insert", "update")] == [True, True]


def test_no_puts_everything_back_as_it_was_before_the_question(browser, site):
    visit(browser, site, "rights", user="mary")
    box(browser, NOTES, "update").click()
    button(browser, "submit_selection").click()
    answer_question(browser, agree=False)
    assert box(browser, NOTES, "update").is_selected() and changed_count(browser) == 1
    assert browser.switch_to.active_element.get_attribute("name") == "submit_selection"


@pytest.mark.parametrize("leave", [False, True])
def test_leaving_with_unsaved_changes_asks_first(browser, site, leave):
    visit(browser, site, "users")
    type_into(browser, "Abe_file", "moved")
    button(browser, "rights").click()
    assert "1 change on this page would be lost." in question(browser).text
    answer_question(browser, agree=leave)
    page = "Rights" if leave else "Users"
    wait_until(browser, lambda: browser.title.startswith(page) and not find_all(browser, ".busy"))
    assert leave or field(browser, "Abe_file").get_attribute("value") == "moved"


def leaves_at_once(driver):
    return driver.execute_script("return dispatchEvent(new Event('beforeunload', {cancelable: true}))")


def test_closing_the_window_asks_while_there_are_changes(browser, site):
    visit(browser, site, "users")
    assert leaves_at_once(browser)
    type_into(browser, "Abe_file", "moved")
    assert not leaves_at_once(browser)
    press_and_agree(browser, "submit_users")
    assert leaves_at_once(browser)


def test_going_back_with_unsaved_changes_can_be_given_up(browser, site):
    visit(browser, site, "rights")
    press(browser, "users")
    type_into(browser, "Abe_file", "moved")
    browser.back()
    answer_question(browser, agree=False)
    assert browser.title.startswith("Users") and field(browser, "Abe_file").get_attribute("value") == "moved"
    browser.back()
    answer_question(browser)
    wait_until(browser, lambda: browser.title.startswith("Rights"))


def test_nothing_is_submitted_to_another_data_source_than_is_shown(browser, relay):
    visit(browser, relay.address, "users")
    type_into(browser, "Abe_file", "moved")
    browsers.Select(field(browser, "datasource")).select_by_value(UNREACHABLE)
    relay.posts.clear()
    button(browser, "submit_users").click()
    assert "Press Refresh first" in question(browser).text
    answer_question(browser, agree=False)
    assert relay.bodies == []


def tools_button(driver, text):
    (found,) = [shown for shown in find_all(driver, ".tools button") if shown.text == text]
    return found


def test_what_is_typed_at_a_stretch_is_undone_in_one_step(browser, site):
    visit(browser, site, "users")
    before = field(browser, "Abe_file").get_attribute("value")
    field(browser, "Abe_file").send_keys("abc")
    field(browser, "mary_file").send_keys("x")
    tools_button(browser, "Undo").click()
    assert field(browser, "Abe_file").get_attribute("value") == before + "abc" and changed_count(browser) == 1
    tools_button(browser, "Undo").click()
    assert field(browser, "Abe_file").get_attribute("value") == before and changed_count(browser) == 0
    assert not tools_button(browser, "Undo").is_enabled()


def test_all_changes_are_undone_at_once_and_that_is_undone_too(browser, site):
    visit(browser, site, "rights", user="mary")
    for table in (ORDERS, STOCK, NOTES):
        box(browser, table, "delete").click()
    assert "3 changes not submitted" in find(browser, ".count").text
    tools_button(browser, "Undo all").click()
    assert changed_count(browser) == 0
    tools_button(browser, "Undo").click()
    assert changed_count(browser) == 3


def test_changes_are_marked_until_they_are_submitted(browser, site):
    visit(browser, site, "rights", user="mary")
    box(browser, NOTES, "delete").click()
    assert len(find_all(browser, "tr.changed")) == len(find_all(browser, "td.changed")) == 1
    press_and_agree(browser, "submit_selection")
    assert not find_all(browser, ".changed")


def test_enter_in_the_filter_submits_nothing(browser, relay):
    visit(browser, relay.address, "rights", user="mary")
    relay.posts.clear()
    find(browser, ".filter input").send_keys("north\n")
    assert not find_all(browser, "dialog") and relay.bodies == [] and browser.title.endswith(f"{NAME} – tabwarden")


def hold_answers(relay):
    """Until what this gives is set."""
    released = threading.Event()
    relay.spoil = lambda answer: answer if released.wait(20) else b""
    return released


def choose(driver, name, value):
    driver.execute_script(
        "const [chooser, value] = arguments;"
        "chooser.value = value; chooser.dispatchEvent(new Event('change', {bubbles: true}))",
        field(driver, name),
        value,
    )


def test_what_is_chosen_while_the_page_is_read_again_does_not_redirect_the_submission(browser, relay):
    visit(browser, relay.address, "users")
    press(browser, "refresh_users")
    type_into(browser, "Abe_file", "moved")
    arrived = hold_answers(relay)
    button(browser, "submit_users").click()
    choose(browser, "datasource", UNREACHABLE)
    arrived.set()
    assert question(browser).find_element("tag name", "h2").text.endswith(f" to {NAME}?")
    with browsers.next_page(browser):
        answer_question(browser)
    assert relay.bodies[-1].startswith(f"datasource={NAME}&last_datasource={NAME}&".encode())
    assert texts(browser, "good")


def test_after_a_lost_answer_the_submission_s_own_data_source_is_read(browser, relay):
    visit(browser, relay.address, "users")
    type_into(browser, "Abe_file", "moved")
    spoil_submissions(relay, b"submit_users")
    button(browser, "submit_users").click()
    question(browser)
    choose(browser, "datasource", UNREACHABLE)
    answer_question(browser)
    (text,) = wait_until(browser, lambda: texts(browser, "bad"))
    assert "The list has been read again" in text
    assert relay.bodies[-1].startswith(f"datasource={NAME}&".encode())


def test_nothing_is_changed_on_a_page_that_is_about_to_be_replaced(browser, relay):
    visit(browser, relay.address, "rights", user="mary")
    arrived = hold_answers(relay)
    button(browser, "rights_refresh").click()
    ticked = box(browser, NOTES, "delete")
    ticked.click()
    find(browser, ".filter input").send_keys("x")
    assert not ticked.is_selected() and find(browser, ".filter input").get_attribute("value") == ""
    arrived.set()
    wait_until(browser, lambda: not find_all(browser, ".busy"))
    box(browser, NOTES, "delete").click()
    assert changed_count(browser) == 1


def test_back_closes_the_question_and_changes_nothing(browser, relay):
    visit(browser, relay.address, "users")
    press(browser, "rights")
    button(browser, "rights_revoke").click()
    question(browser)
    relay.posts.clear()
    browser.back()
    wait_until(browser, lambda: not find_all(browser, "dialog"))
    assert browser.title.startswith("Rights") and relay.bodies == []
    browser.back()
    wait_until(browser, lambda: browser.title.startswith("Users"))


def test_leaving_for_the_start_page_asks_once(browser, site):
    visit(browser, site, "users")
    type_into(browser, "Abe_file", "moved")
    browser.execute_script("addEventListener('beforeunload', event => sessionStorage.asked = event.defaultPrevented)")
    browser.back()
    answer_question(browser)
    wait_until(browser, lambda: browser.title == "tabwarden")
    assert browser.execute_script("return sessionStorage.asked") == "false"


def test_changes_to_what_is_gone_by_now_are_named(browser, site, either):
    visit(browser, site, "users")
    press(browser, "refresh_users")
    type_into(browser, "Abe_file", "moved")
    type_into(browser, "mary_file", "moved, too")
    either.drop_user("Abe")
    button(browser, "submit_users").click()
    assert "mary" in question(browser).text and "Abe" not in question(browser).text
    (text,) = texts(browser, "info")
    assert text.removesuffix("\n×").endswith(", except for those that cannot be made any more:\nDescription of Abe")


def test_a_refused_log_in_has_changed_nothing(browser, relay):
    visit(browser, relay.address, "users")
    type_into(browser, "Abe_file", "moved")
    refusal = b"HTTP/1.1 401 Authorization Required\r\n\r\n"
    relay.spoil = lambda answer: refusal if b"submit" in relay.bodies[-1] else answer
    button(browser, "submit_users").click()
    answer_question(browser)
    (text,) = wait_until(browser, lambda: texts(browser, "bad"))
    assert text.startswith("The log-in was refused") and "Nothing has been submitted." in text
    assert b"submit" in relay.bodies[-1] and changed_count(browser) == 1


def test_the_answer_of_something_else_than_the_server_is_explained(browser, relay):
    visit(browser, relay.address, "users")
    type_into(browser, "Abe_file", "moved")
    strange = b"HTTP/1.1 502 Bad Gateway\r\n\r\n<html><body><h1>Bad gateway</h1></body></html>"
    relay.spoil = lambda answer: strange
    button(browser, "submit_users").click()
    (text,) = wait_until(browser, lambda: texts(browser, "bad"))
    assert "Nothing has been submitted." in text
    assert changed_count(browser) == 1 and not find_all(browser, ".busy")


def test_what_fails_in_the_script_itself_is_told(browser, site):
    visit(browser, site, "users")
    # As a part of the page: for what is run past it the browser tells the page nothing.
    failing = "shown.script.submission = () => { throw new Error(); }"
    browser.execute_script("document.head.append(element('script', {}, arguments[0]))", failing)
    button(browser, "submit_users").click()
    (text,) = wait_until(browser, lambda: texts(browser, "bad"))
    assert "Load the page again" in text


@pytest.mark.parametrize("event", ["second click", "held key"])
def test_a_question_is_not_answered_by_what_brought_it_up(browser, site, event):
    visit(browser, site, "rights", user="mary")
    box(browser, NOTES, "update").click()
    button(browser, "submit_selection").click()
    question(browser)
    if event == "held key":
        for kind in ("rawKeyDown", "char"):
            key = {"type": kind, "key": "Enter", "windowsVirtualKeyCode": 13, "text": "\r", "autoRepeat": True}
            browser.execute_cdp_cmd("Input.dispatchKeyEvent", key)
    else:
        middle = find(browser, "dialog .go").rect
        place = {"x": middle["x"] + middle["width"] / 2, "y": middle["y"] + middle["height"] / 2}
        for kind in ("mousePressed", "mouseReleased"):
            click = {"type": kind, "button": "left", "clickCount": 2, **place}
            browser.execute_cdp_cmd("Input.dispatchMouseEvent", click)
    assert find_all(browser, "dialog[open]")
    answer_question(browser, agree=False)
