"""Databases of a test's own on a PostgreSQL server, and the data sources that name them."""

import os
from contextlib import contextmanager

from support import postgresql
from support.kinds import sql_name, sql_text
from support.source import ADMINISTRATOR, ODBC_DIR, PASSWORD

FOLDER = ODBC_DIR / "postgresql_only"
ENVIRONMENT = {"ODBCSYSINI": str(FOLDER), "ODBCINI": "/dev/null"}

ALL = {"select", "insert", "update", "delete"}


def list_sources(server, **sources):
    """Data sources on the server in this folder of the tests."""
    postgresql.list_sources(FOLDER, server.port, **sources)


def find_sources():
    """In this process, too."""
    os.environ.update(ENVIRONMENT)


def tables_of(connection_string):
    """Catalog, schema and name of all that SQLTables lists."""
    import pyodbc

    pyodbc.pooling = False
    connection = pyodbc.connect(connection_string)
    connection.setdecoding(pyodbc.SQL_CHAR, encoding="utf-8", ctype=pyodbc.SQL_CHAR)
    try:
        return [tuple(row)[:3] for row in connection.cursor().tables(tableType="")]
    finally:
        connection.close()


class Session:
    def __init__(self, process):
        self.process = process

    def do(self, script):
        self.process.stdin.write(f"{script}\n\\echo done\n")
        self.process.stdin.flush()
        while (line := self.process.stdout.readline()) != "done\n":
            assert line


class Database:
    """A database as its owner, its users and the superuser reach it with psql, past the program."""

    def __init__(self, server, name):
        self.server = server
        self.name = name

    def install(self):
        self.as_administrator(postgresql.INSTALL)

    def as_superuser(self, script):
        return self.server.execute(script, database=self.name)

    def as_administrator(self, script):
        return self.server.execute(script, database=self.name, user=ADMINISTRATOR, password=PASSWORD)

    def try_as(self, user, password, script):
        """psql's result of a script that goes on after errors."""
        return self.server.psql(script, database=self.name, user=user, password=password, stop_on_error=False)

    @contextmanager
    def session(self, user=ADMINISTRATOR, password=PASSWORD):
        """psql for the steps of a test, each done before the next."""
        with self.server.open_psql(self.name, user, password) as process:
            yield Session(process)

    def states(self, user, password, *statements):
        """The SQLSTATE in which each statement ends."""
        script = "".join(f"{statement}\n\\g /dev/null\n\\echo :SQLSTATE\n" for statement in statements)
        return self.try_as(user, password, script).stdout.split()

    def held(self, user):
        """"schema.table" with the privileges on it, of all tables on which something was granted to the user."""
        lines = self.as_superuser(
            "select n.nspname || '.' || c.relname, string_agg(distinct lower(a.privilege_type), ' ')"
            " from pg_class c join pg_namespace n on n.oid = c.relnamespace, aclexplode(c.relacl) a"
            f" where a.grantee = {sql_text(sql_name(user))}::regrole and a.grantee <> c.relowner"
            " and n.nspname <> 'tabwarden' group by 1"
        )
        return {table: set(privileges.split()) for table, _, privileges in (line.rpartition("|") for line in lines)}
