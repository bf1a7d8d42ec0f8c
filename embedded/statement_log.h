// The statement log: one line per log-in, statement and catalog call, four fields separated by tabs:
//   time (ISO 8601, UTC, milliseconds), user, outcome ("ok", or SQLSTATE and message), statement
// Backslash, tab, line feed, carriage return and other control characters are written \\ \t \n \r \xHH. Log-ins are
// the statement {connect}, catalog calls their function's name in braces. Passwords of log-ins are never written;
// those in statements on the user table are, so the file is readable for its owner alone.
#pragma once

#include "diagnostics.h"

#include <string>
#include <string_view>

struct Connection;

// Opens the log for appending, creating it if need be. Returns the descriptor, or -1.
int open_log(const std::string &path);

// Appends one line to the connection's log, if it has one; `result` and `diagnostics` tell the outcome. One write, so
// lines of several processes do not mix.
void log_statement(const Connection &connection, std::string_view user, SQLRETURN result,
                   const Diagnostics &diagnostics, std::string_view statement);
