"""The rights page with script: what is asked before a submission, what reaches the database, what is told then."""

import pytest
from selenium.webdriver.support.ui import Select

from support import pages
from support.browser import (
    answer_question,
    box,
    button,
    field,
    find,
    find_all,
    notices,
    press_and_agree,
    question,
    show_rights,
    visit,
    wait_until,
)
from support.kinds import (
    HELD,
    INVOICES,
    NAME,
    NOTES,
    ODD_TABLES,
    ON_EMBEDDED,
    ORDERS,
    STOCK,
    TABLES,
    UNREACHABLE,
    grant_statement,
)
from support.pages import PRIVILEGES
from support.source import ADMINISTRATOR

# Names that no form can carry, and names that read the same as another one.
WITH_EQUALS_SIGN = (NAME, "north", "a=b")
TWINS = ((NAME, "a", "b.c"), (NAME, "a.b", "c"))

MARYS = [HELD.get(("mary", table), ()) for table in TABLES]


def dotted(table):
    return ".".join(table)


def rows(browser):
    """The tables that are drawn, by their names."""
    return [
        tuple(cell.text.split("\n")[0] for cell in row.find_elements("css selector", "td")[:3])
        for row in find_all(browser, "thead ~ tbody > tr:not(.more)")
    ]


def ticked(browser, *tables):
    return [tuple(name for name in PRIVILEGES if box(browser, table, name).is_selected()) for table in tables]


def fill(browser, value, what):
    find(browser, f"button[title='{value} {what}']").click()


def in_column(privilege):
    return f"{privilege} on all tables that match the filter"


def in_row(table):
    return f"the four boxes of {dotted(table)}"


def filter_tables(browser, text):
    find(browser, ".tools input[type=search]").send_keys(text)


def tool(browser, name):
    """A button or a box above the list."""
    path = f".//button[.='{name}'] | .//label[contains(., '{name}')]/input"
    return find(browser, ".tools").find_element("xpath", path)


def asked(browser, name):
    """The lines of the question that the button brings up."""
    button(browser, name).click()
    return [line.text for line in question(browser).find_elements("css selector", ".items li")]


def told(browser):
    """The kinds of the messages, and their lines without the button that closes them."""
    shown = wait_until(browser, lambda: notices(browser))
    return [(kind, text.removesuffix("\n×").split("\n")) for kind, text in shown]


def agree(browser):
    """Gives what is told once the answer is there."""
    form = find(browser, "form")
    answer_question(browser)
    wait_until(browser, lambda: find(browser, "form") != form)
    return told(browser)


def sql_in(browser):
    return question(browser).find_element("css selector", "textarea").get_attribute("value")


# Submitting


def test_a_submission_asks_with_what_it_changes_and_tells_what_was_done(browser, site, either):
    visit(browser, site, "rights", user="mary")
    for table, privilege in ((ORDERS, "update"), (INVOICES, "select"), (INVOICES, "delete")):
        box(browser, table, privilege).click()
    assert asked(browser, "submit_selection") == [
        "grant select on accounts.books.invoices to mary",
        "grant delete on accounts.books.invoices to mary",
        "revoke update on accounts.north.orders from mary",
    ]
    assert agree(browser) == [("good", ["2 grants and 1 revoke were carried out for mary."])]
    held = [("select", "delete"), ("select",), ("insert",), ()]
    assert ticked(browser, *TABLES) == held
    assert either.allowed("mary", "lamb", *TABLES) == [*held[:3], ("select",)]


def test_nothing_is_submitted_without_a_yes(browser, site, either):
    visit(browser, site, "rights", user="mary")
    box(browser, ORDERS, "update").click()
    for name in ("submit_selection", "rights_grant", "rights_revoke"):
        asked(browser, name)
        answer_question(browser, agree=False)
    assert ticked(browser, ORDERS) == [("select",)]
    assert either.allowed("mary", "lamb", *TABLES) == [*MARYS[:3], ("select",)]


@ON_EMBEDDED
def test_boxes_as_they_were_are_not_submitted(browser, relay):
    visit(browser, relay.address, "rights", user="mary")
    for _ in range(2):
        box(browser, ORDERS, "update").click()
    relay.posts.clear()
    assert asked(browser, "submit_selection") == []
    assert question(browser).text.startswith("Nothing has been changed")
    assert [body for body in relay.bodies if b"submit_selection" in body] == []


@ON_EMBEDDED
def test_what_is_public_s_is_granted_to_public(browser, site):
    visit(browser, site, "rights", user="public")
    box(browser, ORDERS, "select").click()
    box(browser, NOTES, "select").click()
    assert asked(browser, "submit_selection") == [
        "grant select on accounts.north.orders to public",
        "revoke select on accounts.public.notes from public",
    ]
    assert agree(browser) == [("good", ["1 grant and 1 revoke were carried out for public."])]


def test_boxes_of_tables_of_any_name_count(browser, site, either):
    odd = (*ODD_TABLES, (NAME, "north", "a&b+%20"))
    either.make_tables(*odd)
    visit(browser, site, "rights", user="bob")
    fill(browser, "tick", in_column("update"))
    press_and_agree(browser, "submit_selection")
    assert told(browser) == [("good", ["16 grants were carried out for bob."])]
    assert either.allowed("bob", "builder", *odd) == [("update",)] * len(odd)


def test_rights_of_users_of_any_name_are_changed(browser, site, either):
    odd = ("Mary Ann", 'say "it"', "Größe", "a&b=c+%20")
    for user in odd:
        either.add_user(user, "", "pw")
    visit(browser, site, "rights")
    for user in odd:
        show_rights(browser, user)
        box(browser, ORDERS, "delete").click()
        press_and_agree(browser, "submit_selection")
        assert told(browser) == [("good", [f"1 grant was carried out for {user}."])]
        assert either.allowed(user, "pw", ORDERS) == [("delete",)]


def test_a_change_that_the_database_refuses_is_named(browser, site, either):
    either.refuse("grant", STOCK)
    visit(browser, site, "rights", user="bob")
    fill(browser, "tick", in_column("select"))
    press_and_agree(browser, "submit_selection")
    assert sorted(told(browser)) == [
        (
            "bad",
            [
                "1 change did not take effect:",
                "grant select on accounts.north.stock to bob was refused by the database",
            ],
        ),
        ("good", ["3 grants were carried out for bob."]),
    ]
    assert either.allowed("bob", "builder", STOCK) == [()]


def test_a_revoke_after_which_the_privilege_is_still_held_is_named(browser, site, either):
    either.refuse("revoke", STOCK)
    visit(browser, site, "rights", user="mary")
    box(browser, STOCK, "insert").click()
    press_and_agree(browser, "submit_selection")
    assert told(browser) == [
        (
            "bad",
            [
                "1 change did not take effect:",
                "revoke insert on accounts.north.stock from mary was refused by the database, or somebody else has "
                "granted it, too",
            ],
        )
    ]


def test_a_form_that_the_server_would_cut_is_not_sent(browser, site, either):
    many = [(NAME, "north", f"{'t' * 50}{number}") for number in range(110, 220)]
    either.make_tables(*many)
    either.grant("mary", many[-1], "select")
    visit(browser, site, "rights", user="mary")
    for privilege in PRIVILEGES:
        fill(browser, "tick", in_column(privilege))
    button(browser, "submit_selection").click()
    text = question(browser).text
    assert text.startswith("Too many ticked boxes\nThe form would have 34,467 bytes; 30,000 bytes can be sent safely.")
    assert sql_in(browser).startswith(grant_statement("select", INVOICES, "mary") + ";\n")
    assert sql_in(browser).count("\n") == 4 * 114 - 4
    assert either.allowed("mary", "lamb", *TABLES, many[-1]) == [*MARYS[:3], ("select",), ("select",)]


# Names that cannot be sent


def test_a_table_whose_boxes_cannot_be_sent_is_not_edited_and_says_why(browser, site, either):
    either.make_tables(WITH_EQUALS_SIGN)
    visit(browser, site, "rights", user="bob")
    locked = box(browser, WITH_EQUALS_SIGN, "select")
    reason = "annot be changed here: its name holds a “=”"
    assert f"C{reason}." in find(browser, ".reason").text
    assert locked.accessible_name == f"select on accounts.north.a=b, c{reason}"
    fill(browser, "tick", in_column("select"))
    assert not locked.is_enabled() and not locked.is_selected()


def test_what_a_submission_takes_away_along_with_it_is_told_before_and_can_be_kept(browser, site, either):
    either.make_tables(WITH_EQUALS_SIGN)
    either.grant("bob", WITH_EQUALS_SIGN, "insert")
    visit(browser, site, "rights", user="bob")
    assert asked(browser, "submit_selection") == []  # nothing that was asked for
    answer_question_with_its_only_button(browser)
    box(browser, STOCK, "select").click()
    assert asked(browser, "submit_selection") == [
        "revoke insert on accounts.north.a=b from bob (not asked for: its name holds a “=”)",
        "grant select on accounts.north.stock to bob",
    ]
    assert sql_in(browser) == grant_statement("select", STOCK, "bob") + ";\n"
    answer_question(browser, agree=False)
    assert either.allowed("bob", "builder", WITH_EQUALS_SIGN) == [("insert",)]
    press_and_agree(browser, "submit_selection")
    assert told(browser) == [("good", ["1 grant and 1 revoke were carried out for bob."])]
    assert either.allowed("bob", "builder", WITH_EQUALS_SIGN, STOCK) == [(), ("select",)]


def answer_question_with_its_only_button(browser):
    question(browser).find_element("css selector", ".actions button").click()
    wait_until(browser, lambda: not find_all(browser, "dialog"))


def test_of_tables_that_share_their_boxes_none_gains_what_another_holds(browser, site, either):
    either.make_tables(*TWINS)
    either.grant("bob", TWINS[0], "select", "update")
    either.grant("bob", TWINS[1], "update")
    visit(browser, site, "rights", user="bob")
    assert not any(shared.is_enabled() for shared in find_all(browser, "[name='accounts.a.b.c_delete']"))
    assert len(find_all(browser, ".reason")) == 2
    box(browser, STOCK, "select").click()
    assert asked(browser, "submit_selection") == [
        'revoke select on "accounts"."a"."b.c" from bob (not asked for: the server cannot tell it from another table)',
        "grant select on accounts.north.stock to bob",
    ]
    assert agree(browser) == [("good", ["1 grant and 1 revoke were carried out for bob."])]
    assert either.allowed("bob", "builder", *TWINS) == [("update",), ("update",)]


@ON_EMBEDDED
def test_a_table_that_several_have_granted_on_has_one_row(browser, relay):
    row = pages.rights_row(ORDERS, ("select", "update"), ADMINISTRATOR, "mary").encode()
    relay.spoil = lambda answer: answer.replace(row, row + row.replace(b"\nadmin<", b"\nanna<"))
    visit(browser, relay.address, "rights", user="mary")
    assert rows(browser) == list(TABLES)
    assert "admin, anna" in find(browser, "main").text
    box(browser, ORDERS, "select").click()
    assert asked(browser, "submit_selection") == ["revoke select on accounts.north.orders from mary"]


@ON_EMBEDDED
def test_a_table_without_boxes_stays_as_it_is(browser, relay):
    row = pages.rights_row(STOCK, ("insert",))
    relay.spoil = lambda answer: answer.replace(
        row.encode(), row.replace(row[row.index("<input") : row.rindex("</input>") + 8], "&nbsp;").encode()
    )
    visit(browser, relay.address, "rights", user="mary")
    assert "its name is too long" in find(browser, ".reason").text
    fill(browser, "tick", in_column("delete"))
    assert asked(browser, "submit_selection") == [
        f"grant delete on {dotted(table)} to mary" for table in TABLES if table != STOCK
    ]
    answer_question(browser, agree=False)
    asked(browser, "rights_grant")
    assert "on every table of accounts, whatever is ticked or filtered: 3 tables," in question(browser).text


# Many boxes at once


@ON_EMBEDDED
def test_a_column_is_ticked_and_cleared_where_the_filter_matches_as_one_step(browser, site):
    visit(browser, site, "rights", user="mary")
    filter_tables(browser, "north")
    fill(browser, "clear", in_column("select"))
    fill(browser, "tick", in_column("update"))
    assert ticked(browser, ORDERS, STOCK) == [("update",), ("insert", "update")]
    find(browser, ".tools input[type=search]").clear()
    filter_tables(browser, "o")
    assert ticked(browser, *TABLES) == [(), ("update",), ("insert", "update"), ()]
    tool(browser, "Undo").click()
    assert ticked(browser, *TABLES) == [(), ("update",), ("insert",), ()]
    tool(browser, "Undo").click()
    assert ticked(browser, *TABLES) == MARYS


@ON_EMBEDDED
def test_a_column_reaches_the_tables_that_are_not_drawn_yet(browser, site, either):
    either.make_tables(*((NAME, "many", f"t{number}") for number in range(250)))
    visit(browser, site, "rights", user="bob")
    filter_tables(browser, "many")
    fill(browser, "tick", in_column("select"))
    assert len(asked(browser, "submit_selection")) == 250


@ON_EMBEDDED
def test_a_row_is_ticked_and_cleared_as_one_step(browser, site):
    visit(browser, site, "rights", user="mary")
    fill(browser, "tick", in_row(ORDERS))
    assert ticked(browser, *TABLES) == [(), PRIVILEGES, ("insert",), ()]
    fill(browser, "clear", in_row(ORDERS))
    assert ticked(browser, ORDERS) == [()]
    for held in (PRIVILEGES, ("select", "update")):
        tool(browser, "Undo").click()
        assert ticked(browser, ORDERS) == [held]


# All tables


def test_grant_all_asks_and_tells(browser, site, either):
    visit(browser, site, "rights", user="mary")
    box(browser, ORDERS, "select").click()
    asked(browser, "rights_grant")
    assert question(browser).text.split("\n")[:2] == [
        "Grant All for mary?",
        "Grant All grants select, insert, update and delete to mary on every table of accounts, whatever is ticked or "
        "filtered: 4 tables, of which 4 would change. 1 change not submitted will be lost.",
    ]
    assert agree(browser) == [("good", ["mary now holds all of the four privileges on 4 tables."])]
    assert either.allowed("mary", "lamb", *TABLES) == [PRIVILEGES] * 4


def test_revoke_all_asks_and_tells(browser, site, either):
    visit(browser, site, "rights", user="mary")
    asked(browser, "rights_revoke")
    assert question(browser).text.split("\n")[:2] == [
        "Revoke All for mary?",
        "Revoke All takes all privileges away from mary on every table of accounts, whatever is ticked or filtered: "
        "4 tables, of which 2 would change.",
    ]
    assert agree(browser) == [("good", ["mary now holds none of the four privileges on 4 tables."])]
    assert either.allowed("mary", "lamb", *TABLES) == [(), (), (), ("select",)]


def test_tables_that_grant_all_did_not_reach_are_named(browser, site, either):
    either.refuse("grant", STOCK)
    visit(browser, site, "rights", user="bob")
    press_and_agree(browser, "rights_grant")
    assert told(browser) == [
        ("info", ["Grant All ends at the first table where the database refuses."]),
        (
            "bad",
            [
                "2 changes did not take effect:",
                "grant all on accounts.north.stock to bob",
                "grant all on accounts.public.notes to bob",
            ],
        ),
    ]


# Choosing the user


@ON_EMBEDDED
def test_nothing_is_changed_while_another_user_or_data_source_is_chosen_than_shown(browser, site):
    visit(browser, site, "rights", user="mary")
    buttons = [button(browser, name) for name in ("rights_grant", "rights_revoke", "submit_selection")]
    for chooser, other, own in (("isamuser", "bob", "mary"), ("datasource", UNREACHABLE, NAME)):
        assert all(each.is_enabled() for each in buttons)
        Select(field(browser, chooser)).select_by_value(other)
        assert not any(each.is_enabled() for each in buttons)
        assert f"{other}, but the list still shows mary in {NAME}. Press Refresh" in find(browser, "main").text
        Select(field(browser, chooser)).select_by_value(own)
        assert "Press Refresh to go on" not in find(browser, "main").text


@ON_EMBEDDED
def test_nothing_is_changed_for_a_user_whom_the_server_takes_for_another_one(browser, site, either):
    for user in ("it's", "it''s"):
        either.add_user(user, "", "pw")
    visit(browser, site, "rights", user="it''s")
    assert "The server cannot be asked for exactly this user." in find(browser, ".choice").text
    assert not any(button(browser, name).is_enabled() for name in ("rights_grant", "rights_revoke", "submit_selection"))


# The rights of others


def test_the_rights_of_another_user_are_copied_where_the_filter_matches(browser, site, either):
    either.grant("bob", ORDERS, "delete")
    visit(browser, site, "rights", user="bob")
    filter_tables(browser, "orders")
    tool(browser, "Copy rights…").click()
    chooser = Select(question(browser).find_element("css selector", "select"))
    assert browser.switch_to.active_element == find(browser, "dialog select")
    assert [option.text for option in chooser.options] == ["Abe", "mary", "public"]
    chooser.select_by_value("mary")
    answer_question(browser)
    assert told(browser) == [
        (
            "info",
            [
                "3 changes made to the boxes of 1 table to match what mary holds. "
                "Look through them, then press Submit Selection."
            ],
        )
    ]
    assert asked(browser, "submit_selection") == [
        "grant select on accounts.north.orders to bob",
        "grant update on accounts.north.orders to bob",
        "revoke delete on accounts.north.orders from bob",
    ]
    answer_question(browser, agree=False)
    tool(browser, "Undo").click()
    assert ticked(browser, ORDERS) == [("delete",)]


def marks(browser):
    """The names of the boxes that are marked as public's."""
    marked = [mark.find_element("xpath", "preceding-sibling::input") for mark in find_all(browser, "small.public")]
    return [each.get_attribute("name") for each in marked]


def test_what_public_has_is_marked_on_demand_and_on_the_next_pages_too(browser, site):
    visit(browser, site, "rights", user="mary")
    assert marks(browser) == []
    tool(browser, "Show what public has").click()
    wait_until(browser, lambda: marks(browser) == ["accounts.public.notes_select"])
    assert box(browser, NOTES, "select").accessible_name == "select on accounts.public.notes, granted to public"
    show_rights(browser, "bob")
    wait_until(browser, lambda: marks(browser) == ["accounts.public.notes_select"])
    tool(browser, "Show what public has").click()
    wait_until(browser, lambda: marks(browser) == [])
    assert box(browser, NOTES, "select").accessible_name == "select on accounts.public.notes"
    show_rights(browser, "public")
    assert "Show what public has" not in find(browser, ".tools").text


# SQL


@ON_EMBEDDED
def test_changes_are_shown_as_sql_and_copied(browser, site, either):
    best = (NAME, 'the "best"', 'of "all"')
    user = 'say "it"'
    either.make_tables(best)
    either.add_user(user, "", "pw")
    either.grant(user, ORDERS, "select")
    visit(browser, site, "rights", user=user)
    tool(browser, "Changes as SQL…").click()
    assert question(browser).text.split("\n")[:2] == ["Changes as SQL", "Nothing has been changed."]
    answer_question_with_its_only_button(browser)
    box(browser, ORDERS, "select").click()
    find(browser, """[name='accounts.the "best".of "all"_update']""").click()
    tool(browser, "Changes as SQL…").click()
    revoked = 'revoke select on "accounts"."north"."orders" from "say ""it""";\n'
    assert sql_in(browser) == revoked + grant_statement("update", best, user) + ";\n"
    question(browser).find_element("xpath", ".//button[.='Copy']").click()
    wait_until(browser, lambda: "Copied." in question(browser).text)
    either.source.execute(*sql_in(browser).splitlines())
    assert either.allowed(user, "pw", ORDERS, best) == [(), ("update",)]


@ON_EMBEDDED
@pytest.mark.parametrize(
    ("names", "sql"), [(("", "", "t"), '"t"'), (("", "s", "t"), '"s"."t"'), (("c", "", "t"), '"c".""."t"')]
)
def test_missing_names_are_left_out_of_sql_as_the_server_does(browser, site, names, sql):
    visit(browser, site, "rights")
    record = dict(zip(("catalog", "schema", "table"), names))
    script = "return change_sql({record: arguments[0], p: 0, verb: 'grant'}, 'public')"
    assert browser.execute_script(script, record) == f"grant select on {sql} to public;\n"
