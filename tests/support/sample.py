"""Prepared data sources, and the visitor who posts the pages' forms for them."""

import base64
import sqlite3
from contextlib import closing
from urllib.parse import quote_plus

from support import pages
from support.source import ADMINISTRATOR, PASSWORD, Source
from support.statements import ADMINISTRATOR_NAME

LOG_IN = ["{connect}", ADMINISTRATOR_NAME]


class SampleSource(Source):
    """A data source that starts each test as it was prepared once."""

    def prepare(self, *statements):
        self.create()
        self.execute(*statements)
        self.prepared = self.database.read_bytes()

    def reset(self):
        self.remove()
        self.database.write_bytes(self.prepared)
        self.forget_statements()

    def change(self, script):
        """Reaches past the driver, for what it allows nobody."""
        with closing(sqlite3.connect(self.database)) as database:
            database.executescript(script)

    def refuse(self, action, table):
        """To record ("insert"), or to forget ("delete"), privileges on one table."""
        self.change(
            f"create trigger refuse before {action} on \"nordvale.system.tableprv\" "
            f"when {'new' if action == 'insert' else 'old'}.\"table\" = '{table[2]}' "
            "begin select raise(abort, 'refused'); end"
        )

    def refuse_users(self, action):
        """To "insert", "update" or "delete" any user."""
        self.change(
            f"create trigger refuse before {action} on \"nordvale.system.user\" "
            "begin select raise(abort, 'refused'); end"
        )

    def contents(self):
        """Every row of every table, system tables included."""
        with closing(sqlite3.connect(self.database)) as database:
            database.text_factory = bytes
            tables = database.execute("select name from sqlite_master where type = 'table'").fetchall()
            names = [name.decode() for (name,) in tables]
            rows = {}
            for name in names:
                quoted = name.replace(chr(34), 2 * chr(34))
                rows[name] = database.execute(f'select * from "{quoted}"').fetchall()
            return rows

    def sent(self):
        """The statements of one page behind its two log-ins: that of the credential check and that of the page."""
        statements = [statement for _, _, statement in self.statements()]
        assert statements[:4] == 2 * LOG_IN
        return statements[4:]


class Visitor:
    """Posts forms as the browser of a logged-in administrator does. Names go out as they are, values encoded.

    Bytes that are no UTF-8 are given as surrogate escapes.
    """

    def __init__(self, server, folder):
        self.server = server
        self.folder = folder

    def send(self, fields, user=ADMINISTRATOR, password=PASSWORD, path="/isam.cgi"):
        credentials = base64.b64encode(f"{user}:{password}".encode(errors="surrogateescape")).decode()
        body = [(name, quote_plus(value, errors="surrogateescape")) for name, value in fields]
        return self.server.post(path, body, headers=[f"Authorization: Basic {credentials}"])

    def post(self, fields=(), source="accounts", **log_in):
        """`fields` on a page that was drawn for the data source and is sent for it again."""
        return self.send([*fields, ("datasource", source), ("last_datasource", source)], **log_in)

    def page(self, fields=(), **where):
        """The page that answers the post, without its header block."""
        return pages.answered(self.post(fields, **where))


def user_statement(name, description, password):
    values = (value.replace("'", "''") for value in (name, description, password))
    return "insert into nordvale.system.user values ('{}', '{}', '{}')".format(*values)
