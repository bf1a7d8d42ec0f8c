// Statements and the list of tables: what the pages send becomes what PostgreSQL takes.

#include "next.h"
#include "statement.h"

#include <sql.h>
#include <sqlext.h>

#include <cstring>

// The tables in the order of the list of rights, which comes from the same function: a table that only one of the two
// lists has would lose its rights when the other is submitted.
constexpr char table_list[] =
    "select current_database()::text as \"TABLE_CAT\", schema as \"TABLE_SCHEM\", name as \"TABLE_NAME\", "
    "kind as \"TABLE_TYPE\", ''::text as \"REMARKS\" from tabwarden.tables()";

using WithText = SQLRETURN(SQLHSTMT, SQLCHAR *, SQLINTEGER);

static SQLRETURN execute(WithText *next, SQLHSTMT statement, SQLCHAR *text, SQLINTEGER length)
{
    if (text == nullptr || (length < 0 && length != SQL_NTS))
        return next(statement, text, length);
    const char *letters = reinterpret_cast<const char *>(text);
    std::string adapted = adapted_statement({letters, length == SQL_NTS ? strlen(letters) : static_cast<size_t>(length)});
    return next(statement, reinterpret_cast<SQLCHAR *>(adapted.data()), static_cast<SQLINTEGER>(adapted.size()));
}

EXPORTED SQLRETURN SQL_API SQLExecDirect(SQLHSTMT statement, SQLCHAR *text, SQLINTEGER length)
{
    static WithText *const next = next_of(SQLExecDirect, "SQLExecDirect");
    return execute(next, statement, text, length);
}

EXPORTED SQLRETURN SQL_API SQLPrepare(SQLHSTMT statement, SQLCHAR *text, SQLINTEGER length)
{
    static WithText *const next = next_of(SQLPrepare, "SQLPrepare");
    return execute(next, statement, text, length);
}

static bool is_empty(const SQLCHAR *text, SQLSMALLINT length)
{
    return text == nullptr || length == 0 || (length == SQL_NTS && *text == 0);
}

EXPORTED SQLRETURN SQL_API SQLTables(SQLHSTMT statement, SQLCHAR *catalog, SQLSMALLINT catalog_length, SQLCHAR *schema,
                                     SQLSMALLINT schema_length, SQLCHAR *table, SQLSMALLINT table_length, SQLCHAR *type,
                                     SQLSMALLINT type_length)
{
    static auto *const next = next_of(SQLTables, "SQLTables");
    static WithText *const execute_directly = next_of(SQLExecDirect, "SQLExecDirect");
    if (catalog == nullptr && schema == nullptr && table == nullptr && is_empty(type, type_length)) {
        std::string query = table_list;
        return execute_directly(statement, reinterpret_cast<SQLCHAR *>(query.data()), SQL_NTS);
    }
    return next(statement, catalog, catalog_length, schema, schema_length, table, table_length, type, type_length);
}
