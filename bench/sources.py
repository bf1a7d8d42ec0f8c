"""Data sources of a given size, of either kind: filled past the driver, and put back past it between the runs.

One has "users" ordinary users or "tables" tables; "holder" holds all four privileges on each table, "changed" what a
case asks for, and users "gone_..." are there to be deleted. Each is the only one of its driver manager's list, and its
files are in memory: a disk's flushes would hide everything else.
"""

import shutil
import sqlite3
import tempfile
from contextlib import closing, contextmanager
from pathlib import Path

from support import postgresql
from support.postgresql import PrivatePostgresql, roomy_folder
from support.source import ADMINISTRATOR, PASSWORD, Source, list_sources

NAME, SCHEMA = "accounts", "area"
HOLDER, CHANGED = "holder", "changed"
PRIVILEGES = ("select", "insert", "update", "delete")


def table_name(number):
    """Lists come in this order."""
    return f"table_{number:05d}"


def gone_user(number):
    return f"gone_{number:02d}"


def gone_users(count):
    return [gone_user(number) for number in range(count)]


def description(user):
    return f"{user} of office {len(user)}"


class Embedded:
    kind = "embedded"

    def __init__(self):
        self.folder = Path(tempfile.mkdtemp(prefix="tabwarden-bench-", dir=roomy_folder()))

    def fill(self, users=0, tables=0):
        self.environment = list_sources([NAME], self.folder, logged=False)
        self.source = Source(NAME, self.folder)
        self.source.create()
        self._change(
            *self._insert_users([HOLDER, CHANGED] if tables else []),
            f"""with recursive n(i) as (select 0 union all select i + 1 from n where i < {users} - 1)
                insert into "nordvale.system.user"
                select printf('user_%05d', i), printf('Number %d in office %d', i, i % 40), printf('secret %d', i)
                from n where i < {users}""",
            f"""with recursive n(i) as (select 0 union all select i + 1 from n where i < {tables} - 1)
                insert into "nordvale.system.table"
                select '{NAME}', '{SCHEMA}', printf('table_%05d', i) from n where i < {tables}""",
            self._grant(HOLDER, PRIVILEGES),
        )

    def hold_nothing(self):
        self._change(f"delete from \"nordvale.system.tableprv\" where grantee = '{CHANGED}'")

    def hold_everything(self):
        self._change(self._grant(CHANGED, PRIVILEGES))

    def put_back_users(self, count):
        """Each of them may select from every table."""
        users = gone_users(count)
        self._change(
            "delete from \"nordvale.system.user\" where username glob 'gone_*'",
            "delete from \"nordvale.system.tableprv\" where grantee glob 'gone_*'",
            *self._insert_users(users),
            *(self._grant(user, PRIVILEGES[:1]) for user in users),
        )

    def remove(self):
        shutil.rmtree(self.folder)

    def _insert_users(self, users):
        return [f"insert into \"nordvale.system.user\" values ('{user}', '{description(user)}', '')" for user in users]

    def _grant(self, user, privileges):
        words = ", ".join(f"('{privilege.upper()}')" for privilege in privileges)
        return f"""insert or ignore into "nordvale.system.tableprv"
                   select "catalog", "schema", "table", '{ADMINISTRATOR}', '{user}', column1
                   from "nordvale.system.table", (values {words})"""

    def _change(self, *statements):
        with closing(sqlite3.connect(self.source.database)) as database, database:
            for statement in statements:
                database.execute(statement)


class Postgresql:
    """A server of its own, as users are common to all databases of a server."""

    kind = "postgresql"

    def __init__(self):
        self.server = PrivatePostgresql()

    def fill(self, users=0, tables=0):
        self.folder = self.server.folder / "odbc"
        self.environment = postgresql.list_sources(self.folder, self.server.port, **{NAME: {}})
        self.server.execute(
            f"create role {ADMINISTRATOR} login createrole password '{PASSWORD}';"
            f"create database {NAME} owner {ADMINISTRATOR}"
        )
        as_administrator = {"database": NAME, "user": ADMINISTRATOR, "password": PASSWORD}
        self.server.execute(postgresql.INSTALL, **as_administrator)
        # In pieces: a server keeps no more locks than those of some thousand tables at a time.
        self.server.execute(
            f"""create schema {SCHEMA};
            do $$ begin for i in 0 .. {tables} - 1 loop
                execute format('create table {SCHEMA}.table_%s (id integer)', lpad(i::text, 5, '0'));
                if i % 1000 = 999 then commit; end if;
            end loop; end $$;""",
            **as_administrator,
        )
        self._change(
            *self._create_users([HOLDER, CHANGED] if tables else []),
            f"""do $$ begin for i in 0 .. {users} - 1 loop
                execute format('create role user_%s login', lpad(i::text, 5, '0'));
                execute format('comment on role user_%s is %L', lpad(i::text, 5, '0'),
                               format('Number %s in office %s', i, i % 40));
            end loop; end $$""",
            *([f"grant all on all tables in schema {SCHEMA} to {HOLDER}"] if tables else []),
        )
        self._change("vacuum analyze")

    def hold_nothing(self):
        self._change(f"revoke all on all tables in schema {SCHEMA} from {CHANGED}", "vacuum pg_class")

    def hold_everything(self):
        privileges = ", ".join(PRIVILEGES)
        self._change(f"grant {privileges} on all tables in schema {SCHEMA} to {CHANGED}", "vacuum pg_class")

    def put_back_users(self, count):
        """Each of them may select from every table."""
        users = gone_users(count)
        self._change(
            """do $$ declare n name; begin for n in select rolname from pg_roles where rolname like 'gone\\_%' loop
                execute format('drop owned by %1$I; drop role %1$I', n);
            end loop; end $$""",
            *self._create_users(users),
            *([f"grant select on all tables in schema {SCHEMA} to {', '.join(users)}"] if users else []),
            "vacuum pg_class",
            "vacuum pg_shdepend",
        )

    def remove(self):
        self.server.stop()

    def _create_users(self, users):
        return [
            f"create role {user} login; comment on role {user} is '{description(user)}';"
            f"grant usage on schema {SCHEMA} to {user}"
            for user in users
        ]

    def _change(self, *statements):
        self.server.execute(";\n".join(statements), database=NAME)


KINDS = {made.kind: made for made in (Embedded, Postgresql)}


@contextmanager
def filled_source(kind, filled):
    """Gives a source with so many "users" or "tables" in it, and removes it in the end."""
    source = KINDS[kind]()
    try:
        source.fill(**filled)
        yield source
    finally:
        source.remove()
