"""Values on their way in and out, through pyodbc and through the narrow calls themselves."""
import ctypes
import datetime
import struct

import pytest

import narrow_odbc
from narrow_odbc import SQL_C_BINARY, SQL_C_CHAR, SQL_C_DOUBLE, SQL_C_SBIGINT, SQL_C_SLONG, SQL_C_STINYINT, SQL_C_WCHAR
from narrow_odbc import SQL_NULL_DATA, odbc


@pytest.fixture
def narrow(source):
    connection = narrow_odbc.Connection("dsn=embedded;uid=admin;pwd=secret")
    assert connection.failure is None
    yield connection
    connection.close()


def fetched(narrow, query):
    statement = narrow.execute(query)
    assert odbc.SQLFetch(statement) == 0
    return statement


VALUES = [0, -1, 2**31, 2**63 - 1, -2**63, 0.5, -1e300, "", "text", "Größe €", "😀", "x" * 5000, "é" * 3000, None, b"\0\1\xff",
          b"", b"\xaa" * 3000]


@pytest.mark.parametrize("value", VALUES, ids=lambda value: repr(value)[:12])
@pytest.mark.parametrize("declared", ["", "integer", "double", "varchar(10)", "blob"])
def test_a_value_comes_back_as_it_went_in(source, declared, value):
    source.execute(f"create table T (a {declared})")
    connection = source.connect()
    connection.execute("insert into T values (?)", value)
    [(returned,)] = connection.execute("select a from T").fetchall()
    connection.close()
    expected = value
    if declared == "varchar(10)" and isinstance(value, (int, float)):
        expected = {0: "0", -1: "-1", 0.5: "0.5", -1e300: "-1.0e+300"}.get(value, str(value))
    if declared == "double" and isinstance(value, int):
        expected = float(value)
    assert returned == expected


def test_times_are_kept_as_iso_texts(source):
    source.execute("create table T (a varchar(30))")
    connection = source.connect()
    for value in (datetime.date(2024, 2, 29), datetime.time(1, 2, 3), datetime.datetime(2024, 2, 29, 1, 2, 3, 500000)):
        connection.execute("insert into T values (?)", value)
    rows = [row[0] for row in connection.execute("select a from T order by rowid")]
    connection.close()
    assert rows == ["2024-02-29", "01:02:03", "2024-02-29 01:02:03.500000"]


def test_columns_of_mixed_values_are_read_as_texts(source):
    source.execute("create table T (a integer)", "insert into T values (1)", "insert into T values ('one')")
    assert source.rows("select a from T") == [("1",), ("one",)]


def test_parameters_take_the_place_of_values_anywhere(staffed):
    assert staffed.rows("select name from shop.stock.item where id = ? and name like ?", 2, "s%") == [("screw",)]


def test_many_rows_go_in_with_executemany(source):
    source.execute("create table T (a integer, b varchar(20))")
    connection = source.connect(autocommit=False)
    connection.cursor().executemany("insert into T values (?, ?)", [(n, f"row {n}") for n in range(500)])
    connection.commit()
    connection.close()
    assert source.rows("select count(*), max(a), max(b) from T") == [(500, 499, "row 99")]


def test_a_missing_parameter_is_an_error(narrow):
    statement = narrow.statement()
    assert odbc.SQLExecDirect(statement, b"select ?", -3) == -1
    assert narrow_odbc.diagnostic(3, statement)[0] == "07002"


def test_changed_rows_are_counted(staffed):
    connection = staffed.connect()
    cursor = connection.cursor()
    assert cursor.execute("update shop.stock.item set name = 'x'").rowcount == 2
    assert cursor.execute("delete from shop.stock.item where id = 7").rowcount == 0
    assert cursor.execute("insert into shop.stock.item values (3, 'y')").rowcount == 1
    connection.close()


def test_column_names_types_and_sizes_are_described(source):
    source.execute("create table T (n integer not null, r double, t varchar(12), b blob)",
                   "insert into T values (1, 2, 'x', x'00')")
    connection = source.connect()
    description = connection.execute("select * from T").description
    connection.close()
    assert [(column[0], column[1]) for column in description] == [("n", int), ("r", float), ("t", str), ("b", bytearray)]
    assert description[2][3] == 12


def test_text_is_read_in_pieces(narrow):
    statement = fetched(narrow, "select 'abcdefgh'")
    assert narrow_odbc.get_data(statement, 1, size=4) == (1, b"abc\0" + b"#" * 8, 8)
    assert narrow_odbc.diagnostic(3, statement)[0] == "01004"
    assert narrow_odbc.get_data(statement, 1, size=4)[::2] == (1, 5)
    result, raw, indicator = narrow_odbc.get_data(statement, 1, size=4)
    assert (result, raw[:3], indicator) == (0, b"gh\0", 2)
    assert narrow_odbc.get_data(statement, 1, size=4)[0] == narrow_odbc.SQL_NO_DATA


@pytest.mark.parametrize("size, result, text", [(7, 1, b"abcdef\0"), (8, 1, b"abcdefg\0"), (9, 0, b"abcdefgh\0"),
                                               (1, 1, b"\0"), (0, 1, b"")])
def test_text_is_cut_to_its_room(narrow, size, result, text):
    statement = fetched(narrow, "select 'abcdefgh'")
    assert narrow_odbc.get_data(statement, 1, size=size) == (result, text + b"#" * (size + 8 - len(text)), 8)


def test_asking_for_the_length_alone_does_not_use_up_the_value(narrow):
    statement = fetched(narrow, "select '', 'ab'")
    for column, length in ((1, 0), (2, 2)):
        assert narrow_odbc.get_data(statement, column, size=0)[::2] == (1, length)
        assert narrow_odbc.get_data(statement, column)[::2] == (0, length)


def test_an_empty_text_has_length_0_and_null_none(narrow):
    statement = fetched(narrow, "select '', null")
    assert narrow_odbc.get_data(statement, 1)[::2] == (0, 0)
    assert narrow_odbc.get_data(statement, 2)[::2] == (0, SQL_NULL_DATA)


def test_wide_text_is_read_in_pieces(narrow):
    statement = fetched(narrow, "select 'äb😀'")
    result, raw, indicator = narrow_odbc.get_data(statement, 1, SQL_C_WCHAR, 7)
    assert (result, raw[:6].decode("utf-16-le"), indicator) == (1, "äb\0", 8)
    result, raw, indicator = narrow_odbc.get_data(statement, 1, SQL_C_WCHAR, 6)
    assert (result, raw[:6].decode("utf-16-le"), indicator) == (0, "😀\0", 4)


def test_bytes_are_read_in_pieces_and_as_hexadecimal_text(narrow):
    statement = fetched(narrow, "select x'00ff10', x'00ff10'")
    assert narrow_odbc.get_data(statement, 1, SQL_C_BINARY, 2)[::2] == (1, 3)
    result, raw, indicator = narrow_odbc.get_data(statement, 1, SQL_C_BINARY, 2)
    assert (result, raw[:1], indicator) == (0, b"\x10", 1)
    assert narrow_odbc.text_of(statement, 2) == "00FF10"


@pytest.mark.parametrize("expression, c_type, form, expected", [
    ("7", SQL_C_SLONG, "i", 7), ("'7'", SQL_C_SLONG, "i", 7), ("9223372036854775807", SQL_C_SBIGINT, "q", 2**63 - 1),
    ("2.5", SQL_C_DOUBLE, "d", 2.5), ("'2.5'", SQL_C_DOUBLE, "d", 2.5), ("3", SQL_C_DOUBLE, "d", 3.0),
])
def test_numbers_are_converted(narrow, expression, c_type, form, expected):
    statement = fetched(narrow, f"select {expression}")
    result, raw, indicator = narrow_odbc.get_data(statement, 1, c_type)
    assert (result, struct.unpack_from(form, raw)[0], indicator) == (0, expected, struct.calcsize(form))


@pytest.mark.parametrize("expression, c_type, state", [
    ("2147483648", SQL_C_SLONG, "22003"), ("-129", SQL_C_STINYINT, "22003"), ("'seven'", SQL_C_SLONG, "22018"),
    ("1e30", SQL_C_SBIGINT, "22003"),
])
def test_numbers_that_do_not_fit_are_refused(narrow, expression, c_type, state):
    statement = fetched(narrow, f"select {expression}")
    assert narrow_odbc.get_data(statement, 1, c_type)[0] == -1
    assert narrow_odbc.diagnostic(3, statement)[0] == state


def test_a_fraction_is_lost_with_a_warning(narrow):
    statement = fetched(narrow, "select 2.5")
    assert narrow_odbc.get_data(statement, 1, SQL_C_SLONG)[0] == 1
    assert narrow_odbc.diagnostic(3, statement)[0] == "01S07"


def test_bound_columns_are_filled_by_each_fetch(narrow):
    narrow.execute("create table T (a integer, b varchar(9))")
    narrow.execute("insert into T values (1, 'one')")
    narrow.execute("insert into T values (2, null)")
    statement = narrow.statement()
    number, text = ctypes.c_int(), ctypes.create_string_buffer(10)
    indicator = ctypes.c_ssize_t()
    odbc.SQLBindCol(statement, 1, SQL_C_SLONG, ctypes.byref(number), 0, None)
    odbc.SQLBindCol(statement, 2, SQL_C_CHAR, text, 10, ctypes.byref(indicator))
    narrow.execute("select * from T order by a", statement)
    assert odbc.SQLFetch(statement) == 0 and (number.value, text.value, indicator.value) == (1, b"one", 3)
    assert odbc.SQLFetch(statement) == 0 and (number.value, indicator.value) == (2, SQL_NULL_DATA)
    assert odbc.SQLFetch(statement) == narrow_odbc.SQL_NO_DATA


def test_closing_a_cursor_that_is_not_open_is_24000(narrow):
    statement = narrow.statement()
    assert odbc.SQLCloseCursor(statement) == -1
    assert narrow_odbc.diagnostic(3, statement)[0] == "24000"
    narrow.execute("select 1", statement)
    assert odbc.SQLCloseCursor(statement) == 0
    assert odbc.SQLCloseCursor(statement) == -1


def test_a_statement_without_cursor_cannot_be_fetched(narrow):
    statement = narrow.execute("create table T (a)")
    assert odbc.SQLFetch(statement) == -1


def test_a_long_message_is_cut_to_the_callers_room(narrow):
    statement = narrow.statement()
    assert odbc.SQLExecDirect(statement, f"select * from {'x' * 600}".encode(), -3) == -1
    state, message = ctypes.create_string_buffer(6), ctypes.create_string_buffer(b"#" * 300, 300)
    length = ctypes.c_short()
    assert odbc.SQLGetDiagRec(3, statement, 1, state, None, message, 255, ctypes.byref(length)) == 1
    assert message.raw[254:256] == b"\0#" and length.value > 600


def test_ten_thousand_rows_are_read(narrow):
    statement = narrow.execute("with recursive n (i) as (select 1 union all select i + 1 from n where i < 10000) "
                               "select i, 'row ' || i from n")
    rows = narrow_odbc.texts(statement, 2)
    assert len(rows) == 10000 and rows[-1] == ("10000", "row 10000")


def test_every_declared_function_is_there_and_no_other(narrow, source):
    import subprocess
    from support.source import DRIVER
    exported = {line.split()[-1] for line in subprocess.run(["nm", "-D", "--defined-only", DRIVER], text=True,
                                                            capture_output=True).stdout.splitlines()}
    numbers = {"SQLTables": 54, "SQLColumns": 40, "SQLStatistics": 53, "SQLTablePrivileges": 70, "SQLFetch": 13,
               "SQLProcedures": 67, "SQLGetData": 43, "SQLForeignKeys": 60, "SQLSetPos": 68, "SQLBulkOperations": 24}
    for name, number in numbers.items():
        supported = ctypes.c_ushort()
        odbc.SQLGetFunctions(narrow.dbc, number, ctypes.byref(supported))
        assert bool(supported.value) == (name in exported), name
    assert all(name.startswith("SQL") for name in exported if not name.startswith("_"))
