"""Columns as the driver describes them."""
import ctypes

import pytest

from direct_driver import NULL, length, short
from narrow_odbc import SQL_HANDLE_STMT

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
