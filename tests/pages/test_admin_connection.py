"""The choice of the data source, the log-in to it, and the error page that a failure ends in."""

import subprocess

import pytest

from support import pages
from support.pages import answered, error_page, is_refused
from support.source import CREATE
from support.statements import ADMINISTRATOR_NAME

LOG_IN = ["{connect}", ADMINISTRATOR_NAME]
NOT_THE_ADMINISTRATOR = "Only the administrator of the data source can work with it.\n"
WRONG_LOG_IN = "SQLDriverConnect failed with [NORDVALE][ISAM]Invalid user and or password specified\n"


def set_password(source, password):
    doubled = password.replace("'", "''")
    source.change(f"update \"nordvale.system.user\" set password = '{doubled}' where username = 'admin'")


def create_for(source, administrator, password="manager"):
    """The data source anew, for an administrator of another name."""
    source.remove()
    subprocess.run([CREATE, source.database, administrator], input=password.encode() + b"\n", check=True)
    source.forget_statements()


def connected_users(source):
    return [user for user, _, statement in source.statements() if statement == "{connect}"]


def is_error_page(response):
    """One error page and nothing else, not even a header block."""
    return bool(pages.message_of(response.decode()).strip())


# Which data source


def landing_page(listed, current):
    return pages.page(pages.source_chooser(listed, current, "initial_datasource"))


@pytest.mark.parametrize(
    "listed, offered",
    [
        ([("other", "SQLite3"), ("second", "NORDVALE_ISAM"), ("third", "Tabrin")], ["second", "third"]),
        ([("zeta", "TABRIN"), ("alpha", "nordvale_isam")], ["zeta", "alpha"]),
        ([("near", "NORDVALE_ISAM2"), ("short", "NORDVALE"), ("right", "Nordvale_Isam")], ["right"]),
        ([("near", "Tabrin Driver")], []),
        ([], []),
    ],
)
def test_data_sources_of_the_product_s_drivers_are_offered_in_order_and_the_first_is_chosen(
    visitor_of, listed, offered
):
    assert answered(visitor_of(*listed).server.get("/")) == landing_page(offered, offered[0] if offered else "")


def test_the_chosen_data_source_is_selected_in_any_letter_case_and_kept_as_posted(visitor, accounts):
    chooser = pages.source_chooser(pages.SOURCES, "ACCOUNTS", "datasource", listed_as="accounts")
    assert visitor.page(source="ACCOUNTS") == pages.page(chooser)


def test_a_data_source_that_is_not_listed_is_still_used(visitor, accounts):
    chooser = pages.source_chooser(pages.SOURCES, "branch", "datasource")
    assert visitor.page(source="branch") == pages.page(chooser)


def test_the_page_prefers_datasource_and_the_log_in_initial_datasource(visitor, accounts, branch):
    posted = [("initial_datasource", "accounts"), ("datasource", "branch"), ("last_datasource", "branch")]
    assert answered(visitor.send(posted)) == pages.page(pages.choosers("branch"))
    assert connected_users(accounts) == connected_users(branch) == ["admin"]


def test_the_log_in_to_the_initial_data_source_decides(visitor, accounts, branch):
    set_password(accounts, "other")
    assert is_refused(visitor.send([("initial_datasource", "accounts"), ("datasource", "branch")]))
    assert connected_users(branch) == []


def test_a_page_for_a_data_source_that_does_not_know_the_log_in_is_an_error_page(visitor, accounts, branch):
    set_password(branch, "other")
    posted = [("initial_datasource", "accounts"), ("datasource", "branch"), ("users.x", "1")]
    assert answered(visitor.send(posted)) == error_page(WRONG_LOG_IN)


@pytest.mark.parametrize(
    "fields", [[("users.x", "1")], [("last_datasource", "accounts")], [("Datasource", "accounts")]]
)
def test_without_a_data_source_there_is_a_bare_error_page(visitor, accounts, fields):
    assert visitor.send(fields).decode() == error_page("No datasource specified, re-select<br>")
    assert accounts.statements() == []


def test_a_get_has_no_data_source(visitor, accounts):
    response = visitor.server.get("/isam.cgi?datasource=accounts")
    assert response.decode() == error_page("No datasource specified, re-select<br>")


@pytest.mark.parametrize("name", ["datasource", "initial_datasource"])
def test_an_empty_data_source_is_an_error_page_from_the_connection_and_one_from_the_log_in(visitor, name):
    response = visitor.send([(name, ""), ("last_datasource", "accounts")]).decode()
    half = response[: len(response) // 2]
    assert response == half + half
    assert pages.message_of(half).startswith("SQLAllocHandle failed with ")


def test_an_unknown_data_source_is_an_error_page_with_the_driver_manager_s_words(visitor):
    message = pages.message_of(visitor.post(source="nowhere").decode())
    assert message.startswith("SQLDriverConnect failed with [unixODBC][Driver Manager]Data source name not found")
    assert message.endswith("\n")


def test_a_missing_database_file_is_an_error_page_that_names_it_and_none_is_made(visitor, accounts):
    accounts.database.unlink()
    response = visitor.post()
    ((user, outcome, _),) = accounts.statements()
    assert user == "admin" and str(accounts.database) in outcome
    assert response.decode() == error_page(f"SQLDriverConnect failed with {outcome.partition(' ')[2]}\n")
    assert not accounts.database.exists()


def test_a_file_that_is_no_database_is_an_error_page(visitor, accounts):
    accounts.database.write_text("just a text\n" * 1000)
    response = visitor.post()
    ((_, outcome, _),) = accounts.statements()
    assert response.decode() == error_page(f"SQLDriverConnect failed with {outcome.partition(' ')[2]}\n")


@pytest.mark.parametrize(
    "source",
    ["accounts;uid=admin", "accounts;", "{accounts}", "a}", "accounts{", "x" * 255, "x" * 5000],
    ids=lambda source: source[:20],
)
def test_a_data_source_name_that_would_leave_its_field_or_does_not_fit_is_refused(visitor, accounts, source):
    assert is_error_page(visitor.post(source=source))
    assert accounts.statements() == []


def test_a_name_that_does_not_fit_is_refused_behind_the_log_in_to_the_initial_data_source(visitor, accounts):
    posted = [("initial_datasource", "accounts"), ("datasource", "x" * 255), ("users.x", "1")]
    assert answered(visitor.send(posted)) == error_page("Data source name is too long.\n")
    assert connected_users(accounts) == ["admin"]


# Who


@pytest.mark.parametrize("user", ["admin", "ADMIN", "Admin", "aDmIn"])
def test_the_administrator_s_name_is_accepted_in_any_letter_case(visitor, accounts, user):
    assert visitor.page([("users.x", "1")], user=user) == pages.users_page()
    assert connected_users(accounts) == [user, user]


@pytest.mark.parametrize("user, password", [("mary", "lamb"), ("bob", "builder"), ("MARY", "lamb")])
def test_an_ordinary_user_is_refused_like_a_wrong_password(visitor, accounts, user, password):
    assert is_refused(visitor.post([("users.x", "1")], user=user, password=password))
    assert connected_users(accounts) == [user]


@pytest.mark.parametrize(
    "user, password",
    [
        ("admin", "wrong"),
        ("admin", ""),
        ("admin", "Manager"),
        ("admin", "manager "),
        ("admin", " manager"),
        ("nobody", "manager"),
        ("", "manager"),
        ("", ""),
        ("public", ""),
        ("admi", "manager"),
        ("admin ", "manager"),
    ],
)
def test_a_wrong_name_or_password_is_refused_with_one_attempt(visitor, accounts, user, password):
    assert is_refused(visitor.post([("users.x", "1")], user=user, password=password))
    assert connected_users(accounts) == [user]


def test_a_refused_log_in_changes_nothing(visitor, accounts):
    visitor.post([("users_refresh", ""), ("__newuser", "carl"), ("submit_users", "")], user="mary", password="lamb")
    assert len(accounts.rows("select * from nordvale.system.user")) == 5


@pytest.mark.parametrize(
    "damage",
    [
        'delete from "nordvale.system.sysinfo"',
        'drop table "nordvale.system.sysinfo"',
        "update \"nordvale.system.sysinfo\" set \"VALUE\" = null",
        "update \"nordvale.system.sysinfo\" set \"VALUE\" = 'mary'",
    ],
)
def test_where_no_administrator_is_recorded_or_another_one_nobody_gets_in(visitor, accounts, damage):
    accounts.change(damage)
    assert is_refused(visitor.post())


def test_the_administrator_of_one_data_source_is_nobody_on_the_page_of_another(visitor, accounts, branch):
    branch.change("update \"nordvale.system.sysinfo\" set \"VALUE\" = 'carol'")
    posted = [("initial_datasource", "accounts"), ("datasource", "branch"), ("users.x", "1")]
    assert answered(visitor.send(posted)) == error_page(NOT_THE_ADMINISTRATOR)
    assert [statement for _, _, statement in branch.statements()] == LOG_IN


def test_an_administrator_s_name_that_does_not_fit_is_not_taken_for_a_shorter_one(visitor, accounts):
    short = 254 * "u"
    accounts.change(
        f"insert into \"nordvale.system.user\" values ('{short}', '', 'pw');"
        f"update \"nordvale.system.sysinfo\" set \"VALUE\" = '{short}u'"
    )
    assert is_refused(visitor.post(user=short, password="pw"))
    assert connected_users(accounts) == [short]


@pytest.fixture
def open_accounts(accounts):
    """A data source that lets in whoever gives no name, and whose administrator has none."""
    accounts.change(
        'drop table "nordvale.system.user";'
        'create table "nordvale.system.user" (username, description, password);'
        "insert into \"nordvale.system.user\" values ('', '', '');"
        "update \"nordvale.system.sysinfo\" set \"VALUE\" = ''"
    )
    return accounts


def test_a_form_for_the_landing_page_is_refused_where_the_data_source_lets_in_whoever_gives_no_name(
    visitor, open_accounts
):
    response = visitor.server.post("/", [("users.x", "1"), ("datasource", "accounts")])
    assert answered(response) == error_page(NOT_THE_ADMINISTRATOR)
    assert [statement for _, _, statement in open_accounts.statements()] == LOG_IN


def test_nobody_is_no_administrator_where_the_data_source_lets_in_whoever_gives_no_name(visitor, open_accounts):
    assert is_refused(visitor.post([("users.x", "1")], user="", password=""))
    assert [statement for _, _, statement in open_accounts.statements()] == LOG_IN


def test_a_page_goes_on_where_the_administrator_cannot_be_read(visitor, accounts, branch):
    """What the data source then still shows to this user is its own affair; here that is nothing."""
    branch.change('drop table "nordvale.system.sysinfo"')
    posted = [("initial_datasource", "accounts"), ("datasource", "branch"), ("users.x", "1")]
    expected = pages.page(pages.choosers("branch"), pages.users_body([]), pages.USERS_REFRESH)
    assert answered(visitor.send(posted)) == expected


# Values in the connection string

PASSWORDS = [
    "x;uid=mary",
    ";pwd=manager",
    "manager;",
    "}",
    "x}",
    "x}y",
    "}}",
    "x};uid=mary;",
    "{",
    "{x",
    "{x}",
    "{manager}",
    "{x}}",
    "x{y}z",
    "=",
    "x=y",
    "'",
    '"',
    "it's",
    ' "quoted" ',
    " leading",
    "trailing ",
    "two words",
    "with:colon",
    "%s%n%%",
    "<b>&amp;",
    "\\",
    "[x](y),z?*!@",
    "Größe €",
    "p" * 254,
    "}" * 254,
    "",
]


@pytest.mark.parametrize("password", PASSWORDS, ids=lambda password: repr(password[:20]))
def test_a_password_logs_in_exactly_as_it_is(visitor, accounts, password):
    set_password(accounts, password)
    assert visitor.page(password=password) == pages.page(pages.choosers())
    assert connected_users(accounts) == ["admin", "admin"]


@pytest.mark.parametrize("password", [other for other in PASSWORDS if other], ids=lambda password: repr(password[:20]))
def test_no_other_password_logs_in_by_its_signs(visitor, accounts, password):
    assert is_refused(visitor.post(password=password))
    assert connected_users(accounts) == ["admin"]


@pytest.mark.parametrize(
    "user",
    [
        "a;uid=mary", "a}", "{a", "{a}", "a};pwd=x", "a=b", "it's", '"a"', "two words", "a&<b>", "%s%n", "Jürgen",
        "u" * 254,
    ],
    ids=lambda user: user[:20],
)
def test_an_administrator_s_name_logs_in_exactly_as_it_is(visitor, accounts, user):
    create_for(accounts, user)
    assert visitor.page(user=user) == pages.page(pages.choosers())
    assert connected_users(accounts) == [user, user]
    assert is_refused(visitor.post(user=user, password="wrong"))


@pytest.mark.parametrize(
    "user, password",
    [
        ("admin", "manager;database=/nowhere"),
        ("admin", "manager;dsn=branch"),
        ("admin", "manager};dsn=branch;x={"),
        ("admin;pwd=manager", "x"),
        ("admin;pwd=manager;x=", "x"),
        ("admin};pwd={manager", "x"),
        ("{admin}", "manager"),
        ("mary", "x;uid=admin;pwd=manager"),
        ("mary;uid=admin", "manager"),
        ("x};uid={admin", "manager"),
    ],
)
def test_no_name_or_password_adds_a_keyword(visitor, accounts, branch, user, password):
    assert is_refused(visitor.post(user=user, password=password))
    assert connected_users(accounts) == [user]
    assert branch.statements() == []


@pytest.mark.parametrize("length", [254, 255, 256, 3000])
def test_a_user_name_or_password_that_does_not_fit_is_an_error_page(visitor, accounts, length):
    long = "l" * length
    for log_in in ({"user": long}, {"password": long}, {"user": long, "password": long}):
        accounts.forget_statements()
        response = visitor.post(**log_in)
        assert is_refused(response) if length < 255 else is_error_page(response)
        assert connected_users(accounts) == ([log_in.get("user", "admin")] if length < 255 else [])


@pytest.mark.parametrize("length", [254, 255])
def test_of_a_long_name_or_password_no_beginning_is_used(visitor, accounts, length):
    set_password(accounts, "p" * 254)
    response = visitor.post(password="p" * length)
    assert response.startswith(b"HTTP/1.1 200 OK") if length == 254 else is_error_page(response)


# The two log-ins of a page


def test_the_administrator_s_name_is_asked_for_by_the_check_and_by_the_page(visitor, accounts):
    visitor.post()
    assert accounts.sent() == []
    assert {outcome for _, outcome, _ in accounts.statements()} == {"ok"}
    assert {user for user, _, _ in accounts.statements()} == {"admin"}
