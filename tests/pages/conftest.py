"""A server with two sample data sources, and the visitor who posts the pages' forms to it."""

import base64
import sqlite3
from contextlib import closing
from urllib.parse import quote_plus

import pytest

from support import pages
from support.server import HTML_DIR, RunningServer, install_html, write_product_ini
from support.source import ADMINISTRATOR, ODBC_DIR, PASSWORD, Source, list_sources
from support.statements import ADMINISTRATOR_NAME

FOLDER = ODBC_DIR / "pages"

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

    def __init__(self, server, folder=FOLDER):
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
    return f"insert into nordvale.system.user values ('{name}', '{description}', '{password}')"


@pytest.fixture(scope="session")
def prepared_sources():
    FOLDER.mkdir(parents=True, exist_ok=True)
    accounts, branch = (SampleSource(name, FOLDER) for name in pages.SOURCES)
    accounts.prepare(
        *(user_statement(*user) for user in pages.USERS[1:]),
        *(f"create table {pages.quoted_name(table)} (id integer, word varchar(20))" for table in pages.TABLES),
        *(
            f"grant {privilege} on {pages.quoted_name(table)} to {user}"
            for (user, table), privileges in pages.HELD.items()
            for privilege in privileges
        ),
    )
    branch.prepare(user_statement("carol", "Carol C.", "sings"), "create table ledger (id integer)")
    return accounts, branch


@pytest.fixture
def sources(prepared_sources):
    """Both data sources as prepared."""
    for source in prepared_sources:
        source.reset()
    return prepared_sources


@pytest.fixture
def accounts(sources):
    return sources[0]


@pytest.fixture
def branch(sources):
    return sources[1]


@pytest.fixture(scope="session")
def program_environment():
    """For a folder of tests to override: what the program finds in its environment besides the data sources."""
    return {}


@pytest.fixture(scope="module")
def pages_server(program_environment):
    """One server for a module: nothing of a request outlives it."""
    install_html()
    write_product_ini()
    server = RunningServer(environment={**list_sources(pages.SOURCES, FOLDER), **program_environment})
    yield server
    server.stop()


class Templates:
    """Changes files of the html folder; restore() puts back what was there."""

    def __init__(self):
        self.contents = {}

    def keep(self, name):
        path = HTML_DIR / name
        self.contents.setdefault(path, path.read_bytes() if path.exists() else None)
        return path

    def take_away(self, name):
        self.keep(name).unlink()

    def put(self, name, content):
        self.keep(name).write_text(content)

    def restore(self):
        for path, content in self.contents.items():
            if content is None:
                path.unlink()
            else:
                path.write_bytes(content)


@pytest.fixture
def templates(pages_server):
    changed = Templates()
    yield changed
    changed.restore()


@pytest.fixture
def visitor(pages_server, accounts):
    return Visitor(pages_server)


@pytest.fixture
def visitor_of(pages_server, program_environment):
    """Starts a server that sees other data sources: (name, driver) pairs in this order, whose files do not exist."""
    started = []

    def start(*listed):
        folder = ODBC_DIR / "listed"
        started.append(RunningServer(environment={**list_sources([], folder, listed), **program_environment}))
        return Visitor(started[-1], folder)

    yield start
    for server in started:
        server.stop()
