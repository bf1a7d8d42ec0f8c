"""Who is let in: the administrator, and nobody else, with the password exactly as it is."""

import pytest

from support import pages
from support.headers import header_block, refusal_block, undated
from support.kinds import ODD_USERS, UNREACHABLE
from support.pages import USERS
from support.source import ADMINISTRATOR, PASSWORD

REFUSED = refusal_block() + pages.REFUSAL.encode()

SPECIAL = (
    "semi;colon",
    ";",
    "{in braces}",
    "{",
    "}",
    "}}",
    "a}b;c",
    "50%25",
    "%",
    "a+b",
    "a b",
    " blanks around ",
    "it's",
    "'",
    'say "it"',
    '"',
    "back\\slash",
    "\\",
    "a=b",
    "[x](y)",
    "x;PWD=manager",
    "#&?*@!,~`^|<>/:",
    "Größe €",
    "пароль",
    "秘密",
)


@pytest.fixture
def log_in(visitor):
    """The whole answer to the first page behind the log-in."""
    return lambda user, password: undated(visitor.post(user=user, password=password))


@pytest.fixture
def accepted():
    return header_block() + pages.page(pages.choosers()).encode()


def test_the_administrator_is_let_in(log_in, accepted):
    assert log_in(ADMINISTRATOR, PASSWORD) == accepted


@pytest.mark.parametrize(
    "password", ["", "wrong", "Manager", "MANAGER", "manage", "managers", " manager", "manager ", "admin", "lamb"]
)
def test_another_password_is_refused(log_in, password):
    assert log_in(ADMINISTRATOR, password) == REFUSED


@pytest.mark.parametrize("user", ["", "nobody", "admi", "admins", "public", "Public", "postgres", '"admin"', "n" * 200])
@pytest.mark.parametrize("password", ["", PASSWORD])
def test_an_unknown_user_is_refused(log_in, user, password):
    assert log_in(user, password) == REFUSED


def test_an_ordinary_user_is_refused_in_the_same_words(log_in, either):
    assert either.admits("mary", "lamb")
    assert log_in("mary", "lamb") == REFUSED


@pytest.mark.parametrize("password", SPECIAL)
def test_a_password_is_taken_as_it_is(log_in, accepted, either, password):
    either.set_password(ADMINISTRATOR, password)
    assert log_in(ADMINISTRATOR, password) == accepted
    assert log_in(ADMINISTRATOR, password + "x") == REFUSED
    assert log_in(ADMINISTRATOR, PASSWORD) == REFUSED


@pytest.mark.parametrize(
    "name", [*ODD_USERS, "{", "}", "a}b;c", "50%25", "a+b", " blanks around ", "a=b", "x;UID=admin"]
)
def test_the_administrator_s_name_is_taken_as_it_is(visitor, either, name):
    either.rename_administrator(name)
    users = either.listed(((name, *USERS[0][1:]), *USERS[1:]))
    page = visitor.page([("users.x", "1")], user=name)
    assert page == pages.users_page(users, administrator=name)
    assert undated(visitor.post(user=name, password="wrong")) == REFUSED
    assert undated(visitor.post(user=ADMINISTRATOR)) == REFUSED


@pytest.mark.parametrize(
    "user, password",
    [
        ("mary", "lamb;UID=admin;PWD=manager"),
        ("mary", "lamb};UID=admin;PWD={manager"),
        ("mary;UID=admin;PWD=manager", "lamb"),
        ("mary;UID=admin;PWD=manager;X=", "lamb"),
        ("admin;PWD=manager", ""),
        ("admin};PWD={manager", "wrong"),
        ("admin dbname=prepared", PASSWORD),
        ("admin", "manager dbname=prepared"),
        ("admin", "manager;Database=prepared"),
        ("admin", "x' password='manager"),
    ],
)
def test_no_other_log_in_is_smuggled_into_the_name_or_the_password(log_in, user, password):
    assert log_in(user, password) == REFUSED


def test_a_data_source_that_cannot_be_reached_is_an_error_page(visitor):
    message = pages.message_of(visitor.post(source=UNREACHABLE).decode())
    assert message.startswith("SQLDriverConnect failed with ")


def test_a_refused_form_changes_nothing(visitor, users_page):
    posted = [("users_refresh", ""), ("mary_checkbox", "OFF"), ("__newuser", "eve"), ("submit_users", "Submit")]
    for user, password in (("mary", "lamb"), (ADMINISTRATOR, "wrong"), ("nobody", "")):
        assert undated(visitor.post(posted, user=user, password=password)) == REFUSED
    assert visitor.page([("users.x", "1")]) == users_page()
