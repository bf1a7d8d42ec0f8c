"""Requests in which calls are to fail, and the users of the data sources that they go to."""

import base64
from contextlib import suppress

from support import pages
from support.pages import ORDERS, STOCK
from support.server import read_all
from support.source import ADMINISTRATOR

# Each password is found wherever it comes out.
USERS = (
    ("admin", "Administrator", "quartz-of-admin"),
    ("mary", "Mary M.", "violet-of-mary"),
    ("Abe", "Abe A.", "amber-of-Abe"),
    ("bob", "", "umber-of-bob"),
)
ADMINISTRATOR_PASSWORD = USERS[0][2]


def users_page(users, blank=None, source="accounts"):
    """The page of the users, the one at this place without fields."""
    rows = [pages.administrator_row(*user[:2]) if user[0] == ADMINISTRATOR else pages.user_row(*user) for user in users]
    if blank is not None:
        name = users[blank][0]
        rows[blank] = "<tr>\n" + pages.value_cell(name) + 4 * pages.cell("&nbsp;") + "</tr>\n"
    return pages.page(pages.choosers(source), pages.users_body(rows), pages.USERS_REFRESH)


def post(*fields, **log_in):
    return lambda visitor: visitor.post(fields, **{"password": ADMINISTRATOR_PASSWORD, **log_in})


def send(*fields):
    return lambda visitor: visitor.send(fields, password=ADMINISTRATOR_PASSWORD)


def get(path):
    return lambda visitor: visitor.server.get(path)


def change_users(**changes):
    """The form of the users page with some of its fields changed or added."""
    fields = {"admin_oldpassword": ""}
    for name, description, password in USERS:
        fields[f"{name}_file"] = description
        fields[f"{name}_password"] = "" if name == ADMINISTRATOR else password
    return post(("users_refresh", ""), *{**fields, **changes}.items(), ("submit_users", "Submit"))


def press(button, user, *boxes):
    return post(("rights_refresh", ""), ("isamuser", user), *((box, "OFF") for box in boxes), (button, "pressed"))


def post_body_behind_header(visitor):
    body = b"users.x=1&datasource=accounts&last_datasource=accounts"
    credentials = base64.b64encode(f"{ADMINISTRATOR}:{ADMINISTRATOR_PASSWORD}".encode()).decode()
    header = f"POST /isam.cgi HTTP/1.1\r\nContent-Length: {len(body)}\r\nAuthorization: Basic {credentials}\r\n\r\n"
    with visitor.server.connect() as connection:
        connection.sendall(header.encode())
        visitor.server.wait_until_read(connection)
        # A request that has failed by now reads no body.
        with suppress(ConnectionError):
            connection.sendall(body)
        return read_all(connection)


BOXES = [f"{pages.row_key(*ORDERS)}_select", f"{pages.row_key(*STOCK)}_delete"]

REQUESTS = {
    "landing page": get("/"),
    "templates with includes": get("/"),
    "landing page without a template": get("/"),
    "page without a data source": get("/isam.cgi"),
    "file": get("/long.txt?query"),
    "missing file": get("/missing.txt"),
    "chooser after the log-in": send(("initial_datasource", "accounts")),
    "wrong password": post(("users.x", "1"), password="wrong"),
    "not the administrator": post(("users.x", "1"), user="mary", password="violet-of-mary"),
    "unreachable data source": post(("users.x", "1"), source="nowhere"),
    "two data sources": send(("users.x", "1"), ("initial_datasource", "accounts"), ("datasource", "branch")),
    "body behind its header": post_body_behind_header,
    "users page": post(("users.x", "1")),
    "user added": change_users(__newuser="carl", __newpass="new", __newfile="Carl C."),
    "password changed": change_users(mary_password="new"),
    "description changed": change_users(bob_file="new"),
    "administrator's password changed": change_users(admin_password="new", admin_oldpassword=ADMINISTRATOR_PASSWORD),
    "administrator's old password missing": change_users(admin_password="new"),
    "user deleted": change_users(mary_checkbox="OFF"),
    "everything of the users page": change_users(
        __newuser="carl", Abe_file="new", admin_file="new", bob_password="new", mary_checkbox="OFF"
    ),
    "rights page": post(("rights.x", "1")),
    "rights page of a user": post(("rights.x", "1"), ("isamuser", "mary")),
    "selection": press("submit_selection", "mary", *BOXES),
    "selection for everybody": press("submit_selection", "public", *BOXES),
    "grant all": press("rights_grant", "mary"),
    "grant all to everybody": press("rights_grant", "public"),
    "revoke all": press("rights_revoke", "mary"),
    "revoke all from everybody": press("rights_revoke", "public"),
    "grant all to the first user": post(("rights_refresh", ""), ("rights_grant", "pressed")),
    "revoke all from the first user": post(("rights_refresh", ""), ("rights_revoke", "pressed")),
}

# What the html folder has in it besides the shipped files, for the requests of these names.
FILES = {
    "file": {"long.txt": "".join(f"line {number} of a long file\n" for number in range(3000))},
    "landing page without a template": {"menu.html": None},
    "templates with includes": {
        "menu.html": 'A first line.\n<!--#include file="first.html"-->\nBetween the files.\n'
        '<!--#include file="second.html"-->\nA last line.\n',
        "first.html": "The first included file.\n",
        "second.html": "The second included file.\n",
    },
}
