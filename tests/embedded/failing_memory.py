"""A program of its own: executes a statement again and again, with a fault at the first, second, third ... piece of
memory that SQLite takes meanwhile, until none is left. Each is rolled back. Prints the SQLSTATE of each time in lines, or
what the query gives behind a statement that succeeded; "changed" when a failed one left something behind. The statement
"{SQLTables}" is that call, its result a number of rows; "?" stands for anna.

usage: failing_memory.py {cancel | refuse} USER PASSWORD STATEMENT QUERY
"""
import ctypes
import sys

kind, user, password, statement, query = sys.argv[1:]
sqlite = ctypes.CDLL("libsqlite3.so.0")
MALLOC, GETMALLOC, LOOKASIDE = 4, 5, 13
Allocate = ctypes.CFUNCTYPE(ctypes.c_void_p, ctypes.c_int)
Resize = ctypes.CFUNCTYPE(ctypes.c_void_p, ctypes.c_void_p, ctypes.c_int)
Opened = ctypes.CFUNCTYPE(ctypes.c_int, ctypes.c_void_p, ctypes.c_void_p, ctypes.c_void_p)


class Methods(ctypes.Structure):
    _fields_ = [("malloc", Allocate), ("free", ctypes.c_void_p), ("realloc", Resize), ("others", ctypes.c_void_p * 5)]


def is_refused():
    global left
    left -= 1
    if left == 0 and kind == "cancel":
        sqlite.sqlite3_interrupt(database)
    return left == 0 and kind == "refuse"


@Opened
def remember(opened, _message, _calls):
    global database
    database = ctypes.c_void_p(opened)
    return 0


left, database = 0, None
plain, faulty = Methods(), Methods()
for methods in (plain, faulty):
    sqlite.sqlite3_config(GETMALLOC, ctypes.byref(methods))
allocate = Allocate(lambda size: 0 if is_refused() else plain.malloc(size))
resize = Resize(lambda memory, size: 0 if is_refused() else plain.realloc(memory, size))
faulty.malloc, faulty.realloc = allocate, resize
assert sqlite.sqlite3_config(MALLOC, ctypes.byref(faulty)) == 0
assert sqlite.sqlite3_config(LOOKASIDE, 0, 0) == 0      # else it would take small pieces from its own store
assert sqlite.sqlite3_auto_extension(remember) == 0

import pyodbc  # noqa: E402

pyodbc.pooling = False
connection = pyodbc.connect(f"DSN=embedded;UID={user};PWD={password}", autocommit=False)
before = connection.execute(query).fetchone()[0]
# The second time what the driver keeps compiled is there from the first piece on.
for _ in range(2):
    piece = 0
    while True:
        piece += 1
        left = piece
        try:
            if statement == "{SQLTables}":
                outcome = len(connection.cursor().tables().fetchall())
            else:
                connection.execute(statement, ["anna"] * statement.count("?"))
                outcome = None
        except pyodbc.Error as error:
            outcome = error.args[0]
        unmet, left = left, 0
        print(outcome or connection.execute(query).fetchone()[0])
        connection.rollback()
        if outcome and connection.execute(query).fetchone()[0] != before:
            print("changed")
        if unmet > 0:
            break
connection.close()      # Python takes down what SQLite calls before it would end this by itself
