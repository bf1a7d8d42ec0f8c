"""The rights page: whose rights it shows, and how a table and its privileges are drawn."""

import pytest

from support import pages
from support.pages import HELD, OFFERED, ORDERS, RIGHTS_REFRESH, STOCK, TABLES, error_page
from support.statements import OFFERED_USERS, PRIVILEGES_HELD


def shown(visitor, user, **where):
    """The rights page for a user chosen on it."""
    return visitor.page([("rights_refresh", "Refresh"), ("isamuser", user)], **where)



# Whose rights


def test_the_first_visit_shows_the_first_user_in_name_order(visitor, accounts):
    assert visitor.page([("rights.x", "1")]) == pages.rights_page("Abe")
    assert accounts.sent() == [OFFERED_USERS, PRIVILEGES_HELD.replace("%s", "Abe")]


@pytest.mark.parametrize("user", OFFERED)
def test_the_chosen_user_is_selected_and_the_list_shows_that_user_s_rights(visitor, accounts, user):
    assert shown(visitor, user) == pages.rights_page(user)
    assert accounts.sent() == [OFFERED_USERS, PRIVILEGES_HELD.replace("%s", user)]


def test_the_privileges_of_public_are_listed_like_a_user_s(visitor):
    page = shown(visitor, "public")
    assert pages.rights_row(pages.NOTES, ("select",), "admin", "public") in page


def test_the_administrator_is_never_offered_even_when_the_name_is_posted(visitor):
    assert shown(visitor, "admin") == pages.rights_page("admin")
    assert '<option value="admin">' not in shown(visitor, "mary")


def test_the_administrator_is_told_apart_by_the_exact_name(visitor, accounts):
    accounts.change("update \"nordvale.system.sysinfo\" set \"VALUE\" = 'ADMIN'")
    users = ("Abe", "admin", "bob", "mary", "public")
    assert visitor.page([("rights.x", "1")]) == pages.rights_page("Abe", users=users)


@pytest.mark.parametrize("user", ["nobody", "Mary", "PUBLIC", "mary ", "n" * 254, "Jörg", "%s%n"])
def test_a_posted_name_that_is_no_user_s_leaves_nothing_selected_and_stays(visitor, accounts, user):
    assert shown(visitor, user) == pages.rights_page(user)
    assert accounts.sent() == [OFFERED_USERS, PRIVILEGES_HELD.replace("%s", user)]


def test_an_empty_name_is_no_choice(visitor):
    assert shown(visitor, "") == pages.rights_page("Abe")


@pytest.mark.parametrize("last", ["branch", "Accounts", "accounts ", ""])
def test_a_user_chosen_on_the_page_of_another_data_source_is_dropped(visitor, last):
    posted = [("rights_refresh", ""), ("isamuser", "mary"), ("last_datasource", last), ("datasource", "accounts")]
    assert pages.answered(visitor.send(posted)) == pages.rights_page("Abe")


def test_a_user_without_the_page_s_data_source_is_dropped(visitor):
    posted = [("rights_refresh", ""), ("isamuser", "mary"), ("datasource", "accounts")]
    assert pages.answered(visitor.send(posted)) == pages.rights_page("Abe")


def test_the_refresh_after_another_data_source_was_chosen_shows_its_first_user(visitor):
    posted = [
        ("rights_refresh", ""),
        ("isamuser", "mary"),
        ("last_isamuser", "mary"),
        ("last_datasource", "accounts"),
        ("datasource_refresh", "Refresh"),
        ("datasource", "branch"),
    ]
    chooser = pages.choosers("branch", "carol", ("carol", "public"))
    body = pages.rights_body("carol", pages.rights_rows("carol", tables=[("", "", "ledger")]))
    assert pages.answered(visitor.send(posted)) == pages.page(chooser, body, RIGHTS_REFRESH)


def test_a_user_s_name_that_does_not_fit_is_not_offered_shortened(visitor, accounts):
    accounts.change(f"insert into \"nordvale.system.user\" values ('{254 * 'A'}', '', ''), ('{255 * 'B'}', '', '')")
    users = (254 * "A", *OFFERED)
    assert visitor.page([("rights.x", "1")]) == pages.rights_page(254 * "A", users=users)


def test_where_the_administrator_is_alone_the_select_is_empty_and_every_box_unticked(visitor, accounts):
    accounts.change("delete from \"nordvale.system.user\" where username <> 'admin'")
    assert visitor.page([("rights.x", "1")]) == pages.rights_page("", users=())
    assert accounts.sent() == [OFFERED_USERS, PRIVILEGES_HELD.replace("%s", "")]


def test_a_name_with_a_quote_fails_the_query_and_gives_the_error_page_before_the_rest(visitor, accounts):
    rest = shown(visitor, "o'brien")
    ((_, outcome, statement),) = [line for line in accounts.statements() if line[1] != "ok"]
    assert statement == PRIVILEGES_HELD.replace("%s", "o'brien")
    message = f"SQLTables failed with {pages.text(outcome.partition(' ')[2])}\n"
    # The page's own text is what the message has replaced, with what is appended behind it.
    help_text, footer = pages.template("rightshelp.html"), pages.template("footer.html")
    assert rest == error_page(message) + message + help_text + "</form>" + footer


def test_a_diagnostic_longer_than_its_buffer_is_reported_as_far_as_it_fits(visitor, accounts):
    page = shown(visitor, "'" + 253 * "x")
    ((_, outcome, _),) = [line for line in accounts.statements() if line[1] != "ok"]
    diagnostic = outcome.partition(" ")[2]
    assert len(diagnostic) > 254
    assert page.startswith(error_page(f"SQLTables failed with {diagnostic[:254]}\n"))


def test_an_existing_user_with_a_quote_can_be_offered(visitor, accounts):
    accounts.change("insert into \"nordvale.system.user\" values ('o''brien', '', 'pw')")
    users = ("Abe", "bob", "mary", "o'brien", "public")
    assert shown(visitor, "mary") == pages.rights_page("mary", users=users)


# Tables and privileges


@pytest.mark.parametrize(
    "table, row",
    [
        (("", "", "notes"), 'name="notes_select"'),
        (("", "books", "invoices"), 'name="books.invoices_select"'),
        (("sales", "", "stock"), 'name="sales..stock_select"'),
        (("sales", "north", "orders"), 'name="sales.north.orders_select"'),
    ],
    ids=["table", "schema", "catalog", "both"],
)
def test_the_boxes_are_named_after_the_parts_that_the_table_s_name_has(visitor, table, row):
    page = shown(visitor, "bob")
    assert pages.rights_row(table) in page
    assert page.count(row) == 1


def test_empty_parts_of_a_table_s_name_are_drawn_as_blanks_and_empty_grantors_are_not(visitor):
    empty = "<td bgcolor=#FFFFFF nowrap><font size=2>\n</font></td>\n"
    blank = "<td bgcolor=#FFFFFF nowrap><font size=2>\n&nbsp;</font></td>\n"
    notes = "<td bgcolor=#FFFFFF nowrap><font size=2>\nnotes</font></td>\n"
    assert f"<tr>\n{blank}{blank}{notes}{empty}{empty}<td bgcolor=#FFFFFF align=center" in shown(visitor, "bob")


@pytest.mark.parametrize("number", range(16))
def test_exactly_the_privileges_that_the_user_holds_are_ticked(visitor, accounts, number):
    held = tuple(name for position, name in enumerate(pages.PRIVILEGES) if number >> position & 1)
    accounts.execute(*(f'grant {name} on {pages.quoted_name(ORDERS)} to "bob"' for name in held))
    assert shown(visitor, "bob") == pages.rights_page("bob", {**HELD, ("bob", ORDERS): held})


def test_who_holds_insert_without_select_has_no_grantor_and_grantee(visitor):
    assert pages.rights_row(STOCK, ("insert",), "", "") in shown(visitor, "mary")


def test_what_is_granted_to_everybody_or_to_others_is_not_the_user_s(visitor, accounts):
    accounts.execute(f"grant all on {pages.quoted_name(ORDERS)} to public")
    assert shown(visitor, "bob") == pages.rights_page("bob")


def nullable(source, table, columns, *rows):
    """Puts a table in place of a system table that holds what the data source itself would never store."""
    source.change(
        f'drop table "nordvale.system.{table}"; create table "nordvale.system.{table}" ({columns});'
        + "".join(f'insert into "nordvale.system.{table}" values ({row});' for row in rows)
    )


@pytest.mark.parametrize("empty", ["null", "''"])
@pytest.mark.parametrize(
    "values, table",
    [
        ("{}, 's', 't'", ("", "s", "t")),
        ("'c', {}, 't'", ("c", "", "t")),
        ("{}, {}, 't'", ("", "", "t")),
        ("'c', 's', {}", ("c", "s", "")),
        ("{}, 's', {}", ("", "s", "")),
        ("{}, {}, {}", ("", "", "")),
    ],
)
def test_a_null_part_of_a_table_s_name_is_drawn_and_keyed_like_an_empty_one(visitor, accounts, values, empty, table):
    nullable(accounts, "table", '"catalog", "schema", "table"', values.replace("{}", empty))
    assert shown(visitor, "bob") == pages.rights_page("bob", {}, [table])


PRIVILEGE_COLUMNS = '"catalog", "schema", "table", grantor, grantee, privilege'


@pytest.mark.parametrize("value, grantor", [("null", ""), ("''", ""), ("'admin'", "admin"), ("'0'", "0")])
def test_an_empty_grantor_of_a_privilege_that_is_held_is_drawn_empty(visitor, accounts, value, grantor):
    nullable(accounts, "tableprv", PRIVILEGE_COLUMNS, f"'sales', 'north', 'orders', {value}, 'bob', 'SELECT'")
    assert pages.rights_row(ORDERS, ("select",), grantor, "bob") in shown(visitor, "bob")


def test_a_user_s_privileges_are_those_of_exactly_that_name(visitor, accounts):
    rows = [f"'sales', 'north', 'orders', 'admin', '{name}', 'SELECT'" for name in ("Bob", "bob ", "PUBLIC", "")]
    nullable(accounts, "tableprv", PRIVILEGE_COLUMNS, *rows, "'sales', 'north', 'orders', 'admin', 'bob', 'select'")
    assert shown(visitor, "bob") == pages.rights_page("bob", {})


def test_a_privilege_granted_by_two_has_two_rows(visitor, accounts):
    rows = [f"'', '', 'notes', '{grantor}', 'bob', 'SELECT'" for grantor in ("admin", "Abe")]
    nullable(accounts, "tableprv", PRIVILEGE_COLUMNS, *rows)
    page = shown(visitor, "bob")
    assert all(pages.rights_row(pages.NOTES, ("select",), grantor, "bob") in page for grantor in ("admin", "Abe"))
    assert page.count('name="notes_select"') == 2


def test_a_data_source_without_tables_has_the_list_s_head_alone(visitor, accounts):
    accounts.execute(*(f"drop table {pages.quoted_name(table)}" for table in TABLES))
    assert shown(visitor, "bob") == pages.rights_page("bob", tables=())


def test_a_table_name_beyond_ascii_comes_out_byte_for_byte(visitor, accounts):
    table = ("Größe", "été", "naïve")
    accounts.execute(f"create table {pages.quoted_name(table)} (id integer)")
    assert pages.rights_row(table) in shown(visitor, "bob")


def test_a_list_of_many_tables_comes_whole(visitor, accounts):
    tables = [("warehouse", f"shelf{number % 7}", f"box_{number:03}") for number in range(300)]
    accounts.change(
        "".join(f"insert into \"nordvale.system.table\" values ('{c}', '{s}', '{t}');" for c, s, t in tables)
        + 'insert into "nordvale.system.tableprv" select "catalog", "schema", "table", \'admin\', \'bob\', \'SELECT\' '
        + "from \"nordvale.system.table\" where \"table\" like 'box_%5'"
    )
    held = {("bob", table): ("select",) for table in tables if table[2].endswith("5")}
    assert shown(visitor, "bob") == pages.rights_page("bob", held, (*TABLES, *sorted(tables)))
