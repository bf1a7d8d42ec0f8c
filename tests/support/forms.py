"""The fields that a browser posts from the pages as they were drawn."""

from support.kinds import NAME
from support.pages import PRIVILEGES, USERS, row_key

# With which every form of her rights page begins.
MARYS_RIGHTS = (("datasource", NAME), ("last_datasource", NAME), ("isamuser", "mary"), ("last_isamuser", "mary"))


def drawn(users=USERS, administrator="admin"):
    """Those of the users page."""
    fields = []
    for name, description, password in users:
        fields.append((f"{name}_file", description))
        fields.append((f"{name}_password", "" if name == administrator else password))
        if name == administrator:
            fields.append((f"{name}_oldpassword", ""))
    return [*fields, ("__newuser", ""), ("__newfile", ""), ("__newpass", "")]


def form(changes=(), users=USERS):
    """The users page submitted with some fields changed or added."""
    return [("users_refresh", ""), *({**dict(drawn(users)), **dict(changes)}).items(), ("submit_users", "Submit")]


def changed(users, *rows):
    """The users with some rows put in place of those of the same name, or behind the others."""
    rows = {row[0]: row for row in rows}
    return (*(rows.pop(user[0], user) for user in users), *rows.values())


def boxes_of(table, privileges=PRIVILEGES):
    """The names of a table's boxes on the rights page."""
    return [f"{row_key(*table)}_{privilege}" for privilege in privileges]


def press(visitor, button, boxes=(), user="mary"):
    """The rights page after one of its buttons was pressed."""
    ticked = [(box, "OFF") for box in boxes]
    return visitor.page([("rights_refresh", ""), ("isamuser", user), *ticked, (button, "pressed")])
