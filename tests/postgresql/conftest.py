"""A PostgreSQL server of this folder's own: its tests make roles and settings that other tests would meet."""

import multiprocessing
from concurrent.futures import ProcessPoolExecutor

import pytest

from support.forms import press
from support.kinds import sql_name
from support.postgresql import PrivatePostgresql
from support.postgresql_database import ENVIRONMENT, Database, find_sources, list_sources, tables_of
from support.sample import Visitor
from support.server import RunningServer, install_html, write_product_ini
from support.source import ADMINISTRATOR, PASSWORD, outcomes

LOG_IN = f"DSN=accounts;UID={ADMINISTRATOR};PWD={PASSWORD}"

# Back to a server with the administrator and its prepared database only.
CLEAN = f"""
select format('drop database %I with (force)', datname) from pg_database
where datname not in ('postgres', 'template0', 'template1', 'prepared') \\gexec
select format('drop role %I', rolname) from pg_roles where oid >= 16384 and rolname <> '{ADMINISTRATOR}' \\gexec
alter role {ADMINISTRATOR} reset all;
alter role {ADMINISTRATOR} password '{PASSWORD}';
comment on role {ADMINISTRATOR} is null;
"""


@pytest.fixture(scope="session")
def own_server():
    server = PrivatePostgresql()
    try:
        server.execute(f"create role {ADMINISTRATOR} login createrole password '{PASSWORD}'")
        server.execute(f"create database prepared owner {ADMINISTRATOR}")
        Database(server, "prepared").install()
        yield server
    finally:
        server.stop()


@pytest.fixture
def accounts(own_server):
    """A data source with one ordinary user, and no tables."""
    own_server.execute(
        CLEAN + f"create database accounts template prepared owner {ADMINISTRATOR};"
        "create role mary login password 'lamb';"
    )
    list_sources(own_server, accounts={})
    return Database(own_server, "accounts")


@pytest.fixture
def make_database(own_server, accounts):
    """Further databases of the server; `settings` are those of "create database"."""

    def make(name, settings="", owner=ADMINISTRATOR):
        own_server.execute(f"create database {sql_name(name)} owner {owner} {settings}")
        return Database(own_server, name)

    return make


@pytest.fixture(scope="module")
def start_server():
    """Starts servers that find the folder's data sources, with `environment` added."""
    install_html()
    write_product_ini()
    started = []

    def start(**environment):
        started.append(RunningServer(environment={**ENVIRONMENT, **environment}))
        return started[-1]

    yield start
    for server in started:
        server.stop()


@pytest.fixture(scope="module")
def pages_server(start_server):
    return start_server()


@pytest.fixture
def visitor(pages_server, accounts):
    return Visitor(pages_server, None)


@pytest.fixture
def button(visitor):
    """The page after a button of the rights page, with boxes named as in "schema.table_privilege"."""
    return lambda name, boxes=(), user="mary": press(visitor, name, [f"accounts.{box}" for box in boxes], user)


@pytest.fixture(scope="session")
def odbc_process():
    # A driver manager stays with the folder of data sources that its process first found.
    with ProcessPoolExecutor(
        1, mp_context=multiprocessing.get_context("spawn"), initializer=find_sources
    ) as process:
        yield process


@pytest.fixture
def through_adapter(accounts, odbc_process):
    """What becomes of statements on a connection of the administrator, each an error message or None."""
    return lambda *statements: odbc_process.submit(outcomes, LOG_IN, statements).result()


@pytest.fixture
def table_list(accounts, odbc_process):
    return lambda: odbc_process.submit(tables_of, LOG_IN).result()
