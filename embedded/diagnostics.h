// Diagnostic records of a handle. Record 1 always carries the message of what went wrong last.
#pragma once

#include <sql.h>
#include <sqlext.h>

#include <string>
#include <string_view>
#include <vector>

struct sqlite3;

struct Diagnostic {
    std::string state, message;     // message: with the origin in brackets in front
    SQLINTEGER native;
};

using Diagnostics = std::vector<Diagnostic>;

// Adds a record and returns SQL_ERROR.
SQLRETURN fail(Diagnostics &diagnostics, std::string_view state, std::string_view message, int native = 0);

// Adds a record and returns SQL_SUCCESS_WITH_INFO.
SQLRETURN warn(Diagnostics &diagnostics, std::string_view state, std::string_view message);

// Adds a record for SQLite's last failure on `database` and returns SQL_ERROR.
SQLRETURN fail_with_sqlite(Diagnostics &diagnostics, sqlite3 *database);

// The SQLSTATE of an extended SQLite result code and its message.
std::string_view state_of(int code, std::string_view message);

// Copies `text` and a NUL into `buffer` of `size` bytes, cut where it is too long, and stores the whole length, the NUL
// not counted, through `length`; null pointers are allowed. True when it was not cut.
bool copy_out(std::string_view text, SQLCHAR *buffer, SQLLEN size, SQLSMALLINT *length);
