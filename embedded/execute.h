// Preparing and executing statements.
#pragma once

#include "handles.h"

// Binds the statement's parameters to a prepared SQLite statement. Returns SQL_SUCCESS, or SQL_ERROR with a diagnostic.
SQLRETURN bind_parameters(Statement &statement, sqlite3_stmt *prepared);

// Opens the cursor on the result that is there.
void open_cursor(Statement &statement);
