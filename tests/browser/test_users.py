"""The users page as the script shows it, asks, sends and tells what came of it."""

import string

import pytest
from selenium.webdriver.common.by import By
from selenium.webdriver.common.keys import Keys

from support import browser as browsers
from support.browser import answer_question, button, field, find, find_all, notices, question, visit
from support.kinds import ODD_USERS, ON_EMBEDDED, ORDERS
from support.pages import USERS
from support.source import ADMINISTRATOR, PASSWORD

NEW_PASSWORD = "Blue-42-horses"


def form(*fields):
    """The body in which these fields are what was changed."""
    view = ("datasource=accounts", "last_datasource=accounts", "users_refresh=")
    return "&".join((*view, *fields, "submit_users=Submit", "form_end=1"))


@pytest.fixture
def page(browser, relay):
    """Opens the users page, past an ear on the wire; the page is gone to with what is in the data source by then."""

    def open_page():
        visit(browser, relay.address, "users")
        return browser

    return open_page


@pytest.fixture
def users(page):
    return page()


def type_into(browser, name, text):
    control = field(browser, name)
    control.clear()
    control.send_keys(text)


def cell_of(browser, name):
    return field(browser, name).find_element(By.XPATH, "ancestor::td[1]")


def mark_of(browser, name):
    """What stands below the field."""
    return " ".join(mark.text for mark in cell_of(browser, name).find_elements(By.CLASS_NAME, "mark"))


def row_button(browser, name, title):
    """The button of that title beside the password field."""
    return cell_of(browser, name).find_element(By.XPATH, f".//button[text()='{title}']")


def tool(browser, title):
    return find(browser, ".tools").find_element(By.XPATH, f".//button[text()='{title}']")


def status(browser):
    return find(browser, ".tools .status").text


def submit(browser):
    """Presses Submit and gives the dialog's title, text and items."""
    button(browser, "submit_users").click()
    dialog = question(browser)
    items = [item.text for item in dialog.find_elements(By.CSS_SELECTOR, ".items li")]
    return (dialog.find_element(By.TAG_NAME, "h2").text, dialog.find_element(By.TAG_NAME, "p").text, items)


def asked(browser):
    return submit(browser)[2]


def is_dangerous(browser):
    """Whether Enter in the open dialog presses the button that changes nothing."""
    return "cancel" in browser.switch_to.active_element.get_attribute("class").split()


def agree(browser):
    """Says yes to the open question; gives the messages of the page that answers."""
    with browsers.next_page(browser):
        answer_question(browser)
    return messages(browser)


def messages(browser):
    return [(kind, text.removesuffix("\n×")) for kind, text in notices(browser)]


def listed(browser):
    """The users on the page by their names: description and password."""
    fields = find_all(browser, "[name$=_file]")
    names = [shown.get_attribute("name").removesuffix("_file") for shown in fields]
    passwords = find_all(browser, "[name$=_password]")
    return {
        name: (shown.get_attribute("value"), password.get_attribute("value"))
        for name, shown, password in zip(names, fields, passwords, strict=True)
    }


def set_values(browser, values):
    """As if typed by an administrator who types quickly."""
    browser.execute_script(
        "const controls = new Map(shown.script.records.flatMap(record => record.controls).map(c => [c.name, c]));"
        "change(Object.entries(arguments[0]).map(([name, value]) => [controls.get(name), value]));",
        values,
    )


# What is shown


@ON_EMBEDDED
def test_every_field_says_what_it_is(users):
    labels = {
        control.get_attribute("name"): control.accessible_name
        for control in find_all(users, ".users_list input:not([name^=bob])")
        if control.is_displayed()
    }
    assert labels == {
        "__newuser": "New user: name",
        "__newfile": "Description of the new user",
        "__newpass": "Password of the new user",
        "admin_file": "Description of admin",
        "admin_password": "Password of admin",
        "admin_oldpassword": "Old password of admin",
        "mary_file": "Description of mary",
        "mary_password": "Password of mary",
        "mary_checkbox": "Delete mary",
        "Abe_file": "Description of Abe",
        "Abe_password": "Password of Abe",
        "Abe_checkbox": "Delete Abe",
    }
    buttons = field(users, "mary_password").find_elements(By.XPATH, "..//button")
    assert [button.accessible_name for button in buttons] == [
        "Show password of mary",
        "Copy password of mary",
        "Generate password of mary",
    ]
    assert [hint.text for hint in find_all(users, ".new_user .hint")] == ["New user", "Description", "Password"]


@ON_EMBEDDED
def test_users_are_found_by_name_and_description(users):
    def found(text):
        search = find(users, ".tools [type=search]")
        search.clear()
        search.send_keys(text)
        return {name.get_attribute("name") for name in find_all(users, "[name$=_file]")}

    assert found("MARY m") == {"mary_file"}
    assert found("a.") == {"Abe_file"}
    type_into(users, "Abe_file", "honest")
    assert found("honest") == {"Abe_file"}
    assert field(users, "__newuser").is_displayed()


def test_passwords_are_hidden_until_they_are_shown(users, either):
    names = ["__newpass", *(f"{name}_password" for name, _, _ in USERS)]

    def shown():
        return [name for name in names if field(users, name).get_attribute("type") == "text"]

    assert shown() == []
    assert {field(users, name).get_attribute("autocomplete") for name in names} == {"new-password"}
    old = field(users, "admin_oldpassword")
    assert (old.get_attribute("type"), old.get_attribute("autocomplete")) == ("password", "off")

    row_button(users, "mary_password", "Show").click()
    assert shown() == ["mary_password"]
    assert field(users, "mary_password").get_attribute("value") == either.shown_password("lamb")
    assert row_button(users, "mary_password", "Hide").accessible_name == "Hide password of mary"
    tool(users, "Show all passwords").click()
    assert shown() == names
    assert old.get_attribute("type") == "password"
    tool(users, "Hide all passwords").click()
    assert shown() == []


@ON_EMBEDDED
def test_a_password_is_copied(users):
    type_into(users, "mary_password", NEW_PASSWORD)
    row_button(users, "mary_password", "Copy").click()
    browsers.wait_until(users, lambda: status(users) == "The password of mary has been copied.")
    field(users, "bob_file").send_keys(Keys.CONTROL, "v")
    assert field(users, "bob_file").get_attribute("value") == NEW_PASSWORD
    row_button(users, "admin_password", "Copy").click()
    browsers.wait_until(users, lambda: status(users) == "There is no password of admin to copy.")


# New passwords


def test_a_generated_password_is_shown_undone_and_logs_in(users, either):
    for name in ("Abe_password", "__newpass"):
        row_button(users, name, "Generate").click()
    made = [field(users, name).get_attribute("value") for name in ("Abe_password", "__newpass")]
    letters = set(string.ascii_letters + string.digits) - set("0Oo1lI")
    assert all(len(password) == 20 and set(password) <= letters for password in made)
    assert made[0] != made[1]
    assert [field(users, name).get_attribute("type") for name in ("Abe_password", "__newpass")] == ["text", "text"]
    assert "changed" in cell_of(users, "Abe_password").get_attribute("class")
    tool(users, "Undo").click()
    assert field(users, "__newpass").get_attribute("value") == ""

    type_into(users, "__newuser", "zoe")
    type_into(users, "__newpass", made[1])
    assert asked(users) == ["change the password of Abe", "add zoe"]
    agree(users)
    assert either.admits("Abe", made[0]) and either.admits("zoe", made[1])
    assert not either.admits("Abe", "honest")


@ON_EMBEDDED
def test_no_letter_of_generated_passwords_is_likelier_than_another(users):
    # All bytes one after the other; 56 passwords are 20 of each of the 56 letters.
    counts = users.execute_script("""
        let next = 0;
        crypto.getRandomValues = bytes => bytes.fill(next++ % 256);
        const text = Array.from({length: 56}, new_password).join("");
        return Object.values(Object.groupBy(text, letter => letter)).map(group => group.length);
    """)
    assert counts == [20] * 56


WEAK_PASSWORDS = {
    NEW_PASSWORD: "",
    "Blue-42-hor": "Weak: shorter than 12 characters",
    "ü" * 12: "",
    "me and MARY and you": "Weak: the user name is in it",
    "Welcome-2024!": "Weak: a usual password",
    "345678901234": "Weak: a usual password",
    "a" * 254: "",
    "ü" * 127 + "x": "Too long: 255 bytes, and 254 is the most",
    "": "Empty password",
}


@ON_EMBEDDED
def test_a_weak_password_is_marked(users):
    marks = {}
    for password in WEAK_PASSWORDS:
        set_values(users, {"mary_password": password})
        marks[password] = mark_of(users, "mary_password")
        invalid = field(users, "mary_password").get_attribute("aria-invalid")
        assert invalid == ("true" if "Too long" in marks[password] else "false")
    assert marks == WEAK_PASSWORDS


def test_a_weak_password_is_named_in_the_question_and_accepted(users, either):
    type_into(users, "mary_password", "short")
    assert asked(users) == ["change the password of mary (weak: shorter than 12 characters)"]
    agree(users)
    assert either.admits("mary", "short")


def test_empty_passwords_are_marked_where_the_data_source_tells_them(page, either):
    either.add_user("carl", "", "")
    users = page()
    shown = {name: mark_of(users, f"{name}_password") for name in ("carl", "mary", "admin")}
    tells = either.shown_password("lamb") == "lamb"
    assert shown == {"carl": "Empty password" if tells else "", "mary": "", "admin": ""}
    assert field(users, "admin_password").get_attribute("placeholder") == "unchanged"
    assert field(users, "carl_password").get_attribute("placeholder") == ("" if tells else "unchanged")


# New users


REFUSED_NAMES = {
    "mary": "This user exists already",
    "public": "“public” stands for everybody",
    "o'neill": "A single quote (') is not allowed",
    "n" * 255: "Too long: 255 bytes, and 254 is the most",
}
DOUBTFUL_NAMES = {
    "MARY": "“mary” exists already",
    "a=b": "Could not be changed here later: its name holds a “=”",
    "n" * 254: "",
}


@ON_EMBEDDED
def test_a_new_name_that_makes_trouble_is_marked(users, relay):
    set_values(users, {"__newpass": NEW_PASSWORD})
    for name, mark in REFUSED_NAMES.items():
        set_values(users, {"__newuser": name})
        assert mark_of(users, "__newuser") == mark
        assert submit(users) == ("Please correct this first", "Nothing has been sent.", [f"name of {name}: {mark}"])
        assert not find_all(users, "dialog .go")
        answer_question(users, agree=False)
    for name, mark in DOUBTFUL_NAMES.items():
        set_values(users, {"__newuser": name})
        assert mark_of(users, "__newuser") == mark
        assert asked(users) == [f"add {name}" + (f" ({mark[0].lower()}{mark[1:]})" if mark else "")]
        answer_question(users, agree=False)
    assert not any(b"submit_users" in body for body in relay.bodies)


@ON_EMBEDDED
def test_half_a_character_is_not_sent(users):
    users.execute_script(r'change([[shown.form.elements.mary_file, "\uD800"]])')
    assert mark_of(users, "mary_file") == "Has a character that cannot be sent"
    assert asked(users) == ["description of mary: Has a character that cannot be sent"]


@ON_EMBEDDED
def test_a_new_user_without_a_name_is_refused(users):
    type_into(users, "mary_file", "changed")
    for name in ("__newfile", "__newpass"):
        type_into(users, name, NEW_PASSWORD)
        assert asked(users) == ["new user: there is a description or password, but no name"]
        answer_question(users, agree=False)
        field(users, name).clear()
    assert asked(users) == ["change the description of mary"]


def test_a_new_user_is_added_with_all_fields(users, either, relay):
    set_values(users, {"__newuser": "Zoë & Co", "__newfile": "50% <b>'", "__newpass": NEW_PASSWORD})
    assert asked(users) == ["add Zoë & Co"]
    told = agree(users)
    assert relay.bodies[-1].decode() == form(
        "__newuser=Zo%C3%AB%20%26%20Co", "__newfile=50%25%20%3Cb%3E'", f"__newpass={NEW_PASSWORD}"
    )
    shown = either.shown_password(NEW_PASSWORD)
    assert listed(users)["Zoë & Co"] == ("50% <b>'", shown)
    unseen = "" if shown else " Whether the new password of Zoë & Co is in force cannot be seen here."
    assert told == [("good", "1 user was added." + unseen)]
    assert either.admits("Zoë & Co", NEW_PASSWORD)


# Changes and what is sent of them


@ON_EMBEDDED
def test_nothing_changed_is_not_sent(users, relay):
    before = len(relay.bodies)
    assert submit(users) == ("Nothing has been changed", "There is nothing to submit.", [])
    assert not find_all(users, "dialog .go")
    # The list is read once more, so that this is true.
    assert [body.decode() for body in relay.bodies[before:]] == [form().replace("&submit_users=Submit", "")]


def test_only_what_was_changed_is_sent(users, either, relay):
    type_into(users, "mary_file", "Mary's & Co=")
    type_into(users, "Abe_password", NEW_PASSWORD)
    type_into(users, "bob_file", "gone")
    field(users, "bob_checkbox").click()
    type_into(users, "admin_file", "The one")
    fields = {
        "admin": ("description", "admin_file=The%20one"),
        "mary": ("description", "mary_file=Mary's%20%26%20Co%3D"),
        "Abe": ("password", f"Abe_password={NEW_PASSWORD}"),
        "bob": ("", "bob_checkbox=OFF"),
    }
    assert submit(users) == (
        "Submit these changes to accounts?",
        "This takes effect at once; there is no undo.",
        ["delete bob and take away all of bob's privileges"]
        + [f"change the {what} of {name}" for name, (what, _) in in_page_order(either, fields) if name != "bob"],
    )
    assert is_dangerous(users)
    told = agree(users)
    assert relay.bodies[-1].decode() == form(*(sent for _, (_, sent) in in_page_order(either, fields)))
    assert listed(users) == {
        "admin": ("The one", ""),
        "mary": ("Mary's & Co=", either.shown_password("lamb")),
        "Abe": ("Abe A.", either.shown_password(NEW_PASSWORD)),
    }
    assert either.admits("Abe", NEW_PASSWORD) and either.admits("mary", "lamb") and not either.admits("bob", "builder")
    if either.shown_password("told"):
        assert told == [("good", "3 users were changed, 1 was deleted.")]
    else:
        unseen = "Whether the new password of Abe is in force cannot be seen here."
        assert told == [("good", f"2 users were changed, 1 was deleted. {unseen}")]


def in_page_order(either, by_name):
    """The embedded data source lists the users as they were added, PostgreSQL by name."""
    return [(name, by_name[name]) for name, _, _ in either.listed(USERS)]


@ON_EMBEDDED
def test_a_user_to_be_deleted_is_shown_as_such_until_that_is_undone(users):
    type_into(users, "mary_password", "short")
    field(users, "mary_checkbox").click()
    assert mark_of(users, "mary_checkbox") == "Will be deleted"
    assert mark_of(users, "mary_password") == ""
    row = field(users, "mary_file").find_element(By.XPATH, "ancestor::tr[1]")
    assert "deleted" in row.get_attribute("class").split()
    controls = row.find_elements(By.CSS_SELECTOR, "input:not([type=checkbox]), button")
    assert [control.is_enabled() for control in controls] == [False] * 5
    tool(users, "Undo").click()
    assert mark_of(users, "mary_checkbox") == ""
    assert mark_of(users, "mary_password") == "Weak: shorter than 12 characters"
    assert "deleted" not in row.get_attribute("class").split()
    assert [control.is_enabled() for control in controls] == [True] * 5


def test_a_deleted_user_has_no_rights_left(users, either):
    field(users, "mary_checkbox").click()
    assert asked(users) == ["delete mary and take away all of mary's privileges"]
    assert agree(users) == [("good", "1 user was deleted.")]
    either.add_user("mary", "", "lamb")
    assert either.allowed("mary", "lamb", ORDERS) == [()]


def test_an_emptied_password_is_named_as_empty(users, either):
    field(users, "mary_password").clear()
    type_into(users, "mary_file", "changed")
    items = asked(users)
    if either.shown_password("told"):
        assert items == ["change the description of mary", "set an EMPTY password for mary"]
        assert is_dangerous(users)
    else:
        assert items == ["change the description of mary"]
    assert agree(users) == [("good", "1 user was changed.")]
    assert either.admits("mary", "lamb") == (not either.shown_password("told"))


def test_odd_names_are_changed_like_others(page, either):
    # A form that began with the last one would be read as a header line.
    names = (*ODD_USERS, "Q & A", "+%41", "<b>", "A b")
    for name in names:
        either.add_user(name, "odd", "before")
    users = page()
    fields = {"file": "no longer odd", "password": NEW_PASSWORD}
    set_values(users, {f"{name}_{suffix}": value for name in names for suffix, value in fields.items()})
    asked(users)
    told = agree(users)
    assert [kind for kind, _ in told] == ["good"]
    assert told[0][1].startswith(f"{len(names)} users were changed.")
    assert {name for name, (text, _) in listed(users).items() if text == "no longer odd"} == set(names)
    assert all(either.admits(name, NEW_PASSWORD) for name in names)

    set_values(users, {f"{name}_checkbox": True for name in names})
    asked(users)
    assert agree(users) == [("good", f"{len(names)} users were deleted.")]
    assert set(listed(users)) == {name for name, _, _ in USERS}


UNSENDABLE_NAMES = {
    "a=b": "its name holds a “=”",
    "c:d": "its name holds a “:”",
    " blank": "its name begins with a blank",
    "two\nlines": "its name holds the end of a line",
}


def test_a_user_whose_name_cannot_be_sent_is_locked(page, either):
    for name in UNSENDABLE_NAMES:
        either.add_user(name, "odd", "secret")
    users = page()
    rows = find_all(users, "tr.locked")
    shown = [row.find_element(By.CLASS_NAME, "mark").text for row in rows]
    reasons = sorted(UNSENDABLE_NAMES.values())
    assert sorted(shown) == [f"Cannot be changed here: {reason}. Use SQL." for reason in reasons]
    for row in rows:
        assert not any(control.is_enabled() for control in row.find_elements(By.TAG_NAME, "input"))
        buttons = row.find_elements(By.TAG_NAME, "button")
        assert [button.is_enabled() for button in buttons] == [True, True, False]
    type_into(users, "mary_file", "changed")
    assert asked(users) == ["change the description of mary"]


@ON_EMBEDDED
def test_a_user_whom_the_server_would_take_for_another_one_is_locked(page, either):
    for name in ("it's", "it''s"):
        either.add_user(name, "", "secret")
    shown = [row.text for row in find_all(page(), "tr.locked")]
    assert len(shown) == 2 and all("Cannot be changed here: its name holds a single quote. Use SQL." in text for text in shown)


@ON_EMBEDDED
def test_a_user_whose_name_is_too_long_for_the_server_is_locked(page, either):
    either.source.change(f"insert into \"nordvale.system.user\" values ('{'n' * 255}', '', '')")
    users = page()
    assert "Cannot be changed here: its name or its values are too long" in find(users, "tr.locked").text
    type_into(users, "mary_file", "changed")
    asked(users)
    assert agree(users) == [("good", "1 user was changed.")]


def test_the_ends_of_lines_that_no_field_shows_stay(page, either):
    either.add_user("carl", "two\nlines", "sings")
    users = page()
    assert find(users, ".count").text == "5 users"
    type_into(users, "carl_password", NEW_PASSWORD)
    assert asked(users) == ["change the password of carl"]
    agree(users)
    assert users.execute_script("return document.getElementsByName('carl_file')[0].getAttribute('value')") == "twolines"
    assert either.admits("carl", NEW_PASSWORD)


# Many users


def add_many(either, count):
    either.source.change(
        "with recursive numbers(n) as (select 1 union all select n + 1 from numbers where n < %d) "
        "insert into \"nordvale.system.user\" select 'user' || n, 'number ' || n, 'secret' || n from numbers" % count
    )


@ON_EMBEDDED
def test_the_last_of_a_thousand_users_is_changed_with_a_small_form(page, either, relay):
    add_many(either, 1000)
    users = page()
    assert find(users, ".count").text == "1,004 users"
    find(users, ".tools [type=search]").send_keys("user1000")
    type_into(users, "user1000_file", "the last")
    assert asked(users) == ["change the description of user1000"]
    assert agree(users) == [("good", "1 user was changed.")]
    assert relay.bodies[-1].decode() == form("user1000_file=the%20last")
    assert listed(users) == {"user1000": ("the last", "secret1000")}


@ON_EMBEDDED
def test_too_many_changes_are_not_sent_and_it_is_told_how_many_can_be(page, either, relay):
    add_many(either, 600)
    users = page()
    fields = [(f"user{number}_file", 48 * "x") for number in range(1, 601)]
    fitting = next(count for count in range(600) if len(form(*map("=".join, fields[: count + 1]))) > 30000)
    set_values(users, dict(fields))
    title, text, _ = submit(users)
    assert title == "Too many changes at once"
    assert text == (
        "The server reads no more than 30,000 bytes of a form, so nothing has been sent. Of 600 changed rows the first "
        f"{fitting} fit: undo the last changes, submit, and make them again. “Only changed” shows the rows."
    )
    answer_question(users, agree=False)
    tool(users, "Undo").click()
    set_values(users, dict(fields[:fitting]))
    assert len(asked(users)) == fitting
    assert agree(users) == [("good", f"{fitting} users were changed.")]
    assert relay.bodies[-1].decode() == form(*map("=".join, fields[:fitting]))


# The administrator


def test_the_administrators_new_password_is_the_one_to_log_in_with(users, relay, either):
    type_into(users, "admin_password", NEW_PASSWORD)
    type_into(users, "admin_oldpassword", either.old_password)
    _, text, items = submit(users)
    assert items == ["change the password of admin"]
    given = "" if either.old_password else "not "
    assert text == (
        f"The old password of admin is {given}given. A data source that does not show passwords, such as PostgreSQL, "
        "wants none; others want it. This takes effect at once; there is no undo."
    )
    assert agree(users) == [
        (
            "good",
            "Whether the new password of admin is in force cannot be seen here. "
            "Log in with your own new one when the browser asks.",
        )
    ]
    assert either.admits(ADMINISTRATOR, NEW_PASSWORD)
    browsers.log_in(users, password=NEW_PASSWORD)
    browsers.press(users, "refresh_users")
    assert messages(users) == []


def test_an_old_password_that_the_browser_filled_in_is_asked_about(users, relay, either):
    type_into(users, "admin_oldpassword", PASSWORD)
    type_into(users, "mary_file", "changed")
    assert mark_of(users, "admin_password") == "An EMPTY password would be set"
    _, text, items = submit(users)
    assert "an EMPTY password would be set. If you did not mean that, cancel" in text
    assert sorted(items) == ["change the description of mary", "set an EMPTY password for admin"]
    assert items[0] == "set an EMPTY password for admin"
    assert is_dangerous(users)
    # Enter presses the button that has the focus.
    users.switch_to.active_element.send_keys(Keys.ENTER)
    browsers.wait_until(users, lambda: not find_all(users, "dialog"))
    assert not any(b"submit_users" in body for body in relay.bodies)
    field(users, "admin_oldpassword").clear()
    assert asked(users) == ["change the description of mary"]
    agree(users)
    assert either.admits(ADMINISTRATOR, PASSWORD)


@ON_EMBEDDED
def test_a_new_password_without_the_old_one_is_sent_only_by_itself(users, either):
    type_into(users, "admin_password", NEW_PASSWORD)
    type_into(users, "mary_file", "changed")
    title, _, items = submit(users)
    assert title == "Please correct this first"
    assert items == ["password of admin: The old one is missing. If that is empty, submit the new one alone"]
    answer_question(users, agree=False)
    type_into(users, "mary_file", "Mary M.")
    assert asked(users) == ["change the password of admin"]
    answer_question(users)
    browsers.wait_until(users, lambda: messages(users))
    assert messages(users)[0][1].startswith("Invalid manager password specified.")
    assert field(users, "admin_password").get_attribute("value") == NEW_PASSWORD


@ON_EMBEDDED
def test_an_empty_administrators_password_is_replaced_without_an_old_one(page, browser, either):
    either.set_password(ADMINISTRATOR, "")
    browsers.log_in(browser, password="")
    users = page()
    type_into(users, "admin_password", NEW_PASSWORD)
    asked(users)
    agree(users)
    assert either.admits(ADMINISTRATOR, NEW_PASSWORD)


def test_a_wrong_old_password_stops_half_way_and_the_rest_stays_on_the_page(users, either):
    type_into(users, "Abe_file", "before")
    type_into(users, "mary_file", "behind")
    type_into(users, "admin_password", NEW_PASSWORD)
    type_into(users, "admin_oldpassword", "wrong")
    type_into(users, "__newuser", "zoe")
    asked(users)
    answer_question(users)
    browsers.wait_until(users, lambda: messages(users))
    assert messages(users)[0][1].startswith("Invalid manager password specified.")
    assert find(users, ".count").text == "4 users, 4 changes not submitted"
    assert "changed" not in cell_of(users, "Abe_file").get_attribute("class").split()
    for name in ("admin_password", "admin_oldpassword"):
        field(users, name).clear()
    assert asked(users) == ["change the description of mary", "add zoe (empty password)"]
    agree(users)
    assert [listed(users)[name][0] for name in ("Abe", "mary", "zoe")] == ["before", "behind", ""]


# What the database refuses


def test_what_the_database_refuses_is_named(users, either):
    type_into(users, "mary_file", "changed")
    type_into(users, "Abe_password", NEW_PASSWORD)
    field(users, "bob_checkbox").click()
    type_into(users, "__newuser", "zoe")
    type_into(users, "__newpass", NEW_PASSWORD)
    asked(users)
    either.refuse_users()
    told = dict(agree(users))
    lines = told["bad"].splitlines()
    expected = ["the description of mary was not changed: the database refused"]
    if either.shown_password("told"):
        expected.append("the password of Abe was not changed: the database refused")
    expected.append("bob was not deleted: the database refused. The privileges may have been taken away")
    expected.append("zoe was not added: the database refused")
    assert lines[0] == f"{len(expected)} changes did not take effect:"
    assert sorted(lines[1:]) == sorted(expected)
    if either.shown_password("told"):
        assert "good" not in told
    else:
        assert told["good"] == "Whether the new password of Abe is in force cannot be seen here."
    assert not either.admits("Abe", NEW_PASSWORD) and either.admits("bob", "builder")


def test_a_user_that_is_gone_meanwhile_is_named(users, either, relay):
    type_into(users, "mary_file", "changed")
    asked(users)

    def drop(answer):
        relay.spoil = lambda answer: answer
        either.drop_user("mary")
        return answer

    # Between the last look at the list and the submission.
    relay.spoil = drop
    assert agree(users) == [("bad", "1 change did not take effect:\nmary is not listed any more")]
