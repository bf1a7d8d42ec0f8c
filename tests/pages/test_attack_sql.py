"""Data that tries to leave its place in an SQL statement: each statement stays the one that was meant."""

import pytest

from support import pages, statements
from support.pages import TABLES, USERS, error_page, quoted_name
from support.statements import LISTED_USERS, SORTED_USERS

HOSTILE = [
    "'",
    "''",
    "'''",
    "';",
    "'; delete from nordvale.system.user; --",
    "' or '1'='1",
    "', description='x' where username='admin'; --",
    "x' where 1=1 --",
    "x', (select password from nordvale.system.user where username='admin')) --",
    "'||(select password from nordvale.system.user)||'",
    "'/*",
    "*/'",
    "/* ' */",
    "-- '",
    "--",
    "/*",
    ";",
    "\\",
    "\\'",
    "\\\\'",
    "\\' or 1=1 --",
    '"',
    '""',
    '"; drop table notes; --',
    "`",
    "[x]",
    "]",
    "$1 ?1 :a @b ?",
    "{fn now()}",
    "{d '2000-01-01'}",
    "%' %s %n _",
    "\n'\n--\n",
    "\t'\r\n",
    "\x01'\x7f\x1a",
    "ʼ’＇ʹ",
    "\udcbf'",
    "\udcc0\udca7",
    "\udcff'\udcfe",
    "\udce2'",
    "x" * 253 + "'",
    "'" * 254,
    "x'41'",
    "null",
    "' collate nocase --",
]


def logged(statement):
    """As it stands in the statement log."""
    spelled = {"\\": "\\\\", "\t": "\\t", "\n": "\\n", "\r": "\\r"}
    controls = {chr(code): f"\\x{code:02X}" for code in (*range(32), 127)}
    return "".join({**controls, **spelled}.get(letter, letter) for letter in statement)


def doubled(value):
    return value.replace("'", "''")


def update(name, description, password):
    return logged(statements.update(name, doubled(description), doubled(password)))


def insert(name, description, password):
    return logged(statements.insert(name, doubled(description), doubled(password)))


def users(source):
    rows = source.contents()["nordvale.system.user"]
    return {row[0].decode(errors="surrogateescape"): row[1:] for row in rows}


def as_bytes(*values):
    return tuple(value.encode(errors="surrogateescape") for value in values)


def submit(visitor, *fields):
    return visitor.page([("users_refresh", ""), *fields, ("submit_users", "")])


# The users page


@pytest.mark.parametrize("value", HOSTILE)
def test_passwords_and_descriptions_stay_between_their_quotes(visitor, accounts, value):
    before = users(accounts)
    page = submit(
        visitor,
        ("mary_password", value),
        ("bob_file", value),
        ("admin_oldpassword", "manager"),
        ("admin_password", value),
        ("admin_file", value),
        ("__newuser", "dave"),
        ("__newpass", value),
        ("__newfile", value),
    )
    assert accounts.sent() == [
        SORTED_USERS,
        update("admin", value, value),
        update("bob", value, "builder"),
        update("mary", "Mary M.", value),
        insert("dave", value, value),
        LISTED_USERS,
    ]
    assert {outcome for _, outcome, _ in accounts.statements()} == {"ok"}
    assert users(accounts) == {
        **before,
        "admin": as_bytes(value, value),
        "bob": as_bytes(value, "builder"),
        "mary": as_bytes("Mary M.", value),
        "dave": as_bytes(value, value),
    }
    rows = {row[0]: row for row in USERS}
    rows.update(admin=("admin", value, ""), bob=("bob", value, "builder"), mary=("mary", "Mary M.", value))
    assert page == pages.users_page((*rows.values(), ("dave", value, value)))


@pytest.mark.parametrize("value", HOSTILE)
def test_a_new_user_s_name_stays_between_its_quotes_or_is_refused(visitor, accounts, value):
    before = users(accounts)
    page = submit(visitor, ("__newuser", value), ("__newpass", "p"), ("__newfile", "d"))
    if "'" in value:
        assert page == error_page("New username cannot contain '.")
        assert accounts.sent() == [SORTED_USERS]
        assert users(accounts) == before
    else:
        assert accounts.sent() == [SORTED_USERS, insert(value, "d", "p"), LISTED_USERS]
        assert users(accounts) == {**before, value: as_bytes("d", "p")}
        assert page == pages.users_page((*USERS, (value, "d", "p")))


@pytest.mark.parametrize("value", [value for value in HOSTILE if "'" not in value])
def test_a_stored_name_without_a_single_quote_stays_between_its_quotes(visitor, accounts, value):
    submit(visitor, ("__newuser", value), ("__newpass", "p"), ("__newfile", "d"))
    before = users(accounts)
    for field in (f"{value}_password", f"{value}_file", f"{value}_checkbox"):
        if not set("&=:") & set(field) and field == field.lstrip():
            accounts.forget_statements()
            submit(visitor, (field, "new"))
            changed = [statement for statement in accounts.sent() if statement.startswith(("update", "delete"))]
            assert len([statement for statement in changed if logged(f"'{value}'") in statement]) == 1
            for user, row in users(accounts).items():
                assert user == value or row == before[user]


@pytest.mark.parametrize("field", ["__newuser", "__newpass", "__newfile", "mary_password", "mary_file"])
def test_a_value_ends_at_an_encoded_nul(visitor, accounts, field):
    posted = {"__newuser": "dave", "__newfile": "d", "__newpass": "p", field: "before\0', 'behind"}
    submit(visitor, *posted.items())
    cut = {**posted, field: "before"}
    expected = [insert(cut["__newuser"], cut["__newfile"], cut["__newpass"])]
    if field.startswith("mary"):
        expected[:0] = [update("mary", cut.get("mary_file", "Mary M."), cut.get("mary_password", "lamb"))]
    assert accounts.sent() == [SORTED_USERS, *expected, LISTED_USERS]


HOSTILE_NAMES = [
    "it's",
    "x'; delete from nordvale.system.user; --",
    "x'; drop table notes; --",
    "x'; grant all on notes to bob",
    "x'/*",
    "x' or",
    "x' union select 1 --",
    "x') --",
    "x' returning password into",
    "x' or load_extension('x') --",
]


@pytest.mark.parametrize("name", HOSTILE_NAMES)
@pytest.mark.parametrize("suffix", ["password", "file", "checkbox"])
def test_a_stored_name_with_a_single_quote_leads_to_no_second_statement(visitor, accounts, name, suffix):
    """Such a name comes from elsewhere: the pages refuse it. It can spoil its own statement and no more."""
    accounts.change(f"insert into \"nordvale.system.user\" values ('{doubled(name)}', 'd', 'p')")
    before = accounts.contents()
    assert submit(visitor, (f"{name}_{suffix}", "new")) == pages.users_page((*USERS, (name, "d", "p")))
    (statement,) = [
        statement
        for _, outcome, statement in accounts.statements()
        if outcome != "ok" and not statement.startswith("revoke")
    ]
    assert statement.startswith("delete" if suffix == "checkbox" else "update")
    assert accounts.contents() == before


# The rights page

SPOILING = [
    "'",
    "'''",
    "it's",
    "mary'",
    "'mary",
    "'; delete from nordvale.system.user; --",
    "x'; drop table notes; --",
    "x'; update nordvale.system.user set password='' where username='admin'; --",
    "x'; grant all on notes to public; --",
    "x';",
    "x'--",
    "x'/*",
    "x' or 1=1 --",
    "x' union select username, description, password, 1, 1, 1, 1, 1, 1 from nordvale.system.user --",
    "x' union all select 1,1,1,1,1,1,1,1,1 from sqlite_master --",
    "x') or ('1'='1",
    "x' or load_extension('/tmp/x') or '1'='",
    "x' and (select password from nordvale.system.user)",
    "\\'",
    "\\' or \\'1\\'=\\'1",
    "\udcbf'",
    "x'\x01",
    "x'\n;\n",
]

# An even number of quotes can leave the query whole: it reads, and reads what the administrator may read anyhow.
READING = ["''", "x''y", "x' or '1'='1", "x'||'y", "' or b.grantee > '"]


@pytest.mark.parametrize("user", SPOILING)
@pytest.mark.parametrize("button", ["rights_refresh", "rights_grant", "submit_selection"])
def test_a_posted_user_with_a_single_quote_is_the_error_page_and_changes_nothing(visitor, accounts, user, button):
    before = accounts.contents()
    boxes = [(f"{pages.row_key(*table)}_select", "ON") for table in TABLES]
    page = visitor.page([("rights_refresh", ""), ("isamuser", user), *boxes, (button, "")])
    (_, outcome, query) = accounts.statements()[-1]
    assert query.startswith("select a.catalog") and outcome != "ok"
    assert page.startswith(pages.error_page("\1").partition("\1")[0] + "SQLTables failed with [NORDVALE][ISAM]")
    assert accounts.contents() == before


@pytest.mark.parametrize("user", READING)
@pytest.mark.parametrize("button", ["rights_refresh", "rights_grant", "submit_selection"])
def test_a_posted_user_with_quotes_that_leave_the_query_whole_changes_nothing_either(visitor, accounts, user, button):
    before = accounts.contents()
    visitor.page([("rights_refresh", ""), ("isamuser", user), (button, "")])
    assert accounts.contents() == before


@pytest.mark.parametrize("value", HOSTILE)
def test_the_grantee_stays_between_its_double_quotes(visitor, accounts, value):
    visitor.page([("rights_refresh", ""), ("isamuser", value), ("submit_selection", ""), ("notes_select", "ON")])
    grantee = f'"{value}"' if '"' not in value else '"' + value.replace('"', '""') + '"'
    expected = [
        logged(f"{verb} {privilege} on {quoted_name(table)} {way} {grantee}")
        for table in TABLES
        for privilege in pages.PRIVILEGES
        for verb, way in [("grant", "to") if (table, privilege) == (pages.NOTES, "select") else ("revoke", "from")]
    ]
    assert [line for line in accounts.sent() if line.startswith(("grant", "revoke"))] == expected


@pytest.mark.parametrize("value", HOSTILE)
def test_a_table_s_name_stays_between_its_double_quotes(visitor, accounts, value):
    table = (value, value, value)
    accounts.change(
        'insert into "nordvale.system.table" values ('
        + ", ".join(3 * [f"cast(x'{value.encode(errors='surrogateescape').hex()}' as text)"])
        + ")"
    )
    visitor.page([("rights_refresh", ""), ("isamuser", "bob"), ("rights_revoke", "")])
    revoked = [line for line in accounts.sent() if line.startswith("revoke")]
    assert logged(f'revoke all on {quoted_name(table)} from "bob"') in revoked
    assert len(revoked) == 5
