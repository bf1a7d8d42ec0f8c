#include "admin/odbc.h"

#include "common/text.h"

#include <sqlext.h>

namespace {

// ODBC takes input texts through pointers to non-const characters, and does not write through them.
SQLCHAR *input_text(const char *text)
{
    return reinterpret_cast<SQLCHAR *>(const_cast<char *>(text));
}

}

bool succeeded(SQLRETURN result)
{
    return SQL_SUCCEEDED(result);
}

DiagnosticText diagnostic_text(SQLSMALLINT handle_type, SQLHANDLE handle)
{
    DiagnosticText message = {};
    SQLCHAR state[6];
    SQLINTEGER native_error;
    SQLSMALLINT length;
    if (!succeeded(SQLGetDiagRec(handle_type, handle, 1, state, &native_error,
                                 reinterpret_cast<SQLCHAR *>(message.text), sizeof message.text, &length)))
        copy_text(message.text, "no diagnostic available");
    return message;
}

void describe_failure(PageBuffer &message, const char *call, SQLSMALLINT handle_type, SQLHANDLE handle)
{
    TextWriter writer{message.text};
    put(writer, call);
    put(writer, " failed with ");
    put_html(writer, diagnostic_text(handle_type, handle).text);
    put(writer, "\n");
    message.length = writer.length;
}

bool execute(SQLHSTMT statement, const char *sql)
{
    return succeeded(SQLExecDirect(statement, input_text(sql), SQL_NTS));
}

bool list_tables(SQLHSTMT statement)
{
    return succeeded(SQLTables(statement, nullptr, SQL_NTS, nullptr, SQL_NTS, nullptr, SQL_NTS, input_text(""),
                               SQL_NTS));
}

Reading read_column(SQLHSTMT statement, int column, ColumnText &text, SQLLEN *indicator)
{
    text[0] = 0;
    SQLLEN length = 0;
    bool read = succeeded(SQLGetData(statement, SQLUSMALLINT(column), SQL_C_CHAR, text, sizeof text, &length));
    if (!read)
        text[0] = 0;
    if (indicator)
        *indicator = read ? length : 0;
    if (!read)
        return Reading::failed;
    return length != SQL_NO_TOTAL && length < column_size ? Reading::whole : Reading::cut;
}

bool read_shown_column(SQLHSTMT statement, int column, ColumnText &text)
{
    SQLLEN indicator;
    Reading reading = read_column(statement, column, text, &indicator);
    if (indicator < 1)
        text[0] = 0;
    return reading == Reading::whole;
}

void free_statement(SQLHSTMT &statement)
{
    if (statement)
        SQLFreeHandle(SQL_HANDLE_STMT, statement);
    statement = nullptr;
}
