"""Data that tries to be markup: whatever it holds, a browser sees the page of harmless data with that text in it."""

import re

import pytest

from support import pages
from support.markup import outline
from support.pages import NOTES, TABLES, answered, quoted_name

HARMLESS = "harmless"

# Nothing shorter than four characters: a page's own texts hold such pieces too.
HOSTILE = [
    '"><script>alert(1)</script>',
    "' onmouseover='alert(1)",
    '" onmouseover="alert(1)',
    "` onmouseover=`alert(1)`",
    "</select></table></form><form action=//evil>",
    "</option><option selected>",
    "</strong></font></td></tr></table>",
    "</textarea></title></style></script><script>",
    "<!-- <p> -->",
    "<!--",
    "--> -->",
    "--!> <p",
    "<![CDATA[",
    "]]> ]]>",
    "<?php ?>",
    "<!DOCTYPE html>",
    "</p ></>",
    "<p/<q/>",
    "</ >",
    "<\x00p>".replace("\x00", "\x01"),
    "<\tscript>",
    "<\nscript\n>",
    "&lt;b&gt;",
    "&amp;lt;",
    "&#60;b&#62;",
    "&#x3c;b",
    "&lt script&gt",
    "&quot;>&apos;",
    "&notit;&copy=1",
    "&&&&;",
    "a/><b",
    "/>/>",
    "x />y",
    "x onclick=alert(1)",
    "x\tonclick=alert(1)",
    "x\nonclick=alert(1)",
    "x\ronclick=alert(1)",
    "x\x0conclick=alert(1)",
    "x/onclick=alert(1)",
    "x\x0bonclick=alert(1)",
    " = onclick=alert(1)",
    "=onclick=alert(1)",
    " type=image src=x",
    "\t\n\x0c type=image",
    "x disabled hidden",
    "javascript:alert(1)",
    "ünïcödé <ü>",
    "＜script＞",
    "\u2028<\u2029>\ufeff",
    "\udcff\udcfe<b>",
    "\udcc0\udcbcscript\udcc0\udcbe",
    "<\udcf0b\udce2>",
    '\udce2\udc82"><b>',
    '"\udcc2"onclick=alert(1) ',
    "+ADw-script+AD4-",
    "\x1b$B<b>\x1b(B",
    "<b%00>%3Cb%3E",
    "\x7f\x01\x1f<b>",
]

# A user with a single quote in the name cannot be shown on the rights page.
HOSTILE_USERS = [value for value in HOSTILE if "'" not in value]


def sql(value):
    """The text as an SQL expression, whatever its bytes are."""
    return f"cast(x'{value.encode(errors='surrogateescape').hex()}' as text)"


def table_name(value):
    return tuple(f"{part}{value}" for part in "cst")


@pytest.fixture(scope="module")
def harmless():
    """The outlines of pages with harmless data, each made once."""
    return {}


def same_outline(harmless, name, draw, value):
    if name not in harmless:
        harmless[name] = outline(draw(HARMLESS), HARMLESS)
    assert outline(draw(value), value) == harmless[name]


@pytest.mark.parametrize("value", HOSTILE)
def test_names_descriptions_and_passwords_of_users(visitor, accounts, harmless, value):
    def draw(value):
        accounts.reset()
        accounts.change(
            'insert into "nordvale.system.user" values '
            f"({sql(value)}, {sql(value)}, {sql(value)}), ('dave', {sql('d' + value)}, {sql(value + 'p')})"
        )
        return visitor.page([("users.x", "1")])

    same_outline(harmless, "users", draw, value)


@pytest.mark.parametrize("value", HOSTILE)
def test_names_of_tables_and_grantors(visitor, accounts, harmless, value):
    def draw(value):
        accounts.reset()
        names = ", ".join(sql(part) for part in table_name(value))
        accounts.change(
            'delete from "nordvale.system.table"; delete from "nordvale.system.tableprv";'
            f'insert into "nordvale.system.table" values ({names});'
            f"insert into \"nordvale.system.tableprv\" values ({names}, {sql(value)}, 'Abe', 'SELECT')"
        )
        return visitor.page([("rights.x", "1")])

    same_outline(harmless, "tables", draw, value)


@pytest.mark.parametrize("value", HOSTILE_USERS)
def test_the_chosen_user(visitor, accounts, harmless, value):
    def draw(value):
        accounts.reset()
        accounts.change(
            "delete from \"nordvale.system.user\" where username <> 'admin';"
            f"insert into \"nordvale.system.user\" values ({sql(value)}, '', '')"
        )
        return visitor.page([("rights_refresh", ""), ("isamuser", value)])

    same_outline(harmless, "chosen", draw, value)


@pytest.mark.parametrize("value", HOSTILE_USERS)
def test_a_posted_user_that_does_not_exist(visitor, harmless, value):
    def draw(value):
        return visitor.page([("rights_refresh", ""), ("isamuser", value)])

    same_outline(harmless, "posted", draw, value)


@pytest.mark.parametrize("value", HOSTILE)
def test_the_words_of_a_data_source_about_a_statement(visitor, harmless, value):
    """The message quotes a part of the name, so that only elements and attributes can be compared."""

    def elements(value):
        page = visitor.page([("rights_refresh", ""), ("isamuser", f"' {value}")])
        assert "<p>SQLTables failed with " in page
        return [element[:2] for element in outline(page, value)]

    assert elements(value) == harmless.setdefault("error", elements(HARMLESS))


DRIVER = "NORDVALE_ISAM"


def test_names_of_data_sources(visitor_of):
    names = [value for value in HOSTILE if not re.search("[]\n\r\x0b\x0c\t\udc80-\udcff]|^ | $", value)]
    assert len(names) > 30
    page = answered(visitor_of(*((name, DRIVER) for name in names)).server.get("/"))
    plain = answered(visitor_of(*((f"name{number}", DRIVER) for number, _ in enumerate(names))).server.get("/"))
    for number, name in enumerate(names):
        plain = plain.replace(f'name{number}"', f'{pages.quoted(name)}"')
        plain = plain.replace(f"name{number}<", f"{pages.text(name)}<")
        plain = plain.replace(f"name{number}>", f"{pages.unquoted(name)}>")
    assert page == plain
    options = [element for element in outline(page, "\0") if element[0].endswith("option")]
    assert [element[2] for element in options] == names
    assert [dict(element[1])["value"] for element in options] == names


@pytest.mark.parametrize("value", HOSTILE)
def test_a_posted_data_source_that_does_not_exist_is_not_on_the_page_at_all(visitor, value):
    plain = visitor.post(source=HARMLESS)
    response = visitor.post(source=value)
    if any(letter in value for letter in ";{}"):
        assert response.decode() == pages.error_page("Data source name cannot contain ; { or }.\n")
    elif len(value.encode(errors="surrogateescape")) <= 32:
        assert response == plain
    else:
        assert response == visitor.post(source=40 * "x")


def growing(letter):
    """Names of 254 characters, nearly each of them one that is spelled out on the page."""
    return [f"{number:02}{252 * letter}" for number in range(12)]


@pytest.mark.parametrize("letter", ['"', "<", "&", ">"])
def test_the_longest_names_of_users_grow_and_come_whole(visitor, accounts, letter):
    users = [(name, name, name) for name in growing(letter)]
    accounts.change(
        "".join(f'insert into "nordvale.system.user" values ({sql(n)}, {sql(d)}, {sql(p)});' for n, d, p in users)
    )
    assert visitor.page([("users.x", "1")]) == pages.users_page((*pages.USERS, *users))


@pytest.mark.parametrize("letter", ['"', "<", "&", "'", "=", "`"])
def test_the_longest_names_of_tables_grow_and_come_whole(visitor, accounts, letter):
    names = [table_name(name[:-1]) for name in growing(letter)]
    accounts.execute(*(f"drop table {quoted_name(table)}" for table in TABLES if table != NOTES))
    accounts.execute(*(f"create table {quoted_name(table)} (id integer)" for table in names))
    assert visitor.page([("rights.x", "1")]) == pages.rights_page("Abe", {}, [NOTES, *names])


@pytest.mark.parametrize("letter", ['"', "<", "&", "=", "`"])
def test_the_longest_name_of_a_chosen_user_grows_and_comes_whole(visitor, letter):
    name = 254 * letter
    assert visitor.page([("rights_refresh", ""), ("isamuser", name)]) == pages.rights_page(name)


HOSTILE_FIELDS = [(name, HOSTILE[0]) for name in ("users.x", "users_refresh", "isamuser", "__file", HOSTILE[0])]


def test_nothing_of_a_request_is_in_the_page_about_a_missing_template(visitor, templates):
    templates.take_away("header.html")
    assert visitor.page(HOSTILE_FIELDS) == pages.missing_template_page("header.html", visitor.server.port)


def test_nothing_of_a_request_is_in_the_note_about_a_missing_include_file(visitor, templates):
    templates.put("header.html", '<!--#include file="missing"-->\n')
    note = f"<p>Include file {pages.INSTALL_DIR}//html/missing not found/readable"
    assert visitor.page([("users.x", HOSTILE[0])]).startswith(note + "<form")
    assert visitor.send([("datasource", "<b>")]).decode().count(note + "\r\n<H1>") == 1
