"""What an administrator does with data sources of a given size: the request, the floor's case, what is put back before."""

import base64
import itertools
from dataclasses import dataclass

from place import PROGRAMS, Floor
from sources import CHANGED, HOLDER, NAME, PRIVILEGES, SCHEMA, description, gone_users, table_name

from support.source import ADMINISTRATOR, PASSWORD

BARE_ODBC = PROGRAMS / "bare_odbc"
TICKED_BOXES = 200
SIZES = (100, 1000, 10000)


@dataclass(frozen=True)
class Deed:
    """`floor` is the case of bare_odbc, for whose lists `about` is the user; `filled` says of what the source has `size`.

    `put_back` names the method of the source that brings about what the deed finds.
    """

    name: str
    floor: str
    size: int
    filled: dict
    fields: tuple = ()
    about: str = ""
    put_back: str | None = None
    number: int | None = None

    def request(self):
        return post(self.fields)

    def before(self, source):
        """None where nothing is changed."""
        if not self.put_back:
            return None
        arguments = () if self.number is None else (self.number,)
        return lambda: getattr(source, self.put_back)(*arguments)

    def bare_odbc(self, source, **further):
        """The floor, running."""
        log_in = (NAME, ADMINISTRATOR, PASSWORD)
        environment = {**source.environment, **further}
        return Floor(BARE_ODBC, "{port}", self.floor, *log_in, self.about, environment=environment)


def post(fields):
    body = "&".join(f"{name}={value}" for name, value in [*fields, ("datasource", NAME), ("last_datasource", NAME)])
    credentials = base64.b64encode(f"{ADMINISTRATOR}:{PASSWORD}".encode()).decode()
    header = (
        "POST /isam.cgi HTTP/1.1",
        "Host: localhost",
        f"Authorization: Basic {credentials}",
        "Content-Type: application/x-www-form-urlencoded",
        f"Content-Length: {len(body)}",
    )
    return ("\r\n".join(header) + "\r\n\r\n" + body).encode()


def ticked_boxes():
    """The first of the list."""
    tables = range(TICKED_BOXES // len(PRIVILEGES))
    return [(f"{NAME}.{SCHEMA}.{table_name(i)}_{privilege}", "ON") for i in tables for privilege in PRIVILEGES]


def user_fields(user):
    """The row of a user who is to be deleted, as a browser sends it."""
    fields = (("file", description(user).replace(" ", "+")), ("password", ""), ("checkbox", "OFF"))
    return [(f"{user}_{suffix}", value) for suffix, value in fields]


def rights_deed(name, floor, size, user, *fields, put_back=None):
    fields = (("rights_refresh", ""), ("isamuser", user), *fields)
    return Deed(name, floor, size, {"tables": size}, fields, user, put_back)


def deletion(count, tables):
    fields = [field for user in gone_users(count) for field in user_fields(user)]
    fields = (("users_refresh", ""), *fields, ("submit_users", "Submit"))
    name = f"delete {count} user{'s' if count > 1 else ''}"
    return Deed(name, "delete_users", tables, {"tables": tables}, fields, put_back="put_back_users", number=count)


def deeds(sizes=SIZES, tables_of_deletion=1000):
    """Of one source, what reads comes before what changes, so that it finds the source as it was filled."""
    yield Deed("log-in and chooser", "chooser", 1, {"users": 10})
    for size in sizes:
        yield Deed("users page", "users", size, {"users": size}, (("users_refresh", ""),))
    for size in sizes:
        yield rights_deed("rights page", "rights", size, HOLDER)
        submitted = [*ticked_boxes(), ("submit_selection", "Submit+Selection")]
        yield rights_deed("submit 200 boxes", "submit", size, CHANGED, *submitted, put_back="hold_nothing")
        yield rights_deed("Grant All", "grant_all", size, CHANGED, ("rights_grant", "Grant+All"), put_back="hold_nothing")
        pressed = ("rights_revoke", "Revoke+All")
        yield rights_deed("Revoke All", "revoke_all", size, CHANGED, pressed, put_back="hold_everything")
    for count in (1, 50):
        yield deletion(count, tables_of_deletion)


def deeds_by_source(wants, *sizes):
    """(what the source is filled with, its deeds), those alone whose name is wanted."""
    wanted = [deed for deed in deeds(*sizes) if wants(deed.name)]
    return [(filled, list(group)) for filled, group in itertools.groupby(wanted, lambda deed: deed.filled)]
