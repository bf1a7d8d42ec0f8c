"""The driver's own entry points: the driver manager answers some calls by itself and changes or refuses others."""
import ctypes

from narrow_odbc import SQL_HANDLE_DBC, SQL_HANDLE_ENV, SQL_HANDLE_STMT
from support.source import DRIVER

short, pointer, NULL = ctypes.c_short, ctypes.c_void_p, ctypes.c_void_p(None)
length = ctypes.c_ssize_t


class Driver:
    """A connection of the administrator with one statement."""

    def __init__(self, source):
        self.calls = ctypes.CDLL(str(DRIVER))
        self.env = self.allocate(SQL_HANDLE_ENV, None)
        self.dbc = self.allocate(SQL_HANDLE_DBC, self.env)
        string = f"Database={source.database};UID=admin;PWD=secret".encode()
        assert self.calls.SQLDriverConnect(self.dbc, NULL, string, short(-3), NULL, short(0), NULL, 0) == 0
        self.stmt = self.allocate(SQL_HANDLE_STMT, self.dbc)

    def handle(self, kind):
        return {SQL_HANDLE_ENV: self.env, SQL_HANDLE_DBC: self.dbc, SQL_HANDLE_STMT: self.stmt}[kind]

    def call(self, function, *arguments):
        return short(getattr(self.calls, function)(*arguments)).value

    def execute(self, statement):
        text = statement.encode()
        assert self.call("SQLExecDirect", self.stmt, text, len(text)) == 0, self.state(SQL_HANDLE_STMT, self.stmt)

    def fetched(self, query):
        self.execute(query)
        assert self.call("SQLFetch", self.stmt) == 0

    def allocate(self, kind, parent):
        handle = pointer()
        assert self.calls.SQLAllocHandle(short(kind), parent, ctypes.byref(handle)) == 0
        return handle

    def state(self, kind, handle):
        state = ctypes.create_string_buffer(6)
        self.calls.SQLGetDiagRec(short(kind), handle, short(1), state, NULL, NULL, short(0), NULL)
        return state.value.decode()

    def close(self):
        self.calls.SQLDisconnect(self.dbc)
        self.calls.SQLFreeHandle(short(SQL_HANDLE_DBC), self.dbc)
        self.calls.SQLFreeHandle(short(SQL_HANDLE_ENV), self.env)
