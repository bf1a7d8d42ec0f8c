"""The reports page: who may do what, gathered from the rights pages of all users."""

import threading
from datetime import date

import pytest

from support import browser as browsers
from support.browser import find, find_all, notices, press, visit, wait_until
from support.kinds import HELD, NAME, NOTES, ODD_TABLES, ODD_USERS, ON_EMBEDDED, ORDERS, STOCK, TABLES, UNREACHABLE
from support.pages import PRIVILEGES

# The users of the sample in the order of the report.
READ = ("public", "Abe", "bob", "mary")


def report_button(browser, label):
    (button,) = (button for button in find_all(browser, ".report button") if button.text == label)
    return button


def tell(browser, label):
    report_button(browser, label).click()


def state(browser):
    return find(browser, ".report .status").text


def wait_for_state(browser, beginning):
    wait_until(browser, lambda: state(browser).startswith(beginning))


def gather(browser, site):
    visit(browser, site, "reports")
    tell(browser, "Gather")
    wait_for_state(browser, f"Data source {NAME}, read on ")


def filter_field(browser, nouns):
    (field,) = (find(label, "input") for label in find_all(browser, ".report label") if label.text == f"Filter {nouns}")
    return field


def clear(browser, label):
    """A ticked box."""
    (box,) = (find(shown, "input") for shown in find_all(browser, ".report label") if shown.text == label)
    assert box.is_selected()
    box.click()


def show_all(browser):
    clear(browser, "Only tables with a privilege")
    clear(browser, "Only users with a privilege")


def count(browser):
    return find(browser, ".report .count").text


def remarks(browser):
    return find(browser, ".report_filters").text


def grid(browser):
    """The texts of the titles, and of the rows; of what is shown and spoken in two ways, what is spoken."""
    return browser.execute_script(
        "const text = cell => (cell.querySelector('.spoken') ?? cell).textContent;"
        "return ['thead tr', 'tbody tr'].map(rows =>"
        "    [...document.querySelectorAll(`.matrix ${rows}`)].map(row => [...row.cells].map(text)))"
    )


def matrix(browser):
    """(users, tables, what is held) as the matrix shows them."""
    (titles,), rows = grid(browser)
    assert titles[:3] == ["Catalog", "Schema", "Table"]
    users = [title.removesuffix(" (everybody)") for title in titles[3:]]
    held = {
        (user, tuple(row[:3])): tuple(cell.split(", "))
        for row in rows
        for user, cell in zip(users, row[3:], strict=True)
        if cell
    }
    return users, [tuple(row[:3]) for row in rows], held


def yes(*privileges):
    return ["yes" if privilege in privileges else "" for privilege in PRIVILEGES]


# What is shown


def test_the_matrix_shows_what_the_data_source_holds(browser, site, either):
    held = dict(HELD)
    either.make_tables(*ODD_TABLES)
    for number, (user, table) in enumerate(zip(ODD_USERS, ODD_TABLES, strict=True), 1):
        held[user, table] = tuple(name for bit, name in enumerate(PRIVILEGES) if number >> bit & 1)
        either.add_user(user, "", "pw")
        either.grant(user, table, *held[user, table])
    gather(browser, site)
    show_all(browser)
    users = ["public", *sorted(["Abe", "bob", "mary", *ODD_USERS])]
    assert matrix(browser) == (users, either.ordered((*TABLES, *ODD_TABLES)), held)


def test_tables_and_users_without_a_privilege_are_left_out_at_first(browser, site, either):
    gather(browser, site)
    assert matrix(browser) == (["public", "mary"], list(either.ordered((ORDERS, STOCK, NOTES))), HELD)
    assert count(browser) == "3 of 4 tables, 2 of 4 users"
    assert "Only tables with a privilege. Only users with a privilege." in remarks(browser)
    show_all(browser)
    assert matrix(browser) == (list(READ), list(either.ordered(TABLES)), HELD)
    assert count(browser) == "4 tables, 4 users"


def test_a_cell_shows_a_letter_for_each_privilege_and_explains_them(browser, site, either):
    either.grant("bob", NOTES, *PRIVILEGES)
    gather(browser, site)
    letters = {cell.text for cell in find_all(browser, ".matrix td [aria-hidden]")}
    assert letters == {"S", "I", "SU", "SIUD"}
    assert find(browser, ".matrix caption").text == "S select, I insert, U update, D delete"


def test_one_table_tells_what_each_user_holds_on_it_public_first(browser, site, either):
    either.grant("Abe", NOTES, "insert", "delete")
    gather(browser, site)
    tell(browser, "notes")
    assert find(browser, ".report h3").text == f"Who holds what on {'.'.join(NOTES)}"
    assert browser.switch_to.active_element == find(browser, ".report h3")
    assert grid(browser) == [
        [["User", "Select", "Insert", "Update", "Delete"]],
        [["public (everybody)", *yes("select")], ["Abe", *yes("insert", "delete")]],
    ]
    assert count(browser) == "2 of 4 users"
    tell(browser, "All tables and users")
    assert len(matrix(browser)[1]) == 3


def test_one_user_tells_what_is_held_on_each_table(browser, site, either):
    gather(browser, site)
    tell(browser, "mary")
    assert find(browser, ".report h3").text == "What mary holds"
    assert grid(browser) == [
        [["Catalog", "Schema", "Table", "Select", "Insert", "Update", "Delete"]],
        [[*ORDERS, *yes("select", "update")], [*STOCK, *yes("insert")]],
    ]
    assert count(browser) == "2 of 4 tables"


@ON_EMBEDDED
def test_a_table_or_user_is_chosen_from_the_list_that_the_filters_leave(browser, site):
    gather(browser, site)
    filter_field(browser, "tables").send_keys("st")
    filter_field(browser, "users").send_keys("a")
    choice = browsers.Select(find(browser, ".report select"))
    assert [option.text for option in choice.options] == ["All tables and users", ".".join(STOCK), "Abe", "mary"]
    choice.select_by_visible_text("Abe")
    filter_field(browser, "users").send_keys("x")
    assert find(browser, ".report h3").text == "What Abe holds"
    assert choice.first_selected_option.text == "Abe"
    choice.select_by_visible_text("All tables and users")
    assert find(browser, ".report h3").text == "Tables and users"


@ON_EMBEDDED
def test_a_long_list_of_choices_ends_in_a_hint(browser, site):
    gather(browser, site)
    browser.execute_script("report_sizes.choices = 3")
    filter_field(browser, "tables").send_keys("no")
    groups = [[option.text for option in find_all(group, "option")] for group in find_all(browser, ".report optgroup")]
    assert groups == [
        [".".join(table) for table in (ORDERS, STOCK, NOTES)],
        ["public (everybody)", "Abe", "bob", "Filter for the others"],
    ]


@ON_EMBEDDED
def test_filters_look_for_each_word_in_names_of_any_letter_case(browser, site, either):
    either.add_user("Größe", "", "pw")
    gather(browser, site)
    show_all(browser)
    filter_field(browser, "tables").send_keys(" ORD north ")
    filter_field(browser, "users").send_keys("GRÖ")
    assert matrix(browser) == (["Größe"], [ORDERS], {})
    assert count(browser) == "1 of 4 tables, 1 of 5 users"
    assert remarks(browser).endswith("Only tables that match “ord north”. Only users that match “grö”.")
    filter_field(browser, "users").send_keys("x")
    assert not find_all(browser, ".matrix")
    assert remarks(browser).endswith("There are no such users.")


@ON_EMBEDDED
def test_who_holds_nothing_on_the_tables_that_are_left_is_left_out(browser, site):
    gather(browser, site)
    filter_field(browser, "tables").send_keys("orders")
    assert matrix(browser) == (["mary"], [ORDERS], {("mary", ORDERS): HELD["mary", ORDERS]})


@ON_EMBEDDED
def test_tables_are_sorted_up_and_down_and_then_stand_as_on_the_rights_page(browser, site, either):
    tables = [(NAME, "north", f"table {number}") for number in (10, 9)]
    either.make_tables(*tables)
    gather(browser, site)
    show_all(browser)

    def names():
        return [table[2] for table in matrix(browser)[1]]

    listed = names()
    seen = []
    for _ in range(3):
        tell(browser, "Table")
        assert browser.switch_to.active_element.text.startswith("Table")
        seen.append((find_all(browser, ".matrix thead th")[2].get_attribute("aria-sort"), names()))
    up = ["invoices", "notes", "orders", "stock", "table 9", "table 10"]
    assert seen == [("ascending", up), ("descending", up[::-1]), ("none", listed)]


@ON_EMBEDDED
def test_many_tables_and_users_are_drawn_in_parts(browser, site, either):
    either.make_tables(*((NAME, "many", f"t{number:03}") for number in range(101)))
    gather(browser, site)
    clear(browser, "Only tables with a privilege")
    browser.execute_script("report_sizes.screen.users = 3")
    clear(browser, "Only users with a privilege")
    tables, users = find_all(browser, ".report .pager")
    assert (tables.text, users.text) == (
        "1 to 100 of 105 tables\nPrevious tables\nNext tables", "1 to 3 of 4 users\nPrevious users\nNext users",
    )
    tell(browser, "Next users")
    tell(browser, "Next tables")
    shown_users, shown_tables, _ = matrix(browser)
    assert (shown_users, len(shown_tables)) == (["mary"], 5)
    assert not report_button(browser, "Next tables").is_enabled()
    assert browser.switch_to.active_element.text == "Previous tables"
    tell(browser, "Previous tables")
    filter_field(browser, "users").send_keys("b")
    assert matrix(browser)[0] == ["public", "Abe", "bob"]


@ON_EMBEDDED
def test_a_user_whose_name_cannot_be_asked_for_is_named(browser, site, either):
    names = ["o'neil", "line\nend"]
    for name in names:
        text = name.replace("'", "''")
        either.source.change(f"insert into \"nordvale.system.user\" values ('{text}', '', '')")
    either.source.change("insert into \"nordvale.system.user\" values (cast(x'ff' as text), '', '')")
    gather(browser, site)
    assert "Not read, because the pages cannot ask for such a name: line end, o'neil, \ufffd." in state(browser)
    show_all(browser)
    assert matrix(browser) == (list(READ), list(either.ordered(TABLES)), HELD)


@ON_EMBEDDED
def test_the_rights_of_somebody_else_are_not_taken_for_the_user_s(browser, relay):
    visit(browser, relay.address, "reports")
    relay.spoil = lambda answer: answer.replace(b"<strong>mary<", b"<strong>Mary<")
    tell(browser, "Gather")
    wait_for_state(browser, "Data source")
    assert state(browser).endswith("for such a name: mary.")
    assert matrix(browser)[2] == {("public", NOTES): HELD["public", NOTES]}


@ON_EMBEDDED
def test_tables_whose_names_the_pages_cannot_show_are_counted(browser, site, either):
    either.make_tables((NAME, "north", "t" * 255), (NAME, "s" * 255, "t"))
    gather(browser, site)
    assert state(browser).endswith(". Without 2 tables whose names are too long for the pages.")
    show_all(browser)
    assert matrix(browser) == (list(READ), list(either.ordered(TABLES)), HELD)


# Gathering


def body(user):
    return f"datasource={NAME}&last_datasource={NAME}&isamuser={user}&rights_refresh=&form_end=1".encode()


@ON_EMBEDDED
def test_nothing_is_read_before_the_button_is_pressed_and_then_each_user_once(browser, relay):
    visit(browser, relay.address, "reports")
    assert not [body for body in relay.bodies if b"rights" in body]
    assert not find_all(browser, ".report .tools:not([hidden])")
    relay.posts.clear()
    tell(browser, "Gather")
    wait_for_state(browser, "Data source")
    assert relay.bodies == [body(user) for user in READ]


@ON_EMBEDDED
def test_another_data_source_in_the_list_does_not_get_into_the_report(browser, relay):
    visit(browser, relay.address, "reports")
    relay.posts.clear()
    browsers.Select(browsers.field(browser, "datasource")).select_by_value(UNREACHABLE)
    tell(browser, "Gather")
    wait_for_state(browser, f"Data source {NAME}")
    assert relay.bodies == [body(user) for user in READ]


def after_two(relay, do):
    """From now on two answers pass; what is made of the others decides `do`."""
    passed = []

    def spoil(answer):
        passed.append(answer)
        return answer if len(passed) <= 2 else do(answer)

    relay.spoil = spoil


@ON_EMBEDDED
def test_stopped_it_shows_what_has_been_read_and_goes_on_from_there(browser, relay):
    visit(browser, relay.address, "reports")
    relay.posts.clear()
    over = threading.Event()
    after_two(relay, lambda answer: answer if over.wait(browsers.SECONDS) else b"")
    tell(browser, "Gather")
    wait_until(browser, lambda: len(relay.bodies) == 3)
    wait_until(browser, lambda: find(browser, ".report .actions label").text == "2 of 4 users")
    assert find(browser, ".report progress").get_property("value") == 0.5
    tell(browser, "Stop")
    wait_for_state(browser, f"Incomplete: 2 of 4 users not read yet. Data source {NAME}, read ")
    over.set()
    assert not notices(browser)
    assert browser.switch_to.active_element.text == "Continue"
    clear(browser, "Only users with a privilege")
    assert matrix(browser)[0] == ["public", "Abe"]
    tell(browser, "Continue")
    wait_for_state(browser, "Data source")
    assert matrix(browser)[0] == list(READ)
    assert relay.bodies == [body(user) for user in ("public", "Abe", "bob", "bob", "mary")]


SPOILED = {
    "closed": (lambda answer: b"", "No answer came that a browser can show."),
    "cut": (lambda answer: answer[:-20], "The answer stopped in the middle."),
    "refused": (lambda answer: b"HTTP/1.1 401 Authorization Required\r\n\r\n", "The log-in was refused or given up."),
}


@ON_EMBEDDED
@pytest.mark.parametrize("spoiled", SPOILED)
def test_a_read_that_fails_is_explained_and_what_is_there_stays(browser, relay, spoiled):
    spoil, words = SPOILED[spoiled]
    visit(browser, relay.address, "reports")
    after_two(relay, spoil)
    tell(browser, "Gather")
    wait_for_state(browser, "Incomplete: 2 of 4 users not read yet.")
    ((kind, text),) = notices(browser)
    assert kind == "bad" and text.startswith(words) and f"data source: {NAME}\nuser: bob" in text
    relay.spoil = lambda answer: answer
    tell(browser, "Continue")
    wait_for_state(browser, "Data source")
    assert not notices(browser)
    assert matrix(browser)[2] == HELD


@ON_EMBEDDED
def test_a_database_that_goes_away_meanwhile_is_told_in_the_server_s_words(browser, site, either):
    gather(browser, site)
    away = either.source.database.rename(either.source.database.with_suffix(".away"))
    tell(browser, "Gather again")
    ((kind, text),) = wait_until(browser, lambda: notices(browser))
    away.rename(either.source.database)
    assert kind == "bad" and "user: public" in text and "undefined" not in text
    # The report of before is there still.
    assert state(browser).startswith("Data source")
    assert matrix(browser)[2] == HELD


@ON_EMBEDDED
def test_a_new_report_begins_with_all_tables_and_users(browser, relay):
    gather(browser, relay.address)
    tell(browser, "mary")
    after_two(relay, lambda answer: b"")
    tell(browser, "Gather again")
    wait_for_state(browser, "Incomplete")
    assert find(browser, ".report h3").text == "Tables and users"
    assert matrix(browser)[2] == {("public", NOTES): HELD["public", NOTES]}


@ON_EMBEDDED
@pytest.mark.parametrize(
    ("done", "seconds", "text"),
    [
        (2, 1, "2 of 1,000 users"),
        (3, 0.1, "3 of 1,000 users, less than a minute left"),
        (200, 16, "200 of 1,000 users, about 2 minutes left"),
    ],
)
def test_while_it_reads_it_tells_how_long_it_will_take(browser, site, done, seconds, text):
    visit(browser, site, "reports")
    report = {"masks": [0] * done, "users": [""] * 1000, "ended": True}
    script = "return progress_text(arguments[0], {done: 0, time: Date.now() - 1000 * arguments[1]})"
    assert browser.execute_script(script, report, seconds) == text


@ON_EMBEDDED
def test_a_table_that_is_made_meanwhile_comes_last(browser, relay, either):
    new = (NAME, "a", "new")
    visit(browser, relay.address, "reports")

    def make(answer):
        relay.spoil = lambda answer: answer
        either.make_tables(new)
        either.grant("mary", new, "delete")
        return answer

    relay.spoil = make
    tell(browser, "Gather")
    wait_for_state(browser, "Data source")
    _, tables, held = matrix(browser)
    assert (tables[-1], held) == (new, {**HELD, ("mary", new): ("delete",)})


@ON_EMBEDDED
def test_the_report_stays_while_other_pages_are_shown(browser, relay):
    gather(browser, relay.address)
    press(browser, "users")
    relay.posts.clear()
    press(browser, "reports")
    assert matrix(browser)[2] == HELD
    assert len(relay.bodies) == 1


@ON_EMBEDDED
@pytest.mark.parametrize("buttons", [("users", "reports"), ("datasource_refresh",)])
def test_who_leaves_the_page_stops_and_finds_what_has_been_read(browser, relay, buttons):
    visit(browser, relay.address, "reports")
    over = threading.Event()

    def hold_back(answer):
        if b"isamuser" in relay.bodies[-1]:
            over.wait(browsers.SECONDS)
        return answer

    after_two(relay, hold_back)
    relay.posts.clear()
    tell(browser, "Gather")
    wait_until(browser, lambda: len(relay.bodies) == 3)
    for button in buttons:
        press(browser, button)
        over.set()
    wait_for_state(browser, "Incomplete: ")
    assert [sent for sent in relay.bodies if b"isamuser" in sent] == [body(user) for user in READ[:3]]


# Saved and printed


@pytest.fixture
def saved(browser, tmp_path):
    """Presses the button and gives the name and the bytes of the file that is saved."""
    browser.execute_cdp_cmd("Browser.setDownloadBehavior", {"behavior": "allow", "downloadPath": str(tmp_path)})

    def save():
        tell(browser, "Save as CSV")
        # The browser holds the place with an empty file until the whole one takes it.
        (file,) = wait_until(browser, lambda: [file for file in tmp_path.glob("*.csv") if file.stat().st_size])
        content = file.read_bytes()
        file.unlink()
        return file.name, content

    return save


HEAD = b"\xef\xbb\xbfuser,catalog,schema,table,select,insert,update,delete\r\n"


def test_saved_is_one_line_for_each_user_and_table_with_a_privilege(browser, site, either, saved):
    either.add_user('Größe, "XL"', "", "pw")
    either.grant('Größe, "XL"', ORDERS, *PRIVILEGES)
    gather(browser, site)
    assert saved() == (
        f"rights-{NAME}-{date.today()}.csv",
        HEAD
        + "public,accounts,public,notes,yes,,,\r\n"
        '"Größe, ""XL""",accounts,north,orders,yes,yes,yes,yes\r\n'
        "mary,accounts,north,orders,yes,,yes,\r\n"
        "mary,accounts,north,stock,,yes,,\r\n".encode(),
    )
    assert notices(browser) == [("good", f"4 lines saved as rights-{NAME}-{date.today()}.csv.\n×")]


@ON_EMBEDDED
def test_saved_is_what_choice_filters_and_order_show(browser, site, saved):
    gather(browser, site)
    tell(browser, "Table")
    tell(browser, "Table")
    filter_field(browser, "users").send_keys("mary")
    assert saved()[1] == HEAD + b"mary,accounts,north,stock,,yes,,\r\nmary,accounts,north,orders,yes,,yes,\r\n"
    filter_field(browser, "tables").send_keys("stock")
    assert saved()[1] == HEAD + b"mary,accounts,north,stock,,yes,,\r\n"
    filter_field(browser, "users").clear()
    filter_field(browser, "users").send_keys(" ")
    tell(browser, "mary")
    filter_field(browser, "tables").clear()
    filter_field(browser, "tables").send_keys("orders")
    assert saved()[1] == HEAD + b"mary,accounts,north,orders,yes,,yes,\r\n"


def test_a_name_that_spreadsheets_take_for_a_formula_is_saved_behind_an_apostrophe(browser, site, either, saved):
    table = (NAME, "-1", '@SUM(1,"2")')
    either.make_tables(table)
    for user in ("=1+1", "+2", "a=b"):
        either.add_user(user, "", "pw")
        either.grant(user, table, "select")
    gather(browser, site)
    filter_field(browser, "tables").send_keys("@")
    assert saved()[1] == HEAD + b"".join(
        user + b""",accounts,'-1,"'@SUM(1,""2"")",yes,,,\r\n""" for user in (b"'+2", b"'=1+1", b"a=b")
    )
    ((_, text),) = notices(browser)
    assert "An apostrophe stands before names that begin with" in text


@ON_EMBEDDED
@pytest.mark.parametrize(
    ("name", "cell"),
    [
        ("\tx", "'\tx"),
        ("\rx", "\"'\rx\""),
        ("\nx", "\"'\nx\""),
        ("a\nb", '"a\nb"'),
        ("a;b", "a;b"),
        ("'=a", "'=a"),
        ("", ""),
    ],
)
def test_a_cell_of_the_saved_file(browser, site, name, cell):
    visit(browser, site, "reports")
    assert browser.execute_script("return csv_cell(arguments[0])", name) == cell


@ON_EMBEDDED
def test_the_file_s_name_is_one_on_every_system(browser, site):
    visit(browser, site, "reports")
    report = '{datasource: "Büro 7/a: *", ended: new Date(2026, 0, 2, 23, 59), users: [], masks: []}'
    assert browser.execute_script(f"gathered = {report}; return csv_name()") == "rights-Büro_7_a_-2026-01-02.csv"


@ON_EMBEDDED
def test_more_lines_than_spreadsheets_read_are_not_saved(browser, site, saved):
    gather(browser, site)
    browser.execute_script("report_sizes.csv_lines = 4")
    assert saved()[1].count(b"\n") == 4
    browser.execute_script("report_sizes.csv_lines = 3")
    tell(browser, "Save as CSV")
    kind, text = notices(browser)[-1]
    assert kind == "bad" and text.startswith("Not saved: spreadsheets read no more than 3 lines.")


@ON_EMBEDDED
def test_an_incomplete_report_says_so_in_the_file_s_name(browser, relay, saved):
    visit(browser, relay.address, "reports")
    after_two(relay, lambda answer: b"")
    tell(browser, "Gather")
    wait_for_state(browser, "Incomplete")
    assert saved()[0] == f"rights-{NAME}-{date.today()}-incomplete.csv"


@ON_EMBEDDED
def test_paper_shows_everything_that_matches_in_blocks_of_users(browser, site, either):
    for number in range(10):
        either.add_user(f"user {number}", "", "pw")
    gather(browser, site)
    filter_field(browser, "tables").send_keys("north")
    clear(browser, "Only users with a privilege")
    browser.execute_script("report_sizes.screen.tables = 1; report_sizes.print.users = 13")
    browser.execute_script("dispatchEvent(new Event('beforeprint'))")
    blocks = [
        [title.text for title in find_all(block, "thead th")][3:] for block in find_all(browser, ".matrix")
    ]
    users = ["public (everybody)", *READ[1:], *(f"user {number}" for number in range(10))]
    assert blocks == [users[:10], users[10:13]]
    assert {len(find_all(block, "tbody tr")) for block in find_all(browser, ".matrix")} == {2}
    assert "Only tables that match “north”." in remarks(browser)
    assert "Only the first 13 of 14 users." in remarks(browser)
    assert not find_all(browser, ".matrix button")
    browser.execute_script("dispatchEvent(new Event('afterprint'))")
    assert len(find_all(browser, ".matrix")) == 1 and find_all(browser, ".matrix button")
