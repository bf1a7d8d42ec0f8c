"""The log-in as HTTP carries it: the credentials line, what is taken from it, and the refusal."""

import base64

import pytest

from support import pages
from support.headers import header_block, refusal_block, undated
from support.source import ADMINISTRATOR, PASSWORD

REFUSED = refusal_block() + pages.REFUSAL.encode()


def encoded(text):
    return base64.b64encode(text.encode()).decode()


GOOD = encoded(f"{ADMINISTRATOR}:{PASSWORD}")
BAD = encoded(f"{ADMINISTRATOR}:wrong")


@pytest.fixture
def log_in(visitor, accounts):
    """Posts the choice of the data source with these header lines."""
    return lambda *lines: undated(visitor.server.post("/isam.cgi", [("datasource", "accounts")], lines))


def accepted():
    return header_block() + pages.page(pages.choosers()).encode()


def set_password(source, password):
    source.change(f"update \"nordvale.system.user\" set password = '{password}' where username = '{ADMINISTRATOR}'")


def names_tried(source):
    return [user for user, _, statement in source.statements() if statement == "{connect}"]


def test_a_refusal_is_the_challenge_and_the_text_right_behind_it(log_in):
    assert log_in(f"Authorization: Basic {BAD}") == REFUSED
    assert len(pages.REFUSAL) == 234


@pytest.mark.parametrize("name", ["Authorization", "AUTHORIZATION", "authorization", "aUTHORIZATIOn"])
def test_the_credentials_line_is_found_in_any_letter_case(log_in, name):
    assert log_in(f"{name}: Basic {GOOD}") == accepted()


@pytest.mark.parametrize("scheme", ["Basic", "basic", "Digest", "Bearer", "x", "Basic,", "dXNlcjpwYXNz"])
def test_the_scheme_is_not_looked_at(log_in, scheme):
    assert log_in(f"Authorization: {scheme} {GOOD}") == accepted()


@pytest.mark.parametrize("value", ["Basic {}", "   Basic {}", " Basic   {}", " Basic {} ", " Basic {}  x"])
def test_blanks_around_the_parts_do_no_harm(log_in, value):
    assert log_in(f"Authorization:{value.format(GOOD)}") == accepted()


@pytest.mark.parametrize("behind", ["=", "==", "====", "=xyz", "!", ", Basic x", "-", "_", "\t", "."])
def test_padding_and_whatever_follows_it_is_ignored(log_in, behind):
    assert log_in(f"Authorization: Basic {GOOD.rstrip('=')}{behind}") == accepted()


@pytest.mark.parametrize("password", ["", "1", "12", "123", "1234"])
def test_padding_may_be_left_out(log_in, accounts, password):
    set_password(accounts, password)
    credentials = encoded(f"{ADMINISTRATOR}:{password}")
    assert log_in(f"Authorization: Basic {credentials}") == accepted()
    assert log_in(f"Authorization: Basic {credentials.rstrip('=')}") == accepted()


def test_of_two_credentials_lines_the_first_counts(log_in):
    assert log_in(f"Authorization: Basic {GOOD}", f"Authorization: Basic {BAD}") == accepted()
    assert log_in(f"Authorization: Basic {BAD}", f"Authorization: Basic {GOOD}") == REFUSED


@pytest.mark.parametrize("password", [":", "a:b", ":a", "a:", "::", "a:b:c"])
def test_the_first_colon_ends_the_user_name_and_the_others_belong_to_the_password(log_in, accounts, password):
    set_password(accounts, password)
    assert log_in(f"Authorization: Basic {encoded(f'{ADMINISTRATOR}:{password}')}") == accepted()


def test_the_user_name_reaches_the_data_source_as_it_was_encoded(log_in, accounts):
    assert log_in(f"Authorization: Basic {encoded('user:pass')}") == REFUSED
    assert names_tried(accounts) == ["user"]


@pytest.mark.parametrize("text", [":pass", ":", f":{ADMINISTRATOR}:{PASSWORD}"])
def test_an_empty_user_name_is_refused(log_in, accounts, text):
    assert log_in(f"Authorization: Basic {encoded(text)}") == REFUSED
    assert names_tried(accounts) == [""]


def test_a_password_ends_at_a_nul(log_in):
    assert log_in(f"Authorization: Basic {encoded(f'{ADMINISTRATOR}:{PASSWORD}' + chr(0) + 'x')}") == accepted()


def test_a_user_who_is_not_the_administrator_is_refused_in_the_same_words(log_in):
    assert log_in(f"Authorization: Basic {encoded('mary:lamb')}") == REFUSED


def test_the_credentials_are_asked_for_again_with_every_request(log_in):
    assert log_in(f"Authorization: Basic {GOOD}") == accepted()
    assert log_in() == refusal_block()


def test_where_both_are_posted_the_log_in_is_to_the_initial_data_source(visitor, accounts, branch):
    body = [("datasource", "branch"), ("initial_datasource", "accounts")]
    assert undated(visitor.server.post("/isam.cgi", body, [f"Authorization: Basic {BAD}"])) == REFUSED
    assert names_tried(accounts) == [ADMINISTRATOR]
    assert names_tried(branch) == []
