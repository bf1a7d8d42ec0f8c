#include "transaction.h"

#include "database.h"
#include "handles.h"

SQLRETURN require_own_statements(const Connection &connection, Diagnostics &diagnostics)
{
    int failure = connection.own.failure;
    if (failure == SQLITE_OK)
        return SQL_SUCCESS;
    const char *message = sqlite3_errstr(failure);
    return fail(diagnostics, state_of(failure, message), message, failure);
}

bool in_transaction(const Connection &connection)
{
    return connection.database != nullptr && sqlite3_get_autocommit(connection.database) == 0;
}

SQLRETURN begin_step(Connection &connection, Diagnostics &diagnostics, bool changes, Step &step)
{
    connection.own.failure = SQLITE_OK;
    step.savepoint = in_transaction(connection);
    step.whole = !step.savepoint && (connection.autocommit || !changes);
    const char *sql = step.savepoint ? "savepoint step" : changes ? "begin immediate" : "begin";
    return run(connection.own, sql) ? SQL_SUCCESS : fail_with_sqlite(diagnostics, connection.database);
}

SQLRETURN end_step(Connection &connection, Diagnostics &diagnostics, const Step &step, SQLRETURN result)
{
    sqlite3 *database = connection.database;
    if (connection.own.failure != SQLITE_OK) {      // whatever was said for it, a table not found for example
        diagnostics.clear();
        result = require_own_statements(connection, diagnostics);
    }
    connection.own.failure = SQLITE_OK;
    if (!in_transaction(connection)) {      // SQLite has rolled back everything by itself
        // In the first record, which is all that many programs show: they would go on as if nothing else were lost.
        if (step.savepoint && !diagnostics.empty())
            diagnostics.front().message += "; the whole transaction has been rolled back";
        return result;
    }
    if (!SQL_SUCCEEDED(result)) {
        run(connection.own, step.savepoint ? "rollback to step" : "rollback");
        if (step.savepoint)
            run(connection.own, "release step");
        return result;
    }
    if (step.savepoint)
        return run(connection.own, "release step") ? result : fail_with_sqlite(diagnostics, database);
    if (!step.whole || run(connection.own, "commit"))
        return result;
    SQLRETURN failure = fail_with_sqlite(diagnostics, database);
    run(connection.own, "rollback");
    return failure;
}

SQLRETURN end_transaction(Connection &connection, Diagnostics &diagnostics, bool commit)
{
    connection.own.failure = SQLITE_OK;
    if (!in_transaction(connection) || run(connection.own, commit ? "commit" : "rollback"))
        return SQL_SUCCESS;
    return fail_with_sqlite(diagnostics, connection.database);
}

EXPORTED SQLRETURN SQL_API SQLEndTran(SQLSMALLINT type, SQLHANDLE handle, SQLSMALLINT completion)
{
    if (type != SQL_HANDLE_DBC)
        return fail(environment_of(handle).diagnostics, "HYC00", "Transactions are ended connection by connection");
    Connection &connection = connection_of(handle);
    return end_transaction(connection, connection.diagnostics, completion == SQL_COMMIT);
}
