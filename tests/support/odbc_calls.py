"""The ODBC calls of a request as they have to come, composed piece by piece.

A call is written as the recorder writes it: SQLFetch(stmt1) = SUCCESS.
"""

import json
from collections import Counter

from support.statements import ADMINISTRATOR_NAME, LISTED_USERS, OFFERED_USERS, PRIVILEGES_HELD, SORTED_USERS

# What a value, a name or a message is read into.
COLUMN_SIZE = 255

# Catalog, schema and table are null, the table types empty.
EVERY_TABLE = ("null", "NTS", "null", "NTS", "null", "NTS", '""', "NTS")


class Calls:
    """One request's calls. It holds the names of the page's handles, as the program holds the handles.

    `env`, `dbc`, `stmt` and `stmt2` are those of the connection; what a piece allocates for itself it gives back.
    """

    def __init__(self):
        self.lines = []
        self.failure = ""
        self.called = Counter()
        self.allocated = Counter()
        self.start_over()

    def start_over(self):
        """The log-in is over, the page begins without a handle; what was not released stays so."""
        self.env = self.dbc = self.stmt = self.stmt2 = "null"

    def lines_beside(self, recorded):
        """The lines to compare with what was recorded, whose order they take where any order will do."""
        lines = []
        for line in self.lines:
            if isinstance(line, str):
                lines.append(line)
            else:
                beside = recorded[len(lines) : len(lines) + len(line)]
                lines += beside if set(beside) == line else sorted(line)
        return lines

    # Single calls

    def call(self, function, *arguments, result="SUCCESS"):
        self.called[function] += 1
        self.lines.append(f"{function}({', '.join(str(argument) for argument in arguments)}) = {result}")

    def allocate(self, kind, parent):
        self.allocated[kind] += 1
        handle = f"{kind.lower()}{self.allocated[kind]}"
        self.call("SQLAllocHandle", kind, parent, handle)
        return handle

    def make_fail(self, function, *arguments):
        """The call that the recorder is to let fail. There is no diagnostic then."""
        self.failure = f"{function} {self.called[function] + 1}"
        self.call(function, *arguments, result="ERROR")

    def failing_allocation(self, kind, parent, diagnosed):
        """`diagnosed`: type and handle whose diagnostic is shown."""
        self.make_fail("SQLAllocHandle", kind, parent, "none")
        self.read_diagnostic(*diagnosed, result="NO_DATA")

    def free(self, kind, handle):
        self.call("SQLFreeHandle", kind, handle)

    def execute(self, stmt, sql, result="SUCCESS"):
        self.call("SQLExecDirect", stmt, text(sql), "NTS", result=result)

    def close_cursor(self, stmt, result="SUCCESS"):
        self.call("SQLCloseCursor", stmt, result=result)

    def read_diagnostic(self, kind, handle, result="SUCCESS"):
        self.call("SQLGetDiagRec", kind, handle, 1, COLUMN_SIZE, result=result)

    def in_any_order(self, piece):
        """What the piece calls, in an order that nobody can rely on."""
        before = len(self.lines)
        piece()
        self.lines[before:] = [frozenset(self.lines[before:])]

    # Results

    def row(self, stmt, columns):
        self.call("SQLFetch", stmt)
        for column in range(1, columns + 1):
            self.call("SQLGetData", stmt, column, "CHAR", COLUMN_SIZE)

    def end_of_rows(self, stmt):
        self.call("SQLFetch", stmt, result="NO_DATA")

    def query(self, stmt, sql, rows, columns):
        """A statement that is read to its end."""
        self.execute(stmt, sql)
        for _ in range(rows):
            self.row(stmt, columns)
        self.end_of_rows(stmt)
        self.close_cursor(stmt)

    def failing_query(self, stmt, sql):
        """Nothing can be fetched from it, which is tried all the same."""
        self.execute(stmt, sql, result="ERROR")
        self.read_diagnostic("STMT", stmt)
        self.call("SQLFetch", stmt, result="ERROR")
        self.close_cursor(stmt, result="ERROR")

    # The choice of the data source

    def environment(self):
        env = self.allocate("ENV", "null")
        self.call("SQLSetEnvAttr", env, "ODBC_VERSION", 3)
        return env

    def walk_of_data_sources(self, env, count, to_the_end=True):
        for direction in ["FIRST", *["NEXT"] * count][:count]:
            self.call("SQLDataSources", env, direction, COLUMN_SIZE, COLUMN_SIZE)
        if to_the_end:
            direction = "NEXT" if count else "FIRST"
            self.call("SQLDataSources", env, direction, COLUMN_SIZE, COLUMN_SIZE, result="NO_DATA")

    def data_source_chooser(self, listed=2):
        env = self.environment()
        self.walk_of_data_sources(env, listed)
        self.free("ENV", env)

    def first_data_source_chooser(self, listed, first):
        """The data source comes from a walk of its own, which ends at the first of our drivers, or finds none."""
        env = self.environment()
        self.walk_of_data_sources(env, first or listed, to_the_end=not first)
        self.walk_of_data_sources(env, listed)
        self.free("ENV", env)

    # The connection

    def driver_connect(self, source, user, password, result="SUCCESS"):
        self.env = self.environment()
        self.dbc = self.allocate("DBC", self.env)
        values = text(f"dsn={source};uid={user};pwd={password}")
        self.call(
            "SQLDriverConnect", self.dbc, "no window", values, "NTS", COLUMN_SIZE, "COMPLETE", result=result
        )

    def failing_connect(self, source, user="admin", password="manager"):
        """Its handles are left."""
        self.driver_connect(source, user, password, result="ERROR")
        self.read_diagnostic("DBC", self.dbc)

    def connect(self, source="accounts", user="admin", password="manager"):
        self.driver_connect(source, user, password)
        self.allocate_statements()
        self.administrator_name()
        self.renew_statement()

    def administrator_name(self):
        """One row is enough."""
        self.execute(self.stmt, ADMINISTRATOR_NAME)
        self.row(self.stmt, 1)
        self.close_cursor(self.stmt)

    def allocate_statements(self):
        self.stmt = self.allocate("STMT", self.dbc)
        self.stmt2 = self.allocate("STMT", self.dbc)

    def renew_statement(self):
        self.free("STMT", self.stmt)
        self.stmt = self.allocate("STMT", self.dbc)

    def free_statements(self):
        """Those that there are."""
        for handle in (self.stmt, self.stmt2):
            if handle != "null":
                self.free("STMT", handle)
        self.stmt = self.stmt2 = "null"

    def reset(self):
        self.free_statements()
        self.allocate_statements()

    def failing_reset(self):
        """The first statement cannot be allocated, so the second is not tried."""
        self.free_statements()
        self.failing_allocation("STMT", self.dbc, ("DBC", self.dbc))

    def disconnect(self):
        self.free_statements()
        self.call("SQLDisconnect", self.dbc)
        self.free("DBC", self.dbc)
        self.free("ENV", self.env)
        self.start_over()

    def log_in(self, source="accounts", user="admin"):
        """Accepted: everything is given back."""
        self.connect(source, user)
        self.disconnect()

    def beginning_of_page(self, source="accounts"):
        """Log-in, chooser, the page's own connection: what every page has."""
        self.log_in(source)
        self.data_source_chooser()
        self.connect(source)
        self.reset()

    # The users page

    def users_list(self, count):
        self.reset()
        self.query(self.stmt, LISTED_USERS, count, 3)

    def beginning_of_submitted_users(self):
        """Gives the names of the two statements of its own: that of the users and that of the changes."""
        self.reset()
        reader, writer = self.own_statements()
        self.execute(reader, SORTED_USERS)
        return reader, writer

    def own_statements(self):
        return self.allocate("STMT", self.dbc), self.allocate("STMT", self.dbc)

    def users(self, reader, count):
        for _ in range(count):
            self.row(reader, 3)

    def end_of_submitted_users(self, reader, writer, shown):
        """The page with so many users is drawn behind the changes."""
        self.close_cursor(reader)
        self.give_back(reader, writer)
        self.users_list(shown)
        self.disconnect()

    def give_back(self, *statements):
        self.in_any_order(lambda: [self.free("STMT", statement) for statement in statements])

    # The rights page

    def user_chooser(self, count):
        self.reset()
        self.query(self.stmt, OFFERED_USERS, count, 1)

    def rights_list(self, user, tables):
        self.reset()
        self.query(self.stmt, PRIVILEGES_HELD.replace("%s", user), tables, 9)

    def table_list(self):
        self.reset()
        self.call("SQLTables", self.stmt, *EVERY_TABLE)

    def failing_table_list(self):
        self.reset()
        self.make_fail("SQLTables", self.stmt, *EVERY_TABLE)
        self.read_diagnostic("STMT", self.stmt, result="NO_DATA")

    def table(self):
        self.row(self.stmt, 3)

    def end_of_tables(self):
        """The cursor stays open: the next reset takes it."""
        self.end_of_rows(self.stmt)

    def change(self, sql):
        self.execute(self.stmt2, sql)

    def failing_change(self, sql):
        self.execute(self.stmt2, sql, result="ERROR")
        self.read_diagnostic("STMT", self.stmt2)

    def failing_change_with_recovery(self, sql):
        self.failing_change(sql)
        self.free("STMT", self.stmt2)
        self.stmt2 = self.allocate("STMT", self.dbc)

    def change_all(self, statements):
        """One statement for each table."""
        self.table_list()
        for statement in statements:
            self.table()
            self.change(statement)
        self.end_of_tables()


def text(value):
    return json.dumps(value, ensure_ascii=False)
