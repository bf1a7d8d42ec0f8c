"""Data on the pages: whatever it holds, it is shown as it is and never becomes markup."""

import pytest

from support import pages
from support.pages import USERS, answered, error_page, row_key

HOSTILE = [
    "<script>alert(1)</script>",
    '"><img src=x onerror=alert(1)>',
    "&lt;b&gt;",
    "&",
    '" autofocus onfocus="alert(1)',
    "x onclick=alert(1)",
    "`x`",
    "</select></form>",
    "<!-- ",
    "&#60;",
    'a<b>c&d"e`f=g',
]


def sql(value):
    return value.replace("'", "''")


def add_user(source, name, description="", password=""):
    values = "', '".join(sql(value) for value in (name, description, password))
    source.change(f"insert into \"nordvale.system.user\" values ('{values}')")


@pytest.mark.parametrize("value", [*HOSTILE, "it's", "''"])
def test_names_descriptions_and_passwords_on_the_users_page(visitor, accounts, value):
    add_user(accounts, value, value, value)
    assert visitor.page([("users.x", "1")]) == pages.users_page((*USERS, (value, value, value)))


@pytest.mark.parametrize("value", [*HOSTILE, "it's"])
def test_the_administrator_s_own_row(visitor, accounts, value):
    accounts.change(
        f"update \"nordvale.system.sysinfo\" set \"VALUE\" = '{sql(value)}';"
        f"update \"nordvale.system.user\" set username = '{sql(value)}', description = '{sql(value)}' "
        "where username = 'admin'"
    )
    users = ((value, value, "manager"), *USERS[1:])
    assert visitor.page([("users.x", "1")], user=value) == pages.users_page(users, administrator=value)


@pytest.mark.parametrize("value", HOSTILE)
def test_the_chosen_user_on_the_rights_page(visitor, accounts, value):
    accounts.change("delete from \"nordvale.system.user\" where username <> 'admin'")
    add_user(accounts, value)
    accounts.execute(f'grant select on notes to "{value.replace(chr(34), 2 * chr(34))}"')
    expected = pages.rights_page(value, {(value, pages.NOTES): ("select",)}, users=(value,))
    assert visitor.page([("rights.x", "1")]) == expected


@pytest.mark.parametrize("value", HOSTILE)
def test_a_posted_user_that_is_not_known(visitor, value):
    assert visitor.page([("rights_refresh", ""), ("isamuser", value)]) == pages.rights_page(value)


def test_an_unquoted_value_keeps_its_blanks_and_gets_no_attribute(visitor):
    page = visitor.page([("rights_refresh", ""), ("isamuser", "x onclick=alert(1)")])
    assert "<input type=hidden name=last_isamuser value=x onclick&#61;alert(1)>\n" in page


@pytest.mark.parametrize("value", [*HOSTILE, "it's"])
def test_the_names_of_tables_and_their_boxes(visitor, accounts, value):
    table = (f"c{value}", f"s{value}", f"t{value}")
    accounts.execute(f"create table {pages.quoted_name(table)} (id integer)")
    accounts.execute(*(f"drop table {pages.quoted_name(other)}" for other in pages.TABLES))
    assert visitor.page([("rights.x", "1")]) == pages.rights_page("Abe", {}, [table])


def test_a_table_of_a_hostile_name_is_granted_by_its_box(visitor, accounts):
    table = ("", "", '"><b>&amp;')
    accounts.execute(f"create table {pages.quoted_name(table)} (id integer)")
    posted = [("rights_refresh", ""), ("isamuser", "bob"), (f"{row_key(*table)}_select", ""), ("submit_selection", "")]
    assert pages.rights_row(table, ("select",), "admin", "bob") in visitor.page(posted)


DRIVER = "NORDVALE_ISAM"


def test_the_names_of_data_sources(visitor_of):
    names = ['"><script>', "R&D", "it's `one`", "x onclick"]
    page = answered(visitor_of(*((name, DRIVER) for name in names)).server.get("/"))
    assert page == pages.page(pages.source_chooser(names, names[0], "initial_datasource"))


@pytest.mark.parametrize("name", ["R&D", '"><script>', "it's `one`", "x onclick=alert(1)"])
def test_the_name_of_the_page_s_data_source(visitor_of, accounts, name):
    visitor = visitor_of((name, DRIVER))
    database = visitor.folder / f"{name}.db"
    database.write_bytes(accounts.prepared)
    page = visitor.page(source=name)
    database.unlink()
    assert page == pages.page(pages.source_chooser([name], name, "datasource"))


def test_the_diagnostic_of_a_data_source(visitor_of):
    visitor = visitor_of(("<b>R&D", DRIVER))
    message = pages.message_of(visitor.post(source="<b>R&D").decode())
    assert f"{pages.text(str(visitor.folder))}/&lt;b&gt;R&amp;D.db" in message
    assert "<b>" not in message


def test_the_diagnostic_of_a_statement(visitor, accounts):
    page = visitor.page([("rights_refresh", ""), ("isamuser", "<b>'<i>&")])
    ((_, outcome, _),) = [line for line in accounts.statements() if line[1] != "ok"]
    assert page.startswith(error_page(f"SQLTables failed with {pages.text(outcome.partition(' ')[2])}\n"))


@pytest.mark.parametrize("value", ["carl", "Mary-Ann O. 3rd", "Größe", "a.b_c@d", "(x) [y] {z}; #1, 50%", "%s"])
def test_ordinary_data_comes_out_byte_for_byte(visitor, accounts, value):
    accounts.change("delete from \"nordvale.system.user\" where username <> 'admin'")
    add_user(accounts, value, value, value)
    users = visitor.page([("users.x", "1")])
    assert f'<input type=text name="{value}_file" value="{value}" size=40>' in users
    assert users == pages.users_page((USERS[0], (value, value, value)))
    rights = visitor.page([("rights.x", "1")])
    assert rights == pages.rights_page(value, {}, users=(value,))
    assert f"<strong>{value}</strong>" in rights
    assert f"<input type=hidden name=last_isamuser value={value}>\n" in rights
