"""Attributes and information as the driver itself serves them."""
import ctypes

import pytest

from direct_driver import NULL, length, pointer, short
from narrow_odbc import SQL_HANDLE_DBC, SQL_HANDLE_ENV, SQL_HANDLE_STMT

KIND_OF = {"Env": SQL_HANDLE_ENV, "Connect": SQL_HANDLE_DBC, "Stmt": SQL_HANDLE_STMT}

ODBC_VERSION, OUTPUT_NTS = 200, 10001
ACCESS_MODE, AUTOCOMMIT, LOGIN_TIMEOUT, TXN_ISOLATION, CURRENT_CATALOG = 101, 102, 103, 108, 109
ODBC_CURSORS, QUIET_MODE, CONNECTION_TIMEOUT, CONNECTION_DEAD = 110, 111, 113, 1209
QUERY_TIMEOUT, MAX_ROWS, NOSCAN, MAX_LENGTH, METADATA_ID = 0, 1, 2, 3, 10014
ROW_NUMBER, ROW_STATUS_PTR, ROWS_FETCHED_PTR = 14, 25, 26
DESCRIPTORS = range(10010, 10014)
UNKNOWN = 9999

# attribute: its only value
FIXED = {6: 0, 7: 1, -1: 0, -2: 1, 27: 1, 9: 1, 22: 1, 5: 0, 18: 0, 12: 0, 4: 0, 11: 1, 15: 0}


def set_attribute(driver, level, attribute, value):
    return driver.call(f"SQLSet{level}Attr", driver.handle(KIND_OF[level]), attribute, pointer(value), 0)


def attribute_of(driver, level, attribute):
    """What the driver gives, and the bytes of the room behind a number that stay as they were."""
    room = ctypes.create_string_buffer(b"#" * 16, 16)
    assert driver.call(f"SQLGet{level}Attr", driver.handle(KIND_OF[level]), attribute, room, 16, NULL) == 0
    size = 8 if level == "Stmt" else 4
    assert room.raw[size:] == b"#" * (16 - size)
    return int.from_bytes(room.raw[:size], "little")


@pytest.mark.parametrize("level, attribute, value", [
    ("Env", ODBC_VERSION, 2), ("Env", OUTPUT_NTS, 1), ("Connect", AUTOCOMMIT, 0), ("Connect", AUTOCOMMIT, 1),
    ("Connect", LOGIN_TIMEOUT, 7), ("Connect", ACCESS_MODE, 1), ("Connect", TXN_ISOLATION, 2),
    ("Stmt", QUERY_TIMEOUT, 9), ("Stmt", MAX_ROWS, 2), ("Stmt", NOSCAN, 1), ("Stmt", MAX_LENGTH, 100),
    ("Stmt", METADATA_ID, 1), ("Stmt", ROWS_FETCHED_PTR, 0), ("Stmt", ROW_STATUS_PTR, 0),
    *(("Stmt", attribute, value) for attribute, value in FIXED.items()),
])
def test_an_attribute_has_the_value_that_was_set(driver, level, attribute, value):
    assert set_attribute(driver, level, attribute, value) == 0
    assert attribute_of(driver, level, attribute) == value


@pytest.mark.parametrize("attribute", [CONNECTION_TIMEOUT, QUIET_MODE, ODBC_CURSORS])
def test_a_connection_attribute_of_no_effect_is_taken(driver, attribute):
    assert set_attribute(driver, "Connect", attribute, 5) == 0


@pytest.mark.parametrize("level, attribute, value", [
    ("Env", UNKNOWN, 1), ("Env", OUTPUT_NTS, 0), ("Connect", UNKNOWN, 1), ("Connect", TXN_ISOLATION, 8),
    ("Stmt", UNKNOWN, 1), *(("Stmt", attribute, value + 1) for attribute, value in FIXED.items()),
])
def test_an_attribute_or_value_that_is_not_served_is_HYC00(driver, level, attribute, value):
    assert set_attribute(driver, level, attribute, value) == -1
    assert driver.state(KIND_OF[level], driver.handle(KIND_OF[level])) == "HYC00"


@pytest.mark.parametrize("level", KIND_OF)
def test_an_unknown_attribute_cannot_be_read(driver, level):
    room = ctypes.create_string_buffer(16)
    handle = driver.handle(KIND_OF[level])
    assert driver.call(f"SQLGet{level}Attr", handle, UNKNOWN, room, 16, NULL) == -1
    assert driver.state(KIND_OF[level], handle) == "HYC00"


def test_a_connection_is_alive_waits_for_ever_and_commits_by_itself(driver):
    assert [attribute_of(driver, "Connect", attribute) for attribute in (CONNECTION_DEAD, CONNECTION_TIMEOUT, AUTOCOMMIT)] \
        == [0, 0, 1]


@pytest.mark.parametrize("wide, character", [("", 1), ("W", 2)])
def test_the_current_catalog_has_no_name(driver, wide, character):
    room, told = ctypes.create_string_buffer(b"####", 4), ctypes.c_int(9)
    function = f"SQLGetConnectAttr{wide}"
    assert driver.call(function, driver.dbc, CURRENT_CATALOG, room, 4, ctypes.byref(told)) == 0
    assert (room.raw, told.value) == (b"\0" * character + b"#" * (4 - character), 0)
    assert driver.call(function, driver.dbc, CURRENT_CATALOG, room, 4, NULL) == 0


@pytest.mark.parametrize("size", [0, 1])
def test_the_wide_name_of_the_current_catalog_keeps_to_its_room(driver, size):
    room = ctypes.create_string_buffer(b"####", 4)
    driver.call("SQLGetConnectAttrW", driver.dbc, CURRENT_CATALOG, room, size, NULL)
    assert room.raw == b"####"


def test_the_wide_calls_serve_the_same_connection_attributes(driver):
    assert driver.call("SQLSetConnectAttrW", driver.dbc, LOGIN_TIMEOUT, pointer(7), 0) == 0
    room = ctypes.c_uint()
    assert driver.call("SQLGetConnectAttrW", driver.dbc, LOGIN_TIMEOUT, ctypes.byref(room), 0, NULL) == 0
    assert room.value == 7


def test_a_statement_has_four_descriptors(driver):
    descriptors = [attribute_of(driver, "Stmt", attribute) for attribute in DESCRIPTORS]
    assert len(set(descriptors)) == 4 and 0 not in descriptors


def test_the_row_number_counts_fetched_rows(driver):
    driver.execute("select 1 union select 2")
    numbers = []
    for _ in range(2):
        driver.call("SQLFetch", driver.stmt)
        numbers.append(attribute_of(driver, "Stmt", ROW_NUMBER))
    assert numbers == [1, 2]


# Information

TEXTS = {2: "", 13: "", 17: "NORDVALE_ISAM", 29: '"', 47: "admin"}
SHORTS = {35: 128, 46: 2}
LONGS = {105: 0, 92: 0x15, 53: 0, 71: 0}


def info(driver, kind, size, wide=""):
    room, told = ctypes.create_string_buffer(b"#" * 300, 300), short(-1)
    result = driver.call(f"SQLGetInfo{wide}", driver.dbc, kind, room, size, ctypes.byref(told))
    return result, room.raw, told.value


@pytest.mark.parametrize("kind, text", TEXTS.items())
def test_an_information_is_given_as_text(driver, kind, text):
    assert info(driver, kind, 300) == (0, text.encode() + b"\0" + b"#" * (299 - len(text)), len(text))


@pytest.mark.parametrize("kind, text", TEXTS.items())
def test_an_information_is_given_as_wide_text_whose_length_is_in_bytes(driver, kind, text):
    wide = text.encode("utf-16-le")
    assert info(driver, kind, 300, "W") == (0, wide + b"\0\0" + b"#" * (298 - len(wide)), len(wide))


def test_the_database_is_the_file(driver, source):
    assert info(driver, 16, 300)[1].split(b"\0")[0].decode() == str(source.database)


@pytest.mark.parametrize("wide", ["", "W"])
@pytest.mark.parametrize("kinds, size", [(SHORTS, 2), (LONGS, 4)])
def test_an_information_is_given_as_a_number_of_its_size(driver, wide, kinds, size):
    for kind, number in kinds.items():
        result, room, told = info(driver, kind, 0, wide)
        assert (result, told, room[size:]) == (0, size, b"#" * (300 - size)), kind
        if number:
            assert int.from_bytes(room[:size], "little") == number, kind


@pytest.mark.parametrize("wide, size, given", [("", 4, b"NOR\0"), ("W", 8, "NOR\0".encode("utf-16-le"))])
def test_an_information_longer_than_its_room_is_cut(driver, wide, size, given):
    assert info(driver, 17, size, wide)[:2] == (1, given + b"#" * (300 - size))
    assert driver.state(SQL_HANDLE_DBC, driver.dbc) == "01004"


@pytest.mark.parametrize("wide", ["", "W"])
def test_the_length_of_an_information_can_be_asked_for_alone(driver, wide):
    told = short()
    assert driver.call(f"SQLGetInfo{wide}", driver.dbc, 17, NULL, 0, ctypes.byref(told)) == 0
    assert told.value == 13 * (2 if wide else 1)
    assert driver.call("SQLGetInfo", driver.dbc, 35, NULL, 0, NULL) == 0


@pytest.mark.parametrize("wide", ["", "W"])
def test_an_unknown_information_is_HY096(driver, wide):
    assert info(driver, UNKNOWN, 300, wide)[0] == -1
    assert driver.state(SQL_HANDLE_DBC, driver.dbc) == "HY096"


ALLOC_HANDLE, FETCH, PROCEDURES, TABLES = 1001, 13, 67, 54


def test_all_functions_are_told_in_a_bitmap(driver):
    bits = (ctypes.c_ushort * 251)(*[7] * 251)
    assert driver.call("SQLGetFunctions", driver.dbc, 999, bits) == 0
    assert (bits[249], bits[250]) == (0, 7)
    told = [function for function in (ALLOC_HANDLE, FETCH, PROCEDURES, TABLES) if bits[function >> 4] >> (function & 15) & 1]
    assert told == [ALLOC_HANDLE, FETCH, TABLES]


def test_the_first_hundred_functions_are_told_in_an_array(driver):
    told = (ctypes.c_ushort * 101)(*[7] * 101)
    assert driver.call("SQLGetFunctions", driver.dbc, 0, told) == 0
    assert (told[FETCH], told[PROCEDURES], told[TABLES], told[100]) == (1, 0, 1, 7)


@pytest.mark.parametrize("function, supported", [(ALLOC_HANDLE, 1), (PROCEDURES, 0)])
def test_one_function_can_be_asked_for(driver, function, supported):
    told = ctypes.c_ushort(7)
    assert driver.call("SQLGetFunctions", driver.dbc, function, ctypes.byref(told)) == 0
    assert told.value == supported


# Handles

def test_a_descriptor_of_ones_own_is_HYC00(driver):
    handle = pointer()
    assert driver.call("SQLAllocHandle", short(4), driver.dbc, ctypes.byref(handle)) == -1
    assert (handle.value, driver.state(SQL_HANDLE_DBC, driver.dbc)) == (None, "HYC00")
    assert driver.call("SQLFreeHandle", short(4), driver.dbc) == -1


def test_a_statement_needs_an_open_connection(driver):
    dbc, handle = driver.allocate(SQL_HANDLE_DBC, driver.env), pointer()
    assert driver.call("SQLAllocHandle", short(SQL_HANDLE_STMT), dbc, ctypes.byref(handle)) == -1
    assert driver.state(SQL_HANDLE_DBC, dbc) == "08003"
    driver.call("SQLFreeHandle", short(SQL_HANDLE_DBC), dbc)


def test_transactions_are_not_ended_for_a_whole_environment(driver):
    assert driver.call("SQLEndTran", short(SQL_HANDLE_ENV), driver.env, short(0)) == -1
    assert driver.state(SQL_HANDLE_ENV, driver.env) == "HYC00"


CLOSE, DROP, UNBIND, RESET_PARAMS = range(4)


def test_a_statement_is_closed_unbound_and_dropped(driver):
    number, indicator = ctypes.c_int(0), length()
    driver.call("SQLBindCol", driver.stmt, 1, short(-16), ctypes.byref(number), length(4), ctypes.byref(indicator))
    driver.execute("select 1")
    assert driver.call("SQLFreeStmt", driver.stmt, UNBIND) == 0
    assert driver.call("SQLFetch", driver.stmt) == 0 and number.value == 0
    assert driver.call("SQLFreeStmt", driver.stmt, CLOSE) == 0
    assert driver.call("SQLFetch", driver.stmt) == -1
    assert driver.call("SQLFreeStmt", driver.stmt, DROP) == 0
    assert driver.call("SQLDisconnect", driver.dbc) == 0


def test_parameters_are_reset(driver):
    value = ctypes.c_int(1)
    driver.call("SQLBindParameter", driver.stmt, 1, 1, -16, 4, length(0), 0, ctypes.byref(value), length(4), NULL)
    driver.execute("select ?")
    assert driver.call("SQLFreeStmt", driver.stmt, RESET_PARAMS) == 0
    assert driver.call("SQLExecDirect", driver.stmt, b"select ?", 8) == -1
    assert driver.state(SQL_HANDLE_STMT, driver.stmt) == "07002"


def test_an_unknown_way_to_free_a_statement_is_HY092(driver):
    assert driver.call("SQLFreeStmt", driver.stmt, 9) == -1
    assert driver.state(SQL_HANDLE_STMT, driver.stmt) == "HY092"
