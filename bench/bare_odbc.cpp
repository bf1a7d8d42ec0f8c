// bare_odbc PORT CASE DSN USER PASSWORD [GRANTEE]: what tabwarden's ODBC pages and actions cost at least.
//
// A bare loop whose child looks at nothing of the request, makes the ODBC calls that tabwarden makes for that case, throws
// away what they give and sends one line. bench/same_calls.py compares the two call by call. The data source's names hold
// nothing that would have to be escaped.

#include "bench/loop.h"

#include <cstdio>
#include <cstring>
#include <sql.h>
#include <sqlext.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

constexpr int boxes_ticked = 200;
constexpr char deleted_users[] = "gone_";
constexpr const char *privileges[] = {"select", "insert", "update", "delete"};

const char *source, *user, *password, *grantee;

using Column = char[255];

struct Page {
    SQLHENV env;
    SQLHDBC dbc;
    SQLHSTMT stmt, stmt2;
};

struct Table {
    Column catalog, schema, name;
};

bool succeeded(SQLRETURN result)
{
    return SQL_SUCCEEDED(result);
}

SQLCHAR *text(const char *value)
{
    return reinterpret_cast<SQLCHAR *>(const_cast<char *>(value));
}

SQLHANDLE allocate(SQLSMALLINT type, SQLHANDLE parent)
{
    SQLHANDLE handle = nullptr;
    SQLAllocHandle(type, parent, &handle);
    return handle;
}

bool execute(SQLHSTMT stmt, const char *sql)
{
    return succeeded(SQLExecDirect(stmt, text(sql), SQL_NTS));
}

void read_column(SQLHSTMT stmt, int number, Column &column)
{
    SQLLEN length;
    SQLGetData(stmt, SQLUSMALLINT(number), SQL_C_CHAR, column, sizeof column, &length);
}

void read_rows(SQLHSTMT stmt, const char *query, int columns)
{
    Column column;
    execute(stmt, query);
    while (succeeded(SQLFetch(stmt)))
        for (int number = 1; number <= columns; number++)
            read_column(stmt, number, column);
    SQLCloseCursor(stmt);
}

// The connection and its end

SQLHENV environment()
{
    SQLHENV env = allocate(SQL_HANDLE_ENV, nullptr);
    SQLSetEnvAttr(env, SQL_ATTR_ODBC_VERSION, reinterpret_cast<SQLPOINTER>(SQL_OV_ODBC3), 0);
    return env;
}

void allocate_statements(Page &page)
{
    page.stmt = allocate(SQL_HANDLE_STMT, page.dbc);
    page.stmt2 = allocate(SQL_HANDLE_STMT, page.dbc);
}

void free_statements(Page &page)
{
    SQLFreeHandle(SQL_HANDLE_STMT, page.stmt);
    SQLFreeHandle(SQL_HANDLE_STMT, page.stmt2);
}

void reset(Page &page)
{
    free_statements(page);
    allocate_statements(page);
}

void connect(Page &page)
{
    char connection[4 * sizeof(Column)];
    Column completed, administrator;
    SQLSMALLINT length;
    page.env = environment();
    page.dbc = allocate(SQL_HANDLE_DBC, page.env);
    snprintf(connection, sizeof connection, "dsn=%s;uid=%s;pwd=%s", source, user, password);
    SQLDriverConnect(page.dbc, nullptr, text(connection), SQL_NTS, text(completed), sizeof completed, &length,
                     SQL_DRIVER_COMPLETE);
    allocate_statements(page);
    execute(page.stmt, "select \"VALUE\" from nordvale.system.sysinfo where attribute = 'dbo_user';");
    SQLFetch(page.stmt);
    read_column(page.stmt, 1, administrator);
    SQLCloseCursor(page.stmt);
    SQLFreeHandle(SQL_HANDLE_STMT, page.stmt);
    page.stmt = allocate(SQL_HANDLE_STMT, page.dbc);
}

void disconnect(Page &page)
{
    free_statements(page);
    SQLDisconnect(page.dbc);
    SQLFreeHandle(SQL_HANDLE_DBC, page.dbc);
    SQLFreeHandle(SQL_HANDLE_ENV, page.env);
}

void walk_data_sources()
{
    Column name, driver;
    SQLSMALLINT name_length, driver_length;
    SQLHENV env = environment();
    for (SQLUSMALLINT direction = SQL_FETCH_FIRST;
         succeeded(SQLDataSources(env, direction, text(name), sizeof name, &name_length, text(driver), sizeof driver,
                                  &driver_length));)
        direction = SQL_FETCH_NEXT;
    SQLFreeHandle(SQL_HANDLE_ENV, env);
}

// Lists and changes

void list_users(Page &page)
{
    reset(page);
    read_rows(page.stmt, "select username, description, password from nordvale.system.user;", 3);
}

void list_rights(Page &page)
{
    char query[2048];
    snprintf(query, sizeof query,
             "select a.catalog, a.schema, a.table, b.grantor, b.grantee, b.privilege, c.privilege, d.privilege,"
             " e.privilege   from nordvale.system.table a  "
             "   left outer join nordvale.system.tableprv b on a.catalog = b.catalog and a.schema = b.schema and"
             "       a.table = b.table and b.privilege = 'SELECT' and b.grantee = '%s' "
             "   left outer join nordvale.system.tableprv c on a.catalog = c.catalog and a.schema = c.schema and"
             "       a.table = c.table and c.privilege = 'INSERT' and c.grantee = '%s' "
             "   left outer join nordvale.system.tableprv d on a.catalog = d.catalog and a.schema = d.schema and"
             "       a.table = d.table and d.privilege = 'UPDATE' and d.grantee = '%s' "
             "   left outer join nordvale.system.tableprv e on a.catalog = e.catalog and a.schema = e.schema and"
             "       a.table = e.table and e.privilege = 'DELETE' and e.grantee = '%s'",
             grantee, grantee, grantee, grantee);
    reset(page);
    read_rows(page.stmt, query, 9);
}

void open_tables(Page &page)
{
    reset(page);
    SQLTables(page.stmt, nullptr, SQL_NTS, nullptr, SQL_NTS, nullptr, SQL_NTS, text(""), SQL_NTS);
}

bool next_table(Page &page, Table &table)
{
    if (!succeeded(SQLFetch(page.stmt)))
        return false;
    read_column(page.stmt, 1, table.catalog);
    read_column(page.stmt, 2, table.schema);
    read_column(page.stmt, 3, table.name);
    return true;
}

bool change(Page &page, bool grants, const char *privilege, const Table &table, const char *name)
{
    char sql[8 * sizeof(Column)];
    snprintf(sql, sizeof sql, "%s %s on \"%s\".\"%s\".\"%s\" %s \"%s\"", grants ? "grant" : "revoke", privilege,
             table.catalog, table.schema, table.name, grants ? "to" : "from", name);
    return execute(page.stmt2, sql);
}

void change_boxes(Page &page)
{
    Table table;
    int box = 0;
    open_tables(page);
    while (next_table(page, table))
        for (const char *privilege : privileges)
            change(page, box++ < boxes_ticked, privilege, table, grantee);
}

void change_all(Page &page, bool grants, const char *name)
{
    Table table;
    Column message;
    SQLCHAR state[6];
    SQLINTEGER native_error;
    SQLSMALLINT length;
    open_tables(page);
    while (next_table(page, table)) {
        if (change(page, grants, "all", table, name))
            continue;
        // PostgreSQL knows a deleted user's name no more.
        SQLGetDiagRec(SQL_HANDLE_STMT, page.stmt2, 1, state, &native_error, text(message), sizeof message, &length);
        break;
    }
}

void delete_user(Page &page, SQLHSTMT writer, const char *name)
{
    char sql[2 * sizeof(Column)];
    snprintf(sql, sizeof sql, "delete from nordvale.system.user where username = '%s'", name);
    execute(writer, sql);
    change_all(page, false, name);
}

void delete_users(Page &page)
{
    Column name, description, stored_password;
    reset(page);
    SQLHSTMT reader = allocate(SQL_HANDLE_STMT, page.dbc), writer = allocate(SQL_HANDLE_STMT, page.dbc);
    execute(reader, "select username, description, password from nordvale.system.user order by 1;");
    while (succeeded(SQLFetch(reader))) {
        read_column(reader, 1, name);
        read_column(reader, 2, description);
        read_column(reader, 3, stored_password);
        if (strncmp(name, deleted_users, strlen(deleted_users)) == 0)
            delete_user(page, writer, name);
    }
    SQLCloseCursor(reader);
    SQLFreeHandle(SQL_HANDLE_STMT, writer);
    SQLFreeHandle(SQL_HANDLE_STMT, reader);
}

// The cases

void chooser(Page &) {}

void users(Page &page)
{
    list_users(page);
}

void change_users(Page &page)
{
    delete_users(page);
    list_users(page);
}

void offer_users(Page &page)
{
    reset(page);
    read_rows(page.stmt, "select username from nordvale.system.user order by 1;", 1);
    reset(page);
}

void rights(Page &page)
{
    offer_users(page);
    list_rights(page);
}

void submit(Page &page)
{
    offer_users(page);
    change_boxes(page);
    list_rights(page);
}

void grant_all(Page &page)
{
    offer_users(page);
    change_all(page, true, grantee);
    list_rights(page);
}

void revoke_all(Page &page)
{
    offer_users(page);
    change_all(page, false, grantee);
    list_rights(page);
}

struct Case {
    const char *name;
    void (*body)(Page &);
};

constexpr Case cases[] = {
    {"chooser", chooser},     {"users", users},           {"rights", rights},           {"submit", submit},
    {"grant_all", grant_all}, {"revoke_all", revoke_all}, {"delete_users", change_users},
};

void (*body_of_case)(Page &);

// The log-in, the chooser of the data source, the page on a connection of its own.
void answer(int connection)
{
    Page page = {};
    connect(page);
    disconnect(page);
    walk_data_sources();
    connect(page);
    reset(page);
    body_of_case(page);
    disconnect(page);
    send(connection, "done\n", 5, 0);
}

}

int main(int argc, char **argv)
{
    for (const Case &known : cases)
        if (argc >= 6 && strcmp(argv[2], known.name) == 0)
            body_of_case = known.body;
    if (!body_of_case) {
        fputs("Usage: bare_odbc PORT CASE DSN USER PASSWORD [GRANTEE]\n", stderr);
        return 2;
    }
    source = argv[3];
    user = argv[4];
    password = argv[5];
    grantee = argc > 6 ? argv[6] : "";
    return serve(argv[1], answer, _exit);
}
