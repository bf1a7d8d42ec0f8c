#include "authorisation.h"

#include "database.h"
#include "handles.h"
#include "registry.h"
#include "transaction.h"

#include <sqlite3.h>

#include <algorithm>
#include <iterator>
#include <string_view>

struct PrivilegeName { unsigned privilege; const char *word, *recorded; };

constexpr PrivilegeName privilege_names[] = {
    {privilege_select, "select", "SELECT"}, {privilege_insert, "insert", "INSERT"},
    {privilege_update, "update", "UPDATE"}, {privilege_delete, "delete", "DELETE"},
};

struct SystemTableRule { std::string_view table; unsigned administrator, others; };

constexpr SystemTableRule system_table_rules[] = {
    {"user", privilege_all, 0}, {"table", privilege_select, privilege_select},
    {"sysinfo", privilege_select, privilege_select}, {"tableprv", privilege_select, 0},
};

// What SQLite does to its own tables while it creates or drops one.
constexpr int definition_actions[] = {
    SQLITE_CREATE_TABLE, SQLITE_CREATE_INDEX, SQLITE_DROP_TABLE, SQLITE_DROP_INDEX, SQLITE_READ,
    SQLITE_INSERT, SQLITE_UPDATE, SQLITE_DELETE, SQLITE_REINDEX,
};

// They bring foreign code into the process or show its addresses.
constexpr const char *refused_functions[] = {"load_extension", "fts3_tokenizer"};

const char *privilege_word(unsigned privilege)
{
    for (const PrivilegeName &known : privilege_names)
        if (known.privilege == privilege)
            return known.word;
    return "?";
}

const char *recorded_privilege(unsigned privilege)
{
    for (const PrivilegeName &known : privilege_names)
        if (known.privilege == privilege)
            return known.recorded;
    return "?";
}

static int deny(Connection &connection, unsigned privilege, const std::string &table)
{
    if (connection.access.denial.empty())
        connection.access.denial = "User " + connection.user + " does not have the " + privilege_word(privilege) +
                                   " privilege on table " + table;
    return SQLITE_DENY;
}

static int check_table(Connection &connection, unsigned privilege, const char *table)
{
    const std::vector<TableAccess> &tables = connection.access.tables;
    auto found = std::find_if(tables.begin(), tables.end(), [&](const TableAccess &known) {
        return table != nullptr && same_name(known.stored, table);
    });
    if (found == tables.end())
        return deny(connection, privilege, table != nullptr ? table : "");
    if ((found->privileges & privilege) == 0)
        return deny(connection, privilege, found->shown);
    return SQLITE_OK;
}

static int check_function(Connection &connection, const char *name)
{
    for (const char *refused : refused_functions) {
        if (name == nullptr || !same_name(name, refused))
            continue;
        connection.access.denial = std::string(refused) + " is not available";
        return SQLITE_DENY;
    }
    return SQLITE_OK;
}

static int check_change(Connection &connection, unsigned privilege, const char *table)
{
    int result = check_table(connection, privilege, table);
    if (result == SQLITE_OK && connection.access.replaces)
        result = check_table(connection, privilege_delete, table);
    return result;
}

// A table of which no column is read is asked about with an empty column, and so is one that WITH introduces. Names of
// tables have points; SQLite's own have none, but check_program has refused those already.
static bool names_common_table(const char *table, const char *column)
{
    return table != nullptr && column != nullptr && *column == '\0' &&
           std::string_view(table).find('.') == std::string_view::npos;
}

static int authorise(void *context, int action, const char *first, const char *second, const char *, const char *)
{
    Connection &connection = *static_cast<Connection *>(context);
    if (!connection.access.guarded)
        return SQLITE_OK;
    if (connection.access.defines &&
        std::find(std::begin(definition_actions), std::end(definition_actions), action) != std::end(definition_actions))
        return SQLITE_OK;
    switch (action) {
    case SQLITE_SELECT:
    case SQLITE_RECURSIVE: return SQLITE_OK;
    case SQLITE_FUNCTION: return check_function(connection, second);
    case SQLITE_READ:
        return names_common_table(first, second) ? SQLITE_OK : check_table(connection, privilege_select, first);
    case SQLITE_INSERT: return check_change(connection, privilege_insert, first);
    case SQLITE_UPDATE: return check_change(connection, privilege_update, first);
    case SQLITE_DELETE: return check_table(connection, privilege_delete, first);
    default:
        connection.access.denial = "The statement does what is not allowed here";
        return SQLITE_DENY;
    }
}

static unsigned granted_privileges(Connection &connection, const TableName &name)
{
    Query query(connection.own, "select privilege from \"nordvale.system.tableprv\" where catalog = ? and "
                                "schema = ? and \"table\" = ? and grantee in (?, 'public')");
    unsigned privileges = 0;
    bind(query, {name.catalog, name.schema, name.table, connection.user});
    while (step(query))
        for (const PrivilegeName &known : privilege_names)
            if (text_column(query, 0) == known.recorded)
                privileges |= known.privilege;
    return privileges;
}

// False: there is no such table.
static bool find_access(Connection &connection, const TableName &name, TableAccess &access)
{
    access.registered = name;
    access.stored = stored_name(name);
    access.shown = shown_name(name);
    if (is_system_name(name)) {
        for (const SystemTableRule &rule : system_table_rules) {
            if (!same_name(rule.table, name.table))
                continue;
            access.privileges = connection.administrator ? rule.administrator : rule.others;
            return true;
        }
        return false;
    }
    if (!find_table(connection.own, name, access.registered))
        return false;
    access.shown = shown_name(access.registered);
    access.privileges = connection.administrator ? unsigned{privilege_all} : granted_privileges(connection, name);
    return true;
}

SQLRETURN require_user(Connection &connection, Diagnostics &diagnostics)
{
    Query query(connection.own, "select 1 from \"nordvale.system.user\" where username = ?");
    bind(query, {connection.user});
    if (step(query))
        return SQL_SUCCESS;
    if (require_own_statements(connection, diagnostics) != SQL_SUCCESS)
        return SQL_ERROR;
    return fail(diagnostics, "28000", "User " + connection.user + " no longer exists");
}

// SQLite copies a whole table into one of the same shape without asking the authoriser about the columns it reads, so
// the tables that rows come from are checked by their names as well.
static SQLRETURN check_sources(Connection &connection, Diagnostics &diagnostics, const TranslatedStatement &statement)
{
    for (const TableName &name : statement.sources)
        if (check_table(connection, privilege_select, stored_name(name).c_str()) != SQLITE_OK)
            return fail(diagnostics, "42000", connection.access.denial);
    return SQL_SUCCESS;
}

SQLRETURN load_access(Connection &connection, Diagnostics &diagnostics, const TranslatedStatement &statement)
{
    connection.access = {};
    connection.access.replaces = statement.replaces;
    connection.access.defines =
        statement.kind == StatementKind::create_table || statement.kind == StatementKind::drop_table;
    if (require_user(connection, diagnostics) != SQL_SUCCESS)
        return SQL_ERROR;
    // Everybody may read it, and the trigger that keeps the administrator does so in the user's name.
    TableAccess sysinfo;
    find_access(connection, {"nordvale", "system", "sysinfo"}, sysinfo);
    connection.access.tables.push_back(sysinfo);
    for (const TableName &name : statement.tables) {
        TableAccess access;
        if (find_access(connection, name, access))
            connection.access.tables.push_back(access);
        else if (!connection.access.defines)
            return fail(diagnostics, "42S02", "There is no table " + shown_name(name));
    }
    return connection.access.defines ? SQLRETURN{SQL_SUCCESS} : check_sources(connection, diagnostics, statement);
}

// The root pages of the tables and indexes that the program opens; 0 stands for a virtual table. `whole` tells whether
// these are all.
static std::vector<int64_t> opened_pages(sqlite3 *database, const std::string &sql, bool &whole)
{
    std::vector<int64_t> pages;
    Query program(database, "explain " + sql);
    while (step(program)) {
        std::string operation = text_column(program, 1);
        if (operation == "OpenRead" || operation == "OpenWrite" || operation == "ReopenIdx")
            pages.push_back(sqlite3_column_int64(program.prepared, 3));
        else if (operation == "VOpen")
            pages.push_back(0);
    }
    whole = program.prepared != nullptr && sqlite3_reset(program.prepared) == SQLITE_OK;
    return pages;
}

// What was read of the schema holds as long as SQLite itself keeps it: until its version changes or a transaction is
// rolled back, which gives a version back for another schema.
static void forget_root_pages(void *context)
{
    static_cast<Connection *>(context)->root_pages = {};
}

static void refresh_root_pages(Connection &connection)
{
    Query query(connection.own, "pragma schema_version");
    int64_t version = step(query) ? sqlite3_column_int64(query.prepared, 0) : -1;
    if (version < 0 || version != connection.root_pages.schema_version)
        connection.root_pages = {version, 0, {}};
}

// The table whose rows or index begin on this page; empty: none. Reads the schema on from where it was left, so that
// each of its lines is read once at most.
static std::string table_on_page(Connection &connection, int64_t page)
{
    RootPages &known = connection.root_pages;
    if (auto found = known.tables.find(page); found != known.tables.end())
        return found->second;
    Query schema(connection.own, "select rowid, tbl_name, rootpage from sqlite_schema where rowid > ? order by rowid");
    sqlite3_bind_int64(schema.prepared, 1, known.last_row);
    while (step(schema)) {
        known.last_row = sqlite3_column_int64(schema.prepared, 0);
        int64_t root = sqlite3_column_int64(schema.prepared, 2);
        if (root == 0)      // a trigger has no page, nor has a virtual table
            continue;
        known.tables[root] = text_column(schema, 1);
        if (root == page)
            return known.tables[root];
    }
    return {};
}

// SQLite does not ask the authoriser about columns that only "natural" and "using" name, nor about a copied table.
SQLRETURN check_program(Connection &connection, Diagnostics &diagnostics, const std::string &sql)
{
    const std::vector<TableAccess> &known = connection.access.tables;
    refresh_root_pages(connection);
    for (int64_t page : opened_pages(connection.database, sql, connection.access.checked)) {
        std::string table = table_on_page(connection, page);
        // SQLite itself counts the rows of autoincrement columns there.
        if (table != "sqlite_sequence" &&
            std::none_of(known.begin(), known.end(),
                         [&](const TableAccess &one) { return same_name(one.stored, table); }))
            return fail(diagnostics, "42000", "The statement reads a table that it does not name");
    }
    return SQL_SUCCESS;
}

void install_authoriser(Connection &connection)
{
    sqlite3_set_authorizer(connection.database, authorise, &connection);
    sqlite3_rollback_hook(connection.database, forget_root_pages, &connection);
}

SQLRETURN require_administrator(Connection &connection, Diagnostics &diagnostics, const std::string &action)
{
    if (connection.administrator)
        return SQL_SUCCESS;
    return fail(diagnostics, "42000", "Only the administrator may " + action);
}
