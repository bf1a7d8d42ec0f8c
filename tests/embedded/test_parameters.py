"""Parameters as the driver itself takes them: every C type, with lengths, without values, and out of range."""
import ctypes
import struct

import pytest

from direct_driver import NULL, length, short
from narrow_odbc import SQL_ERROR, SQL_HANDLE_STMT, SQL_NTS, SQL_NULL_DATA, SQL_SUCCESS

CHAR, WCHAR, BINARY, DEFAULT, BIT, TINYINT, STINYINT, UTINYINT = 1, -8, -2, 99, -7, -6, -26, -28
SHORT, SSHORT, USHORT, LONG, SLONG, ULONG, SBIGINT, UBIGINT, FLOAT, DOUBLE = 5, -15, -17, 4, -16, -18, -25, -27, 7, 8
DATE, TIME, TIMESTAMP, TYPE_DATE, TYPE_TIME, TYPE_TIMESTAMP, NUMERIC = 9, 10, 11, 91, 92, 93, 2
SQL_CHAR, SQL_NUMERIC, SQL_INTEGER, SQL_SMALLINT, SQL_FLOAT, SQL_REAL, SQL_DOUBLE, SQL_VARCHAR = 1, 2, 4, 5, 6, 7, 8, 12
SQL_LONGVARCHAR, SQL_BINARY, SQL_VARBINARY, SQL_LONGVARBINARY, SQL_BIGINT, SQL_TINYINT, SQL_BIT = -1, -2, -3, -4, -5, -6, -7
SQL_WCHAR, SQL_WVARCHAR, SQL_WLONGVARCHAR = -8, -9, -10
INPUT, INPUT_OUTPUT, OUTPUT = 1, 2, 4
DATA_AT_EXEC = -2


def bind(driver, number, c_type, value, told=None, sql_type=SQL_VARCHAR, size=0):
    """The driver reads value and length when it executes, so both are kept until the driver ends."""
    room = value if value is NULL else ctypes.create_string_buffer(value, len(value))
    indicator = NULL if told is None else ctypes.byref(length(told))
    driver.kept = getattr(driver, "kept", []) + [room, indicator]
    return driver.call("SQLBindParameter", driver.stmt, number, INPUT, c_type, sql_type, length(size), 0, room,
                       length(0), indicator)


def text_at(driver, column):
    room, told = ctypes.create_string_buffer(200), length()
    assert driver.call("SQLGetData", driver.stmt, column, short(CHAR), room, length(200), ctypes.byref(told)) == SQL_SUCCESS
    return None if told.value == SQL_NULL_DATA else room.value.decode()


def taken(driver, *arguments, **more):
    """The type and the text of what SQLite was given."""
    assert bind(driver, 1, *arguments, **more) == SQL_SUCCESS
    driver.fetched("select typeof(v), case typeof(v) when 'blob' then hex(v) else v end from (select ?1 as v)")
    return text_at(driver, 1), text_at(driver, 2)


def refused(driver, *arguments, **more):
    bind(driver, 1, *arguments, **more)
    assert driver.call("SQLExecDirect", driver.stmt, b"select ?", SQL_NTS) == SQL_ERROR
    return driver.state(SQL_HANDLE_STMT, driver.stmt)


@pytest.mark.parametrize("c_type, form, least, most", [
    (BIT, "B", 0, 1), (UTINYINT, "B", 0, 255), (TINYINT, "b", -128, 127), (STINYINT, "b", -128, 127),
    (SHORT, "h", -2**15, 2**15 - 1), (SSHORT, "h", -2**15, 2**15 - 1), (USHORT, "H", 0, 2**16 - 1),
    (LONG, "i", -2**31, 2**31 - 1), (SLONG, "i", -2**31, 2**31 - 1), (ULONG, "I", 0, 2**32 - 1),
    (SBIGINT, "q", -2**63, 2**63 - 1), (UBIGINT, "Q", 0, 2**63 - 1),
])
def test_the_ends_of_every_integer_type_arrive(driver, c_type, form, least, most):
    for number in (least, most):
        assert taken(driver, c_type, struct.pack(form, number)) == ("integer", str(number))


@pytest.mark.parametrize("number", [2**63, 2**64 - 1])
def test_an_unsigned_number_that_SQLite_cannot_keep_is_22003(driver, number):
    assert refused(driver, UBIGINT, struct.pack("Q", number)) == "22003"


@pytest.mark.parametrize("c_type, form", [(FLOAT, "f"), (DOUBLE, "d")])
def test_floating_point_numbers_arrive(driver, c_type, form):
    for number in (0.5, -1234.25):
        assert taken(driver, c_type, struct.pack(form, number)) == ("real", str(number))


@pytest.mark.parametrize("c_type, value, text", [
    (DATE, struct.pack("hHH", 2024, 2, 29), "2024-02-29"), (TYPE_DATE, struct.pack("hHH", 33, 1, 2), "0033-01-02"),
    (TIME, struct.pack("HHH", 1, 2, 3), "01:02:03"), (TYPE_TIME, struct.pack("HHH", 23, 59, 59), "23:59:59"),
    (TIMESTAMP, struct.pack("hHHHHHI", 2024, 2, 29, 1, 2, 3, 0), "2024-02-29 01:02:03"),
    (TYPE_TIMESTAMP, struct.pack("hHHHHHI", 2024, 12, 31, 23, 59, 59, 5000), "2024-12-31 23:59:59.000005"),
    (TYPE_TIMESTAMP, struct.pack("hHHHHHI", 2024, 12, 31, 23, 59, 59, 999999999), "2024-12-31 23:59:59.999999"),
])
def test_times_arrive_as_iso_texts(driver, c_type, value, text):
    assert taken(driver, c_type, value) == ("text", text)


@pytest.mark.parametrize("told", [None, SQL_NTS])
def test_a_text_without_length_ends_at_its_NUL(driver, told):
    assert taken(driver, CHAR, "größe\0x".encode(), told) == ("text", "größe")
    assert taken(driver, WCHAR, "größe😀\0x".encode("utf-16-le"), told) == ("text", "größe😀")


@pytest.mark.parametrize("characters", [0, 1, 4])
def test_a_text_has_the_length_in_bytes_that_is_told(driver, characters):
    assert taken(driver, CHAR, b"text and more", characters) == ("text", "text"[:characters])
    assert taken(driver, WCHAR, "text and more".encode("utf-16-le"), 2 * characters) == ("text", "text"[:characters])


def test_a_text_contains_NUL_where_its_length_says_so(driver):
    bind(driver, 1, CHAR, b"a\0b", 3)
    driver.fetched("select length(cast(? as blob))")
    assert text_at(driver, 1) == "3"


@pytest.mark.parametrize("units, text", [
    ((0xd83d, 0xde00), "😀"), ((0xdbff, 0xdfff), "\U0010ffff"), ((0xd83d, 0x41), "\ufffdA"), ((0xd83d,), "\ufffd"),
    ((0xde00, 0x41), "\ufffdA"), ((0xd83d, 0xd83d, 0xde00), "\ufffd😀"), ((0xd83d, 0xe000), "\ufffd\ue000"),
    ((0xd7ff, 0xe000, 0x7f, 0x80, 0x7ff, 0x800, 0xffff), "\ud7ff\ue000\x7f\x80\u07ff\u0800\uffff"),
])
def test_surrogates_are_joined_and_lone_ones_replaced(driver, units, text):
    assert taken(driver, WCHAR, struct.pack(f"<{len(units)}H", *units), 2 * len(units)) == ("text", text)


def test_bytes_have_the_length_that_is_told_or_the_size_of_the_column(driver):
    assert taken(driver, BINARY, b"\0\1\xff\xfe", 3) == ("blob", "0001FF")
    assert taken(driver, BINARY, b"\0\1\xff\xfe", None, size=2) == ("blob", "0001")
    assert taken(driver, BINARY, b"\0\1\xff\xfe", 0) == ("blob", "")


@pytest.mark.parametrize("c_type", [CHAR, WCHAR, BINARY, SLONG, DOUBLE, TYPE_TIMESTAMP])
def test_null_is_told_by_the_length_or_by_the_missing_value(driver, c_type):
    assert taken(driver, c_type, b"12345678\0\0", SQL_NULL_DATA) == ("null", None)
    assert taken(driver, c_type, NULL, SQL_NULL_DATA) == ("null", None)
    assert taken(driver, c_type, NULL) == ("null", None)


@pytest.mark.parametrize("sql_type, value, kind, text", [
    (SQL_BIT, b"\1", "integer", "1"), (SQL_TINYINT, b"\xff", "integer", "-1"),
    (SQL_SMALLINT, struct.pack("h", -300), "integer", "-300"), (SQL_INTEGER, struct.pack("i", -70000), "integer", "-70000"),
    (SQL_BIGINT, struct.pack("q", -2**40), "integer", str(-2**40)), (SQL_REAL, struct.pack("f", 0.5), "real", "0.5"),
    (SQL_FLOAT, struct.pack("d", 0.5), "real", "0.5"), (SQL_DOUBLE, struct.pack("d", -2.5), "real", "-2.5"),
    (SQL_BINARY, b"\0\1", "blob", "0001"), (SQL_VARBINARY, b"\0\1", "blob", "0001"), (SQL_LONGVARBINARY, b"\0\1", "blob", "0001"),
    (SQL_WCHAR, "ä\0".encode("utf-16-le"), "text", "ä"), (SQL_WVARCHAR, "ä\0".encode("utf-16-le"), "text", "ä"),
    (SQL_WLONGVARCHAR, "ä\0".encode("utf-16-le"), "text", "ä"), (SQL_CHAR, b"x\0", "text", "x"),
    (SQL_VARCHAR, b"x\0", "text", "x"), (SQL_LONGVARCHAR, b"x\0", "text", "x"), (SQL_NUMERIC, b"1.5\0", "text", "1.5"),
])
def test_the_default_C_type_is_that_of_the_SQL_type(driver, sql_type, value, kind, text):
    assert taken(driver, DEFAULT, value, sql_type=sql_type, size=2) == (kind, text)


@pytest.mark.parametrize("sql_type, state", [(SQL_VARCHAR, "HY090"), (SQL_WVARCHAR, "HY090"), (SQL_BINARY, "HY090")])
def test_a_negative_length_is_refused_for_the_default_C_type_as_well(driver, sql_type, state):
    assert refused(driver, DEFAULT, b"12345678", -7, sql_type=sql_type) == state


def test_the_length_of_a_number_does_not_matter(driver):
    assert taken(driver, SLONG, struct.pack("i", 7), -7) == ("integer", "7")


@pytest.mark.parametrize("c_type", [NUMERIC, 101, 12345])
def test_a_C_type_that_is_not_served_is_HYC00(driver, c_type):
    assert refused(driver, c_type, bytes(40)) == "HYC00"


def test_a_value_that_comes_during_the_execution_is_HYC00_whatever_its_type(driver):
    assert refused(driver, SLONG, b"1234", DATA_AT_EXEC) == "HYC00"


def test_a_value_larger_than_100_megabytes_is_22003(driver):
    assert refused(driver, BINARY, bytes(100000001), 100000001) == "22003"


def test_a_parameter_before_the_last_may_not_be_left_out(driver):
    bind(driver, 2, CHAR, b"x\0")
    assert driver.call("SQLExecDirect", driver.stmt, b"select ?, ?", SQL_NTS) == SQL_ERROR
    assert driver.state(SQL_HANDLE_STMT, driver.stmt) == "07002"
    bind(driver, 1, CHAR, b"w\0")
    driver.fetched("select ?, ?")
    assert (text_at(driver, 1), text_at(driver, 2)) == ("w", "x")


def test_a_value_is_read_when_the_statement_is_executed(driver):
    number = ctypes.c_int(1)
    assert driver.call("SQLBindParameter", driver.stmt, 1, INPUT, SLONG, SQL_INTEGER, length(0), 0, ctypes.byref(number),
                       length(0), NULL) == SQL_SUCCESS
    assert driver.call("SQLPrepare", driver.stmt, b"select ?", SQL_NTS) == SQL_SUCCESS
    for number.value in (5, 6):
        assert driver.call("SQLExecute", driver.stmt) == SQL_SUCCESS and driver.call("SQLFetch", driver.stmt) == SQL_SUCCESS
        assert text_at(driver, 1) == str(number.value)
        driver.call("SQLCloseCursor", driver.stmt)


@pytest.mark.parametrize("number, direction, state", [(0, INPUT, "07009"), (1, OUTPUT, "HYC00"), (1, INPUT_OUTPUT, "HYC00")])
def test_parameters_are_counted_from_1_and_only_go_in(driver, number, direction, state):
    assert driver.call("SQLBindParameter", driver.stmt, number, direction, CHAR, SQL_VARCHAR, length(1), 0, b"x", length(1),
                       NULL) == SQL_ERROR
    assert driver.state(SQL_HANDLE_STMT, driver.stmt) == state


@pytest.mark.parametrize("statement, count", [("select 1", 0), ("select ?, '?', ? -- ?", 2), ("select ?3", 3)])
def test_the_parameters_of_a_prepared_statement_are_counted(driver, statement, count):
    told = short(-1)
    assert driver.call("SQLPrepare", driver.stmt, statement.encode(), SQL_NTS) == SQL_SUCCESS
    assert driver.call("SQLNumParams", driver.stmt, ctypes.byref(told)) == SQL_SUCCESS
    assert told.value == count


def test_a_parameter_is_described_as_a_text_that_may_be_null_or_not(driver):
    c_type, digits, nullable, size = short(-1), short(-1), short(-1), length(-1)
    driver.call("SQLPrepare", driver.stmt, b"select ?, ?", SQL_NTS)
    for number in (1, 2):
        assert driver.call("SQLDescribeParam", driver.stmt, number, ctypes.byref(c_type), ctypes.byref(size),
                           ctypes.byref(digits), ctypes.byref(nullable)) == SQL_SUCCESS
        assert (c_type.value, size.value, digits.value, nullable.value) == (SQL_VARCHAR, 255, 0, 2)
    assert driver.call("SQLDescribeParam", driver.stmt, 1, NULL, NULL, NULL, NULL) == SQL_SUCCESS


@pytest.mark.parametrize("number", [0, 3])
def test_a_parameter_that_is_not_there_is_07009(driver, number):
    driver.call("SQLPrepare", driver.stmt, b"select ?, ?", SQL_NTS)
    assert driver.call("SQLDescribeParam", driver.stmt, number, NULL, NULL, NULL, NULL) == SQL_ERROR
    assert driver.state(SQL_HANDLE_STMT, driver.stmt) == "07009"
