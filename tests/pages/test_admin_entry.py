"""The entry of the administration: the page's frame, its choosers and the choice of its body."""

from itertools import product

import pytest

from support import pages
from support.pages import RIGHTS_REFRESH, REPORTS_REFRESH, USERS_REFRESH, answered

CHOICES = ("users.x", "rights.x", "reports.x", "users_refresh", "rights_refresh", "reports_refresh")

HIDDEN = {
    "users.x": USERS_REFRESH,
    "rights.x": RIGHTS_REFRESH,
    "reports.x": REPORTS_REFRESH,
    "users_refresh": USERS_REFRESH,
    "rights_refresh": RIGHTS_REFRESH,
    "reports_refresh": REPORTS_REFRESH,
}

SUBSETS = [
    tuple(name for name, posted in zip(CHOICES, chosen) if posted) for chosen in product((False, True), repeat=6)
]


def not_let_in():
    return pages.error_page("SQLDriverConnect failed with [NORDVALE][ISAM]Invalid user and or password specified\n")


def landing_page(current="accounts"):
    return pages.page(pages.source_chooser(pages.SOURCES, current, "initial_datasource"))


@pytest.mark.parametrize("path", ["/", "/index.html", "/?datasource=branch"])
def test_the_landing_page_offers_the_data_sources_and_preselects_the_first(visitor, path):
    assert answered(visitor.server.get(path)) == landing_page()


def test_the_landing_page_connects_to_no_data_source(visitor, accounts, branch):
    visitor.server.get("/")
    assert accounts.statements() == branch.statements() == []


def test_a_form_for_the_landing_page_reaches_no_data_without_credentials(visitor, accounts):
    body = answered(visitor.send([("users.x", "1"), ("datasource", "accounts")], path="/"))
    assert body == not_let_in()
    assert [statement for _, _, statement in accounts.statements()] == ["{connect}"]


def test_a_form_without_a_data_source_for_the_landing_page_is_for_the_first_one(visitor, accounts, branch):
    body = answered(visitor.send([("users.x", "1")], path="/"))
    assert body == not_let_in()
    assert [statement for _, _, statement in accounts.statements()] == ["{connect}"]
    assert branch.statements() == []


def test_after_the_log_in_the_page_shows_the_data_source_chooser_alone(visitor):
    body = answered(visitor.send([("initial_datasource", "accounts"), ("last_datasource", "accounts")]))
    assert body == pages.page(pages.choosers())


def test_the_log_in_can_choose_its_page_at_once(visitor):
    posted = [("users.x", "7"), ("users.y", "3"), ("initial_datasource", "accounts"), ("last_datasource", "accounts")]
    assert answered(visitor.send(posted)) == pages.users_page()


def test_a_page_without_a_body_only_asks_for_the_administrator(visitor, accounts):
    visitor.post()
    assert accounts.sent() == []


def test_the_users_page(visitor):
    assert visitor.page([("users.x", "7"), ("users.y", "3")]) == pages.users_page()


def test_the_rights_page(visitor):
    assert visitor.page([("rights.x", "7"), ("rights.y", "3")]) == pages.rights_page("Abe")


def test_the_reports_page_is_the_frame_with_its_hidden_field(visitor):
    assert visitor.page([("reports.x", "7")]) == pages.page(pages.choosers(), hidden=REPORTS_REFRESH)


def has_user_chooser(posted):
    if {"users.x", "rights.x", "reports.x"} & set(posted):
        return "rights.x" in posted
    return "rights_refresh" in posted and "users_refresh" not in posted


def body_for(posted):
    """A rights list without the chooser knows no user."""
    user = "Abe" if has_user_chooser(posted) else ""
    for name in ("users.x", "rights.x", "users_refresh", "rights_refresh"):
        if name in posted and name.startswith("users"):
            rows = [pages.administrator_row(*pages.USERS[0][:2]), *(pages.user_row(*user) for user in pages.USERS[1:])]
            return pages.users_body(rows)
        if name in posted:
            return pages.rights_body(user, pages.rights_rows(user))
    return ""


@pytest.mark.parametrize("posted", SUBSETS, ids=lambda posted: " ".join(posted) or "none")
def test_the_posted_page_fields_choose_hidden_field_user_chooser_and_body(visitor, posted):
    hidden = next((HIDDEN[name] for name in CHOICES if name in posted), "")
    user = "Abe" if has_user_chooser(posted) else None
    expected = pages.page(pages.choosers(user=user), body_for(posted), hidden)
    assert visitor.page([(name, "") for name in reversed(posted)]) == expected


@pytest.mark.parametrize(
    "button, statement",
    [("rights_revoke", 'revoke all on "notes" from ""'), ("rights_grant", 'grant all on "notes" to ""')],
)
def test_without_the_user_chooser_a_button_of_the_rights_page_is_for_no_user(visitor, accounts, button, statement):
    posted = [("reports.x", "1"), ("rights_refresh", ""), ("isamuser", "mary"), (button, "pressed")]
    expected = pages.page(pages.choosers(), pages.rights_body("", pages.rights_rows("")), REPORTS_REFRESH)
    assert visitor.page(posted) == expected
    assert accounts.sent()[:2] == ["{SQLTables}", statement]


@pytest.mark.parametrize("button", ["submit_users", "refresh_users"])
def test_a_button_of_the_users_page_does_nothing_on_another_page(visitor, accounts, button):
    posted = [("rights_refresh", ""), ("mary_file", "changed"), ("__newuser", "carl"), (button, "pressed")]
    assert visitor.page(posted) == pages.rights_page("Abe")
    assert not any(statement.startswith(("update", "insert")) for statement in accounts.sent())


@pytest.fixture
def short_templates(templates):
    """With those that are shipped, the front of a page would be on its way before its end is known."""
    for name in ("header.html", "menu.html", "userhelp.html", "rightshelp.html", "footer.html"):
        templates.put(name, f"<p>This is {name}, and it is short.\n")
    return templates


@pytest.mark.parametrize("name", ["header.html", "menu.html", "footer.html"])
def test_a_page_without_one_of_its_templates_is_an_error_page(visitor, short_templates, name):
    short_templates.take_away(name)
    port = visitor.server.port
    assert answered(visitor.server.get("/")) == pages.missing_template_page(name, port)
    assert visitor.page([("users.x", "1")]) == pages.missing_template_page(name, port)


@pytest.mark.parametrize("field, name", [("users.x", "userhelp.html"), ("rights.x", "rightshelp.html")])
def test_a_page_without_its_help_text_is_an_error_page(visitor, short_templates, field, name):
    short_templates.take_away(name)
    assert visitor.page([(field, "1")]) == pages.missing_template_page(name, visitor.server.port)


def test_the_other_pages_need_no_help_text(visitor, templates):
    templates.take_away("userhelp.html")
    templates.take_away("rightshelp.html")
    assert visitor.page() == pages.page(pages.choosers())


def test_a_missing_template_is_announced_before_the_error_page_that_goes_without_it(visitor, templates):
    templates.take_away("header.html")
    failure = visitor.post(source="nowhere").decode()
    announced = pages.missing_template_page("header.html", visitor.server.port)
    assert failure.startswith(announced + "<HTML><HEAD>\r\n<TITLE>Error</TITLE>\r\n</HEAD><BODY>\r\n<H1>Error</H1>\r\n")


def test_include_directives_of_the_frame_are_resolved(visitor, templates):
    templates.put("mark.html", "included\n")
    templates.put("footer.html", '<p><!-- #include file = "mark.html" -->\nbehind a long enough remainder\n')
    assert answered(visitor.server.get("/")).endswith("</form><p>included\nbehind a long enough remainder\n")


@pytest.mark.parametrize("size", [16384, 16385, 30000, 32766, 32767])
def test_templates_that_fill_the_page_buffer_are_sent_whole(visitor, templates, size):
    for letter, name in zip("hmfu", ("header.html", "menu.html", "footer.html", "userhelp.html")):
        templates.put(name, letter * size)
    assert answered(visitor.server.get("/")) == landing_page()
    assert visitor.page([("users.x", "1")]) == pages.users_page()


@pytest.mark.parametrize("count", range(0, 60, 3))
def test_a_long_help_text_behind_a_list_of_any_length_is_sent_whole(visitor, accounts, templates, count):
    templates.put("rightshelp.html", "r" * 32000)
    tables = [("", "", f"t{number:03}") for number in range(count)]
    accounts.change(
        'delete from "nordvale.system.table";'
        + "".join(f"insert into \"nordvale.system.table\" values ('', '', '{table[2]}');" for table in tables)
    )
    assert visitor.page([("rights.x", "1")]) == pages.rights_page("Abe", {}, tables)
