"""Columns and parameters as the driver describes them, and its diagnostics field by field."""
import ctypes

import pytest

from direct_driver import NULL, length, short
from narrow_odbc import SQL_HANDLE_DBC, SQL_HANDLE_ENV, SQL_HANDLE_STMT

COUNT, UNKNOWN = 1001, 9999


@pytest.fixture
def table(driver):
    """The driver with the open cursor of a table that has a column of each type that a table can have."""
    driver.execute("create table T (b bigint, d double, v varchar(12), x blob)")
    driver.execute("select b, d, v, x from T")
    return driver


def of_each_type(driver, attribute):
    """The attribute of a bigint, a double, a varchar and a varbinary column, and of a smallint and an integer one, which only
    catalog functions give."""
    of_table = [attribute(column) for column in range(1, 5)]
    assert driver.call("SQLColumns", driver.stmt, NULL, short(0), NULL, short(0), b"T", short(1), NULL, short(0)) == 0
    of_catalog = [attribute(column) for column in (5, 7)]
    driver.execute("select b, d, v, x from T")
    return of_table + of_catalog


def number_attribute(driver, column, field, wide=""):
    number = length(-99)
    result = driver.call(f"SQLColAttribute{wide}", driver.stmt, column, field, NULL, short(0), NULL, ctypes.byref(number))
    assert result == 0
    return number.value


def text_attribute(driver, column, field, wide="", size=100):
    """The result, the text's bytes with what stands behind them, and its length in bytes."""
    room, told = ctypes.create_string_buffer(b"#" * 100, 100), short(-1)
    result = driver.call(f"SQLColAttribute{wide}", driver.stmt, column, field, room, short(size), ctypes.byref(told), NULL)
    return result, room.raw.rstrip(b"#"), told.value


#                   bigint double varchar varbinary smallint integer
@pytest.mark.parametrize("fields, numbers", [
    ("2 1002",      [-5,    8,     12,     -3,       5,       4]),
    ("6",           [20,    24,    12,     2,        6,       11]),
    ("3 1013",      [8,     8,     12,     1,        2,       4]),
    ("4 1003 1005", [19,    15,    12,     1,        5,       10]),
    ("5 1006",      [0,     0,     0,      0,        0,       0]),
    ("7 1008",      [2,     2,     2,      2,        2,       2]),
    ("8 12",        [0,     0,     1,      1,        0,       0]),
    ("9 11",        [0,     0,     0,      0,        0,       0]),
    ("13",          [3,     3,     3,      3,        3,       3]),
    ("10",          [2,     2,     2,      2,        2,       2]),
    ("32",          [10,    10,    0,      0,        10,      10]),
    ("1012",        [0,     0,     0,      0,        0,       0]),
])
def test_a_column_has_its_numbers(table, fields, numbers):
    for field in fields.split():
        assert of_each_type(table, lambda column: number_attribute(table, column, int(field))) == numbers, field
        assert number_attribute(table, 1, int(field), "W") == numbers[0], field


@pytest.mark.parametrize("fields, texts", [
    ("1 18 22 1011", ["b", "d", "v", "x", "DATA_TYPE", "COLUMN_SIZE"]),
    ("14 29", ["bigint", "double", "varchar", "varbinary", "smallint", "integer"]),
    ("15 16 17 23", [""] * 6),
    ("27 28", ["", "", "'", "'", "", ""]),
])
def test_a_column_has_its_texts(table, fields, texts):
    for field in fields.split():
        assert of_each_type(table, lambda column: text_attribute(table, column, int(field))) \
            == [(0, text.encode() + b"\0", len(text)) for text in texts]
        wide = texts[0].encode("utf-16-le")
        assert text_attribute(table, 1, int(field), "W") == (0, wide + b"\0\0", len(wide))


@pytest.mark.parametrize("wide, size, given", [("", 4, b"big\0"), ("W", 8, "big\0".encode("utf-16-le"))])
def test_a_column_text_longer_than_its_room_is_cut(table, wide, size, given):
    assert text_attribute(table, 1, 14, wide, size)[:2] == (1, given)
    assert table.state(SQL_HANDLE_STMT, table.stmt) == "01004"


@pytest.mark.parametrize("wide", ["", "W"])
@pytest.mark.parametrize("column, field, state", [(0, 1, "07009"), (5, 1, "07009"), (1, UNKNOWN, "HY091")])
def test_a_column_attribute_that_there_is_not_is_an_error(table, wide, column, field, state):
    assert text_attribute(table, column, field, wide)[0] == -1
    assert table.state(SQL_HANDLE_STMT, table.stmt) == state


@pytest.mark.parametrize("field", [0, COUNT])
def test_the_number_of_columns_needs_no_column(driver, field):
    assert number_attribute(driver, 0, field) == 0
    driver.execute("select 1, 2")
    assert number_attribute(driver, 0, field) == 2
    assert driver.call("SQLColAttribute", driver.stmt, 0, field, NULL, short(0), NULL, NULL) == 0


def test_a_column_without_a_name_says_so(driver):
    driver.execute('select 1 as ""')
    assert number_attribute(driver, 1, 1012) == 1


def test_an_expression_without_rows_is_a_text(driver):
    driver.execute("select 1 + 1 as two where 1 = 0")
    assert (number_attribute(driver, 1, 2), text_attribute(driver, 1, 1)[1]) == (12, b"two\0")


@pytest.mark.parametrize("wide", ["", "W"])
def test_a_column_is_described_without_asking_for_anything(table, wide):
    assert table.call(f"SQLDescribeCol{wide}", table.stmt, 1, NULL, short(0), NULL, NULL, NULL, NULL, NULL) == 0


@pytest.mark.parametrize("wide", ["", "W"])
@pytest.mark.parametrize("column", [0, 5])
def test_a_column_that_there_is_not_cannot_be_described(table, wide, column):
    assert table.call(f"SQLDescribeCol{wide}", table.stmt, column, NULL, short(0), NULL, NULL, NULL, NULL, NULL) == -1
    assert table.state(SQL_HANDLE_STMT, table.stmt) == "07009"


@pytest.mark.parametrize("wide, size, given", [("", 3, b"lo\0"), ("W", 3, "lo\0".encode("utf-16-le"))])
def test_a_column_name_longer_than_its_room_is_cut(driver, wide, size, given):
    driver.execute("select 1 as long_name")
    room, told = ctypes.create_string_buffer(b"#" * 20, 20), short()
    assert driver.call(f"SQLDescribeCol{wide}", driver.stmt, 1, room, short(size), ctypes.byref(told),
                       NULL, NULL, NULL, NULL) == 1
    assert (room.raw.rstrip(b"#"), told.value) == (given, 9)
    assert driver.state(SQL_HANDLE_STMT, driver.stmt) == "01004"


def test_every_parameter_is_described_as_a_text(driver):
    assert driver.call("SQLPrepare", driver.stmt, b"select ?, ?", 11) == 0
    kind, size, digits, nullable = short(), ctypes.c_size_t(), short(9), short()
    assert driver.call("SQLDescribeParam", driver.stmt, 2, *map(ctypes.byref, (kind, size, digits, nullable))) == 0
    assert (kind.value, size.value, digits.value, nullable.value) == (12, 255, 0, 2)
    assert driver.call("SQLDescribeParam", driver.stmt, 1, NULL, NULL, NULL, NULL) == 0


@pytest.mark.parametrize("number", [0, 3])
def test_a_parameter_that_there_is_not_cannot_be_described(driver, number):
    driver.call("SQLPrepare", driver.stmt, b"select ?, ?", 11)
    assert driver.call("SQLDescribeParam", driver.stmt, number, NULL, NULL, NULL, NULL) == -1
    assert driver.state(SQL_HANDLE_STMT, driver.stmt) == "07009"


# Diagnostics

RETURNCODE, NUMBER, ROW_COUNT, SQLSTATE, NATIVE, MESSAGE, CLASS_ORIGIN, SUBCLASS_ORIGIN = 1, 2, 3, 4, 5, 6, 8, 9
CONNECTION_NAME, SERVER_NAME = 10, 11


@pytest.fixture
def failed(driver):
    """The driver with a statement that has failed."""
    assert driver.call("SQLExecDirect", driver.stmt, b"select * from T", 15) == -1
    return driver


def field(driver, number, identifier, wide="", size=100, kind=SQL_HANDLE_STMT):
    room, told = ctypes.create_string_buffer(b"#" * 100, 100), short(-1)
    result = driver.call(f"SQLGetDiagField{wide}", short(kind), driver.handle(kind), short(number), short(identifier),
                         room, short(size), ctypes.byref(told))
    return result, room.raw.rstrip(b"#"), told.value


@pytest.mark.parametrize("wide", ["", "W"])
@pytest.mark.parametrize("identifier, size, value", [(NUMBER, 4, 1), (RETURNCODE, 2, -1), (ROW_COUNT, 8, -1)])
def test_the_head_of_the_diagnostics_tells_numbers(failed, wide, identifier, size, value):
    assert field(failed, 0, identifier, wide)[:2] == (0, value.to_bytes(size, "little", signed=True))


def test_without_diagnostics_the_return_code_is_success(driver):
    assert field(driver, 0, RETURNCODE)[:2] == (0, b"\0\0")
    assert field(driver, 0, NUMBER)[:2] == (0, b"\0\0\0\0")


@pytest.mark.parametrize("identifier, text", [
    (SQLSTATE, "42S02"), (MESSAGE, "[NORDVALE][ISAM]There is no table T"), (CLASS_ORIGIN, "ODBC 3.0"),
    (SUBCLASS_ORIGIN, "ODBC 3.0"), (CONNECTION_NAME, ""), (SERVER_NAME, ""),
])
def test_a_diagnostic_record_has_its_texts(failed, identifier, text):
    assert field(failed, 1, identifier) == (0, text.encode() + b"\0", len(text))
    wide = text.encode("utf-16-le")
    assert field(failed, 1, identifier, "W") == (0, wide + b"\0\0", len(wide))


@pytest.mark.parametrize("wide", ["", "W"])
def test_a_diagnostic_record_has_the_native_code(failed, wide):
    assert field(failed, 1, NATIVE, wide)[:2] == (0, b"\0\0\0\0")


@pytest.mark.parametrize("wide, size, given", [("", 4, b"42S\0"), ("W", 8, "42S\0".encode("utf-16-le"))])
def test_a_diagnostic_text_longer_than_its_room_is_cut(failed, wide, size, given):
    assert field(failed, 1, SQLSTATE, wide, size)[:2] == (1, given)


@pytest.mark.parametrize("wide", ["", "W"])
@pytest.mark.parametrize("number, identifier, result", [(2, SQLSTATE, 100), (0, SQLSTATE, -1), (1, 99, -1)])
def test_a_diagnostic_field_that_there_is_not_is_not_given(failed, wide, number, identifier, result):
    assert field(failed, number, identifier, wide)[0] == result


@pytest.mark.parametrize("kind", [SQL_HANDLE_ENV, SQL_HANDLE_DBC])
def test_only_statements_have_a_row_count(driver, kind):
    assert field(driver, 0, ROW_COUNT, kind=kind)[0] == -1


def test_a_number_without_room_is_not_given(failed):
    for identifier in (NUMBER, NATIVE):
        assert failed.call("SQLGetDiagField", short(3), failed.stmt, short(1), short(identifier), NULL, short(0), NULL) == -1


@pytest.mark.parametrize("kind, handle", [(3, None), (4, "stmt")])
def test_no_handle_or_a_descriptor_has_no_diagnostics(driver, kind, handle):
    handle = getattr(driver, handle) if handle else NULL
    assert driver.call("SQLGetDiagField", short(kind), handle, short(1), short(SQLSTATE), NULL, short(0), NULL) == -2


def test_no_handle_has_no_records(driver):
    assert driver.call("SQLGetDiagRec", short(3), NULL, short(1), NULL, NULL, NULL, short(0), NULL) == -2


def record(driver, number, size, kind=3, wide=""):
    return driver.call(f"SQLGetDiagRec{wide}", short(kind), driver.stmt, short(number), NULL, NULL, NULL, short(size), NULL)


def test_a_record_is_counted_from_1_and_its_room_is_not_negative(failed):
    assert [record(failed, number, size) for number, size in ((0, 0), (1, -1), (2, 0), (1, 0))] == [-1, -1, 100, 0]
    assert record(failed, 2, 0, wide="W") == 100


def test_a_descriptor_has_no_records(failed):
    assert record(failed, 1, 0, kind=4) == 100
