"""The two kinds of data source under the same tests: how each is filled, broken and looked into, and what the pages
show of it. Wherever the two differ, it stands here."""

from socket import socket

import pyodbc
import pytest

from support import postgresql
from support.pages import USERS, quoted_name
from support.sample import SampleSource, user_statement
from support.source import ADMINISTRATOR, ODBC_DIR, PASSWORD, list_sources, outcomes, other_process

# The sample: the pages' users, and tables in the order of their names. The second data source cannot be reached.

NAME, UNREACHABLE = "accounts", "branch"

# For tests of what no data source has a part in.
ON_EMBEDDED = pytest.mark.parametrize("prepared_kind", ["embedded"], indirect=True)

INVOICES = (NAME, "books", "invoices")
ORDERS = (NAME, "north", "orders")
STOCK = (NAME, "north", "stock")
NOTES = (NAME, "public", "notes")
TABLES = (INVOICES, ORDERS, STOCK, NOTES)

HELD = {("mary", ORDERS): ("select", "update"), ("mary", STOCK): ("insert",), ("public", NOTES): ("select",)}

# Names that mean something else where they are not taken as they are.
ODD_USERS = ("Mary Ann", "a.b", 'say "it"', "Größe", "MixedCase", "select", "mary;", "{x}", "back\\", "-", "n" * 63)
ODD_TABLES = tuple(
    (NAME, schema, name)
    for schema, name in (
        ("my schema", "my table"),
        ("a.b", "c.d"),
        ('the "best"', 'of "all"'),
        ("Größe", "Übung"),
        ("north", "ORDERS of Spring"),
        ("select", "table"),
        ("it's", "not't"),
        ("north", "a; drop table notes; --"),
        ("{x}", "?"),
        ("north", "nordvale.system.user"),
        ("s" * 63, "t" * 63),
    )
)

# A use of each privilege that takes no other one.
USES = {
    "select": "select count(*) from {}",
    "insert": "insert into {} values (1, 'new')",
    "update": "update {} set word = 'changed'",
    "delete": "delete from {}",
}


def table_statement(table):
    return f"create table {quoted_name(table)} (id integer, word varchar(20))"


def insertion(table, word):
    return f"insert into {quoted_name(table)} values (1, {sql_text(word)})"


def sql_text(value):
    return "'" + value.replace("'", "''") + "'"


def sql_name(name):
    return '"' + name.replace('"', '""') + '"'


def grant_statement(privilege, table, user):
    return f"grant {privilege} on {quoted_name(table)} to {user if user == 'public' else sql_name(user)}"


def uses(tables):
    return [statement.format(quoted_name(table)) for table in tables for statement in USES.values()]


def allowed(outcomes):
    """For each table the privileges whose uses succeeded, in the order of uses()."""
    outcomes = list(outcomes)
    tables = [outcomes[start : start + len(USES)] for start in range(0, len(outcomes), len(USES))]
    return [tuple(privilege for privilege, good in zip(USES, table, strict=True) if good) for table in tables]


def held_grants():
    return [(privilege, *key[::-1]) for key, privileges in HELD.items() for privilege in privileges]


class Embedded:
    """A file of the embedded database, reached through its driver."""

    # What the administrator types as the old password to get a new one, and what is refused.
    old_password = PASSWORD
    wrong_old_passwords = ("", "wrong", PASSWORD.upper(), PASSWORD + " ")

    # What the rights page lists as the administrator's own: only what somebody granted.
    administrators_rights = {}

    # Of tables on which others than the administrator have granted.
    grantors = {}

    def __init__(self):
        folder = ODBC_DIR / "embedded"
        self.environment = list_sources((NAME, UNREACHABLE), folder)
        self.source = SampleSource(NAME, folder)
        self.source.prepare(
            *(user_statement(*user) for user in USERS[1:]),
            *(table_statement(table) for table in TABLES),
            *(grant_statement(*grant) for grant in held_grants()),
        )

    def reset(self):
        self.source.reset()

    def shown_password(self, password):
        return password

    def listed(self, users):
        """The users as their page lists them: in the order in which they were added, with their passwords."""
        return users

    def ordered(self, tables):
        """The tables as the rights page lists them: without regard to the case of ASCII letters."""
        return sorted(tables, key=lambda table: [part.encode().lower() for part in table])

    def set_password(self, user, password):
        self.source.change(
            f'update "nordvale.system.user" set password = {sql_text(password)} where username = {sql_text(user)}'
        )

    def rename_administrator(self, name):
        self.source.change(
            f'update "nordvale.system.sysinfo" set "VALUE" = {sql_text(name)};'
            f'update "nordvale.system.user" set username = {sql_text(name)} where username = \'{ADMINISTRATOR}\''
        )

    def add_user(self, *user):
        self.source.execute(user_statement(*user))

    def make_tables(self, *tables):
        self.source.execute(*(table_statement(table) for table in tables))

    def drop_table(self, table):
        self.source.execute(f"drop table {quoted_name(table)}")

    def grant(self, user, table, *privileges):
        self.source.execute(*(grant_statement(privilege, table, user) for privilege in privileges))

    def refuse(self, verb, table):
        """To grant or to revoke on the table."""
        self.source.refuse({"grant": "insert", "revoke": "delete"}[verb], table)

    def connection_string(self, user, password):
        return self.source.connection_string(*("{" + value.replace("}", "}}") + "}" for value in (user, password)))

    def refuse_users(self):
        """To add, change and delete any."""
        for action in ("insert", "update", "delete"):
            self.source.change(
                f'create trigger refuse_{action} before {action} on "nordvale.system.user" '
                "begin select raise(abort, 'refused'); end"
            )

    def drop_user(self, name):
        self.source.execute(f"delete from nordvale.system.user where username = {sql_text(name)}")

    def admits(self, user, password):
        """Whether a connection of the user's own comes about."""
        try:
            other_process.submit(outcomes, self.connection_string(user, password), ()).result()
            return True
        except pyodbc.Error as error:
            assert error.args[0] == "28000", error
            return False

    def allowed(self, user, password, *tables):
        """For each table the privileges that the user can use on a connection of its own."""
        errors = other_process.submit(outcomes, self.connection_string(user, password), uses(tables)).result()
        assert all("does not have the" in error for error in errors if error), errors
        return allowed(error is None for error in errors)

    def fill(self, table, word):
        """Puts a row into the table."""
        self.source.execute(insertion(table, word))

    def count(self, table):
        """How many rows the table has."""
        ((number,),) = self.source.rows(f"select count(*) from {quoted_name(table)}")
        return number


class Postgresql:
    """A database on a PostgreSQL server, set up and looked into with psql, past the adapter."""

    # The stored password reads empty, so that only an empty one equals it.
    old_password = ""
    wrong_old_passwords = (" ", "wrong", PASSWORD)

    # Owners hold everything.
    administrators_rights = {(ADMINISTRATOR, table): tuple(USES) for table in TABLES}

    def __init__(self, server):
        self.server = server
        # Refuses connections, and is nobody else's while it is open.
        self.closed_port = socket()
        self.closed_port.bind(("127.0.0.1", 0))
        # With what libpq would take in place of a user name or password that was left empty.
        trap = {"PGUSER": ADMINISTRATOR, "PGPASSWORD": PASSWORD}
        unreachable = {"Port": self.closed_port.getsockname()[1], "Database": NAME}
        sources = postgresql.list_sources(ODBC_DIR / "postgresql", server.port, **{NAME: {}, UNREACHABLE: unreachable})
        self.environment = {**sources, **trap}
        self.transaction = 0
        server.execute(
            f"create role {ADMINISTRATOR} login createrole password {sql_text(PASSWORD)};"
            f"create database {NAME} owner {ADMINISTRATOR};"
        )
        server.execute(postgresql.INSTALL, database=NAME, user=ADMINISTRATOR, password=PASSWORD)

    def _table_script(self, table):
        return f"create schema if not exists {sql_name(table[1])}; {table_statement(table)};"

    def _role_script(self, name, description, password):
        role = sql_name(name)
        return f"alter role {role} password {sql_text(password)}; comment on role {role} is {sql_text(description)};"

    def _grant_script(self, privilege, table, user):
        statement = grant_statement(privilege, table, user)
        return f"grant usage on schema {sql_name(table[1])} to {statement.rpartition(' to ')[2]}; {statement};"

    def reset(self):
        """Does nothing where the next transaction's number tells that nothing was written since the last time."""
        next_transaction = "select pg_snapshot_xmax(pg_current_snapshot())"
        (self.transaction,) = self.server.execute(
            f"{next_transaction} = '{self.transaction}' as untouched \\gset\n"
            f"\\if :untouched\n{next_transaction};\n\\q\n\\endif\n"
            "begin;" + self._sample_script() + f"commit; {next_transaction}",
            database=NAME,
        )
        self.grantors = {}

    def _sample_script(self):
        """Leaves nothing but schema tabwarden of what was there."""
        return (
            "set local client_min_messages = warning;"
            "do $$ declare n name := pg_get_userbyid(datdba) from pg_database where datname = current_database(); begin"
            f"  if n <> '{ADMINISTRATOR}' then"
            f"    execute format('alter role %I rename to {ADMINISTRATOR}', n);"
            "  end if;"
            "  for n in select nspname from pg_namespace"
            "           where nspname !~ '^pg_' and nspname not in ('information_schema', 'tabwarden') loop"
            "    execute format('drop schema %I cascade', n);"
            "  end loop;"
            f"  for n in select rolname from pg_roles where oid >= 16384 and rolname <> '{ADMINISTRATOR}' loop"
            "    execute format('drop owned by %1$I; drop role %1$I', n);"
            "  end loop;"
            "end $$;"
            "create schema public authorization pg_database_owner; grant usage on schema public to public;"
            + "".join(f"create role {sql_name(name)} login;" for name, _, _ in USERS[1:])
            + "".join(self._role_script(*user) for user in USERS)
            + f"alter role {ADMINISTRATOR} createrole; set local role {ADMINISTRATOR};"
            + "".join(self._table_script(table) for table in TABLES)
            + "".join(self._grant_script(*grant) for grant in held_grants())
        )

    def shown_password(self, password):
        return ""

    def listed(self, users):
        """The users as their page lists them: by name, with no passwords."""
        return tuple((name, description, "") for name, description, _ in sorted(users))

    def ordered(self, tables):
        """The tables as the rights page lists them: by their bytes."""
        return sorted(tables, key=lambda table: [part.encode() for part in table])

    def set_password(self, user, password):
        self.server.execute(f"alter role {sql_name(user)} password {sql_text(password)}")

    def rename_administrator(self, name):
        self.server.execute(f"alter role {ADMINISTRATOR} rename to {sql_name(name)}")

    def add_user(self, name, description, password):
        self.server.execute(f"create role {sql_name(name)} login;" + self._role_script(name, description, password))

    def make_tables(self, *tables):
        script = "".join(self._table_script(table) for table in tables)
        self.server.execute(script, database=NAME, user=ADMINISTRATOR, password=PASSWORD)

    def drop_table(self, table):
        self.server.execute(f"drop table {quoted_name(table)}", database=NAME)

    def grant(self, user, table, *privileges):
        script = "".join(self._grant_script(privilege, table, user) for privilege in privileges)
        self.server.execute(script, database=NAME)

    def refuse(self, verb, table):
        """To grant or to revoke on the table, as it is another role's, who has granted what is granted on it."""
        # Where the administrator has a right at least, PostgreSQL only warns of a grant that comes to nothing.
        has_a_right = f"grant select on {quoted_name(table)} to {ADMINISTRATOR};" if verb == "grant" else ""
        self.server.execute(
            f"create role warehouse nologin; alter table {quoted_name(table)} owner to warehouse; {has_a_right}",
            database=NAME,
        )
        self.grantors[table] = "warehouse"

    def refuse_users(self):
        """To add, change and delete any."""
        self.server.execute(f"alter role {ADMINISTRATOR} nocreaterole")

    def drop_user(self, name):
        self.server.execute(f"drop owned by {sql_name(name)}; drop role {sql_name(name)}", database=NAME)

    def admits(self, user, password):
        """Whether a connection of the user's own comes about."""
        result = self.server.psql("", database=NAME, user=user, password=password)
        assert result.returncode == 0 or "FATAL: " in result.stderr, result.stderr
        return result.returncode == 0

    def allowed(self, user, password, *tables):
        """For each table the privileges that the user can use on a connection of its own."""
        script = "".join(f"{statement} \\g /dev/null\n\\echo :SQLSTATE\n" for statement in uses(tables))
        result = self.server.psql(script, database=NAME, user=user, password=password, stop_on_error=False)
        states = result.stdout.split()
        assert states and set(states) <= {"00000", "42501"}, result.stderr
        return allowed(state == "00000" for state in states)

    def fill(self, table, word):
        """Puts a row into the table."""
        self.server.execute(insertion(table, word), database=NAME)

    def count(self, table):
        """How many rows the table has."""
        (number,) = self.server.execute(f"select count(*) from {quoted_name(table)}", database=NAME)
        return int(number)
