"""Diagnostic records and their fields as the driver itself gives them."""
import ctypes

import pytest

from direct_driver import NULL, short
from narrow_odbc import SQL_HANDLE_DBC, SQL_HANDLE_ENV, SQL_HANDLE_STMT
from narrow_odbc import SQL_ERROR, SQL_NO_DATA, SQL_SUCCESS, SQL_SUCCESS_WITH_INFO

CONSTRAINT_PRIMARYKEY = 1555
INVALID_HANDLE, DESCRIPTOR, ROOM = -2, 4, 200
RETURNCODE, NUMBER, ROW_COUNT, SQLSTATE, NATIVE, MESSAGE_TEXT = 1, 2, 3, 4, 5, 6
DYNAMIC_FUNCTION, CLASS_ORIGIN, SUBCLASS_ORIGIN, CONNECTION_NAME, SERVER_NAME, ROW_NUMBER = 7, 8, 9, 10, 11, -1248

MESSAGE = "[NORDVALE][ISAM]There is no table größe€"
TEXTS = {SQLSTATE: "42S02", MESSAGE_TEXT: MESSAGE, CLASS_ORIGIN: "ODBC 3.0", SUBCLASS_ORIGIN: "ODBC 3.0",
         CONNECTION_NAME: "", SERVER_NAME: ""}
ENCODINGS = {"": "utf-8", "W": "utf-16-le"}


@pytest.fixture
def failed(driver):
    """The statement has one record: a table that is not there."""
    text = "select * from größe€".encode()
    assert driver.call("SQLExecDirect", driver.stmt, text, len(text)) == SQL_ERROR
    return driver


def field(driver, number, identifier, size=ROOM, wide="", kind=SQL_HANDLE_STMT, room=True):
    """Result code, what stands in the room, and the length that was told."""
    value, told = ctypes.create_string_buffer(b"#" * ROOM, ROOM), short(-7)
    result = driver.call(f"SQLGetDiagField{wide}", short(kind), driver.handle(kind), short(number), short(identifier),
                         value if room else NULL, short(size), ctypes.byref(told))
    return result, value.raw, told.value


def record(driver, number, size=ROOM, wide=""):
    state, message = (ctypes.create_string_buffer(b"#" * ROOM, ROOM) for _ in range(2))
    native, told = ctypes.c_int(-7), short(-7)
    result = driver.call(f"SQLGetDiagRec{wide}", short(SQL_HANDLE_STMT), driver.stmt, short(number), state,
                         ctypes.byref(native), message, short(size), ctypes.byref(told))
    return result, state.raw, native.value, message.raw, told.value


def filled(given):
    return given + b"#" * (ROOM - len(given))


def terminated(text, wide):
    return (text + "\0").encode(ENCODINGS[wide])


# Records

@pytest.mark.parametrize("wide", ["", "W"])
def test_a_record_holds_state_native_code_and_message(failed, wide):
    told = len(MESSAGE.encode()) if not wide else len(MESSAGE)
    assert record(failed, 1, 100, wide) == (SQL_SUCCESS, filled(terminated("42S02", wide)), 0,
                                            filled(terminated(MESSAGE, wide)), told)


@pytest.mark.parametrize("wide", ["", "W"])
@pytest.mark.parametrize("number, size, result", [(2, ROOM, SQL_NO_DATA), (32767, ROOM, SQL_NO_DATA), (0, ROOM, SQL_ERROR),
                                                  (-1, ROOM, SQL_ERROR)])
def test_a_record_that_is_not_there_changes_nothing(failed, wide, number, size, result):
    assert record(failed, number, size, wide) == (result, filled(b""), -7, filled(b""), -7)


def test_a_room_of_negative_size_is_an_error(failed):
    assert record(failed, 1, -1)[0] == SQL_ERROR


@pytest.mark.parametrize("size, result, given", [
    (0, SQL_SUCCESS_WITH_INFO, None), (1, SQL_SUCCESS_WITH_INFO, ""), (5, SQL_SUCCESS_WITH_INFO, MESSAGE[:4]),
    (len(MESSAGE), SQL_SUCCESS_WITH_INFO, MESSAGE[:-1]), (len(MESSAGE) + 1, SQL_SUCCESS, MESSAGE)])
def test_a_wide_message_is_cut_to_its_room_of_characters(failed, size, result, given):
    given = b"" if given is None else terminated(given, "W")
    assert record(failed, 1, size, "W")[::3] == (result, filled(given)), size


@pytest.mark.parametrize("size, result", [(0, SQL_SUCCESS_WITH_INFO), (1, SQL_SUCCESS_WITH_INFO), (17, SQL_SUCCESS_WITH_INFO),
                                          (len(MESSAGE.encode()), SQL_SUCCESS_WITH_INFO),
                                          (len(MESSAGE.encode()) + 1, SQL_SUCCESS)])
def test_a_message_is_cut_to_its_room_of_bytes(failed, size, result):
    given = MESSAGE.encode()[:size - 1] + b"\0" if size else b""
    assert record(failed, 1, size)[::3] == (result, filled(given))


@pytest.mark.parametrize("wide", ["", "W"])
def test_every_part_of_a_record_may_be_left_out(failed, wide):
    assert failed.call(f"SQLGetDiagRec{wide}", short(SQL_HANDLE_STMT), failed.stmt, short(1), NULL, NULL, NULL, short(0),
                       NULL) == SQL_SUCCESS


@pytest.mark.parametrize("wide", ["", "W"])
def test_no_handle_has_no_records(failed, wide):
    arguments = short(SQL_HANDLE_STMT), NULL, short(1)
    assert failed.call(f"SQLGetDiagRec{wide}", *arguments, NULL, NULL, NULL, short(0), NULL) == INVALID_HANDLE
    assert failed.call(f"SQLGetDiagField{wide}", *arguments, short(SQLSTATE), NULL, short(0), NULL) == INVALID_HANDLE


def test_a_descriptor_has_no_records(failed):
    assert failed.call("SQLGetDiagRec", short(DESCRIPTOR), failed.stmt, short(1), NULL, NULL, NULL, short(0),
                       NULL) == SQL_NO_DATA
    assert failed.call("SQLGetDiagField", short(DESCRIPTOR), failed.stmt, short(1), short(SQLSTATE), NULL, short(0),
                       NULL) == INVALID_HANDLE


def test_the_next_call_forgets_the_records(failed):
    failed.execute("select 1")
    assert record(failed, 1)[0] == SQL_NO_DATA


# Fields

@pytest.mark.parametrize("wide", ["", "W"])
@pytest.mark.parametrize("identifier, text", TEXTS.items())
def test_a_text_field_has_its_length_in_bytes(failed, wide, identifier, text):
    given = terminated(text, wide)
    assert field(failed, 1, identifier, wide=wide) == (SQL_SUCCESS, filled(given), len(given) - (2 if wide else 1))


@pytest.mark.parametrize("wide, size, given", [("", 4, b"[NO\0"), ("W", 8, terminated("[NO", "W")),
                                               ("W", 9, terminated("[NO", "W")), ("", 0, b""), ("W", 1, b"")])
def test_a_text_field_is_cut_to_its_room(failed, wide, size, given):
    assert field(failed, 1, MESSAGE_TEXT, size, wide) == (SQL_SUCCESS_WITH_INFO, filled(given),
                                                          len(MESSAGE.encode(ENCODINGS[wide])))


@pytest.mark.parametrize("wide", ["", "W"])
def test_the_length_of_a_text_field_can_be_asked_for_alone(failed, wide):
    assert field(failed, 1, SQLSTATE, 0, wide, room=False) == (SQL_SUCCESS, filled(b""), len("42S02".encode(ENCODINGS[wide])))


@pytest.mark.parametrize("wide", ["", "W"])
def test_a_text_field_is_given_without_its_length(failed, wide):
    value = ctypes.create_string_buffer(b"#" * ROOM, ROOM)
    assert failed.call(f"SQLGetDiagField{wide}", short(SQL_HANDLE_STMT), failed.stmt, short(1), short(SQLSTATE), value,
                       short(ROOM), NULL) == SQL_SUCCESS
    assert value.raw == filled(terminated("42S02", wide))


@pytest.mark.parametrize("wide", ["", "W"])
def test_the_native_code_is_SQLites(driver, wide):
    driver.execute("create table T (a integer primary key)")
    driver.execute("insert into T values (1)")
    assert driver.call("SQLExecDirect", driver.stmt, b"insert into T values (1)", -3) == SQL_ERROR
    assert field(driver, 1, NATIVE, 0, wide)[:2] == (SQL_SUCCESS, filled(CONSTRAINT_PRIMARYKEY.to_bytes(4, "little")))
    assert driver.state(SQL_HANDLE_STMT, driver.stmt) == "23000"


@pytest.mark.parametrize("wide", ["", "W"])
@pytest.mark.parametrize("identifier", [*TEXTS, NATIVE])
@pytest.mark.parametrize("number, result", [(0, SQL_ERROR), (-1, SQL_ERROR), (2, SQL_NO_DATA)])
def test_a_field_of_a_record_that_is_not_there_changes_nothing(failed, wide, identifier, number, result):
    assert field(failed, number, identifier, wide=wide) == (result, filled(b""), -7)


@pytest.mark.parametrize("wide", ["", "W"])
@pytest.mark.parametrize("identifier", [DYNAMIC_FUNCTION, ROW_NUMBER, 9999])
def test_a_field_that_is_not_served_is_an_error(failed, wide, identifier):
    assert field(failed, 1, identifier, wide=wide)[:2] == (SQL_ERROR, filled(b""))


@pytest.mark.parametrize("identifier", [NATIVE, NUMBER, RETURNCODE, ROW_COUNT])
def test_a_number_without_room_is_an_error(failed, identifier):
    assert field(failed, 1, identifier, room=False)[0] == SQL_ERROR


@pytest.mark.parametrize("wide", ["", "W"])
@pytest.mark.parametrize("kind", [SQL_HANDLE_ENV, SQL_HANDLE_DBC, SQL_HANDLE_STMT])
def test_the_header_counts_the_records_of_its_handle(failed, wide, kind):
    count = 1 if kind == SQL_HANDLE_STMT else 0
    assert field(failed, 0, NUMBER, 0, wide, kind)[:2] == (SQL_SUCCESS, filled(count.to_bytes(4, "little")))


def returned(driver, kind):
    result, value, _ = field(driver, 0, RETURNCODE, kind=kind)
    assert result == SQL_SUCCESS and value[2:] == filled(b"")[2:]
    return int.from_bytes(value[:2], "little", signed=True)


def test_the_header_tells_what_the_last_call_returned(failed):
    assert returned(failed, SQL_HANDLE_STMT) == SQL_ERROR
    assert failed.call("SQLExecDirect", failed.stmt, b"select ?", -3) == SQL_ERROR
    assert (failed.state(SQL_HANDLE_STMT, failed.stmt), returned(failed, SQL_HANDLE_STMT)) == ("07002", SQL_ERROR)
    assert returned(failed, SQL_HANDLE_DBC) == SQL_SUCCESS
    room = ctypes.create_string_buffer(3)
    assert failed.call("SQLGetInfo", failed.dbc, 17, room, short(3), NULL) == SQL_SUCCESS_WITH_INFO
    assert returned(failed, SQL_HANDLE_DBC) == SQL_SUCCESS_WITH_INFO


@pytest.mark.parametrize("wide", ["", "W"])
def test_the_header_of_a_statement_counts_the_rows_that_it_changed(driver, wide):
    for statement in ("create table T (a)", "insert into T values (1), (2), (3)", "delete from T where a > 1"):
        driver.execute(statement)
    assert field(driver, 0, ROW_COUNT, 0, wide)[:2] == (SQL_SUCCESS, filled((2).to_bytes(8, "little")))


def test_a_statement_that_failed_has_no_count_of_rows(failed):
    assert field(failed, 0, ROW_COUNT)[:2] == (SQL_SUCCESS, filled((-1).to_bytes(8, "little", signed=True)))


@pytest.mark.parametrize("kind", [SQL_HANDLE_ENV, SQL_HANDLE_DBC])
def test_only_statements_count_rows(driver, kind):
    assert field(driver, 0, ROW_COUNT, kind=kind) == (SQL_ERROR, filled(b""), -7)


# States

@pytest.mark.parametrize("statement, state", [
    ("selec 1", "42000"), ("select (1", "42000"), ("select 1 from", "42000"), ("select @", "42000"),
    ("select missing from T", "42S22"), ("insert into T (missing) values (1)", "42S22"), ("select * from nothing", "42S02"),
    ("create table T (a)", "42S01"), ("select a from T x, T y", "42000"), ("select nothing(1)", "42000"),
    ("insert into T values (1)", "23000"), ("insert into T values ('x')", "22018"), ("select length(zeroblob(100000001))", "22001"),
    ("select abs(-9223372036854775808)", "42000"),
])
def test_a_failure_has_its_state(driver, statement, state):
    driver.execute("create table T (a integer not null primary key)")
    driver.execute("insert into T values (1)")
    assert driver.call("SQLExecDirect", driver.stmt, statement.encode(), -3) == SQL_ERROR
    assert driver.state(SQL_HANDLE_STMT, driver.stmt) == state


def test_a_damaged_file_fails_with_a_general_error(driver, source):
    driver.execute("create table T (a)")
    driver.execute("insert into T values (randomblob(60000))")
    driver.call("SQLFreeHandle", short(SQL_HANDLE_STMT), driver.stmt)
    driver.call("SQLDisconnect", driver.dbc)
    file = bytearray(source.database.read_bytes())
    file[12 * 4096:] = bytes(len(file) - 12 * 4096)
    source.database.write_bytes(file)
    string = f"Database={source.database};UID=admin;PWD=secret".encode()
    assert driver.call("SQLDriverConnect", driver.dbc, NULL, string, short(-3), NULL, short(0), NULL, 0) == SQL_SUCCESS
    driver.stmt = driver.allocate(SQL_HANDLE_STMT, driver.dbc)
    assert driver.call("SQLExecDirect", driver.stmt, b"select a from T", -3) == SQL_ERROR
    assert driver.state(SQL_HANDLE_STMT, driver.stmt) == "HY000"


def test_a_long_message_is_told_with_the_longest_length_that_can_be_told(driver):
    statement = b"select * from " + b"x" * 40000
    assert driver.call("SQLExecDirect", driver.stmt, statement, -3) == SQL_ERROR
    assert record(driver, 1)[0::4] == (SQL_SUCCESS_WITH_INFO, 32767)
