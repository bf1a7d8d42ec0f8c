"""The narrow ODBC calls, byte for byte, for what pyodbc does in a way of its own."""
import ctypes

SQL_NTS = -3
SQL_HANDLE_ENV, SQL_HANDLE_DBC, SQL_HANDLE_STMT = 1, 2, 3
SQL_SUCCESS, SQL_SUCCESS_WITH_INFO, SQL_ERROR, SQL_NO_DATA = 0, 1, -1, 100
SQL_NULL_DATA = -1
SQL_C_CHAR, SQL_C_SLONG, SQL_C_DOUBLE, SQL_C_BINARY, SQL_C_WCHAR, SQL_C_SBIGINT = 1, -16, 8, -2, -8, -25
SQL_C_STINYINT = -26

odbc = ctypes.CDLL("libodbc.so.2")
short, pointer, length_type = ctypes.c_short, ctypes.c_void_p, ctypes.c_ssize_t
for name, arguments in {
    "SQLAllocHandle": [short, pointer, pointer],
    "SQLSetEnvAttr": [pointer, ctypes.c_int, pointer, ctypes.c_int],
    "SQLDriverConnect": [pointer, pointer, ctypes.c_char_p, short, pointer, short, pointer, ctypes.c_ushort],
    "SQLExecDirect": [pointer, ctypes.c_char_p, ctypes.c_int],
    "SQLPrepare": [pointer, ctypes.c_char_p, ctypes.c_int],
    "SQLExecute": [pointer],
    "SQLNumResultCols": [pointer, pointer],
    "SQLFetch": [pointer],
    "SQLBindCol": [pointer, ctypes.c_ushort, short, pointer, length_type, pointer],
    "SQLGetData": [pointer, ctypes.c_ushort, short, pointer, length_type, pointer],
    "SQLTables": [pointer] + [ctypes.c_char_p, short] * 4,
    "SQLCloseCursor": [pointer],
    "SQLFreeHandle": [short, pointer],
    "SQLDisconnect": [pointer],
    "SQLGetDiagRec": [short, pointer, short, pointer, pointer, pointer, short, pointer],
    "SQLGetFunctions": [pointer, ctypes.c_ushort, pointer],
}.items():
    function = getattr(odbc, name)
    function.argtypes, function.restype = arguments, short


def succeeded(result):
    return result in (SQL_SUCCESS, SQL_SUCCESS_WITH_INFO)


def allocate(kind, parent):
    handle = pointer()
    assert succeeded(odbc.SQLAllocHandle(kind, parent, ctypes.byref(handle)))
    return handle


def diagnostic(kind, handle):
    """SQLSTATE and message of record 1."""
    state, message = ctypes.create_string_buffer(6), ctypes.create_string_buffer(1024)
    native, length = ctypes.c_int(), short()
    if not succeeded(odbc.SQLGetDiagRec(kind, handle, 1, state, ctypes.byref(native), message, 1024,
                                        ctypes.byref(length))):
        return "", ""
    return state.value.decode(), message.value.decode()


class Connection:
    """One connection; `failure` is None or (SQLSTATE, message)."""

    def __init__(self, connection_string):
        self.env = allocate(SQL_HANDLE_ENV, None)
        odbc.SQLSetEnvAttr(self.env, 200, 3, 0)
        self.dbc = allocate(SQL_HANDLE_DBC, self.env)
        self.statements = []
        completed, length = ctypes.create_string_buffer(255), short()
        result = odbc.SQLDriverConnect(self.dbc, None, connection_string.encode(), SQL_NTS, completed, 255,
                                       ctypes.byref(length), 1)
        self.failure = None if succeeded(result) else diagnostic(SQL_HANDLE_DBC, self.dbc)

    def statement(self):
        self.statements.append(allocate(SQL_HANDLE_STMT, self.dbc))
        return self.statements[-1]

    def execute(self, text, statement=None):
        """Executes and returns the statement handle; AssertionError with the diagnostic if that fails."""
        statement = statement or self.statement()
        result = odbc.SQLExecDirect(statement, text.encode(), SQL_NTS)
        assert succeeded(result), diagnostic(SQL_HANDLE_STMT, statement)
        return statement

    def close(self):
        for statement in self.statements:
            odbc.SQLFreeHandle(SQL_HANDLE_STMT, statement)
        if self.failure is None:
            odbc.SQLDisconnect(self.dbc)
        odbc.SQLFreeHandle(SQL_HANDLE_DBC, self.dbc)
        odbc.SQLFreeHandle(SQL_HANDLE_ENV, self.env)


def get_data(statement, column, c_type=SQL_C_CHAR, size=255):
    """The result code, the buffer's bytes and the indicator of one SQLGetData."""
    buffer, indicator = ctypes.create_string_buffer(b"#" * (size + 8), size + 8), length_type()
    result = odbc.SQLGetData(statement, column, c_type, buffer, size, ctypes.byref(indicator))
    return result, buffer.raw, indicator.value


def text_of(statement, column):
    result, raw, indicator = get_data(statement, column)
    assert succeeded(result), diagnostic(SQL_HANDLE_STMT, statement)
    return None if indicator == SQL_NULL_DATA else raw.split(b"\0")[0].decode()


def texts(statement, columns):
    """All remaining rows as tuples of texts."""
    rows = []
    while succeeded(odbc.SQLFetch(statement)):
        rows.append(tuple(text_of(statement, column + 1) for column in range(columns)))
    return rows
