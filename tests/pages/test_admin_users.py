"""The users page: what a submitted form sends to the data source, and the page that comes back."""

from urllib.parse import quote_plus

import pytest

from support import pages
from support.forms import changed, drawn, form
from support.pages import ORDERS, USERS, error_page, quoted_name
from support.statements import LISTED_USERS, SORTED_USERS, all_at_once, delete, insert, update

WRONG_MANAGER = "Invalid manager password specified.\n"
TOO_LONG = "Password or description is too long.\n"
NAME_TOO_LONG = "New username is too long.\n"
NAME_WITH_QUOTE = "New username cannot contain '."


def deletion(name):
    return [delete(name), "{SQLTables}", *all_at_once("revoke", f'from "{name}"')]


# What the user sees


def test_users_are_listed_in_the_table_s_own_order_and_everybody_is_left_out(visitor, accounts):
    assert visitor.page([("users.x", "1")]) == pages.users_page()
    assert accounts.sent() == [LISTED_USERS]


def test_refreshing_the_page_changes_nothing(visitor, accounts):
    fields = [field for field in form([("mary_file", "changed")]) if field[0] != "submit_users"]
    assert visitor.page([*fields, ("refresh_users", "Refresh")]) == pages.users_page()
    assert accounts.sent() == [LISTED_USERS]


def test_the_administrator_is_told_apart_by_the_exact_name(visitor, accounts):
    accounts.change("update \"nordvale.system.sysinfo\" set \"VALUE\" = 'ADMIN'")
    assert visitor.page([("users.x", "1")]) == pages.users_page(administrator="ADMIN")


@pytest.mark.parametrize("name", ["Public", "public2", "publi"])
def test_a_user_whose_name_is_only_similar_to_everybody_s_is_shown(visitor, accounts, name):
    accounts.change(f"insert into \"nordvale.system.user\" values ('{name}', 'a person', 'pw')")
    assert visitor.page([("users.x", "1")]) == pages.users_page((*USERS, (name, "a person", "pw")))


def test_a_user_without_description_and_password_has_empty_fields(visitor, accounts):
    accounts.change("insert into \"nordvale.system.user\" values ('new', null, null)")
    assert visitor.page([("users.x", "1")]) == pages.users_page((*USERS, ("new", "", "")))


def test_a_description_longer_than_a_column_is_shown_as_far_as_it_fits(visitor, accounts):
    accounts.change(f"update \"nordvale.system.user\" set description = '{'d' * 300}' where username = 'bob'")
    assert visitor.page([("users.x", "1")]) == pages.users_page(changed(USERS, ("bob", "d" * 254, "builder")))


# Ordinary users

CHANGES = {
    "nothing": ([], [], None),
    "the same values again": ([("mary_password", "lamb"), ("mary_file", "Mary M.")], [], None),
    "a password": ([("mary_password", "sheep")], [update("mary", "Mary M.", "sheep")], ("mary", "Mary M.", "sheep")),
    "a description": ([("mary_file", "Ms M.")], [update("mary", "Ms M.", "lamb")], ("mary", "Ms M.", "lamb")),
    "both": (
        [("mary_password", "sheep"), ("mary_file", "Ms M.")],
        [update("mary", "Ms M.", "sheep")],
        ("mary", "Ms M.", "sheep"),
    ),
    "letter case": ([("mary_password", "Lamb")], [update("mary", "Mary M.", "Lamb")], ("mary", "Mary M.", "Lamb")),
    "an emptied password": ([("mary_password", "")], [update("mary", "Mary M.", "")], ("mary", "Mary M.", "")),
    "an emptied description": ([("mary_file", "")], [update("mary", "", "lamb")], ("mary", "", "lamb")),
    "quotes in both": (
        [("mary_password", "'la''mb"), ("mary_file", "Mary's")],
        [update("mary", "Mary''s", "''la''''mb")],
        ("mary", "Mary's", "'la''mb"),
    ),
    "markup": (
        [("mary_password", '<"&\'>'), ("mary_file", "<b>&amp;")],
        [update("mary", "<b>&amp;", '<"&\'\'>')],
        ("mary", "<b>&amp;", '<"&\'>'),
    ),
    "beyond ASCII": ([("mary_file", "Märy €")], [update("mary", "Märy €", "lamb")], ("mary", "Märy €", "lamb")),
    "format signs": ([("mary_file", "%s%n%%")], [update("mary", "%s%n%%", "lamb")], ("mary", "%s%n%%", "lamb")),
    "254 quotes": ([("mary_file", 254 * "'")], [update("mary", 508 * "'", "lamb")], ("mary", 254 * "'", "lamb")),
    "254 letters": (
        [("mary_password", 254 * "p")],
        [update("mary", "Mary M.", 254 * "p")],
        ("mary", "Mary M.", 254 * "p"),
    ),
}


@pytest.mark.parametrize("fields, statements, row", CHANGES.values(), ids=CHANGES)
def test_a_changed_user_is_updated_with_one_statement(visitor, accounts, fields, statements, row):
    expected = pages.users_page(changed(USERS, row) if row else USERS)
    assert visitor.page(form(fields)) == expected
    assert accounts.sent() == [SORTED_USERS, *statements, LISTED_USERS]


@pytest.mark.parametrize(
    "posted, statements",
    [
        ([("mary_file", "Ms M.")], [update("mary", "Ms M.", "lamb")]),
        ([("mary_password", "sheep")], [update("mary", "Mary M.", "sheep")]),
        ([("admin_file", "Boss"), ("admin_password", "")], [update("admin", "Boss", "manager")]),
        ([("admin_oldpassword", "manager")], []),
        ([("admin_oldpassword", "manager"), ("admin_file", "Boss")], [update("admin", "Boss", "manager")]),
        ([], []),
    ],
)
def test_fields_that_are_missing_from_the_post_are_unchanged(visitor, accounts, posted, statements):
    visitor.page([("users_refresh", ""), *posted, ("submit_users", "Submit")])
    assert accounts.sent() == [SORTED_USERS, *statements, LISTED_USERS]


def test_the_field_of_another_letter_case_is_another_field(visitor, accounts):
    visitor.page([("users_refresh", ""), ("Mary_file", "x"), ("MARY_password", "x"), ("submit_users", "Submit")])
    assert accounts.sent() == [SORTED_USERS, LISTED_USERS]


def test_of_two_fields_of_one_name_the_first_counts(visitor, accounts):
    visitor.page([("users_refresh", ""), ("mary_file", "one"), ("mary_file", "two"), ("submit_users", "Submit")])
    assert accounts.sent() == [SORTED_USERS, update("mary", "one", "lamb"), LISTED_USERS]


def test_everybody_is_never_changed(visitor, accounts):
    posted = [("public_file", "x"), ("public_password", "x"), ("public_oldpassword", ""), ("public_checkbox", "OFF")]
    before = accounts.rows("select * from nordvale.system.user")
    accounts.forget_statements()
    assert visitor.page(form(posted)) == pages.users_page()
    assert accounts.sent() == [SORTED_USERS, LISTED_USERS]
    assert accounts.rows("select * from nordvale.system.user") == before


@pytest.mark.parametrize("value", ["OFF", "ON", ""])
def test_a_ticked_delete_box_deletes_the_user_then_revokes_whatever_else_was_changed(visitor, accounts, value):
    posted = [("mary_checkbox", value), ("mary_file", "changed"), ("mary_password", "changed")]
    assert visitor.page(form(posted)) == pages.users_page(tuple(user for user in USERS if user[0] != "mary"))
    assert accounts.sent() == [SORTED_USERS, *deletion("mary"), LISTED_USERS]


def test_a_deleted_user_keeps_no_privilege_even_for_one_who_comes_again_under_that_name(visitor, accounts):
    visitor.post(form([("mary_checkbox", "OFF"), ("__newuser", "mary"), ("__newpass", "again")]))
    assert accounts.rows("select grantee from nordvale.system.tableprv") == [("public",)]
    with pytest.raises(Exception, match="42000"):
        accounts.execute(f"select * from {quoted_name(ORDERS)}", user="mary", password="again")


def test_a_deleted_user_cannot_log_in_to_the_data_source(visitor, accounts):
    accounts.rows(f"select * from {quoted_name(ORDERS)}", user="mary", password="lamb")
    visitor.post(form([("mary_checkbox", "OFF")]))
    with pytest.raises(Exception, match="28000"):
        accounts.execute(user="mary", password="lamb")


def test_a_null_is_an_empty_value_so_an_empty_field_leaves_it_alone(visitor, accounts):
    accounts.change("insert into \"nordvale.system.user\" values ('new', null, null)")
    users = (*USERS, ("new", "", ""))
    assert visitor.page(form(users=users)) == pages.users_page(users)
    assert accounts.sent() == [SORTED_USERS, LISTED_USERS]


@pytest.mark.parametrize(
    "field, statement",
    [("new_file", update("new", "typed", "")), ("new_password", update("new", "", "typed"))],
)
def test_a_null_beside_a_changed_value_becomes_empty(visitor, accounts, field, statement):
    accounts.change("insert into \"nordvale.system.user\" values ('new', null, null)")
    visitor.page(form([(field, "typed")], (*USERS, ("new", "", ""))))
    assert accounts.sent() == [SORTED_USERS, statement, LISTED_USERS]


@pytest.mark.parametrize("name", ["Public", "public2", "publi"])
def test_a_user_whose_name_is_only_similar_to_everybody_s_is_changed_and_deleted(visitor, accounts, name):
    accounts.change(f"insert into \"nordvale.system.user\" values ('{name}', 'a person', 'pw')")
    users = (*USERS, (name, "a person", "pw"))
    visitor.page(form([(f"{name}_file", "changed")], users))
    assert accounts.sent() == [SORTED_USERS, update(name, "changed", "pw"), LISTED_USERS]
    accounts.forget_statements()
    visitor.page(form([(f"{name}_checkbox", "OFF")]))
    assert accounts.sent() == [SORTED_USERS, *deletion(name), LISTED_USERS]


def test_a_name_with_a_quote_stands_in_update_and_delete_as_it_is(visitor, accounts):
    accounts.change("insert into \"nordvale.system.user\" values ('o''brien', 'old', 'pw')")
    users = (*USERS, ("o'brien", "old", "pw"))
    assert visitor.page(form([("o'brien_file", "new")], users)) == pages.users_page(users)
    assert accounts.sent() == [SORTED_USERS, update("o'brien", "new", "pw"), LISTED_USERS]
    accounts.forget_statements()
    assert visitor.page(form([("o'brien_checkbox", "OFF")], users)) == pages.users_page(users)
    assert accounts.sent() == [SORTED_USERS, *deletion("o'brien"), LISTED_USERS]


# The administrator

REFUSED = object()
UNCHANGED = object()

# The stored password, the typed old one, the typed new one (None: not in the form), and the password that is set.
ADMINISTRATOR_PASSWORDS = [
    ("manager", "", "", UNCHANGED),
    ("manager", "", "manager", REFUSED),
    ("manager", "", "new", REFUSED),
    ("manager", "", None, UNCHANGED),
    ("manager", "manager", "", ""),
    ("manager", "manager", "manager", UNCHANGED),
    ("manager", "manager", "new", "new"),
    ("manager", "manager", "it's new", "it's new"),
    ("manager", "manager", "Manager", "Manager"),
    ("manager", "manager", None, UNCHANGED),
    ("manager", "wrong", "", REFUSED),
    ("manager", "wrong", "manager", REFUSED),
    ("manager", "wrong", "new", REFUSED),
    ("manager", "wrong", "wrong", REFUSED),
    ("manager", "wrong", None, REFUSED),
    ("manager", "Manager", "new", REFUSED),
    ("manager", "manager ", "new", REFUSED),
    ("manager", None, "", UNCHANGED),
    ("manager", None, "manager", REFUSED),
    ("manager", None, "new", REFUSED),
    ("manager", None, None, UNCHANGED),
    ("", "", "", UNCHANGED),
    ("", "", "new", "new"),
    ("", "", None, UNCHANGED),
    ("", "wrong", "", REFUSED),
    ("", "wrong", "new", REFUSED),
    ("", "wrong", "wrong", REFUSED),
    ("", "wrong", None, REFUSED),
    ("", None, "", UNCHANGED),
    ("", None, "new", "new"),
    ("", None, None, UNCHANGED),
]


@pytest.mark.parametrize("description", ["Administrator", "Boss's", ""])
@pytest.mark.parametrize("stored, old, new, outcome", ADMINISTRATOR_PASSWORDS)
def test_the_administrator_s_password_changes_with_the_old_one_alone(
    visitor, accounts, stored, old, new, outcome, description
):
    accounts.change(f"update \"nordvale.system.user\" set password = '{stored}' where username = 'admin'")
    typed = {"admin_file": description, "admin_oldpassword": old, "admin_password": new}
    fields = [("users_refresh", ""), *typed.items(), ("submit_users", "Submit")]
    page = visitor.page([field for field in fields if field[1] is not None], password=stored)
    if outcome is REFUSED:
        assert page == error_page(WRONG_MANAGER)
        assert accounts.sent() == [SORTED_USERS]
        return
    password = stored if outcome is UNCHANGED else outcome
    is_changed = outcome is not UNCHANGED or description != "Administrator"
    statement = update("admin", description.replace("'", "''"), password.replace("'", "''"))
    assert page == pages.users_page(changed(USERS, ("admin", description, "")))
    assert accounts.sent() == [SORTED_USERS, *([statement] if is_changed else []), LISTED_USERS]
    assert accounts.rows(
        "select description, password from nordvale.system.user where username = 'admin'", password=password
    ) == [(description, password)]


def test_who_is_the_administrator_but_for_the_letter_case_is_changed_and_deleted_like_others(visitor, accounts):
    accounts.change(
        "update \"nordvale.system.sysinfo\" set \"VALUE\" = 'ADMIN';"
        "create trigger keep before delete on \"nordvale.system.user\" begin select raise(abort, 'kept'); end"
    )
    visitor.page(form([("admin_password", "new"), ("admin_oldpassword", "wrong")]))
    assert accounts.sent() == [SORTED_USERS, update("admin", "Administrator", "new"), LISTED_USERS]
    accounts.forget_statements()
    visitor.page(form([("admin_checkbox", "OFF")]), password="new")
    assert accounts.sent() == [SORTED_USERS, *deletion("admin"), LISTED_USERS]


def test_the_changed_administrator_s_password_is_the_next_log_in(visitor, accounts):
    visitor.post(form([("admin_oldpassword", "manager"), ("admin_password", "it's new")]))
    assert pages.is_refused(visitor.post())
    assert visitor.page(password="it's new") == pages.page(pages.choosers())


def test_a_delete_mark_for_the_administrator_has_no_effect(visitor, accounts):
    assert visitor.page(form([("admin_checkbox", "OFF")])) == pages.users_page()
    assert accounts.sent() == [SORTED_USERS, LISTED_USERS]


# New users


@pytest.mark.parametrize(
    "name, description, password, statement",
    [
        ("carl", "Carl C.", "clock", insert("carl", "Carl C.", "clock")),
        ("carl", "", "", insert("carl", "", "")),
        ("carl", "Carl's", "o'clock", insert("carl", "Carl''s", "o''clock")),
        ('"C"; <b>', "<i>", '&"', insert('"C"; <b>', "<i>", '&"')),
        ("n" * 254, "d" * 254, "p" * 254, insert("n" * 254, "d" * 254, "p" * 254)),
        ("carl", 254 * "'", 254 * "'", insert("carl", 508 * "'", 508 * "'")),
        ("Jörg", "Köln", "süß", insert("Jörg", "Köln", "süß")),
    ],
    ids=["all", "name alone", "quotes", "markup", "254 letters", "254 quotes", "beyond ASCII"],
)
def test_a_new_user_is_inserted_and_shown(visitor, accounts, name, description, password, statement):
    fields = form([("__newuser", name), ("__newfile", description), ("__newpass", password)])
    assert visitor.page(fields) == pages.users_page((*USERS, (name, description, password)))
    assert accounts.sent() == [SORTED_USERS, statement, LISTED_USERS]


@pytest.mark.parametrize(
    "fields, statement",
    [
        ([("__newpass", "clock")], insert("carl", "", "clock")),
        ([("__newfile", "Carl C.")], insert("carl", "Carl C.", "")),
        ([], insert("carl", "", "")),
    ],
)
def test_what_is_missing_from_the_post_of_a_new_user_is_empty(visitor, accounts, fields, statement):
    visitor.page([("users_refresh", ""), ("__newuser", "carl"), *fields, ("submit_users", "Submit")])
    assert accounts.sent() == [SORTED_USERS, statement, LISTED_USERS]


def test_without_a_name_nobody_is_inserted(visitor, accounts):
    assert visitor.page(form([("__newfile", "Nobody"), ("__newpass", "none")])) == pages.users_page()
    assert accounts.sent() == [SORTED_USERS, LISTED_USERS]


@pytest.mark.parametrize("name", ["o'brien", "'", "x'"])
def test_a_new_name_with_a_quote_is_an_error_page_and_the_changes_stay(visitor, accounts, name):
    page = visitor.page(form([("bob_file", "Bob B."), ("__newuser", name)]))
    assert page == error_page(NAME_WITH_QUOTE)
    assert accounts.sent() == [SORTED_USERS, update("bob", "Bob B.", "builder")]


@pytest.mark.parametrize("name", ["mary", "MARY", "public"])
def test_a_name_that_exists_is_not_inserted_and_nothing_is_reported(visitor, accounts, name):
    assert visitor.page(form([("__newuser", name), ("__newpass", "pw")])) == pages.users_page()
    assert accounts.sent() == [SORTED_USERS, insert(name, "", "pw"), LISTED_USERS]


def test_a_new_user_can_log_in_to_the_data_source(visitor, accounts):
    visitor.post(form([("__newuser", "carl"), ("__newpass", "o'clock")]))
    accounts.execute(user="carl", password="o'clock")


# Too long


def test_the_longest_name_and_values_fit_into_each_statement(visitor, accounts):
    name, quotes, doubled = 254 * "n", 254 * "'", 508 * "'"
    visitor.page(form([("__newuser", name), ("__newfile", quotes), ("__newpass", "p")]))
    assert accounts.sent() == [SORTED_USERS, insert(name, doubled, "p"), LISTED_USERS]
    accounts.forget_statements()
    users = (*USERS, (name, quotes, "p"))
    visitor.page(form([(f"{name}_password", quotes)], users))
    assert accounts.sent() == [SORTED_USERS, update(name, doubled, doubled), LISTED_USERS]
    accounts.forget_statements()
    visitor.page(form([(f"{name}_checkbox", "OFF")]))
    assert accounts.sent() == [SORTED_USERS, *deletion(name), LISTED_USERS]
    accounts.forget_statements()
    visitor.page(form([("__newuser", name), ("__newfile", quotes), ("__newpass", quotes)]))
    assert accounts.sent() == [SORTED_USERS, insert(name, doubled, doubled), LISTED_USERS]


@pytest.mark.parametrize("field", ["mary_password", "mary_file", "admin_file", "Abe_password"])
def test_a_value_of_255_characters_is_an_error_page_and_nothing_is_executed_from_that_row_on(visitor, accounts, field):
    posted = [("mary_file", "changed"), ("mary_password", "changed"), ("__newuser", "carl"), (field, 255 * "v")]
    assert visitor.page(form(posted)) == error_page(TOO_LONG)
    assert accounts.sent() == [SORTED_USERS]


@pytest.mark.parametrize("field", ["__newpass", "__newfile"])
def test_a_new_user_s_value_of_255_characters_is_an_error_page(visitor, accounts, field):
    assert visitor.page(form([("__newuser", "carl"), (field, 255 * "v")])) == error_page(TOO_LONG)
    assert accounts.sent() == [SORTED_USERS]


def test_a_new_name_of_255_characters_is_an_error_page(visitor, accounts):
    assert visitor.page(form([("__newuser", 255 * "n")])) == error_page(NAME_TOO_LONG)
    assert accounts.sent() == [SORTED_USERS]


def test_a_new_password_of_255_characters_for_the_administrator_is_an_error_page(visitor, accounts):
    fields = form([("admin_oldpassword", "manager"), ("admin_password", 255 * "p")])
    assert visitor.page(fields) == error_page(TOO_LONG)
    assert accounts.sent() == [SORTED_USERS]


@pytest.mark.parametrize("column", ["description", "password"])
@pytest.mark.parametrize("field", ["bob_file", "bob_password"])
def test_a_row_with_a_stored_value_that_does_not_fit_is_left_alone_or_refused_but_never_cut(
    visitor, accounts, column, field
):
    accounts.change(f"update \"nordvale.system.user\" set {column} = '{'v' * 300}' where username = 'bob'")
    bob = {"description": "", "password": "builder", column: "v" * 254}
    users = changed(USERS, ("bob", bob["description"], bob["password"]))
    assert visitor.page(form(users=users)) == pages.users_page(users)
    assert accounts.sent() == [SORTED_USERS, LISTED_USERS]
    accounts.forget_statements()
    assert visitor.page(form([(field, "typed")], users)) == error_page(TOO_LONG)
    assert accounts.sent() == [SORTED_USERS]


# The order of things


def test_statements_follow_the_users_in_name_order_and_the_insert_comes_last(visitor, accounts):
    posted = [
        ("mary_file", "m"),
        ("bob_checkbox", "OFF"),
        ("__newuser", "aaron"),
        ("admin_file", "a"),
        ("Abe_password", "A"),
    ]
    users = changed(USERS, ("mary", "m", "lamb"), ("admin", "a", ""), ("Abe", "Abe A.", "A"), ("aaron", "", ""))
    assert visitor.page(form(posted)) == pages.users_page(tuple(user for user in users if user[0] != "bob"))
    assert accounts.sent() == [
        SORTED_USERS,
        update("Abe", "Abe A.", "A"),
        update("admin", "a", "manager"),
        *deletion("bob"),
        update("mary", "m", "lamb"),
        insert("aaron", "", ""),
        LISTED_USERS,
    ]


def test_what_comes_before_a_wrong_administrator_s_password_stays_and_what_follows_is_not_done(visitor, accounts):
    posted = [
        ("Abe_file", "done"),
        ("admin_oldpassword", "wrong"),
        ("bob_file", "not done"),
        ("mary_checkbox", "OFF"),
        ("__newuser", "carl"),
    ]
    assert visitor.page(form(posted)) == error_page(WRONG_MANAGER)
    assert accounts.sent() == [SORTED_USERS, update("Abe", "done", "honest")]
    assert accounts.rows("select username, description from nordvale.system.user order by 1") == [
        ("Abe", "done"),
        ("admin", "Administrator"),
        ("bob", ""),
        ("mary", "Mary M."),
        ("public", "Everybody"),
    ]


@pytest.mark.parametrize("action", ["update", "delete", "insert"])
def test_a_refused_statement_is_not_reported_and_the_rest_is_done(visitor, accounts, action):
    accounts.refuse_users(action)
    posted = {
        "update": [("mary_file", "refused"), ("bob_checkbox", "OFF")],
        "delete": [("mary_checkbox", "refused"), ("bob_file", "Bob B.")],
        "insert": [("__newuser", "refused"), ("bob_file", "Bob B.")],
    }[action]
    gone = tuple(user for user in USERS if user[0] != "bob")
    expected = gone if action == "update" else changed(USERS, ("bob", "Bob B.", "builder"))
    assert visitor.page(form(posted)) == pages.users_page(expected)
    refused = [statement for _, outcome, statement in accounts.statements() if outcome != "ok"]
    assert len(refused) == 1 and refused[0].startswith(action)


def test_a_refused_delete_still_takes_the_user_s_privileges(visitor, accounts):
    accounts.refuse_users("delete")
    visitor.post(form([("mary_checkbox", "OFF")]))
    assert accounts.sent() == [SORTED_USERS, *deletion("mary"), LISTED_USERS]


def test_where_the_users_cannot_be_listed_no_row_is_applied_or_shown(visitor, accounts):
    accounts.change('alter table "nordvale.system.user" rename column description to remark')
    fields = form([("bob_checkbox", "OFF"), ("mary_password", "sheep"), ("admin_oldpassword", "wrong")])
    assert visitor.page(fields) == pages.users_page(())
    assert accounts.sent() == [SORTED_USERS, LISTED_USERS]


def test_where_the_users_cannot_be_listed_a_new_one_is_inserted_all_the_same(visitor, accounts):
    accounts.change('alter table "nordvale.system.user" rename column description to remark')
    assert visitor.page(form([("__newuser", "carl")])) == pages.users_page(())
    assert accounts.sent() == [SORTED_USERS, insert("carl", "", ""), LISTED_USERS]


# Names that fields and pages have to carry


@pytest.mark.parametrize("name", ['"q"', "a b", "a&b", "<i>", "a.b", "a%41b", "a+b", "Jörg", "it`s", ";--"])
def test_fields_are_found_under_the_user_s_name_as_it_stands(visitor, accounts, name):
    accounts.execute(f"insert into nordvale.system.user values ('{name}', 'old', 'pw')")
    accounts.forget_statements()
    users = (*USERS, (name, "new", "pw"))
    assert visitor.page(form([(f"{name}_file", "new"), (f"{name}_password", "pw")])) == pages.users_page(users)
    assert accounts.sent() == [SORTED_USERS, update(name, "new", "pw"), LISTED_USERS]


@pytest.mark.parametrize("change", [("checkbox", "OFF"), ("file", "changed"), ("password", "changed")])
def test_a_user_s_name_that_does_not_fit_is_never_used_shortened(visitor, accounts, change):
    """The shortened name may be another user's."""
    short, long = 254 * "u", 300 * "u"
    accounts.change(f"insert into \"nordvale.system.user\" values ('{long}', 'd', 'pw'), ('{short}', 'd', 'pw')")
    visitor.post(form([(f"{short}_{change[0]}", change[1])]))
    assert sum(statement.startswith(("update", "delete")) for statement in accounts.sent()) == 1
    assert accounts.rows(f"select description, password from nordvale.system.user where username = '{long}'") == [
        ("d", "pw")
    ]


def test_an_encoded_field_name_is_another_name(visitor, accounts):
    accounts.execute("insert into nordvale.system.user values ('a b', 'old', 'pw')")
    accounts.forget_statements()
    visitor.post(form([(quote_plus("a b_file"), "new")]))
    assert accounts.sent() == [SORTED_USERS, LISTED_USERS]


def test_a_page_of_many_users_comes_whole(visitor, accounts):
    added = [(f"user{number:03}", f"Description {number}", f"password{number}") for number in range(300)]
    accounts.change(
        "".join(f"insert into \"nordvale.system.user\" values ('{n}', '{d}', '{p}');" for n, d, p in added)
    )
    assert visitor.page([("users.x", "1")]) == pages.users_page((*USERS, *added))
