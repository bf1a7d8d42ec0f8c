#include "convert.h"
#include "handles.h"

#include <string_view>

// An expression has no type before its rows are there; a text holds whatever comes.
static SQLSMALLINT type_of(const Column &column)
{
    return column.type == SQL_UNKNOWN_TYPE ? SQLSMALLINT{SQL_VARCHAR} : column.type;
}

static SQLLEN display_size(const Column &column)
{
    switch (type_of(column)) {
    case SQL_BIGINT: return 20;
    case SQL_INTEGER: return 11;
    case SQL_SMALLINT: return 6;
    case SQL_DOUBLE: return 24;
    case SQL_VARBINARY: return static_cast<SQLLEN>(column.size * 2);
    default: return static_cast<SQLLEN>(column.size);
    }
}

static SQLLEN octet_length(const Column &column)
{
    switch (type_of(column)) {
    case SQL_BIGINT:
    case SQL_DOUBLE: return 8;
    case SQL_INTEGER: return 4;
    case SQL_SMALLINT: return 2;
    default: return static_cast<SQLLEN>(column.size);
    }
}

static bool is_number(SQLSMALLINT type)
{
    return type == SQL_BIGINT || type == SQL_INTEGER || type == SQL_SMALLINT || type == SQL_DOUBLE;
}

static const char *type_name(SQLSMALLINT type)
{
    switch (type) {
    case SQL_BIGINT: return "bigint";
    case SQL_INTEGER: return "integer";
    case SQL_SMALLINT: return "smallint";
    case SQL_DOUBLE: return "double";
    case SQL_VARBINARY: return "varbinary";
    default: return "varchar";
    }
}

EXPORTED SQLRETURN SQL_API SQLNumResultCols(SQLHSTMT handle, SQLSMALLINT *count)
{
    Statement &statement = statement_of(handle);
    return store(statement.diagnostics, count, statement.result.columns.size());
}

EXPORTED SQLRETURN SQL_API SQLDescribeCol(SQLHSTMT handle, SQLUSMALLINT number, SQLCHAR *name, SQLSMALLINT name_size,
                                          SQLSMALLINT *name_length, SQLSMALLINT *type, SQLULEN *size,
                                          SQLSMALLINT *digits, SQLSMALLINT *nullable)
{
    Statement &statement = statement_of(handle);
    if (number < 1 || number > statement.result.columns.size())
        return fail(statement.diagnostics, "07009", "There is no such column");
    const Column &column = statement.result.columns[number - 1u];
    if (type != nullptr)
        *type = type_of(column);
    if (size != nullptr)
        *size = column.size;
    if (digits != nullptr)
        *digits = 0;
    if (nullable != nullptr)
        *nullable = column.nullable;
    return copy_out(column.name, name, name_size, name_length)
               ? SQL_SUCCESS : warn(statement.diagnostics, "01004", "Column name cut");
}

static bool text_attribute(const Column &column, SQLUSMALLINT field, std::string_view &text)
{
    switch (field) {
    case SQL_DESC_NAME:
    case SQL_DESC_LABEL:
    case SQL_COLUMN_NAME:
    case SQL_DESC_BASE_COLUMN_NAME: text = column.name; return true;
    case SQL_DESC_TYPE_NAME:
    case SQL_DESC_LOCAL_TYPE_NAME: text = type_name(type_of(column)); return true;
    case SQL_DESC_TABLE_NAME:
    case SQL_DESC_BASE_TABLE_NAME:
    case SQL_DESC_SCHEMA_NAME:
    case SQL_DESC_CATALOG_NAME: text = ""; return true;
    case SQL_DESC_LITERAL_PREFIX:
    case SQL_DESC_LITERAL_SUFFIX: text = is_number(type_of(column)) ? "" : "'"; return true;
    default: return false;
    }
}

static bool number_attribute(const Column &column, SQLUSMALLINT field, SQLLEN &number)
{
    SQLSMALLINT type = type_of(column);
    switch (field) {
    case SQL_DESC_TYPE:
    case SQL_DESC_CONCISE_TYPE: number = type; return true;
    case SQL_DESC_DISPLAY_SIZE: number = display_size(column); return true;
    case SQL_DESC_LENGTH:
    case SQL_COLUMN_PRECISION:
    case SQL_DESC_PRECISION: number = static_cast<SQLLEN>(column.size); return true;
    case SQL_COLUMN_LENGTH:
    case SQL_DESC_OCTET_LENGTH: number = octet_length(column); return true;
    case SQL_DESC_SCALE:
    case SQL_COLUMN_SCALE: number = 0; return true;
    case SQL_DESC_NULLABLE:
    case SQL_COLUMN_NULLABLE: number = column.nullable; return true;
    case SQL_DESC_UNSIGNED: number = is_number(type) ? SQL_FALSE : SQL_TRUE; return true;
    case SQL_DESC_FIXED_PREC_SCALE:
    case SQL_DESC_AUTO_UNIQUE_VALUE: number = SQL_FALSE; return true;
    case SQL_DESC_CASE_SENSITIVE: number = is_number(type) ? SQL_FALSE : SQL_TRUE; return true;
    case SQL_DESC_SEARCHABLE: number = SQL_PRED_SEARCHABLE; return true;
    case SQL_DESC_UPDATABLE: number = SQL_ATTR_READWRITE_UNKNOWN; return true;
    case SQL_DESC_UNNAMED: number = column.name.empty() ? SQL_UNNAMED : SQL_NAMED; return true;
    case SQL_DESC_NUM_PREC_RADIX: number = is_number(type) ? 10 : 0; return true;
    default: return false;
    }
}

EXPORTED SQLRETURN SQL_API SQLColAttribute(SQLHSTMT handle, SQLUSMALLINT number, SQLUSMALLINT field,
                                           SQLPOINTER text_value, SQLSMALLINT size, SQLSMALLINT *length,
                                           SQLLEN *number_value)
{
    Statement &statement = statement_of(handle);
    const Result &result = statement.result;
    SQLLEN value = static_cast<SQLLEN>(result.columns.size());
    bool counts = field == SQL_DESC_COUNT || field == SQL_COLUMN_COUNT;
    if (!counts && (number < 1 || number > result.columns.size()))
        return fail(statement.diagnostics, "07009", "There is no such column");

    std::string_view text;
    if (!counts && text_attribute(result.columns[number - 1u], field, text))
        return copy_out(text, static_cast<SQLCHAR *>(text_value), size, length)
                   ? SQL_SUCCESS : warn(statement.diagnostics, "01004", "Text cut");
    if (!counts && !number_attribute(result.columns[number - 1u], field, value))
        return fail(statement.diagnostics, "HY091", "The column attribute is not served");
    if (number_value != nullptr)
        *number_value = value;
    return SQL_SUCCESS;
}
