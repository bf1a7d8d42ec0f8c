"""The wide entry points of the driver: UTF-16 in and out, whatever the locale."""
import ctypes

import pytest

from direct_driver import NULL, length, short
from narrow_odbc import SQL_ERROR, SQL_HANDLE_DBC, SQL_HANDLE_STMT, SQL_NTS, SQL_SUCCESS, SQL_SUCCESS_WITH_INFO

WCHAR, VARCHAR, BIGINT = -8, 12, -5
NAME = "Größe€😀"        # one to four bytes each in UTF-8, 7 characters in 8 units of UTF-16
ROOM = 200


def wide(text):
    return text.encode("utf-16-le") + b"\0\0"


def filled(given):
    return given + b"#" * (ROOM - len(given))


def room():
    return ctypes.create_string_buffer(b"#" * ROOM, ROOM)


def text_at(driver, column):
    value, told = room(), length()
    assert driver.call("SQLGetData", driver.stmt, column, short(WCHAR), value, length(ROOM), ctypes.byref(told)) == SQL_SUCCESS
    return None if told.value < 0 else value.raw[:told.value].decode("utf-16-le")


def rows(driver, *columns):
    found = []
    while driver.call("SQLFetch", driver.stmt) == SQL_SUCCESS:
        found.append(tuple(text_at(driver, column) for column in columns))
    return found


@pytest.fixture
def named(driver):
    """A table whose catalog, schema, name and first column are all called Größe€😀."""
    driver.execute(f'create table "{NAME}"."{NAME}"."{NAME}" ("{NAME}" varchar(20) primary key, b integer)')
    driver.execute(f'insert into "{NAME}"."{NAME}"."{NAME}" values (\'{NAME}\', 1)')
    return driver


# Texts in

@pytest.mark.parametrize("text, units", [(wide(f"select '{NAME}'"), SQL_NTS), (wide(f"select '{NAME}' behind"), 17)])
@pytest.mark.parametrize("prepared", [False, True])
def test_a_statement_is_taken_to_its_NUL_or_its_length(driver, text, units, prepared):
    if prepared:
        assert driver.call("SQLPrepareW", driver.stmt, text, units) == SQL_SUCCESS
        assert driver.call("SQLExecute", driver.stmt) == SQL_SUCCESS
    else:
        assert driver.call("SQLExecDirectW", driver.stmt, text, units) == SQL_SUCCESS
    assert rows(driver, 1) == [(NAME,)]


@pytest.mark.parametrize("function", ["SQLExecDirectW", "SQLPrepareW"])
@pytest.mark.parametrize("text, units", [(NULL, SQL_NTS), (NULL, 5), (wide("select 1"), 0), (wide("select 1"), -1)])
def test_no_statement_is_42000(driver, function, text, units):
    assert driver.call(function, driver.stmt, text, units) == SQL_ERROR
    assert driver.state(SQL_HANDLE_STMT, driver.stmt) == "42000"


@pytest.mark.parametrize("units", [SQL_NTS, 8])
def test_names_of_tables_columns_keys_and_privileges_are_found(named, units):
    name = wide(NAME)
    arguments = [name, short(units)] * 3
    assert named.call("SQLTablesW", named.stmt, *arguments, wide("TABLE"), short(SQL_NTS)) == SQL_SUCCESS
    assert rows(named, 1, 2, 3, 4) == [(NAME, NAME, NAME, "TABLE")]
    assert named.call("SQLColumnsW", named.stmt, *arguments, name, short(units)) == SQL_SUCCESS
    assert rows(named, 1, 2, 3, 4) == [(NAME,) * 4]
    assert named.call("SQLPrimaryKeysW", named.stmt, *arguments) == SQL_SUCCESS
    assert rows(named, 1, 2, 3, 4, 5) == [(NAME,) * 4 + ("1",)]
    named.execute(f'grant select on "{NAME}"."{NAME}"."{NAME}" to public')
    assert named.call("SQLTablePrivilegesW", named.stmt, *arguments) == SQL_SUCCESS
    assert rows(named, 3, 4, 5, 6) == [(NAME, "admin", "public", "SELECT")]


def test_a_missing_text_finds_everything_and_an_empty_one_nothing(named):
    none, empty = [NULL, short(0)], [wide(""), short(SQL_NTS)]
    assert named.call("SQLTablesW", named.stmt, *none * 4) == SQL_SUCCESS
    assert rows(named, 3) == [(NAME,)]
    assert named.call("SQLTablesW", named.stmt, *none * 2, *empty, *none) == SQL_SUCCESS
    assert rows(named, 3) == []
    assert named.call("SQLColumnsW", named.stmt, *none * 2, wide(NAME), short(8), *none) == SQL_SUCCESS
    assert rows(named, 4) == [(NAME,), ("b",)]


def test_a_type_is_described(driver):
    assert driver.call("SQLGetTypeInfoW", driver.stmt, short(BIGINT)) == SQL_SUCCESS
    assert rows(driver, 1, 2, 4) == [("bigint", "-5", None)]


def test_a_wide_user_logs_in_to_a_data_source(named, source):
    named.execute(f"insert into nordvale.system.user (username, password) values ('{NAME}', '{NAME[::-1]}')")
    dbc = named.allocate(SQL_HANDLE_DBC, named.env)
    log_in = [wide("embedded"), short(SQL_NTS), wide(NAME + "behind"), short(8)]
    assert named.call("SQLConnectW", dbc, *log_in, wide(NAME), short(SQL_NTS)) == SQL_ERROR
    assert named.state(SQL_HANDLE_DBC, dbc) == "28000"
    assert named.call("SQLConnectW", dbc, *log_in, wide(NAME[::-1]), short(SQL_NTS)) == SQL_SUCCESS
    user, told = room(), short()
    assert named.call("SQLGetInfoW", dbc, 47, user, short(ROOM), ctypes.byref(told)) == SQL_SUCCESS
    assert (user.raw, told.value) == (filled(wide(NAME)), 16)
    named.call("SQLDisconnect", dbc)
    named.call("SQLFreeHandle", short(SQL_HANDLE_DBC), dbc)


# Texts out

@pytest.fixture
def dbc(driver):
    dbc = driver.allocate(SQL_HANDLE_DBC, driver.env)
    yield dbc
    driver.call("SQLDisconnect", dbc)
    driver.call("SQLFreeHandle", short(SQL_HANDLE_DBC), dbc)


def completed(driver, dbc, string, size):
    text, told = room(), short(-7)
    result = driver.call("SQLDriverConnectW", dbc, NULL, wide(string), short(SQL_NTS), text, short(size),
                         ctypes.byref(told), 0)
    return result, text.raw, told.value


@pytest.mark.parametrize("size, result, given", [(13, SQL_SUCCESS, wide("DSN=embedded")), (12, SQL_SUCCESS_WITH_INFO, wide("DSN=embedde")),
                                                 (1, SQL_SUCCESS_WITH_INFO, wide("")), (0, SQL_SUCCESS_WITH_INFO, b"")])
def test_the_completed_connection_string_is_cut_to_its_room_of_characters(driver, dbc, size, result, given):
    assert completed(driver, dbc, "DSN=embedded;UID=admin;PWD=secret", size) == (result, filled(given), 12)
    assert driver.state(SQL_HANDLE_DBC, dbc) == ("01004" if result else "")


def test_the_completed_connection_string_may_be_left_out(driver, dbc):
    assert driver.call("SQLDriverConnectW", dbc, NULL, wide("DSN=embedded;UID=admin;PWD=secret"), short(SQL_NTS), NULL,
                       short(0), NULL, 0) == SQL_SUCCESS


def test_a_log_in_that_fails_completes_nothing(driver, dbc):
    assert completed(driver, dbc, "DSN=embedded;UID=admin;PWD=wrong", ROOM) == (SQL_ERROR, filled(b""), -7)
    assert driver.state(SQL_HANDLE_DBC, dbc) == "28000"


def native(driver, statement, size):
    text, told = ctypes.create_string_buffer(b"#" * (2 * size + 2), 2 * size + 2), ctypes.c_int(-7)
    result = driver.call("SQLNativeSqlW", driver.dbc, wide(statement), SQL_NTS, text, size, ctypes.byref(told))
    return result, text.raw, told.value


@pytest.mark.parametrize("size, result", [(29, SQL_SUCCESS), (28, SQL_SUCCESS_WITH_INFO), (1, SQL_SUCCESS_WITH_INFO)])
def test_the_native_statement_is_cut_to_its_room_of_characters(driver, size, result):
    given = f'select * from "..{NAME}" x'.encode("utf-16-le")[:2 * (size - 1)]
    assert native(driver, f'select * from "{NAME}" x', size) == (result, given + b"\0\0##", 28)
    assert driver.state(SQL_HANDLE_DBC, driver.dbc) == ("01004" if result else "")


@pytest.mark.parametrize("count", [10000, 20000, 300000])
def test_a_long_native_statement_is_given_whole(driver, count):
    statement = "select '" + "€" * count + "'"
    assert native(driver, statement, count + 10) == (SQL_SUCCESS, wide(statement) + b"##", count + 9)


def test_a_native_statement_is_given_without_its_length(driver):
    text = room()
    assert driver.call("SQLNativeSqlW", driver.dbc, wide("select 1;"), SQL_NTS, text, ROOM // 2, NULL) == SQL_SUCCESS
    assert text.raw == filled(wide("select 1"))


def test_the_length_of_a_native_statement_can_be_asked_for_alone(driver):
    told = ctypes.c_int()
    assert driver.call("SQLNativeSqlW", driver.dbc, wide("select 1;"), SQL_NTS, NULL, 0, ctypes.byref(told)) == SQL_SUCCESS
    assert told.value == 8


def test_a_statement_that_cannot_be_translated_has_no_native_form(driver):
    assert native(driver, "selec 1", 20) == (SQL_ERROR, b"#" * 42, -7)
    assert driver.state(SQL_HANDLE_DBC, driver.dbc) == "42000"


@pytest.mark.parametrize("size, result, given", [(9, SQL_SUCCESS, NAME), (6, SQL_SUCCESS_WITH_INFO, NAME[:5]), (1, SQL_SUCCESS_WITH_INFO, "")])
def test_a_column_is_described_by_its_name_and_type(named, size, result, given):
    named.execute(f'select * from "{NAME}"."{NAME}"."{NAME}"')
    name, told, kind, digits, nullable, width = room(), *(short(-7) for _ in range(4)), length(-7)
    assert named.call("SQLDescribeColW", named.stmt, 1, name, short(size), *map(ctypes.byref, (told, kind, width, digits, nullable))) \
        == result
    assert (name.raw, told.value, kind.value, width.value, digits.value, nullable.value) == (
        filled(wide(given)), 8, VARCHAR, 20, 0, 2)
    assert named.state(SQL_HANDLE_STMT, named.stmt) == ("01004" if result else "")


def test_a_column_that_is_not_there_is_07009(driver):
    driver.execute("select 1")
    arguments = [NULL, short(0), NULL]
    assert driver.call("SQLDescribeColW", driver.stmt, 2, *arguments, NULL, NULL, NULL, NULL) == SQL_ERROR
    assert driver.state(SQL_HANDLE_STMT, driver.stmt) == "07009"
    assert driver.call("SQLColAttributeW", driver.stmt, 2, LABEL, *arguments, NULL) == SQL_ERROR
    assert driver.state(SQL_HANDLE_STMT, driver.stmt) == "07009"


COLUMN_NAME, TYPE_NAME, TABLE_NAME, SCHEMA_NAME, CATALOG_NAME, LABEL, BASE_COLUMN, BASE_TABLE, PREFIX, SUFFIX, LOCAL_TYPE, NAME_FIELD = (
    1, 14, 15, 16, 17, 18, 22, 23, 27, 28, 29, 1011)
COUNT, DISPLAY_SIZE = 1001, 6


@pytest.mark.parametrize("field, text", [
    (COLUMN_NAME, NAME), (LABEL, NAME), (BASE_COLUMN, NAME), (NAME_FIELD, NAME), (TYPE_NAME, "varchar"), (LOCAL_TYPE, "varchar"),
    (TABLE_NAME, ""), (BASE_TABLE, ""), (SCHEMA_NAME, ""), (CATALOG_NAME, ""), (PREFIX, "'"), (SUFFIX, "'"),
])
def test_a_text_of_a_column_has_its_length_in_bytes(driver, field, text):
    driver.execute(f'select \'x\' as "{NAME}"')
    value, told = room(), short(-7)
    assert driver.call("SQLColAttributeW", driver.stmt, 1, field, value, short(ROOM), ctypes.byref(told), NULL) == SQL_SUCCESS
    assert (value.raw, told.value) == (filled(wide(text)), len(wide(text)) - 2)


@pytest.mark.parametrize("size, given", [(8, "Grö"), (9, "Grö"), (2, "")])
def test_a_text_of_a_column_is_cut_to_its_room_of_bytes(driver, size, given):
    driver.execute(f'select 1 as "{NAME}"')
    value, told = room(), short(-7)
    assert driver.call("SQLColAttributeW", driver.stmt, 1, LABEL, value, short(size), ctypes.byref(told), NULL) \
        == SQL_SUCCESS_WITH_INFO
    assert (value.raw, told.value) == (filled(wide(given)), 16)
    assert driver.state(SQL_HANDLE_STMT, driver.stmt) == "01004"


@pytest.mark.parametrize("field, number", [(COUNT, 2), (DISPLAY_SIZE, 20)])
def test_a_number_of_a_column_is_given_as_it_is(driver, field, number):
    driver.execute("select 1, 2")
    value = length(-7)
    assert driver.call("SQLColAttributeW", driver.stmt, 1, field, NULL, short(0), NULL, ctypes.byref(value)) == SQL_SUCCESS
    assert value.value == number


def test_the_length_of_the_current_catalog_can_be_asked_for_alone(driver):
    told = ctypes.c_int(-7)
    assert driver.call("SQLGetConnectAttrW", driver.dbc, 109, NULL, 4, ctypes.byref(told)) == SQL_SUCCESS
    assert told.value == 0


# Texts that are no characters

@pytest.mark.parametrize("stored, given", [
    ("41", "A"), ("c3a4", "ä"), ("e282ac", "€"), ("f09f9880", "😀"), ("f48fbfbf", "\U0010ffff"), ("efbfbf", "\uffff"),
    ("80", "\ufffd"), ("c3", "\ufffd"), ("c341", "\ufffdA"), ("e282", "\ufffd"), ("f09f98", "\ufffd"), ("ff", "\ufffd"),
    ("f8", "\ufffd"), ("eda080", "\ufffd"), ("edbfbf", "\ufffd"), ("f4908080", "\ufffd"), ("ed9fbf", "\ud7ff"), ("ee8080", "\ue000"),
])
def test_bytes_that_are_no_UTF8_are_replaced(driver, stored, given):
    driver.fetched(f"select cast(x'{stored}' as text)")
    assert text_at(driver, 1) == given
