#include "execute.h"

#include "database.h"
#include "registry.h"
#include "statement_log.h"
#include "transaction.h"

#include <algorithm>
#include <chrono>

using Clock = std::chrono::steady_clock;

// Bytes of one result. A query without end stops here, before it has taken the machine's memory.
constexpr size_t largest_result = 256u << 20;

// Guards what runs between its two ends: only there the statement is the user's.
struct Guard {
    explicit Guard(Connection &guarded) : connection(guarded) { connection.access.guarded = true; }
    ~Guard() { connection.access.guarded = false; }
    Guard(const Guard &) = delete;
    Guard &operator=(const Guard &) = delete;

    Connection &connection;
};

static void replace_all(std::string &text, const std::string &what, const std::string &with)
{
    for (size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + with.size()))
        text.replace(at, what.size(), with);
}

// SQLite's message with the table names that the user knows, or the authoriser's reason.
static SQLRETURN fail_readably(Statement &statement)
{
    Connection &connection = *statement.connection;
    int code = sqlite3_extended_errcode(connection.database);
    std::string message = sqlite3_errmsg(connection.database);
    if ((code & 0xff) == SQLITE_AUTH && !connection.access.denial.empty())
        return fail(statement.diagnostics, "42000", connection.access.denial, code);
    std::string state(state_of(code, message));
    for (const TableAccess &table : connection.access.tables)
        replace_all(message, table.stored, table.shown);
    return fail(statement.diagnostics, state, message, code);
}

static SQLRETURN compile(Statement &statement, const std::string &sql, Query &query)
{
    sqlite3 *database = statement.connection->database;
    if (sqlite3_prepare_v2(database, sql.c_str(), static_cast<int>(sql.size()), &query.prepared, nullptr) != SQLITE_OK)
        return fail_readably(statement);
    if (query.prepared == nullptr)
        return fail(statement.diagnostics, "42000", "There is no statement");
    const Access &access = statement.connection->access;
    if (!access.defines && !access.checked)
        return fail(statement.diagnostics, "HY008", "Cancelled or out of memory before the check's end");
    return SQL_SUCCESS;
}

// Asked by SQLite every few thousand steps of its program; true interrupts it.
static int is_over(void *deadline)
{
    return Clock::now() >= *static_cast<Clock::time_point *>(deadline);
}

static size_t size_of(const Result &result)
{
    return result.cells.size() * sizeof(Cell) + result.bytes.size();
}

static SQLRETURN read_rows(Statement &statement, sqlite3_stmt *prepared)
{
    constexpr SQLULEN longest_timeout = 1000000000;
    SQLULEN seconds = std::min(statement.query_timeout, longest_timeout);
    Clock::time_point deadline = Clock::now() + std::chrono::seconds(seconds);
    sqlite3 *database = statement.connection->database;

    statement.running = true;
    sqlite3_progress_handler(database, 10000, seconds != 0 ? is_over : nullptr, &deadline);
    int result = sqlite3_step(prepared);
    while (result == SQLITE_ROW && size_of(statement.result) <= largest_result) {
        if (statement.max_rows == 0 || row_count(statement.result) < statement.max_rows)
            append_row(prepared, statement.result);
        result = sqlite3_step(prepared);
    }
    sqlite3_progress_handler(database, 0, nullptr, nullptr);
    statement.running = false;
    if (result == SQLITE_ROW)
        return fail(statement.diagnostics, "HY001", "The result is larger than 256 MB");
    if (result == SQLITE_INTERRUPT && seconds != 0 && is_over(&deadline))
        return fail(statement.diagnostics, "HYT00", "The statement has not ended within its time-out", result);
    return result == SQLITE_DONE ? SQL_SUCCESS : fail_readably(statement);
}

void open_cursor(Statement &statement)
{
    statement.cursor_open = true;
    statement.next_row = 0;
    statement.read_column = 0;
}

static SQLRETURN run_statement(Statement &statement, const TranslatedStatement &translated)
{
    Connection &connection = *statement.connection;
    bool defines = connection.access.defines;
    if (!defines && check_program(connection, statement.diagnostics, translated.sql) != SQL_SUCCESS)
        return SQL_ERROR;
    if (require_own_statements(connection, statement.diagnostics) != SQL_SUCCESS)
        return SQL_ERROR;
    Guard guard(connection);
    Query query;
    if (compile(statement, translated.sql, query) != SQL_SUCCESS)
        return SQL_ERROR;
    if (bind_parameters(statement, query.prepared) != SQL_SUCCESS)
        return SQL_ERROR;

    Result result;
    describe_columns(query.prepared, result);
    statement.result = std::move(result);
    if (read_rows(statement, query.prepared) != SQL_SUCCESS)
        return SQL_ERROR;
    if (!statement.result.columns.empty()) {
        fit_columns(statement.result);
        open_cursor(statement);
    }
    if (translated.kind == StatementKind::query)
        statement.row_count = static_cast<SQLLEN>(row_count(statement.result));
    if (translated.kind == StatementKind::change)
        statement.row_count = sqlite3_changes(connection.database);
    return SQL_SUCCESS;
}

static SQLRETURN run_definition(Statement &statement, const TranslatedStatement &translated)
{
    Connection &connection = *statement.connection;
    const TableName &name = translated.tables.front();
    bool creates = translated.kind == StatementKind::create_table;
    TableName registered;

    if (require_administrator(connection, statement.diagnostics, creates ? "create tables" : "drop tables") < 0)
        return SQL_ERROR;
    if (is_system_name(name))
        return fail(statement.diagnostics, "42000", "Tables of nordvale.system are neither created nor dropped");
    bool exists = find_table(connection.own, name, registered);
    if (exists == creates && translated.if_exists)
        return SQL_SUCCESS;
    if (exists && creates)
        return fail(statement.diagnostics, "42S01", "Table " + shown_name(registered) + " exists already");
    if (!exists && !creates)
        return fail(statement.diagnostics, "42S02", "There is no table " + shown_name(name));
    if (run_statement(statement, translated) != SQL_SUCCESS)
        return SQL_ERROR;
    close_cursor(statement);
    bool recorded = creates ? register_table(connection.own, name) : unregister_table(connection.own, name);
    return recorded ? SQL_SUCCESS : fail_with_sqlite(statement.diagnostics, connection.database);
}

static SQLRETURN run_grant(Statement &statement, const TranslatedStatement &translated)
{
    Connection &connection = *statement.connection;
    bool grants = translated.kind == StatementKind::grant;
    const TableName &table = connection.access.tables.back().registered;
    std::string grantee = translated.grantee;

    if (require_administrator(connection, statement.diagnostics,
                              grants ? "grant privileges" : "revoke privileges") < 0)
        return SQL_ERROR;
    if (is_system_name(table))
        return fail(statement.diagnostics, "42000", "Privileges on tables of nordvale.system are fixed");
    if (grants && grantee != "public" && !find_user(connection.own, translated.grantee, grantee))
        return fail(statement.diagnostics, "42000", "There is no user " + translated.grantee);
    bool done = grants ? grant_privileges(connection.own, table, translated.privileges, connection.user, grantee)
                       : revoke_privileges(connection.own, table, translated.privileges, grantee);
    return done ? SQL_SUCCESS : fail_with_sqlite(statement.diagnostics, connection.database);
}

static SQLRETURN run_kind(Statement &statement, const TranslatedStatement &translated)
{
    switch (translated.kind) {
    case StatementKind::query:
    case StatementKind::change: return run_statement(statement, translated);
    case StatementKind::create_table:
    case StatementKind::drop_table: return run_definition(statement, translated);
    case StatementKind::grant:
    case StatementKind::revoke: return run_grant(statement, translated);
    }
    return SQL_ERROR;
}

// Milliseconds that the statement waits for another writer.
static int wait_of(const Statement &statement)
{
    bool shorter = statement.query_timeout != 0 && statement.query_timeout < longest_wait / 1000;
    return shorter ? static_cast<int>(statement.query_timeout) * 1000 : longest_wait;
}

static SQLRETURN execute_translated(Statement &statement, const TranslatedStatement &translated)
{
    Connection &connection = *statement.connection;
    bool changes = translated.kind != StatementKind::query;
    Step step;
    sqlite3_busy_timeout(connection.database, wait_of(statement));
    if (begin_step(connection, statement.diagnostics, changes, step) != SQL_SUCCESS)
        return SQL_ERROR;
    SQLRETURN result = load_access(connection, statement.diagnostics, translated);
    if (result == SQL_SUCCESS)
        result = run_kind(statement, translated);
    result = end_step(connection, statement.diagnostics, step, result);
    if (result == SQL_ERROR)
        close_cursor(statement);
    return result;
}

// ODBC 3 tells a change that met no row from one that did by SQL_NO_DATA.
static SQLRETURN result_of_change(const Statement &statement, const TranslatedStatement &translated, SQLRETURN result)
{
    bool none = result == SQL_SUCCESS && translated.kind == StatementKind::change && statement.row_count == 0 &&
                statement.result.columns.empty();
    return none && statement.connection->environment->odbc_version != SQL_OV_ODBC2 ? SQL_NO_DATA : result;
}

static SQLRETURN execute(Statement &statement)
{
    TranslatedStatement translated;
    std::string problem;
    close_cursor(statement);
    statement.row_count = -1;
    SQLRETURN result = translate(statement.text, translated, problem) < 0
                           ? fail(statement.diagnostics, "42000", problem)
                           : result_of_change(statement, translated, execute_translated(statement, translated));
    log_statement(*statement.connection, statement.connection->user, result, statement.diagnostics, statement.text);
    return result;
}

// Compiles without running, to know the columns and parameters. Privileges count again at each execution.
static SQLRETURN describe(Statement &statement)
{
    Connection &connection = *statement.connection;
    TranslatedStatement translated;
    std::string problem;
    if (translate(statement.text, translated, problem) < 0)
        return fail(statement.diagnostics, "42000", problem);
    if (translated.kind != StatementKind::query && translated.kind != StatementKind::change)
        return SQL_SUCCESS;

    Step step;
    if (begin_step(connection, statement.diagnostics, false, step) != SQL_SUCCESS)
        return SQL_ERROR;
    SQLRETURN result = load_access(connection, statement.diagnostics, translated);
    if (result == SQL_SUCCESS)
        result = check_program(connection, statement.diagnostics, translated.sql);
    if (result == SQL_SUCCESS) {
        Guard guard(connection);
        Query query;
        result = compile(statement, translated.sql, query);
        if (result == SQL_SUCCESS) {
            statement.parameter_count = sqlite3_bind_parameter_count(query.prepared);
            describe_columns(query.prepared, statement.result);
        }
    }
    return end_step(connection, statement.diagnostics, step, result);
}

EXPORTED SQLRETURN SQL_API SQLPrepare(SQLHSTMT handle, SQLCHAR *text, SQLINTEGER length)
{
    Statement &statement = statement_of(handle);
    close_cursor(statement);
    statement.text = text_argument(text, length);
    statement.parameter_count = 0;
    SQLRETURN result = describe(statement);
    statement.prepared = result == SQL_SUCCESS;
    if (result != SQL_SUCCESS)
        log_statement(*statement.connection, statement.connection->user, result, statement.diagnostics,
                      statement.text);
    return result;
}

EXPORTED SQLRETURN SQL_API SQLExecute(SQLHSTMT handle)
{
    Statement &statement = statement_of(handle);
    if (!statement.prepared)
        return fail(statement.diagnostics, "HY010", "No statement is prepared");
    return execute(statement);
}

EXPORTED SQLRETURN SQL_API SQLExecDirect(SQLHSTMT handle, SQLCHAR *text, SQLINTEGER length)
{
    Statement &statement = statement_of(handle);
    statement.text = text_argument(text, length);
    statement.prepared = false;
    return execute(statement);
}

EXPORTED SQLRETURN SQL_API SQLNativeSql(SQLHDBC handle, SQLCHAR *text, SQLINTEGER length, SQLCHAR *native,
                                        SQLINTEGER size, SQLINTEGER *native_length)
{
    Connection &connection = connection_of(handle);
    TranslatedStatement translated;
    std::string problem;
    if (translate(text_argument(text, length), translated, problem) < 0)
        return fail(connection.diagnostics, "42000", problem);
    if (native_length != nullptr)
        *native_length = static_cast<SQLINTEGER>(translated.sql.size());
    return copy_out(translated.sql, native, size, nullptr) ? SQL_SUCCESS
                                                           : warn(connection.diagnostics, "01004", "Statement cut");
}

EXPORTED SQLRETURN SQL_API SQLCancel(SQLHSTMT handle)
{
    // May come from another thread, so the diagnostics are left alone.
    Statement &statement = *static_cast<Statement *>(handle);
    if (statement.running)
        sqlite3_interrupt(statement.connection->database);
    return SQL_SUCCESS;
}

EXPORTED SQLRETURN SQL_API SQLRowCount(SQLHSTMT handle, SQLLEN *count)
{
    Statement &statement = statement_of(handle);
    return store(statement.diagnostics, count, statement.row_count);
}

EXPORTED SQLRETURN SQL_API SQLMoreResults(SQLHSTMT handle)
{
    close_cursor(statement_of(handle));
    return SQL_NO_DATA;
}
