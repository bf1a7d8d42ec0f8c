// Connecting. psqlODBC decodes some passwords, takes an empty one for leave to look for another and gives the server's
// words without its error code, so both the ODBC call and libpq's are taken up here.

#include "connection_string.h"
#include "next.h"

#include <libpq-fe.h>
#include <poll.h>
#include <sql.h>
#include <sqlext.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <string>

namespace {

constexpr char wrong_log_in[] = "Invalid user and or password specified";

// A server that takes the connection and says nothing would hold the program, which serves one request at a time.
constexpr int longest_connect_seconds = 30;

// Why the last connection of this thread failed, in place of libpq's words.
struct Failure {
    const PGconn *connection;
    std::string reason;
};

thread_local Failure last_failure;

// Set while a log-in with an empty user name or password is on its way.
thread_local bool credentials_are_missing;

const char *parameter(const char *const *keywords, const char *const *values, const char *keyword)
{
    const char *value = "";
    for (; *keywords; ++keywords, ++values)
        if (strcmp(*keywords, keyword) == 0 && *values)
            value = *values;
    return value;
}

PGconn *failed(PGconn *connection, std::string reason)
{
    last_failure = {connection, std::move(reason)};
    return connection;
}

// A failed connection that was never tried: libpq gives one for a text that is none of its own.
PGconn *never_tried(std::string reason)
{
    return failed(PQconnectStart("="), std::move(reason));
}

bool has_code(const std::string &message, const char *code)
{
    return message.find(std::string(":  ") + code + ": ") != std::string::npos;
}

// 28P01 is a wrong password, or a role that does not exist where passwords are asked for. 28000 has many meanings; of
// these the look-up of the role is the one that the server names as the place of the error.
bool is_wrong_log_in(const std::string &message)
{
    return has_code(message, "28P01") ||
           (has_code(message, "28000") && message.find("InitializeSessionUserId") != std::string::npos);
}

// The message as it would be without codes: "FATAL:  3D000: no such" and a line that names the place in the server.
std::string without_codes(std::string message)
{
    constexpr size_t code_length = 5;
    for (size_t at = 0; (at = message.find(":  ", at)) != std::string::npos;) {
        at += 3;
        size_t code_end = message.find_first_not_of("0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZ", at);
        if (code_end == at + code_length && message.compare(code_end, 2, ": ") == 0)
            message.erase(at, code_length + 2);
    }
    for (size_t at = 0; (at = message.find("LOCATION:  ", at)) != std::string::npos;)
        message.erase(at, std::min(message.find('\n', at), message.size()) - at + 1);
    return message;
}

std::string reason_of(const PGconn *connection)
{
    std::string message = PQerrorMessage(connection);
    std::string reason = without_codes(message);
    return is_wrong_log_in(message) ? wrong_log_in + (": " + reason) : reason;
}

// False: it took too long.
bool wait_until_connected(PGconn *connection, int seconds)
{
    using std::chrono::milliseconds;
    auto end = std::chrono::steady_clock::now() + std::chrono::seconds(seconds);
    PostgresPollingStatusType waits_for = PGRES_POLLING_WRITING;
    while (waits_for == PGRES_POLLING_READING || waits_for == PGRES_POLLING_WRITING) {
        auto left = std::chrono::duration_cast<milliseconds>(end - std::chrono::steady_clock::now());
        pollfd socket{PQsocket(connection), static_cast<short>(waits_for == PGRES_POLLING_READING ? POLLIN : POLLOUT), 0};
        if (left.count() <= 0)
            return false;
        if (poll(&socket, 1, static_cast<int>(left.count())) > 0)
            waits_for = PQconnectPoll(connection);
    }
    return true;
}

// The pages double the quotes in what they put into statements, which is enough only with this setting. They name no schema
// for "=", of which a user may have made one in a schema on the administrator's own path. Where install.sql has not been
// run, a user may have made the schema that it makes.
constexpr char settling[] =
    "set standard_conforming_strings = on; set search_path = pg_catalog, pg_temp;"
    "do 'begin"
    "  if exists (select from pg_namespace, pg_database"
    "             where nspname = ''tabwarden'' and datname = current_database() and nspowner <> datdba) then"
    "    raise insufficient_privilege using message = ''the schema tabwarden belongs to somebody else'';"
    "  end if;"
    "end'";

bool settle(PGconn *connection)
{
    PGresult *result = PQexec(connection, settling);
    bool is_done = PQresultStatus(result) == PGRES_COMMAND_OK;
    PQclear(result);
    return is_done;
}

// Why the connection is not as the pages need it; empty: it is.
std::string unfitness(PGconn *connection)
{
    // Without it the log-in to the pages would be open to everybody who knows the administrator's name.
    if (!PQconnectionUsedPassword(connection))
        return "the server has not asked for the password: see the line for this user in its pg_hba.conf";
    return settle(connection) ? "" : reason_of(connection);
}

// Connected or failed, but not longer than it may take.
PGconn *connected(PGconn *connection, int seconds)
{
    PQsetErrorVerbosity(connection, PQERRORS_VERBOSE);
    bool is_in_time = PQstatus(connection) == CONNECTION_BAD || wait_until_connected(connection, seconds);
    if (is_in_time && PQstatus(connection) != CONNECTION_OK)
        return failed(connection, reason_of(connection));
    PQsetErrorVerbosity(connection, PQERRORS_DEFAULT);
    std::string reason = is_in_time ? unfitness(connection) : "the server does not answer";
    if (reason.empty())
        return connection;
    PQfinish(connection);
    return never_tried(reason);
}

}

// libpq's own, but for what the pages rely on: see above.
EXPORTED PGconn *PQconnectdbParams(const char *const *keywords, const char *const *values, int expand_dbname)
{
    // libpq would look for the missing one in the environment, in files and in the name of the process's user.
    bool is_complete = *parameter(keywords, values, "user") && *parameter(keywords, values, "password");
    if (credentials_are_missing || !is_complete)
        return never_tried(wrong_log_in);

    last_failure = {};
    // The pages are UTF-8. libpq and, once more behind it, psqlODBC ask for the encoding that they find here.
    setenv("PGCLIENTENCODING", "UTF8", 1);
    int seconds = atoi(parameter(keywords, values, "connect_timeout"));
    PGconn *connection = PQconnectStartParams(keywords, values, expand_dbname);
    return connection ? connected(connection, seconds > 0 ? seconds : longest_connect_seconds) : nullptr;
}

EXPORTED char *PQerrorMessage(const PGconn *connection)
{
    static auto *const next = next_of(PQerrorMessage, "PQerrorMessage");
    bool is_ours = connection && connection == last_failure.connection;
    return is_ours ? last_failure.reason.data() : next(connection);
}

EXPORTED void PQfinish(PGconn *connection)
{
    static auto *const next = next_of(PQfinish, "PQfinish");
    // The next connection may get the same address.
    if (connection == last_failure.connection)
        last_failure = {};
    next(connection);
}

// Connection strings of a data source, a user and a password, as the pages make them. psqlODBC reads a user name with
// its braces and decodes "+" and "%" in a password that has none; its SQLConnect takes both as they are.
static bool is_plain_log_in(const ConnectionValues &values)
{
    return value_of(values, "dsn") && value_of(values, "uid") && value_of(values, "pwd") && values.size() == 3;
}

static SQLCHAR *argument(const std::string &text)
{
    return reinterpret_cast<SQLCHAR *>(const_cast<char *>(text.c_str()));
}

static SQLRETURN log_in(SQLHDBC connection, const ConnectionValues &values)
{
    static auto *const connect = next_of(SQLConnect, "SQLConnect");
    const std::string &source = *value_of(values, "dsn");
    const std::string &user = *value_of(values, "uid");
    const std::string &password = *value_of(values, "pwd");
    credentials_are_missing = user.empty() || password.empty();
    SQLRETURN result =
        connect(connection, argument(source), SQL_NTS, argument(user), SQL_NTS, argument(password), SQL_NTS);
    credentials_are_missing = false;
    return result;
}

// The string that was used is also the completed one.
static void give_back(std::string_view text, SQLCHAR *out, SQLSMALLINT room, SQLSMALLINT *length)
{
    if (out && room > 0) {
        size_t copied = std::min(text.size(), static_cast<size_t>(room - 1));
        std::copy_n(text.begin(), copied, out);
        out[copied] = 0;
    }
    if (length)
        *length = static_cast<SQLSMALLINT>(text.size());
}

EXPORTED SQLRETURN SQL_API SQLDriverConnect(SQLHDBC connection, SQLHWND window, SQLCHAR *in, SQLSMALLINT in_length,
                                            SQLCHAR *out, SQLSMALLINT room, SQLSMALLINT *length,
                                            SQLUSMALLINT completion)
{
    static auto *const next = next_of(SQLDriverConnect, "SQLDriverConnect");
    const char *letters = in ? reinterpret_cast<const char *>(in) : "";
    std::string_view text(letters, in && in_length >= 0 ? static_cast<size_t>(in_length) : strlen(letters));
    ConnectionValues values;
    if (read_connection_string(text, values) < 0 || !is_plain_log_in(values))
        return next(connection, window, in, in_length, out, room, length, completion);
    SQLRETURN result = log_in(connection, values);
    if (SQL_SUCCEEDED(result))
        give_back(text, out, room, length);
    return result;
}
