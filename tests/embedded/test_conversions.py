"""Every C type on its way out, and the cursor's calls, at the driver's own entry points."""
import ctypes
import struct
import threading

import pytest

from direct_driver import NULL, length, short
from narrow_odbc import SQL_HANDLE_STMT

CHAR, WCHAR, BINARY, DEFAULT, BIT = 1, -8, -2, 99, -7
STINY, UTINY, TINY, SSHORT, USHORT, SHORT = -26, -28, -6, -15, -17, 5
SLONG, ULONG, LONG, SBIGINT, UBIGINT, FLOAT, DOUBLE = -16, -18, 4, -25, -27, 7, 8
FORMS = {STINY: "b", UTINY: "B", TINY: "b", BIT: "B", SSHORT: "h", USHORT: "H", SHORT: "h", SLONG: "i", ULONG: "I",
         LONG: "i", SBIGINT: "q", UBIGINT: "Q", FLOAT: "f", DOUBLE: "d"}


def get_data(driver, column, c_type, size=100, indicator=True):
    room, told = ctypes.create_string_buffer(b"#" * 100, 100), length(-77)
    result = driver.call("SQLGetData", driver.stmt, column, short(c_type), room, length(size),
                         ctypes.byref(told) if indicator else NULL)
    return result, room.raw.rstrip(b"#"), told.value


@pytest.mark.parametrize("c_type, form", FORMS.items())
def test_a_number_comes_out_as_each_c_type(driver, c_type, form):
    driver.fetched("select 1")
    size = struct.calcsize(form)
    assert get_data(driver, 1, c_type) == (0, struct.pack(form, 1), size)
    driver.fetched("select 1.0")
    assert driver.call("SQLGetData", driver.stmt, 1, short(c_type), NULL, length(0), NULL) == 0


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
