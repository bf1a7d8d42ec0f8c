"""Every C type on its way in and out, and the cursor's calls, at the driver's own entry points."""
import ctypes
import struct
import threading

import pytest

from direct_driver import NULL, length, short
from narrow_odbc import SQL_HANDLE_STMT

CHAR, WCHAR, BINARY, DEFAULT, BIT = 1, -8, -2, 99, -7
STINY, UTINY, TINY, SSHORT, USHORT, SHORT = -26, -28, -6, -15, -17, 5
SLONG, ULONG, LONG, SBIGINT, UBIGINT, FLOAT, DOUBLE = -16, -18, 4, -25, -27, 7, 8
DATE, TIME, TIMESTAMP = 91, 92, 93
FORMS = {STINY: "b", UTINY: "B", TINY: "b", BIT: "B", SSHORT: "h", USHORT: "H", SHORT: "h", SLONG: "i", ULONG: "I",
         LONG: "i", SBIGINT: "q", UBIGINT: "Q", FLOAT: "f", DOUBLE: "d"}
NULL_DATA, NTS = -1, -3


def get_data(driver, column, c_type, size=100, indicator=True):
    room, told = ctypes.create_string_buffer(b"#" * 100, 100), length(-77)
    result = driver.call("SQLGetData", driver.stmt, column, short(c_type), room, length(size),
                         ctypes.byref(told) if indicator else NULL)
    return result, room.raw.rstrip(b"#"), told.value


def bind(driver, c_type, value, indicator=None, sql_type=12, size=0):
    """Binds parameter 1 to the bytes of the value, which have to live until it is executed."""
    room = ctypes.create_string_buffer(value, len(value) + 2) if value is not None else NULL
    told = length(indicator) if indicator is not None else None
    driver.bound = room, told
    assert driver.call("SQLBindParameter", driver.stmt, 1, 1, short(c_type), short(sql_type), length(size), 0, room,
                       length(0), ctypes.byref(told) if told is not None else NULL) == 0


def echo(driver, query="select typeof(?1) || ' ' || ?1"):
    driver.fetched(query)
    return get_data(driver, 1, CHAR)[1].rstrip(b"\0").decode()


@pytest.mark.parametrize("c_type, form", FORMS.items())
def test_a_number_comes_out_as_each_c_type(driver, c_type, form):
    driver.fetched("select 1")
    size = struct.calcsize(form)
    assert get_data(driver, 1, c_type) == (0, struct.pack(form, 1), size)
    driver.fetched("select 1.0")
    assert driver.call("SQLGetData", driver.stmt, 1, short(c_type), NULL, length(0), NULL) == 0


@pytest.mark.parametrize("c_type, form", FORMS.items())
def test_a_number_goes_in_as_each_c_type(driver, c_type, form):
    bind(driver, c_type, struct.pack(form, 1))
    assert echo(driver) == ("real 1.0" if form in "fd" else "integer 1")


@pytest.mark.parametrize("expression", ["-1", "256", "-0.5", "1e300", "-1e300"])
@pytest.mark.parametrize("c_type", [UTINY, BIT])
def test_a_number_outside_of_its_c_type_is_22003(driver, c_type, expression):
    driver.fetched(f"select {expression}")
    if expression == "-0.5":
        assert get_data(driver, 1, c_type)[:2] == (1, b"\0")
    else:
        assert get_data(driver, 1, c_type)[0] == -1
        assert driver.state(SQL_HANDLE_STMT, driver.stmt) == "22003"


def test_a_text_with_blanks_around_a_number_is_one(driver):
    driver.fetched("select '  2.5  '")
    assert get_data(driver, 1, DOUBLE)[:2] == (0, struct.pack("d", 2.5))


def test_bytes_are_no_number(driver):
    driver.fetched("select x'31'")
    assert get_data(driver, 1, SLONG)[0] == -1
    assert driver.state(SQL_HANDLE_STMT, driver.stmt) == "22018"


def test_a_c_type_that_is_not_served_is_HYC00(driver):
    driver.fetched("select 1")
    assert get_data(driver, 1, 1234)[0] == -1
    assert driver.state(SQL_HANDLE_STMT, driver.stmt) == "HYC00"


def test_the_default_c_type_is_that_of_the_column(driver):
    driver.execute("create table T (b bigint, d double, v varchar(9), x blob)")
    driver.execute("insert into T values (1, 4.5, 'v', x'07')")
    driver.fetched("select b, d, v, x from T")
    given = [get_data(driver, column, DEFAULT)[1] for column in range(1, 5)]
    assert given == [struct.pack("q", 1), struct.pack("d", 4.5), b"v\0", b"\7"]


def test_the_default_c_type_of_a_catalogs_smallint_and_integer_is_theirs(driver):
    driver.execute("create table T (v varchar(9))")
    driver.call("SQLColumns", driver.stmt, NULL, short(0), NULL, short(0), b"T", short(1), NULL, short(0))
    driver.call("SQLFetch", driver.stmt)
    assert [get_data(driver, column, DEFAULT)[1] for column in (5, 7)] == [struct.pack("h", 12), struct.pack("i", 9)]


def test_a_number_is_given_as_text_and_as_the_bytes_of_its_text(driver):
    driver.fetched("select 3.0, 3.0, 12, 1e300, x'a0'")
    assert get_data(driver, 1, CHAR)[1] == b"3.0\0"
    assert get_data(driver, 2, BINARY)[1] == b"3.0"
    assert get_data(driver, 3, WCHAR)[1] == "12\0".encode("utf-16-le")
    assert float(get_data(driver, 4, CHAR)[1].rstrip(b"\0")) == 1e300
    assert get_data(driver, 5, WCHAR)[1] == "A0\0".encode("utf-16-le")


def test_a_null_without_indicator_is_22002(driver):
    driver.fetched("select null")
    assert get_data(driver, 1, CHAR, indicator=False)[0] == -1
    assert driver.state(SQL_HANDLE_STMT, driver.stmt) == "22002"


@pytest.mark.parametrize("size", [-1, 0, 1])
def test_wide_text_is_given_no_half_characters(driver, size):
    driver.fetched("select 'a'")
    assert get_data(driver, 1, WCHAR, size) == (1, b"", 2)


# Parameters

@pytest.mark.parametrize("c_type, value, indicator, size, kept", [
    (CHAR, b"text", None, 0, "text text"), (CHAR, b"text", 2, 0, "text te"), (CHAR, b"text", NTS, 0, "text text"),
    (WCHAR, "täxt\0".encode("utf-16-le"), None, 0, "text täxt"), (WCHAR, "täxt".encode("utf-16-le"), 4, 0, "text tä"),
    (BINARY, b"ab", 2, 0, "blob ab"), (BINARY, b"abc", NTS, 2, "blob ab"), (BINARY, b"", 0, 0, "blob "),
    (UBIGINT, struct.pack("Q", 2**63 - 1), None, 0, f"integer {2**63 - 1}"),
    (DATE, struct.pack("hHH", 2024, 2, 29), None, 0, "text 2024-02-29"), (9, struct.pack("hHH", 1, 2, 3), None, 0, "text 0001-02-03"),
    (TIME, struct.pack("HHH", 1, 2, 3), None, 0, "text 01:02:03"), (10, struct.pack("HHH", 1, 2, 3), None, 0, "text 01:02:03"),
    (TIMESTAMP, struct.pack("hHHHHHI", 2024, 2, 29, 1, 2, 3, 0), None, 0, "text 2024-02-29 01:02:03"),
    (11, struct.pack("hHHHHHI", 2024, 2, 29, 1, 2, 3, 5000), None, 0, "text 2024-02-29 01:02:03.000005"),
])
def test_a_parameter_is_taken_as_its_c_type_says(driver, c_type, value, indicator, size, kept):
    bind(driver, c_type, value, indicator, size=size)
    assert echo(driver) == kept


@pytest.mark.parametrize("sql_types, value, kept", [
    ((-7, -6), struct.pack("b", -2), "integer -2"), ((5,), struct.pack("h", -300), "integer -300"),
    ((4,), struct.pack("i", -70000), "integer -70000"), ((-5,), struct.pack("q", 2**40), f"integer {2**40}"),
    ((7,), struct.pack("f", 0.5), "real 0.5"), ((6, 8), struct.pack("d", 0.25), "real 0.25"),
    ((-2, -3, -4), b"ab", "blob ab"), ((-8, -9, -10), "ä".encode("utf-16-le") + b"\0\0", "text ä"), ((12, 1), b"ab", "text ab"),
])
def test_the_default_c_type_is_that_of_the_parameter(driver, sql_types, value, kept):
    for sql_type in sql_types:
        bind(driver, DEFAULT, value, sql_type=sql_type, size=2)
        assert echo(driver) == kept, sql_type


@pytest.mark.parametrize("value, indicator", [(None, None), (b"x", NULL_DATA)])
def test_no_value_is_null(driver, value, indicator):
    bind(driver, CHAR, value, indicator)
    assert echo(driver, "select typeof(?)") == "null"


@pytest.mark.parametrize("c_type, value, state", [(UBIGINT, struct.pack("Q", 2**63), "22003"), (1234, b"x", "HYC00")])
def test_a_parameter_that_cannot_be_taken_is_refused(driver, c_type, value, state):
    bind(driver, c_type, value)
    assert driver.call("SQLExecDirect", driver.stmt, b"select ?", 8) == -1
    assert driver.state(SQL_HANDLE_STMT, driver.stmt) == state


@pytest.mark.parametrize("number, direction, state", [(0, 1, "07009"), (1, 2, "HYC00"), (1, 4, "HYC00")])
def test_a_parameter_that_is_no_input_cannot_be_bound(driver, number, direction, state):
    assert driver.call("SQLBindParameter", driver.stmt, number, short(direction), CHAR, 12, length(0), 0, NULL, length(0), NULL) == -1
    assert driver.state(SQL_HANDLE_STMT, driver.stmt) == state


def test_the_parameter_between_two_bound_ones_has_no_value(driver):
    bind(driver, CHAR, b"x")
    value = ctypes.create_string_buffer(b"y")
    driver.call("SQLBindParameter", driver.stmt, 3, 1, CHAR, 12, length(0), 0, value, length(0), NULL)
    assert driver.call("SQLExecDirect", driver.stmt, b"select ?, ?, ?", 14) == -1
    assert driver.state(SQL_HANDLE_STMT, driver.stmt) == "07002"


# Cursors

ROW_STATUS_PTR, ROWS_FETCHED_PTR = 25, 26


def test_a_fetch_tells_how_many_rows_and_what_became_of_them(driver):
    fetched, status, room, told = ctypes.c_size_t(9), ctypes.c_ushort(9), ctypes.create_string_buffer(3), length()
    driver.call("SQLSetStmtAttr", driver.stmt, ROWS_FETCHED_PTR, ctypes.byref(fetched), 0)
    driver.call("SQLSetStmtAttr", driver.stmt, ROW_STATUS_PTR, ctypes.byref(status), 0)
    driver.call("SQLBindCol", driver.stmt, 2, short(CHAR), room, length(3), ctypes.byref(told))
    driver.execute("select 1, 'ok' union all select 2, 'too long'")
    seen = [(driver.call("SQLFetch", driver.stmt), fetched.value, status.value) for _ in range(3)]
    assert seen == [(0, 1, 0), (1, 1, 6), (100, 0, 3)]


def test_a_row_whose_bound_column_cannot_be_converted_is_an_error(driver):
    number, status = ctypes.c_int(), ctypes.c_ushort(9)
    driver.call("SQLSetStmtAttr", driver.stmt, ROW_STATUS_PTR, ctypes.byref(status), 0)
    driver.call("SQLBindCol", driver.stmt, 1, short(SLONG), ctypes.byref(number), length(4), NULL)
    driver.execute("select 'x'")
    assert (driver.call("SQLFetch", driver.stmt), status.value) == (-1, 5)


def test_a_column_may_be_bound_to_its_indicator_alone(driver):
    told = length()
    driver.call("SQLBindCol", driver.stmt, 1, short(SLONG), NULL, length(0), ctypes.byref(told))
    driver.fetched("select 7")
    assert told.value == 4


def test_a_bookmark_cannot_be_bound(driver):
    assert driver.call("SQLBindCol", driver.stmt, 0, short(CHAR), NULL, length(0), NULL) == -1
    assert driver.state(SQL_HANDLE_STMT, driver.stmt) == "07009"


def test_a_cursor_scrolls_forward_only(driver):
    driver.execute("select 1")
    assert driver.call("SQLFetchScroll", driver.stmt, short(4), length(0)) == -1
    assert driver.state(SQL_HANDLE_STMT, driver.stmt) == "HY106"
    assert [driver.call("SQLFetchScroll", driver.stmt, short(1), length(0)) for _ in range(2)] == [0, 100]


def test_data_are_there_on_a_row_only(driver):
    def state(column=1):
        assert get_data(driver, column, CHAR)[0] == -1
        return driver.state(SQL_HANDLE_STMT, driver.stmt)

    states = [state()]
    driver.execute("select 1")
    states.append(state())
    driver.call("SQLFetch", driver.stmt)
    states += [state(0), state(2)]
    driver.call("SQLFetch", driver.stmt)
    states.append(state())
    assert states == ["24000", "24000", "07009", "07009", "24000"]


def test_there_is_one_result_of_a_statement(driver):
    driver.execute("select 1")
    assert driver.call("SQLMoreResults", driver.stmt) == 100


def test_nothing_is_executed_without_preparation(driver):
    assert driver.call("SQLExecute", driver.stmt) == -1
    assert driver.state(SQL_HANDLE_STMT, driver.stmt) == "HY010"


def test_what_is_no_statement_cannot_be_prepared(driver):
    assert driver.call("SQLPrepare", driver.stmt, b"'", 1) == -1
    assert driver.state(SQL_HANDLE_STMT, driver.stmt) == "42000"


def test_a_running_statement_is_cancelled_from_another_thread(driver):
    endless = b"with recursive n (i) as (select 1 union all select i from n) select count(*) from n"
    ended = []
    runner = threading.Thread(target=lambda: ended.append(driver.call("SQLExecDirect", driver.stmt, endless, len(endless))))
    runner.start()
    while runner.is_alive():
        driver.call("SQLCancel", driver.stmt)
    assert (ended, driver.state(SQL_HANDLE_STMT, driver.stmt)) == ([-1], "HY008")


def test_a_cursor_that_is_not_open_cannot_be_closed(driver):
    assert driver.call("SQLCloseCursor", driver.stmt) == -1
    assert driver.state(SQL_HANDLE_STMT, driver.stmt) == "24000"
    driver.execute("select 1")
    assert driver.call("SQLCloseCursor", driver.stmt) == 0


def test_cancelling_what_is_not_running_does_nothing(driver):
    driver.fetched("select 1")
    assert driver.call("SQLCancel", driver.stmt) == 0
    assert get_data(driver, 1, CHAR)[1] == b"1\0"


# Statements as SQLite gets them

@pytest.mark.parametrize("wide, size, given", [("", 60, b"select 1\0"), ("", 5, b"sele\0"),
                                               ("W", 30, "select 1\0".encode("utf-16-le")), ("W", 5, "sele\0".encode("utf-16-le"))])
def test_the_native_statement_is_given_and_cut_to_its_room(driver, wide, size, given):
    text = ctypes.create_string_buffer("select 1\0".encode("utf-16-le" if wide else "ascii"))
    room, told = ctypes.create_string_buffer(b"#" * 60, 60), ctypes.c_int()
    result = driver.call(f"SQLNativeSql{wide}", driver.dbc, text, 8, room, size, ctypes.byref(told))
    assert (result, room.raw.rstrip(b"#"), told.value) == (1 if size == 5 else 0, given, 8)
    assert driver.call(f"SQLNativeSql{wide}", driver.dbc, text, 8, NULL, 0, NULL) == 0


@pytest.mark.parametrize("wide", ["", "W"])
def test_what_is_no_statement_has_no_native_form(driver, wide):
    text = ctypes.create_string_buffer("'\0".encode("utf-16-le"))
    assert driver.call(f"SQLNativeSql{wide}", driver.dbc, text, 1, NULL, 0, NULL) == -1


# Wide texts

def wide_text(text):
    return ctypes.create_string_buffer(text.encode("utf-16-le") + b"\0\0")


def test_the_wide_calls_log_in_and_out(driver, source):
    dbc = driver.allocate(2, driver.env)
    assert driver.call("SQLConnectW", dbc, wide_text("embedded"), NTS, wide_text("admin"), NTS, wide_text("secret"), NTS) == 0
    assert driver.call("SQLDisconnect", dbc) == 0
    assert driver.call("SQLConnectW", dbc, wide_text("embedded"), NTS, wide_text("admin"), NTS, NULL, 0) == -1
    assert driver.state(2, dbc) == "28000"
    driver.call("SQLFreeHandle", short(2), dbc)


@pytest.mark.parametrize("call, arguments, columns", [
    ("SQLTablesW", ("%", "%", "T", "TABLE"), 5), ("SQLColumnsW", ("", "", "T", "a"), 18),
    ("SQLTablePrivilegesW", ("", "", "T"), 7), ("SQLPrimaryKeysW", (None, None, "T"), 6),
])
def test_the_wide_catalog_calls_find_the_table(driver, call, arguments, columns):
    driver.execute("create table T (a integer primary key)")
    driver.execute("grant select on T to public")
    texts = [part for text in arguments for part in ((NULL, short(0)) if text is None else (wide_text(text), short(len(text))))]
    assert driver.call(call, driver.stmt, *texts) == 0, driver.state(3, driver.stmt)
    count = short()
    driver.call("SQLNumResultCols", driver.stmt, ctypes.byref(count))
    assert count.value == columns
    assert driver.call("SQLFetch", driver.stmt) == 0
    assert get_data(driver, 3, CHAR)[1] == b"T\0"


def test_the_wide_list_of_types_begins_with_the_same_type(driver):
    first = []
    for call in ("SQLGetTypeInfo", "SQLGetTypeInfoW"):
        assert driver.call(call, driver.stmt, short(0)) == 0
        driver.call("SQLFetch", driver.stmt)
        first.append(get_data(driver, 1, CHAR))
    assert first[0] == first[1] and first[0][1]


@pytest.mark.parametrize("units, kept", [
    ([0x61], "61"), ([0xe4], "C3A4"), ([0x20ac], "E282AC"), ([0xd83d, 0xde00], "F09F9880"), ([0xd83d], "EFBFBD"),
    ([0xde00], "EFBFBD"), ([0xd83d, 0x61], "EFBFBD61"), ([0xd83d, 0xe000], "EFBFBDEE8080"),
])
def test_wide_characters_are_kept_as_utf_8_and_halves_of_them_as_the_replacement(driver, units, kept):
    literal = [*b"select hex('", *units, *b"')"]
    assert driver.call("SQLExecDirectW", driver.stmt, (ctypes.c_ushort * len(literal))(*literal), len(literal)) == 0
    driver.call("SQLFetch", driver.stmt)
    assert get_data(driver, 1, CHAR)[1] == kept.encode() + b"\0"


@pytest.mark.parametrize("kept, units", [
    ("c3a4", [0xe4]), ("f09f9880", [0xd83d, 0xde00]), ("80", [0xfffd]), ("f8", [0xfffd]), ("c3", [0xfffd]), ("c361", [0xfffd, 0x61]),
    ("eda080", [0xfffd]), ("ee8080", [0xe000]), ("f4908080", [0xfffd]),
])
def test_what_is_no_utf_8_comes_out_wide_as_the_replacement(driver, kept, units):
    driver.fetched(f"select cast(x'{kept}' as text)")
    assert get_data(driver, 1, WCHAR)[1] == struct.pack(f"{len(units) + 1}H", *units, 0)
