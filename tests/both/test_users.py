"""The users page: the list, what a submitted form makes of it, and who can connect afterwards."""

import pytest

from support.forms import changed, form
from support.kinds import NOTES, ODD_USERS, ORDERS, STOCK
from support.pages import OFFERED, PRIVILEGES, USERS, error_page, is_refused
from support.source import ADMINISTRATOR, PASSWORD

CARL = ("carl", "Carl C.", "sings")
WRONG_MANAGER = "Invalid manager password specified.\n"
NAME_WITH_QUOTE = "New username cannot contain '."

TEXTS = (
    "it's",
    "''",
    "'); drop table notes; --",
    "back\\slash\\",
    "\\'",
    'say "it"',
    "{fn now()}",
    "?",
    "$$",
    "-- /* */",
    "50% %s",
    "<b>&amp;",
    "nordvale.system.user",
    "Größe €",
    " blanks ",
    "d" * 254,
)


@pytest.fixture
def submit(visitor, either):
    """The page after a form in which some fields differ from the page as it was drawn for these users."""
    return lambda changes, users=USERS, **log_in: visitor.page(form(changes, either.listed(users)), **log_in)


@pytest.fixture
def seen(visitor):
    return lambda **log_in: visitor.page([("users.x", "1")], **log_in)


def new_user(name, description, password):
    return [("__newuser", name), ("__newfile", description), ("__newpass", password)]


# The list


def test_the_users_are_listed_and_everybody_is_left_out(seen, users_page):
    assert seen() == users_page()


def test_a_form_as_it_was_drawn_changes_nothing(submit, either, users_page):
    assert submit([]) == users_page()
    assert all(either.admits(name, password) for name, _, password in USERS)


def test_refreshing_the_page_changes_nothing(visitor, either, users_page):
    fields = [field for field in form([("mary_file", "changed")], either.listed(USERS)) if field[0] != "submit_users"]
    assert visitor.page([*fields, ("refresh_users", "Refresh")]) == users_page()


# New users


def test_a_new_user_is_listed_and_can_connect(submit, either, users_page):
    assert submit(new_user(*CARL)) == users_page((*USERS, CARL))
    assert either.admits("carl", "sings")
    assert not either.admits("carl", "wrong")


def test_a_new_user_is_offered_on_the_rights_page_and_has_no_rights_there(submit, visitor, rights_page):
    submit(new_user(*CARL))
    page = visitor.page([("rights_refresh", ""), ("isamuser", "carl")])
    assert page == rights_page("carl", users=sorted((*OFFERED, "carl")))


def test_a_new_user_may_do_what_everybody_may(submit, either):
    submit(new_user(*CARL))
    assert either.allowed("carl", "sings", NOTES) == [("select",)]
    assert either.allowed("carl", "sings", ORDERS) == [()]


@pytest.mark.parametrize("name", ["it's", "'", "x'); drop table notes; --"])
def test_a_new_user_with_a_single_quote_is_refused(submit, seen, users_page, name):
    assert submit(new_user(name, "", "pw")) == error_page(NAME_WITH_QUOTE)
    assert seen() == users_page()


@pytest.mark.parametrize("name", ["mary", ADMINISTRATOR, "public"])
def test_a_new_user_of_a_name_that_is_taken_changes_nothing(submit, either, users_page, name):
    assert submit(new_user(name, "another", "other")) == users_page()
    assert either.admits("mary", "lamb") and either.admits(ADMINISTRATOR, PASSWORD)
    assert not either.admits(name, "other")


def test_without_a_name_there_is_no_new_user(submit, users_page):
    assert submit([("__newfile", "a person"), ("__newpass", "pw")]) == users_page()


# Passwords


def test_a_changed_password_lets_in_and_the_old_one_no_more(submit, either, users_page):
    assert submit([("mary_password", "goat")]) == users_page(changed(USERS, ("mary", "Mary M.", "goat")))
    assert either.admits("mary", "goat")
    assert not either.admits("mary", "lamb")


def test_a_changed_password_is_one_user_s_only(submit, either):
    submit([("mary_password", "goat")])
    assert either.admits("Abe", "honest") and either.admits("bob", "builder")
    assert not either.admits("Abe", "goat")


def test_a_changed_password_leaves_the_rights(submit, either):
    submit([("mary_password", "goat")])
    assert either.allowed("mary", "goat", ORDERS) == [("select", "update")]


# Descriptions


def test_a_changed_description_is_listed_and_leaves_the_password(submit, seen, either, users_page):
    expected = users_page(changed(USERS, ("mary", "a shepherd", "lamb")))
    assert submit([("mary_file", "a shepherd")]) == expected
    assert seen() == expected
    assert either.admits("mary", "lamb")


def test_a_description_may_be_emptied(submit, users_page):
    assert submit([("mary_file", "")]) == users_page(changed(USERS, ("mary", "", "lamb")))


# Both


@pytest.mark.parametrize("typed", TEXTS)
def test_password_and_description_are_stored_as_they_were_typed(submit, seen, either, users_page, typed):
    expected = users_page(changed(USERS, ("mary", typed, typed)))
    assert submit([("mary_file", typed), ("mary_password", typed)]) == expected
    assert seen() == expected
    assert either.admits("mary", typed)
    assert not either.admits("mary", typed + "x")


@pytest.mark.parametrize("typed", TEXTS)
def test_those_of_a_new_user_are_stored_as_they_were_typed(submit, either, users_page, typed):
    carl = ("carl", typed, typed)
    assert submit(new_user(*carl)) == users_page((*USERS, carl))
    assert either.admits("carl", typed)
    assert not either.admits("carl", typed + "x")


# Deletion


def test_a_deleted_user_is_gone_and_cannot_connect(submit, either, users_page):
    assert submit([("mary_checkbox", "OFF")]) == users_page([user for user in USERS if user[0] != "mary"])
    assert not either.admits("mary", "lamb")


def test_a_deleted_user_s_rights_do_not_come_back_with_the_name(submit, either, visitor, rights_page):
    submit([("mary_checkbox", "OFF")])
    left = [user for user in USERS if user[0] != "mary"]
    submit(new_user("mary", "another", "other"), left)
    held = {("public", NOTES): ("select",)}
    assert visitor.page([("rights_refresh", ""), ("isamuser", "mary")]) == rights_page("mary", held)
    assert either.allowed("mary", "other", ORDERS, STOCK) == [(), ()]


def test_a_deleted_user_is_deleted_whatever_else_was_typed(submit, users_page):
    page = submit([("mary_checkbox", ""), ("mary_file", "changed"), ("mary_password", "goat")])
    assert page == users_page([user for user in USERS if user[0] != "mary"])


def test_a_deletion_leaves_the_others_and_what_they_may_do(submit, either):
    either.grant("bob", ORDERS, *PRIVILEGES)
    submit([("mary_checkbox", "OFF")])
    assert either.admits("Abe", "honest")
    assert either.allowed("bob", "builder", ORDERS) == [PRIVILEGES]


# Several at once


def test_several_changes_of_one_form_are_all_made(submit, seen, either, users_page):
    changes = [("mary_file", "a shepherd"), ("Abe_password", "new"), ("bob_checkbox", "OFF"), *new_user(*CARL)]
    mary, abe = ("mary", "a shepherd", "lamb"), ("Abe", "Abe A.", "new")
    expected = users_page((USERS[0], mary, abe, CARL))
    assert submit(changes) == expected
    assert seen() == expected
    assert [either.admits(*user) for user in (("mary", "lamb"), ("Abe", "new"), ("carl", "sings"))] == [True] * 3
    assert [either.admits(*user) for user in (("Abe", "honest"), ("bob", "builder"))] == [False] * 2


def test_a_wrong_manager_password_keeps_the_changes_of_the_names_before_it(submit, seen, users_page):
    page = submit([("Abe_file", "first"), ("admin_oldpassword", "wrong"), ("mary_file", "last"), *new_user(*CARL)])
    assert page == error_page(WRONG_MANAGER)
    assert seen() == users_page(changed(USERS, ("Abe", "first", "honest")))


# The administrator


def test_the_administrator_s_new_password_is_the_next_log_in(submit, seen, visitor, either, users_page):
    typed = [("admin_oldpassword", either.old_password), ("admin_password", "boss's")]
    assert submit(typed) == users_page()
    assert seen(password="boss's") == users_page()
    assert is_refused(visitor.post())


def test_a_wrong_old_password_changes_nothing(submit, seen, either, users_page):
    for old in either.wrong_old_passwords:
        assert submit([("admin_oldpassword", old), ("admin_password", "boss")]) == error_page(WRONG_MANAGER)
    assert seen() == users_page()


def test_the_administrator_s_description_needs_no_password(submit, seen, users_page):
    expected = users_page(changed(USERS, (ADMINISTRATOR, "it's me", PASSWORD)))
    assert submit([("admin_file", "it's me")]) == expected
    assert seen() == expected


def test_the_administrator_is_not_deleted(submit, seen, users_page):
    assert submit([("admin_checkbox", "OFF")]) == users_page()
    assert seen() == users_page()


# Everybody


def test_everybody_is_not_changed_by_fields_of_that_name(submit, either, users_page):
    assert submit([("public_file", "all"), ("public_password", "pw"), ("public_checkbox", "OFF")]) == users_page()
    assert not either.admits("public", "pw")
    assert either.allowed("bob", "builder", NOTES) == [("select",)]


# Names


@pytest.mark.parametrize("name", ODD_USERS)
def test_a_new_user_s_name_is_taken_as_it_is(submit, seen, either, users_page, name):
    user = (name, "a person", "pw")
    assert submit(new_user(*user)) == users_page((*USERS, user))
    assert seen() == users_page((*USERS, user))
    assert either.admits(name, "pw")


@pytest.mark.parametrize("name", ODD_USERS)
def test_a_user_of_any_name_is_changed(submit, either, users_page, name):
    users = (*USERS, (name, "a person", "pw"))
    either.add_user(*users[-1])
    changes = [(f"{name}_file", "another"), (f"{name}_password", "new")]
    assert submit(changes, users) == users_page((*USERS, (name, "another", "new")))
    assert either.admits(name, "new")
    assert not either.admits(name, "pw")


@pytest.mark.parametrize("name", ODD_USERS)
def test_a_user_of_any_name_is_deleted(submit, either, users_page, name):
    users = (*USERS, (name, "a person", "pw"))
    either.add_user(*users[-1])
    either.grant(name, ORDERS, "select")
    assert submit([(f"{name}_checkbox", "OFF")], users) == users_page()
    assert not either.admits(name, "pw")
