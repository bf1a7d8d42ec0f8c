// Transactions. In autocommit mode each statement is one. In manual mode a transaction begins with the first change and
// lasts until SQLEndTran; queries before it read the latest committed state and leave nothing open, so no reader ever
// has to be turned into a writer, which SQLite refuses when somebody else has written meanwhile.
#pragma once

#include "diagnostics.h"

struct Connection;

// Milliseconds. Long enough for another process's statements, short enough for a person to wait.
constexpr int longest_wait = 10000;

struct Step { bool whole, savepoint; };

// Begins what one statement needs. Returns SQL_SUCCESS, or SQL_ERROR with a diagnostic (HYT00: another writer did not
// finish in time).
SQLRETURN begin_step(Connection &connection, Diagnostics &diagnostics, bool changes, Step &step);

// Ends it: keeps the statement's effect if `result` is no failure and undoes it otherwise. Returns `result`, or
// SQL_ERROR with a diagnostic when the commit fails.
SQLRETURN end_step(Connection &connection, Diagnostics &diagnostics, const Step &step, SQLRETURN result);

// SQL_SUCCESS, or SQL_ERROR with a diagnostic when one of our own statements has failed since the step began.
SQLRETURN require_own_statements(const Connection &connection, Diagnostics &diagnostics);

bool in_transaction(const Connection &connection);

// Commits or rolls back what is open.
SQLRETURN end_transaction(Connection &connection, Diagnostics &diagnostics, bool commit);
