#include "handles.h"

Diagnostics *diagnostics_of(SQLSMALLINT type, SQLHANDLE handle)
{
    switch (type) {
    case SQL_HANDLE_ENV: return &static_cast<Environment *>(handle)->diagnostics;
    case SQL_HANDLE_DBC: return &static_cast<Connection *>(handle)->diagnostics;
    case SQL_HANDLE_STMT: return &static_cast<Statement *>(handle)->diagnostics;
    default: return nullptr;
    }
}

Environment &environment_of(SQLHENV handle)
{
    Environment &environment = *static_cast<Environment *>(handle);
    environment.diagnostics.clear();
    return environment;
}

Connection &connection_of(SQLHDBC handle)
{
    Connection &connection = *static_cast<Connection *>(handle);
    connection.diagnostics.clear();
    return connection;
}

Statement &statement_of(SQLHSTMT handle)
{
    Statement &statement = *static_cast<Statement *>(handle);
    statement.diagnostics.clear();
    return statement;
}

void free_statements(Connection &connection)
{
    for (Statement *statement : connection.statements)
        delete statement;
    connection.statements.clear();
}

void close_cursor(Statement &statement)
{
    statement.result = {};
    statement.cursor_open = false;
    statement.next_row = 0;
    statement.read_column = 0;
}

std::string text_argument(const SQLCHAR *text, SQLLEN length)
{
    if (text == nullptr || (length < 0 && length != SQL_NTS))
        return {};
    const char *start = reinterpret_cast<const char *>(text);
    return length == SQL_NTS ? std::string(start) : std::string(start, static_cast<size_t>(length));
}

static SQLRETURN allocate_statement(Connection &connection, SQLHANDLE *handle)
{
    if (connection.database == nullptr)
        return fail(connection.diagnostics, "08003", "Connection is not open");
    Statement *statement = new Statement;
    statement->connection = &connection;
    connection.statements.push_back(statement);
    *handle = statement;
    return SQL_SUCCESS;
}

EXPORTED SQLRETURN SQL_API SQLAllocHandle(SQLSMALLINT type, SQLHANDLE parent, SQLHANDLE *handle)
{
    *handle = nullptr;
    switch (type) {
    case SQL_HANDLE_ENV:
        *handle = new Environment;
        return SQL_SUCCESS;
    case SQL_HANDLE_DBC: {
        Connection *connection = new Connection;
        connection->environment = &environment_of(parent);
        *handle = connection;
        return SQL_SUCCESS;
    }
    case SQL_HANDLE_STMT:
        return allocate_statement(connection_of(parent), handle);
    default:
        return fail(connection_of(parent).diagnostics, "HYC00", "Descriptors of one's own are not served");
    }
}

static SQLRETURN free_statement(Statement *statement)
{
    std::erase(statement->connection->statements, statement);
    delete statement;
    return SQL_SUCCESS;
}

EXPORTED SQLRETURN SQL_API SQLFreeHandle(SQLSMALLINT type, SQLHANDLE handle)
{
    switch (type) {
    case SQL_HANDLE_ENV: delete static_cast<Environment *>(handle); return SQL_SUCCESS;
    case SQL_HANDLE_DBC: delete static_cast<Connection *>(handle); return SQL_SUCCESS;
    case SQL_HANDLE_STMT: return free_statement(static_cast<Statement *>(handle));
    default: return SQL_ERROR;
    }
}

EXPORTED SQLRETURN SQL_API SQLFreeStmt(SQLHSTMT handle, SQLUSMALLINT option)
{
    Statement &statement = statement_of(handle);
    switch (option) {
    case SQL_CLOSE: close_cursor(statement); return SQL_SUCCESS;
    case SQL_UNBIND: statement.bound_columns.clear(); return SQL_SUCCESS;
    case SQL_RESET_PARAMS: statement.parameters.clear(); return SQL_SUCCESS;
    case SQL_DROP: return SQLFreeHandle(SQL_HANDLE_STMT, handle);
    default: return fail(statement.diagnostics, "HY092", "Unknown option");
    }
}

EXPORTED SQLRETURN SQL_API SQLCloseCursor(SQLHSTMT handle)
{
    Statement &statement = statement_of(handle);
    if (!statement.cursor_open)
        return fail(statement.diagnostics, "24000", "No cursor is open");
    close_cursor(statement);
    return SQL_SUCCESS;
}
