"""A server with two sample data sources, and the visitor who posts the pages' forms to it."""

import pytest

from support import pages
from support.sample import SampleSource, Visitor, user_statement
from support.server import HTML_DIR, RunningServer, install_html, write_product_ini
from support.source import ODBC_DIR, list_sources

FOLDER = ODBC_DIR / "pages"


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
    return Visitor(pages_server, FOLDER)


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
