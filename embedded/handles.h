// The records behind the ODBC handles. The driver manager hands out our pointers as they are and guards them against
// wrong use, so a handle is simply cast to its record.
#pragma once

#include "authorisation.h"
#include "database.h"
#include "diagnostics.h"
#include "result.h"

#include <sqlite3.h>

#include <atomic>
#include <string>
#include <vector>

// Everything is hidden but the entry points of ODBC.
#define EXPORTED extern "C" __attribute__((visibility("default")))

struct Environment {
    Diagnostics diagnostics;
    SQLINTEGER odbc_version = SQL_OV_ODBC3;
};

struct Statement;

struct Connection {
    Diagnostics diagnostics;
    Environment *environment = nullptr;
    sqlite3 *database = nullptr;        // null: not connected
    OwnStatements own;
    std::string data_source, file;
    std::string user;                   // as nordvale.system.user spells it
    bool administrator = false;
    bool autocommit = true;
    int log = -1;                       // descriptor of the statement log; -1: none
    RootPages root_pages;
    Access access;                      // what the statement that is being compiled or run may do
    std::vector<Statement *> statements;    // freed with the connection's end
    SQLUINTEGER login_timeout = 0, access_mode = SQL_MODE_READ_WRITE;
};

struct Parameter {
    SQLSMALLINT value_type = 0, parameter_type = 0;
    SQLULEN column_size = 0;
    SQLPOINTER value = nullptr;
    SQLLEN size = 0;
    SQLLEN *indicator = nullptr;
    bool bound = false;
};

struct BoundColumn {
    SQLSMALLINT type = 0;
    SQLPOINTER value = nullptr;         // null: not bound
    SQLLEN size = 0;
    SQLLEN *indicator = nullptr;
};

struct Statement {
    Diagnostics diagnostics;
    Connection *connection = nullptr;
    std::string text;                   // what was prepared or executed, as given
    bool prepared = false;
    bool cursor_open = false;
    int parameter_count = 0;
    std::vector<Parameter> parameters;
    std::vector<BoundColumn> bound_columns;
    Result result;
    size_t next_row = 0;                // the current row is the one before it
    SQLLEN row_count = -1;
    size_t read_column = 0;             // SQLGetData: column number that is being read in pieces, 0: none
    size_t read_offset = 0;             // and how much of it has been given out, in bytes of the target's form
    bool read_finished = false;
    std::atomic<bool> running = false;
    SQLULEN query_timeout = 0, max_rows = 0, max_length = 0, metadata_id = SQL_FALSE, no_scan = SQL_NOSCAN_OFF;
    SQLULEN *rows_fetched = nullptr;
    SQLUSMALLINT *row_status = nullptr;
    std::string cursor_name;
    char descriptors[4] = {};           // only their addresses are used: descriptors have no settings of their own
};

// The diagnostics of a handle of this type; nullptr for a descriptor.
Diagnostics *diagnostics_of(SQLSMALLINT type, SQLHANDLE handle);

// The record behind the handle, its diagnostics cleared for the call that begins.
Environment &environment_of(SQLHENV handle);
Connection &connection_of(SQLHDBC handle);
Statement &statement_of(SQLHSTMT handle);

// Frees the statements that a program left open: the driver manager frees only its own part of them.
void free_statements(Connection &connection);

// Forgets the result and closes the cursor.
void close_cursor(Statement &statement);

// The text of an argument: `length` bytes, or up to the NUL for SQL_NTS. A null pointer is an empty text, and so is any
// other negative length, which the driver manager refuses already.
std::string text_argument(const SQLCHAR *text, SQLLEN length);

// Stores `value` through `out`; a null pointer is a failure (HY009).
template <typename Out, typename Value>
SQLRETURN store(Diagnostics &diagnostics, Out *out, Value value)
{
    if (out == nullptr)
        return fail(diagnostics, "HY009", "There is no room for the value");
    *out = static_cast<Out>(value);
    return SQL_SUCCESS;
}

// SQLGetInfo gives a text, not a number, for this kind.
bool is_text_info(SQLUSMALLINT kind);
