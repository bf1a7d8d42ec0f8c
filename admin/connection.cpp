#include "admin/connection.h"

#include "admin/error_page.h"
#include "admin/odbc.h"
#include "common/text.h"

#include <cctype>
#include <cstring>
#include <odbcinst.h>
#include <sql.h>
#include <sqlext.h>

namespace {

// "dsn=", ";uid=" and ";pwd=" with a data source name and two values in braces, each of their characters doubled.
constexpr int connection_string_size = 6 * column_size;

bool is_blank(char character)
{
    return isspace(static_cast<unsigned char>(character)) != 0;
}

// Whether the value would end its field, or lose blanks, when it stood in the connection string as it is.
bool needs_braces(const char *value)
{
    size_t length = strlen(value);
    return length > 0 && (strpbrk(value, ";{}") || is_blank(value[0]) || is_blank(value[length - 1]));
}

void put_value(TextWriter &connection, const char *value)
{
    if (!needs_braces(value)) {
        put(connection, value);
        return;
    }
    put(connection, '{');
    for (; *value; value++) {
        if (*value == '}')
            put(connection, '}');
        put(connection, *value);
    }
    put(connection, '}');
}

void compose_connection_string(std::span<char> out)
{
    TextWriter connection{out};
    put(connection, "dsn=");
    put(connection, datasource);
    put(connection, ";uid=");
    put_value(connection, logonuser);
    put(connection, ";pwd=");
    put_value(connection, logonauth);
}

bool allocate_statements(PageContext &context)
{
    return succeeded(SQLAllocHandle(SQL_HANDLE_STMT, context.dbc, &context.stmt)) &&
           succeeded(SQLAllocHandle(SQL_HANDLE_STMT, context.dbc, &context.stmt2));
}

bool driver_connect(SQLHDBC dbc)
{
    char connection[connection_string_size];
    SQLCHAR completed[255];
    SQLSMALLINT length;
    compose_connection_string(connection);
    return succeeded(SQLDriverConnect(dbc, nullptr, reinterpret_cast<SQLCHAR *>(connection), SQL_NTS, completed,
                                      sizeof completed, &length, SQL_DRIVER_COMPLETE));
}

int fail(PageBuffer &message, const char *call, SQLSMALLINT handle_type, SQLHANDLE handle)
{
    describe_failure(message, call, handle_type, handle);
    return -1;
}

int connect(PageContext &context, PageBuffer &message)
{
    // ODBC has no way to enclose a data source name.
    if (strpbrk(datasource, ";{}")) {
        set_page(message, "Data source name cannot contain ; { or }.\n");
        return -1;
    }
    SQLAllocHandle(SQL_HANDLE_ENV, nullptr, &context.env);
    SQLSetEnvAttr(context.env, SQL_ATTR_ODBC_VERSION, reinterpret_cast<SQLPOINTER>(SQL_OV_ODBC3), 0);
    if (!succeeded(SQLAllocHandle(SQL_HANDLE_DBC, context.env, &context.dbc)))
        return fail(message, "SQLAllocHandle", SQL_HANDLE_ENV, context.env);
    if (!driver_connect(context.dbc))
        return fail(message, "SQLDriverConnect", SQL_HANDLE_DBC, context.dbc);
    if (!allocate_statements(context))
        return fail(message, "SQLAllocHandle", SQL_HANDLE_DBC, context.dbc);
    return 0;
}

// A data source that does not tell its administrator has none: nobody is accepted there.
void read_administrator(PageContext &context)
{
    if (!execute(context.stmt, "select \"VALUE\" from nordvale.system.sysinfo where attribute = 'dbo_user';"))
        diagnostic_text(SQL_HANDLE_STMT, context.stmt);
    ColumnText name = "";
    if (succeeded(SQLFetch(context.stmt)) && read_column(context.stmt, 1, name) != Reading::whole)
        name[0] = 0;
    copy_text(context.dbo_user, name);
    SQLCloseCursor(context.stmt);
}

}

int uri_setup(PageContext &context, char *, RequestRecord *request)
{
    context.request = request;
    context.registry = open_registry();
    set_ini_function(context.registry, SQLGetPrivateProfileString);
    context.dbc = nullptr;
    context.stmt = nullptr;
    context.stmt2 = nullptr;
    return 0;
}

int uri_connect(PageContext &context, PageBuffer &message, int report)
{
    if (datasource[0] && !context.dbc)
        if (int result = connect(context, message); result < 0)
            return report ? return_error(context, message.text) : result;
    read_administrator(context);
    free_statement(context.stmt);
    if (!succeeded(SQLAllocHandle(SQL_HANDLE_STMT, context.dbc, &context.stmt)))
        return report_failure(context, message, "SQLAllocHandle", SQL_HANDLE_DBC, context.dbc);
    return 0;
}

int uri_reset(PageContext &context, PageBuffer &message)
{
    free_statement(context.stmt);
    free_statement(context.stmt2);
    if (!allocate_statements(context))
        return report_failure(context, message, "SQLAllocHandle", SQL_HANDLE_DBC, context.dbc);
    return 0;
}

int uri_disconnect(PageContext &context, char *)
{
    close_registry(context.registry);
    context.registry = nullptr;
    free_statement(context.stmt);
    free_statement(context.stmt2);
    if (context.dbc) {
        SQLDisconnect(context.dbc);
        SQLFreeHandle(SQL_HANDLE_DBC, context.dbc);
        context.dbc = nullptr;
    }
    if (context.env) {
        SQLFreeHandle(SQL_HANDLE_ENV, context.env);
        context.env = nullptr;
    }
    return 0;
}
