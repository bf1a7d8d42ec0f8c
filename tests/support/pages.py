"""The administration pages as they have to come out, byte for byte.

A page is composed from the page kit's fragments, typed here once more on purpose, and from the template files. Whatever
is data goes through text(), quoted() or unquoted(), named after the place where it stands.
"""

import re
import socket

from support.server import HTML_DIR, INSTALL_DIR

HEADER_BEGIN = "<td nowrap bgcolor=#0a1965><font size=-1 color=#fdb025><strong>"
HEADER_END = "</strong></font></td>"
DETAIL_BEGIN = "<td bgcolor=#FFFFFF nowrap><font size=2>\n"
DETAIL_BEGIN_CENTER = "<td bgcolor=#FFFFFF align=center nowrap><font size=2>\n"
DETAIL_END = "</font></td>\n"

TABLE_INSIDE = "\n <tr>\n  <td>\n   <table border=0 cellpadding=2 cellspacing=1>\n"
TABLE_BEGIN = "<table border=0 cellpadding=2 cellspacing=0 bgcolor=#0A1965>" + TABLE_INSIDE
TABLE_BEGIN_CENTER = "<table align=center border=0 cellpadding=2 cellspacing=0 bgcolor=#0A1965>" + TABLE_INSIDE
TABLE_BEGIN_NOBORDER = "<table border=0 cellpadding=2 cellspacing=0 bgcolor=#FFFFFF>" + TABLE_INSIDE
TABLE_END = "   </table>\n  </td>\n </tr>\n</table>\n"

USERS_REFRESH = "<input type=hidden name=users_refresh>\n"
RIGHTS_REFRESH = "<input type=hidden name=rights_refresh>\n"
REPORTS_REFRESH = "<input type=hidden name=reports_refresh>\n"

PRIVILEGES = ("select", "insert", "update", "delete")

REFUSAL = (
    "This server could not verify that you are authorized to access the document requested. Either you supplied the "
    "wrong credentials (e.g., bad username/password), or your browser doesn't understand how to supply the "
    "credentials required."
)


def escaped(value, entities):
    return "".join(entities.get(letter, letter) for letter in value)


IN_TEXT = {"&": "&amp;", "<": "&lt;", ">": "&gt;"}
IN_QUOTES = {**IN_TEXT, '"': "&quot;"}
WITHOUT_QUOTES = {**IN_QUOTES, "'": "&#39;", "`": "&#96;", "=": "&#61;"}


def text(value):
    return escaped(value, IN_TEXT)


def quoted(value):
    return escaped(value, IN_QUOTES)


def unquoted(value):
    return escaped(value, WITHOUT_QUOTES)


def template(name):
    """A template file with its include directives resolved, each together with the character that follows it."""
    directive = r'<!-- *#include *file *= *"([^ "\-\r]+)" *-->.?'
    return re.sub(directive, lambda match: read(match[1]), read(name), flags=re.DOTALL)


def read(name):
    return (HTML_DIR / name).read_bytes().decode()


def header_cell(label):
    return f"{HEADER_BEGIN}{label}{HEADER_END}\n"


def cell(content):
    """A control's cell; that of a plain value ends without the line feed."""
    return f"{DETAIL_BEGIN}{content}{DETAIL_END}\n"


def centred_cell(content):
    return f"{DETAIL_BEGIN_CENTER}{content}{DETAIL_END}\n"


def value_cell(content):
    return f"{DETAIL_BEGIN}{content}{DETAIL_END}"


def options(names, selected):
    return "".join(
        f'<option {"selected " if name == selected else ""}value="{quoted(name)}">{text(name)}</option>\n'
        for name in names
    )


def source_chooser(sources, current, select_name, listed_as=None):
    """`listed_as`: the list's own spelling of the current source where it differs, or "" where it is not listed."""
    refresh = cell('<input type=submit name=datasource_refresh value="Refresh">') if select_name == "datasource" else ""
    return (
        "<tr>\n"
        + header_cell("Datasource")
        + f"{DETAIL_BEGIN}<select name={select_name} size=1>\n"
        + options(sources, current if listed_as is None else listed_as)
        + "</select>\n"
        + f"<input type=hidden name=last_datasource value={unquoted(current)}>{DETAIL_END}\n"
        + refresh
        + "</tr>\n"
    )


def user_chooser(users, chosen):
    return (
        "<tr>\n"
        + header_cell("Isam User")
        + f"{DETAIL_BEGIN}<select name=isamuser size=1>\n"
        + options(users, chosen)
        + "</select>\n"
        + f"<input type=hidden name=last_isamuser value={unquoted(chosen)}>\n"
        + DETAIL_END
        + cell('<input type=submit name=rights_refresh value="Refresh">')
        + "</tr>\n"
    )


def page(choosers, body="", hidden=""):
    return (
        template("header.html")
        + "<form method=POST action=/isam.cgi>"
        + template("menu.html")
        + hidden
        + TABLE_BEGIN_CENTER
        + choosers
        + TABLE_END
        + "<br>\n"
        + body
        + "</form>"
        + template("footer.html")
    )


def user_row(name, description, password):
    return (
        "<tr>\n"
        + value_cell(text(name))
        + cell(f'<input type=text name="{quoted(name)}_file" value="{quoted(description)}" size=40>')
        + cell(f'<input type=text name="{quoted(name)}_password" value="{quoted(password)}" size=20>')
        + cell("&nbsp;")
        + centred_cell(f'<input type=checkbox name="{quoted(name)}_checkbox" value="OFF"></input>')
        + "</tr>\n"
    )


def administrator_row(name, description):
    return (
        "<tr>\n"
        + value_cell(text(name))
        + cell(f'<input type=text name="{quoted(name)}_file" value="{quoted(description)}" size=40>')
        + cell(f'<input type=text name="{quoted(name)}_password" size=20>')
        + cell(f'<input type=password name="{quoted(name)}_oldpassword" size=20>')
        + cell("&nbsp;")
        + "</tr>\n"
    )


def users_body(rows):
    """`rows`: what user_row and administrator_row give, in the order of the table."""
    return (
        "<br>&nbsp;<br>\n"
        + TABLE_BEGIN
        + "<tr>\n"
        + header_cell("User")
        + header_cell("Description ")
        + header_cell("Password")
        + header_cell("Old Password")
        + header_cell("Delete")
        + "</tr>\n"
        + "".join(rows)
        + "</tr>\n"
        + cell("<input type=text name=__newuser size=20>")
        + cell("<input type=text name=__newfile size=40>")
        + cell("<input type=text name=__newpass size=20>")
        + cell("&nbsp;")
        + cell("&nbsp;")
        + "</tr>\n"
        + TABLE_END
        + "<br>\n"
        + TABLE_BEGIN_NOBORDER
        + "<tr>\n"
        + cell("<input type=submit name=submit_users value=Submit>")
        + cell("<input type=submit name=refresh_users value=Refresh>")
        + "</tr>\n"
        + TABLE_END
        + "<br>\n"
        + template("userhelp.html")
    )


def row_key(catalog, schema, table):
    key = f"{catalog}." if catalog else ""
    if catalog or schema:
        key += f"{schema}."
    return key + table


def rights_row(table, held=(), grantor="", grantee=""):
    """`table`: catalog, schema and name; `held`: the privileges whose boxes are ticked."""
    key = quoted(row_key(*table))
    values = {privilege: "ON checked" if privilege in held else "OFF" for privilege in PRIVILEGES}
    boxes = [
        centred_cell(f'<input type=checkbox name="{key}_{privilege}" value={value}></input>')
        for privilege, value in values.items()
    ]
    return (
        "<tr>\n"
        + "".join(value_cell(text(part) or "&nbsp;") for part in table)
        + value_cell(text(grantor))
        + value_cell(text(grantee))
        + "".join(boxes)
        + "</tr>\n"
    )


def rights_body(user, rows):
    """`rows`: what rights_row gives, in the order of the table catalog."""
    labels = ("Catalog", "Schema", "Table", "Grantor", "Grantee", "Select", "Insert", "Update", "Delete")
    return (
        "<br>&nbsp;<br>"
        + TABLE_BEGIN_NOBORDER
        + "<tr>\n"
        # The first two input tags end with the font tag behind them.
        + cell('<input type=submit name=rights_grant value="Grant All"')
        + cell('<input type=submit name=rights_revoke value="Revoke All"')
        + cell('<input type=submit name=submit_selection value="Submit Selection">')
        + "</tr>\n"
        + TABLE_END
        + f"&nbsp;<br>Permissions currently allowed for user <strong>{text(user)}</strong>."
        + "<br>&nbsp;<br>"
        + TABLE_BEGIN
        + "<tr>\n"
        + "".join(header_cell(label) for label in labels)
        + "</tr>\n"
        + "".join(rows)
        + TABLE_END
        + "<br>&nbsp;<br>\n"
        + template("rightshelp.html")
    )


def error_page(message):
    return (
        "<HTML><HEAD>\r\n<TITLE>Error</TITLE>\r\n</HEAD><BODY>"
        + template("header.html")
        + "\r\n<H1>Error</H1>\r\n"
        + f"<p>{message}<p>\r\n"
        + template("footer.html")
        + "</BODY></HTML>"
    )


def missing_template_page(name, port):
    """What comes when a template cannot be opened; it can need no template itself."""
    return (
        "<HTML><HEAD>\r\n<TITLE>Error</TITLE>\r\n</HEAD><BODY>\r\n<H1>Error</H1>\r\n"
        + f"<p>Failed to open or read template {INSTALL_DIR}//html/{name}\n<p>\r\n"
        + f"<ADDRESS>Skiffhttp 1.0 (unix) Server at {socket.gethostname()} Port {port}</ADDRESS>\r\n"
    )


def answered(response):
    """The text behind the header block of a response that began with status 200."""
    assert response.startswith(b"HTTP/1.1 200 OK\r\n"), response[:200]
    return response.partition(b"\r\n\r\n")[2].decode(errors="surrogateescape")


def message_of(error):
    """The message of one error page and no more, for the messages whose words are not ours."""
    before, after = error_page("\0").split("\0")
    assert error.startswith(before) and error.endswith(after), error
    message = error[len(before) : len(error) - len(after)]
    assert "<" not in message, message
    return message


def is_refused(response):
    """Whether the log-in was refused. The header's last line ends where the text begins."""
    challenge = '\r\nWWW-Authenticate: Basic realm="Isam Permissions Administration"\r\n' + REFUSAL
    status = response.startswith(b"HTTP/1.1 401 Authorization Required\r\n")
    return status and response.endswith(challenge.encode())


# The sample that the fixtures make: users in the order in which they were added, tables in the order of their names.

USERS = (
    ("admin", "Administrator", "manager"),
    ("mary", "Mary M.", "lamb"),
    ("Abe", "Abe A.", "honest"),
    ("bob", "", "builder"),
)
OFFERED = ("Abe", "bob", "mary", "public")

NOTES = ("", "", "notes")
INVOICES = ("", "books", "invoices")
STOCK = ("sales", "", "stock")
ORDERS = ("sales", "north", "orders")
TABLES = (NOTES, INVOICES, STOCK, ORDERS)

# What mary and everybody may do.
HELD = {("mary", ORDERS): ("select", "update"), ("mary", STOCK): ("insert",), ("public", NOTES): ("select",)}

SOURCES = ("accounts", "branch")


def quoted_name(table):
    """The table's name in grant and revoke."""
    catalog, schema, name = (part.replace('"', '""') for part in table)
    key = f'"{catalog}".' if catalog else ""
    if catalog or schema:
        key += f'"{schema}".'
    return f'{key}"{name}"'


def choosers(current="accounts", user=None, users=OFFERED):
    """The chooser table of the sample's pages; the rights page has a user in it."""
    row = source_chooser(SOURCES, current, "datasource")
    return row if user is None else row + user_chooser(users, user)


def users_page(users=USERS, administrator="admin"):
    rows = [
        administrator_row(name, description) if name == administrator else user_row(name, description, password)
        for name, description, password in users
    ]
    return page(choosers(), users_body(rows), USERS_REFRESH)


def rights_rows(user, held=HELD, tables=TABLES, grantors={}):
    """`grantors`: of tables on which others than the administrator have granted."""
    rows = []
    for table in tables:
        privileges = held.get((user, table), ())
        grantor, grantee = (grantors.get(table, "admin"), user) if "select" in privileges else ("", "")
        rows.append(rights_row(table, privileges, grantor, grantee))
    return rows


def rights_page(user, held=HELD, tables=TABLES, users=OFFERED, grantors={}):
    rows = rights_rows(user, held, tables, grantors)
    return page(choosers(user=user, users=users), rights_body(user, rows), RIGHTS_REFRESH)
