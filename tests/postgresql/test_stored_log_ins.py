"""A user name and a password that lie about somewhere let nobody in who does not type them."""

import pytest

from support import pages
from support.postgresql_database import list_sources
from support.sample import Visitor
from support.source import ADMINISTRATOR, PASSWORD

MISSING = (("", ""), (ADMINISTRATOR, ""), ("", PASSWORD), ("mary", ""))


def expect_only_what_is_typed(visitor):
    for user, password in (*MISSING, (ADMINISTRATOR, "wrong"), ("mary", "lamb"), ("mary", PASSWORD), ("nobody", "x")):
        assert pages.is_refused(visitor.post(user=user, password=password)), (user, password)
    visitor.page()


@pytest.mark.parametrize(
    "lines",
    [
        {"Username": ADMINISTRATOR, "Password": PASSWORD},
        {"UID": ADMINISTRATOR, "PWD": PASSWORD},
        {"Password": PASSWORD},
        {"Username": ADMINISTRATOR},
    ],
)
def test_in_the_data_source(accounts, visitor, own_server, lines):
    list_sources(own_server, accounts=lines)
    expect_only_what_is_typed(visitor)


@pytest.mark.parametrize("option", [f"user={ADMINISTRATOR} password={PASSWORD}", f"password={PASSWORD}"])
def test_in_the_options_for_libpq(accounts, visitor, own_server, option):
    """psqlODBC has an error of its own for two that differ."""
    list_sources(own_server, accounts={"Pqopt": option})
    for user, password in (*MISSING, (ADMINISTRATOR, "wrong"), ("mary", "lamb"), ("mary", PASSWORD)):
        assert not visitor.post(user=user, password=password).startswith(b"HTTP/1.1 200 OK"), (user, password)


def test_in_the_environment(accounts, start_server):
    server = start_server(PGUSER=ADMINISTRATOR, PGPASSWORD=PASSWORD)
    expect_only_what_is_typed(Visitor(server, None))


def test_in_the_password_file(accounts, start_server, tmp_path):
    file = tmp_path / "passwords"
    file.touch(0o600)
    file.write_text(f"*:*:*:*:{PASSWORD}\n")
    expect_only_what_is_typed(Visitor(start_server(PGUSER=ADMINISTRATOR, PGPASSFILE=str(file)), None))


def test_in_a_service(accounts, start_server, tmp_path):
    file = tmp_path / "services"
    file.write_text(f"[admin]\nuser={ADMINISTRATOR}\npassword={PASSWORD}\n")
    expect_only_what_is_typed(Visitor(start_server(PGSERVICE="admin", PGSERVICEFILE=str(file)), None))
