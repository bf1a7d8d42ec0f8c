#include "handles.h"

#include <algorithm>
#include <cstring>
#include <iterator>

struct TextInfo { SQLUSMALLINT kind; const char *text; };
struct ShortInfo { SQLUSMALLINT kind; SQLUSMALLINT number; };
struct LongInfo { SQLUSMALLINT kind; SQLUINTEGER number; };

constexpr TextInfo text_infos[] = {
    {SQL_DRIVER_NAME, "libtabwarden_isam.so"}, {SQL_DRIVER_VER, "00.01.0000"}, {SQL_DRIVER_ODBC_VER, "03.52"},
    {SQL_DBMS_NAME, "NORDVALE_ISAM"}, {SQL_DBMS_VER, "00.01.0000"}, {SQL_SERVER_NAME, ""},
    {SQL_IDENTIFIER_QUOTE_CHAR, "\""}, {SQL_CATALOG_NAME_SEPARATOR, "."}, {SQL_CATALOG_TERM, "catalog"},
    {SQL_SCHEMA_TERM, "schema"}, {SQL_TABLE_TERM, "table"}, {SQL_PROCEDURE_TERM, ""}, {SQL_CATALOG_NAME, "Y"},
    {SQL_SEARCH_PATTERN_ESCAPE, "\\"}, {SQL_SPECIAL_CHARACTERS, ""}, {SQL_KEYWORDS, ""}, {SQL_COLUMN_ALIAS, "Y"},
    {SQL_DATA_SOURCE_READ_ONLY, "N"}, {SQL_ACCESSIBLE_TABLES, "N"}, {SQL_ACCESSIBLE_PROCEDURES, "N"},
    {SQL_PROCEDURES, "N"}, {SQL_ROW_UPDATES, "N"}, {SQL_MULT_RESULT_SETS, "N"}, {SQL_MULTIPLE_ACTIVE_TXN, "Y"},
    {SQL_NEED_LONG_DATA_LEN, "N"}, {SQL_ORDER_BY_COLUMNS_IN_SELECT, "N"}, {SQL_OUTER_JOINS, "Y"},
    {SQL_EXPRESSIONS_IN_ORDERBY, "Y"}, {SQL_LIKE_ESCAPE_CLAUSE, "Y"}, {SQL_INTEGRITY, "N"},
    {SQL_DESCRIBE_PARAMETER, "N"}, {SQL_MAX_ROW_SIZE_INCLUDES_LONG, "Y"}, {SQL_COLLATION_SEQ, ""},
    {SQL_XOPEN_CLI_YEAR, "1995"},
};

constexpr ShortInfo short_infos[] = {
    {SQL_MAX_DRIVER_CONNECTIONS, 0}, {SQL_MAX_CONCURRENT_ACTIVITIES, 0}, {SQL_CURSOR_COMMIT_BEHAVIOR, SQL_CB_PRESERVE},
    {SQL_CURSOR_ROLLBACK_BEHAVIOR, SQL_CB_PRESERVE}, {SQL_TXN_CAPABLE, SQL_TC_ALL},
    {SQL_IDENTIFIER_CASE, SQL_IC_MIXED}, {SQL_QUOTED_IDENTIFIER_CASE, SQL_IC_MIXED},
    {SQL_CATALOG_LOCATION, SQL_CL_START}, {SQL_NULL_COLLATION, SQL_NC_LOW}, {SQL_GROUP_BY, SQL_GB_NO_RELATION},
    {SQL_NON_NULLABLE_COLUMNS, SQL_NNC_NON_NULL}, {SQL_CORRELATION_NAME, SQL_CN_ANY},
    {SQL_CONCAT_NULL_BEHAVIOR, SQL_CB_NULL}, {SQL_FILE_USAGE, SQL_FILE_NOT_SUPPORTED},
    {SQL_ODBC_API_CONFORMANCE, SQL_OAC_LEVEL1}, {SQL_ODBC_SQL_CONFORMANCE, SQL_OSC_CORE},
    {SQL_ODBC_SAG_CLI_CONFORMANCE, SQL_OSCC_COMPLIANT}, {SQL_ACTIVE_ENVIRONMENTS, 0},
    {SQL_MAX_COLUMN_NAME_LEN, 0}, {SQL_MAX_CURSOR_NAME_LEN, 0}, {SQL_MAX_SCHEMA_NAME_LEN, 128},
    {SQL_MAX_CATALOG_NAME_LEN, 128}, {SQL_MAX_TABLE_NAME_LEN, 128}, {SQL_MAX_USER_NAME_LEN, 128},
    {SQL_MAX_PROCEDURE_NAME_LEN, 0}, {SQL_MAX_COLUMNS_IN_GROUP_BY, 0}, {SQL_MAX_COLUMNS_IN_INDEX, 0},
    {SQL_MAX_COLUMNS_IN_ORDER_BY, 0}, {SQL_MAX_COLUMNS_IN_SELECT, 0}, {SQL_MAX_COLUMNS_IN_TABLE, 0},
    {SQL_MAX_TABLES_IN_SELECT, 0}, {SQL_MAX_IDENTIFIER_LEN, 128},
};

constexpr SQLUINTEGER name_usage = SQL_CU_DML_STATEMENTS | SQL_CU_TABLE_DEFINITION | SQL_CU_PRIVILEGE_DEFINITION;

constexpr LongInfo long_infos[] = {
    {SQL_CATALOG_USAGE, name_usage}, {SQL_SCHEMA_USAGE, name_usage}, {SQL_DEFAULT_TXN_ISOLATION, SQL_TXN_READ_COMMITTED},
    {SQL_TXN_ISOLATION_OPTION, SQL_TXN_READ_COMMITTED}, {SQL_GETDATA_EXTENSIONS, SQL_GD_ANY_COLUMN | SQL_GD_ANY_ORDER |
     SQL_GD_BOUND}, {SQL_SCROLL_OPTIONS, SQL_SO_FORWARD_ONLY}, {SQL_FETCH_DIRECTION, SQL_FD_FETCH_NEXT},
    {SQL_ASYNC_MODE, SQL_AM_NONE}, {SQL_BATCH_SUPPORT, 0}, {SQL_BOOKMARK_PERSISTENCE, 0}, {SQL_ALTER_TABLE, 0},
    {SQL_CREATE_TABLE, SQL_CT_CREATE_TABLE}, {SQL_DROP_TABLE, SQL_DT_DROP_TABLE}, {SQL_CREATE_VIEW, 0},
    {SQL_SUBQUERIES, SQL_SQ_COMPARISON | SQL_SQ_EXISTS | SQL_SQ_IN | SQL_SQ_CORRELATED_SUBQUERIES},
    {SQL_UNION, SQL_U_UNION | SQL_U_UNION_ALL}, {SQL_ODBC_INTERFACE_CONFORMANCE, SQL_OIC_CORE},
    {SQL_SQL_CONFORMANCE, SQL_SC_SQL92_ENTRY}, {SQL_OJ_CAPABILITIES, SQL_OJ_LEFT | SQL_OJ_RIGHT | SQL_OJ_FULL |
     SQL_OJ_NESTED | SQL_OJ_NOT_ORDERED | SQL_OJ_INNER | SQL_OJ_ALL_COMPARISON_OPS},
    {SQL_FORWARD_ONLY_CURSOR_ATTRIBUTES1, SQL_CA1_NEXT}, {SQL_FORWARD_ONLY_CURSOR_ATTRIBUTES2,
     SQL_CA2_READ_ONLY_CONCURRENCY}, {SQL_STATIC_CURSOR_ATTRIBUTES1, 0}, {SQL_STATIC_CURSOR_ATTRIBUTES2, 0},
    {SQL_KEYSET_CURSOR_ATTRIBUTES1, 0}, {SQL_KEYSET_CURSOR_ATTRIBUTES2, 0}, {SQL_DYNAMIC_CURSOR_ATTRIBUTES1, 0},
    {SQL_DYNAMIC_CURSOR_ATTRIBUTES2, 0}, {SQL_CURSOR_SENSITIVITY, SQL_INSENSITIVE}, {SQL_POS_OPERATIONS, 0},
    {SQL_NUMERIC_FUNCTIONS, 0}, {SQL_STRING_FUNCTIONS, 0}, {SQL_SYSTEM_FUNCTIONS, 0}, {SQL_TIMEDATE_FUNCTIONS, 0},
    {SQL_CONVERT_FUNCTIONS, 0}, {SQL_PARAM_ARRAY_ROW_COUNTS, SQL_PARC_NO_BATCH}, {SQL_INFO_SCHEMA_VIEWS, 0},
    {SQL_MAX_STATEMENT_LEN, longest_statement}, {SQL_MAX_ROW_SIZE, 0}, {SQL_MAX_INDEX_SIZE, 0}, {SQL_MAX_CHAR_LITERAL_LEN, 0},
    {SQL_MAX_BINARY_LITERAL_LEN, 0}, {SQL_DDL_INDEX, 0}, {SQL_INSERT_STATEMENT, SQL_IS_INSERT_LITERALS |
     SQL_IS_INSERT_SEARCHED}, {SQL_AGGREGATE_FUNCTIONS, SQL_AF_ALL},
};

// Exactly the entry points that the module exports.
constexpr SQLUSMALLINT functions[] = {
    SQL_API_SQLALLOCHANDLE, SQL_API_SQLBINDCOL, SQL_API_SQLBINDPARAMETER, SQL_API_SQLCANCEL, SQL_API_SQLCLOSECURSOR,
    SQL_API_SQLCOLATTRIBUTE, SQL_API_SQLCOLUMNS, SQL_API_SQLCONNECT, SQL_API_SQLDESCRIBECOL, SQL_API_SQLDESCRIBEPARAM,
    SQL_API_SQLDISCONNECT, SQL_API_SQLDRIVERCONNECT, SQL_API_SQLENDTRAN, SQL_API_SQLEXECDIRECT, SQL_API_SQLEXECUTE,
    SQL_API_SQLFETCH, SQL_API_SQLFETCHSCROLL, SQL_API_SQLFREEHANDLE, SQL_API_SQLFREESTMT, SQL_API_SQLGETCONNECTATTR,
    SQL_API_SQLGETDATA, SQL_API_SQLGETDIAGFIELD, SQL_API_SQLGETDIAGREC, SQL_API_SQLGETENVATTR, SQL_API_SQLGETFUNCTIONS,
    SQL_API_SQLGETINFO, SQL_API_SQLGETSTMTATTR, SQL_API_SQLGETTYPEINFO, SQL_API_SQLMORERESULTS, SQL_API_SQLNATIVESQL,
    SQL_API_SQLNUMPARAMS, SQL_API_SQLNUMRESULTCOLS, SQL_API_SQLPREPARE, SQL_API_SQLPRIMARYKEYS, SQL_API_SQLROWCOUNT,
    SQL_API_SQLSETCONNECTATTR, SQL_API_SQLSETENVATTR, SQL_API_SQLSETSTMTATTR, SQL_API_SQLTABLEPRIVILEGES,
    SQL_API_SQLTABLES,
};

static SQLRETURN give_text(Connection &connection, std::string_view text, SQLPOINTER value, SQLSMALLINT size,
                           SQLSMALLINT *length)
{
    return copy_out(text, static_cast<SQLCHAR *>(value), size, length)
               ? SQL_SUCCESS : warn(connection.diagnostics, "01004", "Text cut");
}

template <typename Number>
static SQLRETURN give_number(Number number, SQLPOINTER value, SQLSMALLINT *length)
{
    if (value != nullptr)
        std::memcpy(value, &number, sizeof number);
    if (length != nullptr)
        *length = sizeof number;
    return SQL_SUCCESS;
}

bool is_text_info(SQLUSMALLINT kind)
{
    if (kind == SQL_DATA_SOURCE_NAME || kind == SQL_DATABASE_NAME || kind == SQL_USER_NAME)
        return true;
    return std::any_of(std::begin(text_infos), std::end(text_infos),
                       [kind](const TextInfo &info) { return info.kind == kind; });
}

EXPORTED SQLRETURN SQL_API SQLGetInfo(SQLHDBC handle, SQLUSMALLINT kind, SQLPOINTER value, SQLSMALLINT size,
                                      SQLSMALLINT *length)
{
    Connection &connection = connection_of(handle);
    if (kind == SQL_DATA_SOURCE_NAME)
        return give_text(connection, connection.data_source, value, size, length);
    if (kind == SQL_DATABASE_NAME)
        return give_text(connection, connection.file, value, size, length);
    if (kind == SQL_USER_NAME)
        return give_text(connection, connection.user, value, size, length);
    for (const TextInfo &info : text_infos)
        if (info.kind == kind)
            return give_text(connection, info.text, value, size, length);
    for (const ShortInfo &info : short_infos)
        if (info.kind == kind)
            return give_number(info.number, value, length);
    for (const LongInfo &info : long_infos)
        if (info.kind == kind)
            return give_number(info.number, value, length);
    // Conversions in SQL texts are none of ours, whichever is asked for.
    if (kind >= SQL_CONVERT_BIGINT && kind <= SQL_CONVERT_LONGVARBINARY)
        return give_number(SQLUINTEGER{0}, value, length);
    return fail(connection.diagnostics, "HY096", "The information is not served");
}

EXPORTED SQLRETURN SQL_API SQLGetFunctions(SQLHDBC handle, SQLUSMALLINT function, SQLUSMALLINT *supported)
{
    Connection &connection = connection_of(handle);
    if (supported == nullptr)
        return fail(connection.diagnostics, "HY009", "There is no room for the answer");
    if (function == SQL_API_ODBC3_ALL_FUNCTIONS) {
        std::memset(supported, 0, sizeof *supported * SQL_API_ODBC3_ALL_FUNCTIONS_SIZE);
        for (SQLUSMALLINT known : functions)
            supported[known >> 4] = static_cast<SQLUSMALLINT>(supported[known >> 4] | 1 << (known & 0xf));
        return SQL_SUCCESS;
    }
    if (function == SQL_API_ALL_FUNCTIONS) {
        std::memset(supported, 0, sizeof *supported * 100);
        for (SQLUSMALLINT known : functions)
            if (known < 100)
                supported[known] = SQL_TRUE;
        return SQL_SUCCESS;
    }
    *supported = SQL_FALSE;
    for (SQLUSMALLINT known : functions)
        if (known == function)
            *supported = SQL_TRUE;
    return SQL_SUCCESS;
}
