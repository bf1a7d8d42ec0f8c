#include "connection_string.h"
#include "database.h"
#include "handles.h"
#include "registry.h"
#include "schema.h"
#include "statement_log.h"
#include "table_name.h"
#include "transaction.h"

#include <odbcinst.h>

#include <unistd.h>

// Bytes of one text or blob.
constexpr int largest_value = 100000000;

constexpr char wrong_log_in[] = "Invalid user and or password specified";

struct LogIn {
    std::string data_source, file, log, user, password;
};

static std::string profile_value(const std::string &data_source, const char *keyword)
{
    char value[1024] = "";
    if (!data_source.empty())
        SQLGetPrivateProfileString(data_source.c_str(), keyword, "", value, sizeof value, "odbc.ini");
    return value;
}

// Takes as long for any two texts of the same length, so that the time tells nothing about where they differ.
static bool same_secret(const std::string &one, const std::string &other)
{
    volatile unsigned char difference = one.size() == other.size() ? 0 : 1;
    for (size_t i = 0; i < one.size() && i < other.size(); ++i)
        difference = static_cast<unsigned char>(difference | (one[i] ^ other[i]));
    return difference == 0;
}

static SQLRETURN open_database(Connection &connection, const LogIn &log_in)
{
    if (log_in.file.empty())
        return fail(connection.diagnostics, "08001", "No database file: the keyword Database is missing");

    // Never created here: a mistyped path must not look like an empty database.
    sqlite3 *database = nullptr;
    int result = sqlite3_open_v2(log_in.file.c_str(), &database, SQLITE_OPEN_READWRITE, nullptr);
    if (result == SQLITE_OK) {
        sqlite3_busy_timeout(database, longest_wait);
        if (is_our_database(database)) {
            connection.database = connection.own.database = database;
            return SQL_SUCCESS;
        }
        result = sqlite3_errcode(database);
    }
    std::string reason = result == SQLITE_OK || result == SQLITE_ROW || result == SQLITE_DONE
                             ? "it is not a database of this driver" : sqlite3_errmsg(database);
    fail(connection.diagnostics, "08001", "Cannot open the database file " + log_in.file + ": " + reason, result);
    sqlite3_close(database);
    return SQL_ERROR;
}

static void harden(Connection &connection)
{
    sqlite3 *database = connection.database;
    sqlite3_extended_result_codes(database, 1);
    sqlite3_db_config(database, SQLITE_DBCONFIG_DEFENSIVE, 1, nullptr);
    sqlite3_db_config(database, SQLITE_DBCONFIG_TRUSTED_SCHEMA, 0, nullptr);
    sqlite3_db_config(database, SQLITE_DBCONFIG_ENABLE_LOAD_EXTENSION, 0, nullptr);
    sqlite3_db_config(database, SQLITE_DBCONFIG_ENABLE_FTS3_TOKENIZER, 0, nullptr);
    // A misspelt name in double quotes is an error and not a text.
    sqlite3_db_config(database, SQLITE_DBCONFIG_DQS_DML, 0, nullptr);
    sqlite3_db_config(database, SQLITE_DBCONFIG_DQS_DDL, 0, nullptr);
    sqlite3_limit(database, SQLITE_LIMIT_ATTACHED, 0);
    sqlite3_limit(database, SQLITE_LIMIT_LENGTH, largest_value);
    run(database, "pragma synchronous = full");
    // "replace" deletes the rows in its way only then in sight of the trigger that keeps the administrator.
    run(database, "pragma recursive_triggers = on");
    install_authoriser(connection);
}

static SQLRETURN check_log_in(Connection &connection, const LogIn &log_in)
{
    // Everybody's name has no password and is never a way in; an ordinary user "Public" is another name.
    std::string spelled, administrator;
    bool known = log_in.user != "public" && find_user(connection.own, log_in.user, spelled);
    Query password(connection.database, "select password from \"nordvale.system.user\" "
                                        "where username = ? and password is not null");
    bind(password, {spelled});
    if (!step(password) || !same_secret(text_column(password, 0), log_in.password) || !known)
        return fail(connection.diagnostics, "28000", wrong_log_in);

    Query dbo_user(connection.database,
                   "select \"VALUE\" from \"nordvale.system.sysinfo\" where attribute = 'dbo_user'");
    if (step(dbo_user))
        administrator = text_column(dbo_user, 0);
    connection.user = spelled;
    connection.administrator = same_name(spelled, administrator);
    return SQL_SUCCESS;
}

static void disconnect(Connection &connection)
{
    free_statements(connection);
    free_own_statements(connection.own);
    sqlite3_close_v2(connection.database);
    if (connection.log >= 0)
        close(connection.log);
    connection.database = nullptr;
    connection.log = -1;
    connection.root_pages = {};
    connection.user.clear();
    connection.administrator = false;
}

static SQLRETURN start_log(Connection &connection, const LogIn &log_in)
{
    if (log_in.log.empty())
        return SQL_SUCCESS;
    // No unlogged way in: who asks for an audit trail gets no connection without it.
    connection.log = open_log(log_in.log);
    return connection.log >= 0 ? SQL_SUCCESS
                               : fail(connection.diagnostics, "08001", "Cannot open the statement log " + log_in.log);
}

static SQLRETURN connect_to(Connection &connection, const LogIn &log_in)
{
    if (start_log(connection, log_in) != SQL_SUCCESS)
        return SQL_ERROR;
    SQLRETURN result = open_database(connection, log_in);
    if (result == SQL_SUCCESS)
        result = check_log_in(connection, log_in);
    log_statement(connection, log_in.user, result, connection.diagnostics, "{connect}");
    if (result != SQL_SUCCESS) {
        disconnect(connection);
        return result;
    }
    harden(connection);
    connection.data_source = log_in.data_source;
    connection.file = log_in.file;
    return SQL_SUCCESS;
}

EXPORTED SQLRETURN SQL_API SQLConnect(SQLHDBC handle, SQLCHAR *data_source, SQLSMALLINT data_source_length,
                                      SQLCHAR *user, SQLSMALLINT user_length, SQLCHAR *password,
                                      SQLSMALLINT password_length)
{
    LogIn log_in;
    log_in.data_source = text_argument(data_source, data_source_length);
    log_in.file = profile_value(log_in.data_source, "Database");
    log_in.log = profile_value(log_in.data_source, "StatementLog");
    log_in.user = text_argument(user, user_length);
    log_in.password = text_argument(password, password_length);
    return connect_to(connection_of(handle), log_in);
}

static std::string value_or(const ConnectionValues &values, const char *keyword, const std::string &otherwise)
{
    const std::string *value = value_of(values, keyword);
    return value != nullptr ? *value : otherwise;
}

// The completed string goes back without user and password: programs write it into logs.
static std::string completed_string(const LogIn &log_in)
{
    return log_in.data_source.empty() ? "Database=" + log_in.file : "DSN=" + log_in.data_source;
}

EXPORTED SQLRETURN SQL_API SQLDriverConnect(SQLHDBC handle, SQLHWND, SQLCHAR *text, SQLSMALLINT length,
                                            SQLCHAR *completed, SQLSMALLINT size, SQLSMALLINT *completed_length,
                                            SQLUSMALLINT)
{
    Connection &connection = connection_of(handle);
    ConnectionValues values;
    if (read_connection_string(text_argument(text, length), values) < 0)
        return fail(connection.diagnostics, "08001", "Connection string with a value whose closing brace is missing");

    LogIn log_in;
    log_in.data_source = value_or(values, "DSN", "");
    log_in.file = value_or(values, "Database", profile_value(log_in.data_source, "Database"));
    log_in.user = value_or(values, "UID", "");
    log_in.password = value_or(values, "PWD", "");
    // What the administrator set up for the data source cannot be turned off or led elsewhere from outside.
    log_in.log = profile_value(log_in.data_source, "StatementLog");
    if (log_in.log.empty())
        log_in.log = value_or(values, "StatementLog", "");

    SQLRETURN result = connect_to(connection, log_in);
    if (result != SQL_SUCCESS)
        return result;
    return copy_out(completed_string(log_in), completed, size, completed_length)
               ? SQL_SUCCESS : warn(connection.diagnostics, "01004", "Completed connection string cut");
}

EXPORTED SQLRETURN SQL_API SQLDisconnect(SQLHDBC handle)
{
    Connection &connection = connection_of(handle);
    if (in_transaction(connection))
        return fail(connection.diagnostics, "25000", "A transaction is open");
    disconnect(connection);
    return SQL_SUCCESS;
}
