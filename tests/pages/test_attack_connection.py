"""User names, passwords and data source names that try to add a keyword to the connection string, or to change one."""

import pytest

from support import pages
from support.source import DRIVER, ODBC_DIR, other_process, run
from support.statements import ADMINISTRATOR_NAME

FOLDER = ODBC_DIR / "listed"
STATEMENTS = FOLDER / "statements"
SAVED = FOLDER / "saved.dsn"
FILE_DSN = FOLDER / "other.dsn"

NO_DATABASE = "SQLDriverConnect failed with [NORDVALE][ISAM]No database file: the keyword Database is missing\n"
REFUSED_NAME = "Data source name cannot contain ; { or }.\n"


# Each of these shows when it gets into the connection of a data source that names neither file nor log.
DATABASE = ODBC_DIR / "pages" / "accounts.db"
BOTH = f"database={DATABASE};statementlog={STATEMENTS}"
ADDED = {
    "database": f"database={DATABASE}",
    "log": f"statementlog={STATEMENTS}",
    "both": BOTH,
    "dsn": "dsn=accounts",
    "driver": f"driver={DRIVER};{BOTH}",
    "filedsn": f"filedsn={FILE_DSN}",
    "savefile": f"savefile={SAVED}",
    "server": "server=127.0.0.1;port=1",
    "everything": f"Database={{{DATABASE}}};STATEMENTLOG={STATEMENTS};SAVEFILE={SAVED};DSN=accounts",
}


def is_untouched(accounts):
    return not STATEMENTS.exists() and not SAVED.exists() and accounts.statements() == []


@pytest.fixture
def bare(visitor_of, accounts):
    """Its data source "bare" names no database file; "accounts" is listed beside it."""
    visitor = visitor_of(("bare", "NORDVALE_ISAM"))
    (FOLDER / "odbc.ini").write_text(
        "[bare]\nDriver=NORDVALE_ISAM\n\n"
        f"[accounts]\nDriver=NORDVALE_ISAM\nDatabase={accounts.database}\nStatementLog={accounts.log}\n"
    )
    FILE_DSN.write_text(f"[ODBC]\nDRIVER={DRIVER}\nDatabase={accounts.database}\nStatementLog={STATEMENTS}\n")
    for file in (STATEMENTS, SAVED):
        file.unlink(missing_ok=True)
    return visitor


# What is put in front of a keyword, and behind it.
AROUND = [
    (";", ""),
    (";", ";"),
    (" ; ", " ; "),
    ("};", ";{"),
    ("}};", ";{{"),
    ("};", ";x={"),
    ("{};", ""),
    ("{", "}"),
    ("{x};", ""),
    ("{{x}};", ";{{"),
    ("';", ";'"),
    ('";', ';"'),
    ("\\;", ""),
    ("\\};", ""),
    ("x=;", ""),
    ("=;", ";="),
    ("", ""),
    (" ", " "),
    ("\n", "\n"),
    ("\r\n", "\r\n"),
    ("\t;", "\t"),
    ("\x0b", ""),
    ("\0;", ""),
    ("\x01;\x7f", ""),
    ("\udcff;", ""),
    ("\udce2};", ""),
    ("&", "&"),
    (",", ","),
    ("%3B", ""),
    ("；", "；"),
]


def test_the_keywords_would_show_if_they_got_into_the_connection(bare, accounts):
    """What the other tests rely on: typed into a connection string by hand, they open the database and the log."""
    connect = other_process.submit(run, f"driver={DRIVER};{BOTH};uid=admin;pwd=manager", ())
    connect.result()
    assert STATEMENTS.exists()
    assert bare.post(source="bare").decode() == pages.error_page(NO_DATABASE)


@pytest.mark.parametrize("added", ADDED.values(), ids=ADDED)
def test_a_user_name_or_password_adds_no_keyword(bare, accounts, added):
    for front, behind in AROUND:
        for text in (f"manager{front}{added}{behind}", f"{front}{added}{behind}"):
            for log_in in ({"password": text}, {"user": text}):
                if any(len(value) > 254 or "\0" in value for value in log_in.values()):
                    continue
                response = bare.post([("users.x", "1")], source="bare", **log_in).decode()
                assert response == pages.error_page(NO_DATABASE), log_in
    assert is_untouched(accounts)


@pytest.mark.parametrize("added", ADDED.values(), ids=ADDED)
def test_a_user_name_and_a_password_together_add_no_keyword(bare, accounts, added):
    for front, behind in [
        ("{", "}"),
        ("admin{", "}"),
        ("{{", "}}"),
        ("{x", "};"),
        ("};{", "};"),
        ("'", "';"),
        ("\\", ";"),
    ]:
        response = bare.post(source="bare", user=front, password=f"{behind}{added}").decode()
        assert response == pages.error_page(NO_DATABASE), (front, behind)
    assert is_untouched(accounts)


@pytest.mark.parametrize("added", ADDED.values(), ids=ADDED)
@pytest.mark.parametrize("field", ["datasource", "initial_datasource"])
def test_a_data_source_name_adds_no_keyword(bare, accounts, added, field):
    for front, behind in AROUND:
        for text in (f"bare{front}{added}{behind}", f"{front}{added}{behind}"):
            if text.startswith("\0"):
                continue
            error = pages.message_of(bare.send([(field, text)]).decode())
            if any(letter in text.partition("\0")[0] for letter in ";{}"):
                assert error == REFUSED_NAME, text
            else:
                assert error == NO_DATABASE or "[unixODBC][Driver Manager]" in error, text
    assert is_untouched(accounts)


def test_a_data_source_name_with_a_nul_ends_there(bare, accounts):
    assert bare.post(source=f"bare\0;{BOTH}").decode() == pages.error_page(NO_DATABASE)
    assert is_untouched(accounts)


@pytest.mark.parametrize(
    "name",
    [
        " accounts",
        "accounts ",
        "accounts\t",
        "\taccounts",
        "accounts\n",
        "accounts\r\n",
        "\x0baccounts",
        "accounts\x0c",
        "accounts=",
        "=accounts",
        "accounts=x",
        "accounts]",
        "[accounts]",
        "accounts\x01",
        "accounts\udcff",
        '"accounts"',
        "'accounts'",
        "accounts,bare",
        "accounts|bare",
        "accounts\\",
        "ODBC",
        "ODBC Data Sources",
        "Default",
        "*",
        "%",
        "../accounts",
        str(FILE_DSN),
        "acc%6funts",
        "accounts+",
        "account",
        "accountss",
    ],
)
def test_a_data_source_of_a_similar_name_is_not_there(bare, accounts, name):
    message = pages.message_of(bare.post(source=name).decode())
    assert message.startswith("SQLDriverConnect failed with [unixODBC][Driver Manager]")
    assert is_untouched(accounts)


@pytest.mark.parametrize(
    "secret",
    [
        ";",
        "{",
        "}",
        "=",
        " ",
        "a;b",
        "a;database=x",
        "a{b",
        "a}b",
        "{a}",
        "a=b;c=d",
        "{};{}",
        "}}}}",
        "{{{{",
        "};uid=x;{",
        " a ",
        "\ta",
        "a\n",
        "\x0ba\x0c",
        "\x01\x7f",
        "a\udcff",
        "\udcc0\udcaf;",
        "；",
        "'",
        '"',
        '"a;b"',
        "a,b",
        "a&b",
    ],
)
def test_a_password_of_such_signs_logs_in_and_its_neighbours_do_not(bare, accounts, secret):
    stored = f"cast(x'{secret.encode(errors='surrogateescape').hex()}' as text)"
    accounts.change(f"update \"nordvale.system.user\" set password = {stored} where username = 'admin'")
    assert pages.answered(bare.post(password=secret)).startswith(pages.template("header.html"))
    for other in (secret + ";", secret + " ", " " + secret, "{" + secret + "}", secret + "}", secret[:-1], secret * 2):
        assert pages.is_refused(bare.post(password=other)), other


# Two data sources


@pytest.fixture
def two_administrators(sources):
    accounts, branch = sources
    branch.change('update "nordvale.system.sysinfo" set "VALUE" = \'carol\'')
    accounts.change("insert into \"nordvale.system.user\" values ('carol', '', 'sings')")


OTHERS = "Only the administrator of the data source can work with it.\n"


def test_the_administrator_of_one_data_source_gets_nothing_from_another_that_knows_name_and_password(
    visitor, sources, two_administrators
):
    """carol is the administrator of "branch" and an ordinary user of "accounts", with the same password."""
    accounts, branch = sources
    before = accounts.contents()
    log_in = {"user": "carol", "password": "sings"}
    actions = [
        [("users.x", "1")],
        [("rights.x", "1")],
        [("users_refresh", ""), ("__newuser", "dave"), ("submit_users", "1")],
        [("rights_refresh", ""), ("isamuser", "carol"), ("last_datasource", "accounts"), ("rights_grant", "1")],
        [],
    ]
    both = [("initial_datasource", "branch"), ("datasource", "accounts")]
    for posted in actions:
        for fields in ([*both, *posted], [*reversed(both), *posted], [*posted, *both]):
            accounts.forget_statements()
            assert pages.answered(visitor.send(fields, **log_in)) == pages.error_page(OTHERS)
            assert [statement for _, _, statement in accounts.statements()] == [
                "{connect}",
                ADMINISTRATOR_NAME,
            ]
    assert accounts.contents() == before


def test_of_a_repeated_data_source_field_the_first_counts_everywhere(visitor, sources, two_administrators):
    accounts, branch = sources
    log_in = {"user": "carol", "password": "sings"}
    fields = [("datasource", "accounts"), ("datasource", "branch"), ("users.x", "1")]
    assert pages.is_refused(visitor.send(fields, **log_in))
    assert branch.statements() == []
    accounts.forget_statements()
    page = pages.answered(visitor.send([*reversed(fields[:2]), fields[2]], **log_in))
    assert "<input type=hidden name=last_datasource value=branch>" in page
    assert accounts.statements() == []


def test_an_empty_initial_data_source_does_not_hand_the_log_in_to_the_other(visitor, sources, two_administrators):
    accounts, _ = sources
    before = accounts.contents()
    for credentials in ({"user": "carol", "password": "sings"}, {"user": "", "password": ""}, {}):
        fields = [("initial_datasource", ""), ("datasource", "accounts"), ("users.x", "1")]
        response = visitor.send(fields, **credentials).decode()
        half = response[: len(response) // 2]
        assert response == half + half
        assert pages.message_of(half).startswith("SQLAllocHandle failed with ")
    assert accounts.statements() == []
    assert accounts.contents() == before
