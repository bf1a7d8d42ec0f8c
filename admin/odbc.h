// The one door to ODBC (ODBC 3 reference): results, diagnostics, character columns, statements of one's own.

#pragma once

#include "admin/page_context.h"
#include "server/response.h"

#include <sql.h>

// SQL_SUCCESS and SQL_SUCCESS_WITH_INFO; everything else, SQL_NO_DATA included, is a failure.
bool succeeded(SQLRETURN result);

// The message text of diagnostic record 1 of a handle, or a fixed text where the driver manager has none, as for a
// handle that was never allocated.
struct DiagnosticText {
    char text[255];
};
DiagnosticText diagnostic_text(SQLSMALLINT handle_type, SQLHANDLE handle);

// Writes "<call> failed with <diagnostic>\n" into `message`, the diagnostic escaped for HTML.
void describe_failure(PageBuffer &message, const char *call, SQLSMALLINT handle_type, SQLHANDLE handle);

// Executes one SQL text.
bool execute(SQLHSTMT statement, const char *sql);

// The tables of the data source, as columns 1 to 3 (catalog, schema, table) of a result on `statement`.
bool list_tables(SQLHSTMT statement);

// How much of a column a text holds. Only a whole one may name anything; one that failed, and is empty, is not the
// column's value at all.
enum class Reading { failed, cut, whole };

// Reads a column of the current row as characters into `text`, which is empty for a null. `indicator`, when given,
// receives the column's length (SQL_NULL_DATA for a null, 0 when nothing could be read).
Reading read_column(SQLHSTMT statement, int column, ColumnText &text, SQLLEN *indicator = nullptr);

// The column's text for display, empty where it is null, empty or unreadable. False when it is not the whole value.
bool read_shown_column(SQLHSTMT statement, int column, ColumnText &text);

// Frees the statement handle, if there is one, and makes it null.
void free_statement(SQLHSTMT &statement);

// The owner of a statement handle of one's own.
struct Statement {
    SQLHSTMT handle = nullptr;

    Statement() = default;
    Statement(const Statement &) = delete;
    Statement &operator=(const Statement &) = delete;
    ~Statement() { free_statement(handle); }
};
