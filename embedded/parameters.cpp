#include "execute.h"
#include "unicode.h"

#include <cstdio>
#include <cstring>

static SQLLEN length_of(const Parameter &parameter)
{
    return parameter.indicator != nullptr ? *parameter.indicator : SQL_NTS;
}

// A value that lies at an address of which nothing is promised.
template <typename Value>
static Value value_at(const Parameter &parameter)
{
    Value value;
    std::memcpy(&value, parameter.value, sizeof value);
    return value;
}

static int bind_text(sqlite3_stmt *prepared, int number, std::string_view text)
{
    return sqlite3_bind_text64(prepared, number, text.data(), text.size(), SQLITE_TRANSIENT, SQLITE_UTF8);
}

static int bind_narrow(sqlite3_stmt *prepared, int number, const Parameter &parameter)
{
    const char *text = static_cast<const char *>(parameter.value);
    SQLLEN length = length_of(parameter);
    return bind_text(prepared, number, length == SQL_NTS ? std::string_view(text)
                                                         : std::string_view(text, static_cast<size_t>(length)));
}

static int bind_wide(sqlite3_stmt *prepared, int number, const Parameter &parameter)
{
    const char16_t *text = static_cast<const char16_t *>(parameter.value);
    SQLLEN length = length_of(parameter);
    std::u16string_view wide = length == SQL_NTS ? std::u16string_view(text)
                                                 : std::u16string_view(text, static_cast<size_t>(length) / 2);
    return bind_text(prepared, number, narrow_text(wide));
}

static int bind_binary(sqlite3_stmt *prepared, int number, const Parameter &parameter)
{
    SQLLEN length = length_of(parameter);
    sqlite3_uint64 size = length == SQL_NTS ? parameter.column_size : static_cast<sqlite3_uint64>(length);
    return sqlite3_bind_blob64(prepared, number, size == 0 ? "" : parameter.value, size, SQLITE_TRANSIENT);
}

// Times are kept as ISO 8601 texts, which SQLite's date functions read and which sort by time.
static int bind_time(sqlite3_stmt *prepared, int number, const Parameter &parameter)
{
    char text[80];
    if (parameter.value_type == SQL_C_TYPE_DATE || parameter.value_type == SQL_C_DATE) {
        SQL_DATE_STRUCT day = value_at<SQL_DATE_STRUCT>(parameter);
        std::snprintf(text, sizeof text, "%04d-%02u-%02u", day.year, day.month, day.day);
    } else if (parameter.value_type == SQL_C_TYPE_TIME || parameter.value_type == SQL_C_TIME) {
        SQL_TIME_STRUCT time = value_at<SQL_TIME_STRUCT>(parameter);
        std::snprintf(text, sizeof text, "%02u:%02u:%02u", time.hour, time.minute, time.second);
    } else {
        SQL_TIMESTAMP_STRUCT both = value_at<SQL_TIMESTAMP_STRUCT>(parameter);
        char fraction[16] = "";
        if (both.fraction != 0)
            std::snprintf(fraction, sizeof fraction, ".%06u", static_cast<unsigned>(both.fraction / 1000));
        std::snprintf(text, sizeof text, "%04d-%02u-%02u %02u:%02u:%02u%s", both.year, both.month, both.day, both.hour,
                      both.minute, both.second, fraction);
    }
    return bind_text(prepared, number, text);
}

static int bind_unsigned(sqlite3_stmt *prepared, int number, uint64_t value)
{
    return value <= INT64_MAX ? sqlite3_bind_int64(prepared, number, static_cast<int64_t>(value)) : SQLITE_TOOBIG;
}

static SQLSMALLINT value_type_of(const Parameter &parameter)
{
    if (parameter.value_type != SQL_C_DEFAULT)
        return parameter.value_type;
    switch (parameter.parameter_type) {
    case SQL_BIT:
    case SQL_TINYINT: return SQL_C_STINYINT;
    case SQL_SMALLINT: return SQL_C_SSHORT;
    case SQL_INTEGER: return SQL_C_SLONG;
    case SQL_BIGINT: return SQL_C_SBIGINT;
    case SQL_REAL: return SQL_C_FLOAT;
    case SQL_FLOAT:
    case SQL_DOUBLE: return SQL_C_DOUBLE;
    case SQL_BINARY:
    case SQL_VARBINARY:
    case SQL_LONGVARBINARY: return SQL_C_BINARY;
    case SQL_WCHAR:
    case SQL_WVARCHAR:
    case SQL_WLONGVARCHAR: return SQL_C_WCHAR;
    default: return SQL_C_CHAR;
    }
}

// SQLITE_OK, another code of SQLite, or -1 for a C type that is not served.
static int bind_value(sqlite3_stmt *prepared, int number, const Parameter &parameter)
{
    if (parameter.indicator != nullptr && *parameter.indicator == SQL_NULL_DATA)
        return sqlite3_bind_null(prepared, number);
    if (parameter.value == nullptr)
        return sqlite3_bind_null(prepared, number);
    switch (value_type_of(parameter)) {
    case SQL_C_CHAR: return bind_narrow(prepared, number, parameter);
    case SQL_C_WCHAR: return bind_wide(prepared, number, parameter);
    case SQL_C_BINARY: return bind_binary(prepared, number, parameter);
    case SQL_C_BIT:
    case SQL_C_UTINYINT: return sqlite3_bind_int(prepared, number, value_at<unsigned char>(parameter));
    case SQL_C_TINYINT:
    case SQL_C_STINYINT: return sqlite3_bind_int(prepared, number, value_at<signed char>(parameter));
    case SQL_C_SHORT:
    case SQL_C_SSHORT: return sqlite3_bind_int(prepared, number, value_at<int16_t>(parameter));
    case SQL_C_USHORT: return sqlite3_bind_int(prepared, number, value_at<uint16_t>(parameter));
    case SQL_C_LONG:
    case SQL_C_SLONG: return sqlite3_bind_int(prepared, number, value_at<int32_t>(parameter));
    case SQL_C_ULONG: return sqlite3_bind_int64(prepared, number, value_at<uint32_t>(parameter));
    case SQL_C_SBIGINT: return sqlite3_bind_int64(prepared, number, value_at<int64_t>(parameter));
    case SQL_C_UBIGINT: return bind_unsigned(prepared, number, value_at<uint64_t>(parameter));
    case SQL_C_FLOAT: return sqlite3_bind_double(prepared, number, static_cast<double>(value_at<float>(parameter)));
    case SQL_C_DOUBLE: return sqlite3_bind_double(prepared, number, value_at<double>(parameter));
    case SQL_C_TYPE_DATE:
    case SQL_C_TYPE_TIME:
    case SQL_C_TYPE_TIMESTAMP:
    case SQL_C_DATE:
    case SQL_C_TIME:
    case SQL_C_TIMESTAMP: return bind_time(prepared, number, parameter);
    default: return -1;
    }
}

static bool is_sized(SQLSMALLINT value_type)
{
    return value_type == SQL_C_CHAR || value_type == SQL_C_WCHAR || value_type == SQL_C_BINARY;
}

// What the indicator says must be served before the value is looked at, which need not be there.
static SQLRETURN check_indicator(Statement &statement, const Parameter &parameter)
{
    SQLLEN length = length_of(parameter);
    if (length == SQL_DATA_AT_EXEC || length <= SQL_LEN_DATA_AT_EXEC_OFFSET)
        return fail(statement.diagnostics, "HYC00", "Data at execution are not served");
    if (length < 0 && length != SQL_NTS && length != SQL_NULL_DATA && is_sized(value_type_of(parameter)))
        return fail(statement.diagnostics, "HY090", "The length of a parameter is negative");
    return SQL_SUCCESS;
}

SQLRETURN bind_parameters(Statement &statement, sqlite3_stmt *prepared)
{
    int count = sqlite3_bind_parameter_count(prepared);
    for (int number = 1; number <= count; ++number) {
        size_t index = static_cast<size_t>(number) - 1;
        if (index >= statement.parameters.size() || !statement.parameters[index].bound)
            return fail(statement.diagnostics, "07002", "Parameter " + std::to_string(number) + " has no value");
        if (check_indicator(statement, statement.parameters[index]) != SQL_SUCCESS)
            return SQL_ERROR;
        int result = bind_value(prepared, number, statement.parameters[index]);
        if (result < 0)
            return fail(statement.diagnostics, "HYC00", "The C type of a parameter is not served");
        if (result == SQLITE_NOMEM)
            return fail_with_sqlite(statement.diagnostics, statement.connection->database);
        if (result != SQLITE_OK)
            return fail(statement.diagnostics, "22003", "Parameter " + std::to_string(number) + " is out of range");
    }
    return SQL_SUCCESS;
}

EXPORTED SQLRETURN SQL_API SQLBindParameter(SQLHSTMT handle, SQLUSMALLINT number, SQLSMALLINT direction,
                                            SQLSMALLINT value_type, SQLSMALLINT parameter_type, SQLULEN column_size,
                                            SQLSMALLINT, SQLPOINTER value, SQLLEN size, SQLLEN *indicator)
{
    Statement &statement = statement_of(handle);
    if (number < 1)
        return fail(statement.diagnostics, "07009", "Parameters are counted from 1");
    if (direction != SQL_PARAM_INPUT)
        return fail(statement.diagnostics, "HYC00", "Parameters only go in");
    if (statement.parameters.size() < number)
        statement.parameters.resize(number);
    statement.parameters[number - 1u] = {value_type, parameter_type, column_size, value, size, indicator, true};
    return SQL_SUCCESS;
}

EXPORTED SQLRETURN SQL_API SQLNumParams(SQLHSTMT handle, SQLSMALLINT *count)
{
    Statement &statement = statement_of(handle);
    return store(statement.diagnostics, count, statement.parameter_count);
}

EXPORTED SQLRETURN SQL_API SQLDescribeParam(SQLHSTMT handle, SQLUSMALLINT number, SQLSMALLINT *type, SQLULEN *size,
                                            SQLSMALLINT *digits, SQLSMALLINT *nullable)
{
    Statement &statement = statement_of(handle);
    if (number < 1 || number > statement.parameter_count)
        return fail(statement.diagnostics, "07009", "There is no such parameter");
    // SQLite takes any value anywhere, so a text says least wrong.
    if (type != nullptr)
        *type = SQL_VARCHAR;
    if (size != nullptr)
        *size = 255;
    if (digits != nullptr)
        *digits = 0;
    if (nullable != nullptr)
        *nullable = SQL_NULLABLE_UNKNOWN;
    return SQL_SUCCESS;
}
