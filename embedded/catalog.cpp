#include "authorisation.h"
#include "catalog_pattern.h"
#include "database.h"
#include "execute.h"
#include "statement_log.h"
#include "transaction.h"

#include <initializer_list>

struct CatalogColumn { const char *name; SQLSMALLINT type; };

constexpr CatalogColumn tables_columns[] = {
    {"TABLE_CAT", SQL_VARCHAR}, {"TABLE_SCHEM", SQL_VARCHAR}, {"TABLE_NAME", SQL_VARCHAR},
    {"TABLE_TYPE", SQL_VARCHAR}, {"REMARKS", SQL_VARCHAR},
};

constexpr CatalogColumn columns_columns[] = {
    {"TABLE_CAT", SQL_VARCHAR}, {"TABLE_SCHEM", SQL_VARCHAR}, {"TABLE_NAME", SQL_VARCHAR},
    {"COLUMN_NAME", SQL_VARCHAR}, {"DATA_TYPE", SQL_SMALLINT}, {"TYPE_NAME", SQL_VARCHAR},
    {"COLUMN_SIZE", SQL_INTEGER}, {"BUFFER_LENGTH", SQL_INTEGER}, {"DECIMAL_DIGITS", SQL_SMALLINT},
    {"NUM_PREC_RADIX", SQL_SMALLINT}, {"NULLABLE", SQL_SMALLINT}, {"REMARKS", SQL_VARCHAR},
    {"COLUMN_DEF", SQL_VARCHAR}, {"SQL_DATA_TYPE", SQL_SMALLINT}, {"SQL_DATETIME_SUB", SQL_SMALLINT},
    {"CHAR_OCTET_LENGTH", SQL_INTEGER}, {"ORDINAL_POSITION", SQL_INTEGER}, {"IS_NULLABLE", SQL_VARCHAR},
};

constexpr CatalogColumn privileges_columns[] = {
    {"TABLE_CAT", SQL_VARCHAR}, {"TABLE_SCHEM", SQL_VARCHAR}, {"TABLE_NAME", SQL_VARCHAR}, {"GRANTOR", SQL_VARCHAR},
    {"GRANTEE", SQL_VARCHAR}, {"PRIVILEGE", SQL_VARCHAR}, {"IS_GRANTABLE", SQL_VARCHAR},
};

constexpr CatalogColumn keys_columns[] = {
    {"TABLE_CAT", SQL_VARCHAR}, {"TABLE_SCHEM", SQL_VARCHAR}, {"TABLE_NAME", SQL_VARCHAR},
    {"COLUMN_NAME", SQL_VARCHAR}, {"KEY_SEQ", SQL_SMALLINT}, {"PK_NAME", SQL_VARCHAR},
};

constexpr CatalogColumn types_columns[] = {
    {"TYPE_NAME", SQL_VARCHAR}, {"DATA_TYPE", SQL_SMALLINT}, {"COLUMN_SIZE", SQL_INTEGER},
    {"LITERAL_PREFIX", SQL_VARCHAR}, {"LITERAL_SUFFIX", SQL_VARCHAR}, {"CREATE_PARAMS", SQL_VARCHAR},
    {"NULLABLE", SQL_SMALLINT}, {"CASE_SENSITIVE", SQL_SMALLINT}, {"SEARCHABLE", SQL_SMALLINT},
    {"UNSIGNED_ATTRIBUTE", SQL_SMALLINT}, {"FIXED_PREC_SCALE", SQL_SMALLINT}, {"AUTO_UNIQUE_VALUE", SQL_SMALLINT},
    {"LOCAL_TYPE_NAME", SQL_VARCHAR}, {"MINIMUM_SCALE", SQL_SMALLINT}, {"MAXIMUM_SCALE", SQL_SMALLINT},
    {"SQL_DATA_TYPE", SQL_SMALLINT}, {"SQL_DATETIME_SUB", SQL_SMALLINT}, {"NUM_PREC_RADIX", SQL_INTEGER},
    {"INTERVAL_PRECISION", SQL_SMALLINT},
};

struct ServedType { const char *name; SQLSMALLINT type; int64_t size; const char *prefix, *suffix, *parameters; };

// In the order of the type's number, as ODBC asks. SQLite's own limit bounds texts and blobs. Dates and times are taken
// as parameters and kept as texts.
constexpr ServedType served_types[] = {
    {"bigint", SQL_BIGINT, 19, nullptr, nullptr, nullptr},
    {"varbinary", SQL_VARBINARY, 1000000000, "x'", "'", "length"},
    {"double", SQL_DOUBLE, 15, nullptr, nullptr, nullptr},
    {"varchar", SQL_VARCHAR, 1000000000, "'", "'", "length"},
    {"date", SQL_TYPE_DATE, 10, "'", "'", nullptr},
    {"time", SQL_TYPE_TIME, 8, "'", "'", nullptr},
    {"timestamp", SQL_TYPE_TIMESTAMP, 26, "'", "'", nullptr},
};

constexpr const char *system_tables[] = {"sysinfo", "table", "tableprv", "user"};

// A catalog call's result begins: its columns stand, no rows yet.
template <size_t count>
static Result &begin_result(Statement &statement, const CatalogColumn (&columns)[count])
{
    close_cursor(statement);
    statement.row_count = -1;
    statement.prepared = false;
    for (const CatalogColumn &known : columns) {
        Column column;
        column.name = known.name;
        column.type = known.type;
        column.size = known.type == SQL_INTEGER ? 10 : known.type == SQL_SMALLINT ? 5 : 128;
        column.size_declared = true;
        statement.result.columns.push_back(column);
    }
    return statement.result;
}

static void fit_text_columns(Result &result)
{
    for (size_t i = 0; i < result.cells.size(); ++i) {
        Column &column = result.columns[i % result.columns.size()];
        if (column.type == SQL_VARCHAR && column.size < result.cells[i].length)
            column.size = result.cells[i].length;
    }
}

static SQLRETURN show_result(Statement &statement)
{
    fit_text_columns(statement.result);
    statement.row_count = static_cast<SQLLEN>(row_count(statement.result));
    open_cursor(statement);
    return SQL_SUCCESS;
}

// Begins a call that reads the database: false for a user who was deleted meanwhile.
static bool may_call(Statement &statement, const char *call)
{
    statement.connection->own.failure = SQLITE_OK;
    SQLRETURN result = require_user(*statement.connection, statement.diagnostics);
    if (result != SQL_SUCCESS) {
        close_cursor(statement);
        log_statement(*statement.connection, statement.connection->user, result, statement.diagnostics, call);
    }
    return result == SQL_SUCCESS;
}

// Ends it.
static SQLRETURN finish(Statement &statement, const char *call)
{
    SQLRETURN result = require_own_statements(*statement.connection, statement.diagnostics);
    if (result == SQL_SUCCESS)
        result = show_result(statement);
    else
        close_cursor(statement);
    log_statement(*statement.connection, statement.connection->user, result, statement.diagnostics, call);
    return result;
}

static void add_texts(Result &result, std::initializer_list<std::string_view> texts)
{
    for (std::string_view text : texts)
        add_text(result, text);
}

static void add_nulls(Result &result, int count)
{
    for (int i = 0; i < count; ++i)
        add_null(result);
}

static void add_text_or_null(Result &result, const char *text)
{
    if (text != nullptr)
        add_text(result, text);
    else
        add_null(result);
}

// The tables whose names match, by name: first those of the users, then, where `system` says so, our own.
static std::vector<TableName> matching_tables(Statement &statement, const NamePattern &pattern, bool users, bool system)
{
    std::vector<TableName> names;
    Query query(statement.connection->own, "select catalog, schema, \"table\" from \"nordvale.system.table\" "
                                           "order by catalog, schema, \"table\"");
    while (users && step(query)) {
        TableName name{text_column(query, 0), text_column(query, 1), text_column(query, 2)};
        if (matches(pattern, name))
            names.push_back(name);
    }
    for (const char *table : system_tables) {
        TableName name{"nordvale", "system", table};
        if (system && matches(pattern, name))
            names.push_back(name);
    }
    return names;
}

// The list forms of SQLTables: one column holds every catalog, every schema or every type, the others are null.
static bool list_form(Statement &statement, Result &result, const CatalogArguments &arguments)
{
    bool catalogs = arguments.catalog == "%" && arguments.schema == "" && arguments.table == "";
    bool schemas = arguments.schema == "%" && arguments.catalog == "" && arguments.table == "";
    bool types = arguments.types == "%" && arguments.catalog == "" && arguments.schema == "" && arguments.table == "";
    if (types) {
        for (const char *type : {"SYSTEM TABLE", "TABLE"}) {
            add_nulls(result, 3);
            add_text(result, type);
            add_null(result);
        }
        return true;
    }
    if (!catalogs && !schemas)
        return false;
    const char *column = catalogs ? "catalog" : "schema";
    Query query(statement.connection->own, std::string("select distinct ") + column +
                                               " from \"nordvale.system.table\" union select " +
                                               (catalogs ? "'nordvale'" : "'system'") + " order by 1");
    while (step(query)) {
        add_nulls(result, catalogs ? 0 : 1);
        add_text(result, text_column(query, 0));
        add_nulls(result, catalogs ? 4 : 3);
    }
    return true;
}

static void list_tables(Statement &statement, const CatalogArguments &arguments)
{
    Result &result = begin_result(statement, tables_columns);
    if (list_form(statement, result, arguments))
        return;
    // Our own tables only come when they are asked for by their type: programs that treat every table of the plain list
    // alike would stumble over tables whose privileges are fixed.
    bool users = arguments.types.value_or("").empty() || wants_type(*arguments.types, "TABLE");
    bool system = arguments.types && wants_type(*arguments.types, "SYSTEM TABLE");
    for (const TableName &name : matching_tables(statement, pattern_of(statement, arguments), users, system)) {
        add_texts(result, {name.catalog, name.schema, name.table, is_system_name(name) ? "SYSTEM TABLE" : "TABLE"});
        add_null(result);
    }
}

EXPORTED SQLRETURN SQL_API SQLTables(SQLHSTMT handle, SQLCHAR *catalog, SQLSMALLINT catalog_length, SQLCHAR *schema,
                                     SQLSMALLINT schema_length, SQLCHAR *table, SQLSMALLINT table_length,
                                     SQLCHAR *types, SQLSMALLINT types_length)
{
    Statement &statement = statement_of(handle);
    if (!may_call(statement, "{SQLTables}"))
        return SQL_ERROR;
    CatalogArguments arguments{optional_text(catalog, catalog_length), optional_text(schema, schema_length),
                               optional_text(table, table_length), optional_text(types, types_length)};
    list_tables(statement, arguments);
    return finish(statement, "{SQLTables}");
}

// One row of SQLColumns; `query` stands on a row of pragma_table_info.
static void add_column_row(Result &result, const TableName &name, Query &query)
{
    Column column;
    describe_declared(text_column(query, 1), column);
    bool texts = column.type == SQL_VARCHAR || column.type == SQL_VARBINARY;
    bool not_null = text_column(query, 2) != "0";
    int64_t size = static_cast<int64_t>(column.size);
    add_texts(result, {name.catalog, name.schema, name.table, text_column(query, 0)});
    add_integer(result, column.type);
    add_text(result, column.type_name.empty() ? "varchar" : column.type_name);
    add_integer(result, size);
    add_integer(result, texts ? size : 8);
    add_null(result);
    texts ? add_null(result) : add_integer(result, 10);
    add_integer(result, not_null ? SQL_NO_NULLS : SQL_NULLABLE);
    add_null(result);
    sqlite3_column_type(query.prepared, 3) == SQLITE_NULL ? add_null(result) : add_text(result, text_column(query, 3));
    add_integer(result, column.type);
    add_null(result);
    texts ? add_integer(result, size) : add_null(result);
    add_integer(result, sqlite3_column_int64(query.prepared, 4) + 1);
    add_text(result, not_null ? "NO" : "YES");
}

EXPORTED SQLRETURN SQL_API SQLColumns(SQLHSTMT handle, SQLCHAR *catalog, SQLSMALLINT catalog_length, SQLCHAR *schema,
                                      SQLSMALLINT schema_length, SQLCHAR *table, SQLSMALLINT table_length,
                                      SQLCHAR *column, SQLSMALLINT column_length)
{
    Statement &statement = statement_of(handle);
    if (!may_call(statement, "{SQLColumns}"))
        return SQL_ERROR;
    CatalogArguments arguments{optional_text(catalog, catalog_length), optional_text(schema, schema_length),
                               optional_text(table, table_length), {}};
    std::optional<std::string> column_pattern = optional_text(column, column_length);
    Result &result = begin_result(statement, columns_columns);
    for (const TableName &name : matching_tables(statement, pattern_of(statement, arguments), true, true)) {
        Query query(statement.connection->own, "select name, type, \"notnull\", dflt_value, cid from pragma_table_info(?)");
        bind(query, {stored_name(name)});
        while (step(query))
            if (matches_part(column_pattern, text_column(query, 0), statement.metadata_id == SQL_TRUE))
                add_column_row(result, name, query);
    }
    return finish(statement, "{SQLColumns}");
}

// The administrator sees all privileges, others their own and those of public.
EXPORTED SQLRETURN SQL_API SQLTablePrivileges(SQLHSTMT handle, SQLCHAR *catalog, SQLSMALLINT catalog_length,
                                              SQLCHAR *schema, SQLSMALLINT schema_length, SQLCHAR *table,
                                              SQLSMALLINT table_length)
{
    Statement &statement = statement_of(handle);
    if (!may_call(statement, "{SQLTablePrivileges}"))
        return SQL_ERROR;
    Connection &connection = *statement.connection;
    CatalogArguments arguments{optional_text(catalog, catalog_length), optional_text(schema, schema_length),
                               optional_text(table, table_length), {}};
    NamePattern pattern = pattern_of(statement, arguments);
    Result &result = begin_result(statement, privileges_columns);
    Query query(connection.own, "select catalog, schema, \"table\", grantor, grantee, privilege "
                                "from \"nordvale.system.tableprv\" where ?1 = '1' or grantee in (?2, 'public') "
                                "order by catalog, schema, \"table\", privilege, grantee");
    bind(query, {connection.administrator ? "1" : "0", connection.user});
    while (step(query)) {
        TableName name{text_column(query, 0), text_column(query, 1), text_column(query, 2)};
        if (matches(pattern, name))
            add_texts(result, {name.catalog, name.schema, name.table, text_column(query, 3), text_column(query, 4),
                               text_column(query, 5), "NO"});
    }
    return finish(statement, "{SQLTablePrivileges}");
}

EXPORTED SQLRETURN SQL_API SQLPrimaryKeys(SQLHSTMT handle, SQLCHAR *catalog, SQLSMALLINT catalog_length,
                                          SQLCHAR *schema, SQLSMALLINT schema_length, SQLCHAR *table,
                                          SQLSMALLINT table_length)
{
    Statement &statement = statement_of(handle);
    if (!may_call(statement, "{SQLPrimaryKeys}"))
        return SQL_ERROR;
    TableName name{text_argument(catalog, catalog_length), text_argument(schema, schema_length),
                   text_argument(table, table_length)};
    Result &result = begin_result(statement, keys_columns);
    Query query(statement.connection->own, "select name, pk from pragma_table_info(?) where pk > 0 order by pk");
    bind(query, {stored_name(name)});
    while (step(query)) {
        add_texts(result, {name.catalog, name.schema, name.table, text_column(query, 0)});
        add_integer(result, sqlite3_column_int64(query.prepared, 1));
        add_null(result);
    }
    return finish(statement, "{SQLPrimaryKeys}");
}

static void add_type_row(Result &result, const ServedType &type)
{
    bool number = type.prefix == nullptr;
    add_text(result, type.name);
    add_integer(result, type.type);
    add_integer(result, type.size);
    add_text_or_null(result, type.prefix);
    add_text_or_null(result, type.suffix);
    add_text_or_null(result, type.parameters);
    add_integer(result, SQL_NULLABLE);
    add_integer(result, number ? SQL_FALSE : SQL_TRUE);
    add_integer(result, SQL_SEARCHABLE);
    number ? add_integer(result, SQL_FALSE) : add_null(result);
    add_integer(result, SQL_FALSE);
    number ? add_integer(result, SQL_FALSE) : add_null(result);
    add_text(result, type.name);
    add_nulls(result, 2);
    add_integer(result, type.type);
    add_null(result);
    number ? add_integer(result, 10) : add_null(result);
    add_null(result);
}

EXPORTED SQLRETURN SQL_API SQLGetTypeInfo(SQLHSTMT handle, SQLSMALLINT type)
{
    Statement &statement = statement_of(handle);
    Result &result = begin_result(statement, types_columns);
    for (const ServedType &served : served_types)
        if (type == SQL_ALL_TYPES || type == served.type)
            add_type_row(result, served);
    return show_result(statement);
}
