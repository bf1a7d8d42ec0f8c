#include "handles.h"
#include "transaction.h"

#include <cstdint>

constexpr char no_room[] = "There is no room for the value";

static SQLULEN number_in(SQLPOINTER value)
{
    return reinterpret_cast<uintptr_t>(value);
}

EXPORTED SQLRETURN SQL_API SQLSetEnvAttr(SQLHENV handle, SQLINTEGER attribute, SQLPOINTER value, SQLINTEGER)
{
    Environment &environment = environment_of(handle);
    if (attribute == SQL_ATTR_ODBC_VERSION)
        environment.odbc_version = static_cast<SQLINTEGER>(number_in(value));
    else if (attribute != SQL_ATTR_OUTPUT_NTS || number_in(value) != SQL_TRUE)
        return fail(environment.diagnostics, "HYC00", "The attribute is not served");
    return SQL_SUCCESS;
}

EXPORTED SQLRETURN SQL_API SQLGetEnvAttr(SQLHENV handle, SQLINTEGER attribute, SQLPOINTER value, SQLINTEGER,
                                         SQLINTEGER *)
{
    Environment &environment = environment_of(handle);
    if (value == nullptr)
        return fail(environment.diagnostics, "HY009", no_room);
    if (attribute == SQL_ATTR_ODBC_VERSION)
        *static_cast<SQLINTEGER *>(value) = environment.odbc_version;
    else if (attribute == SQL_ATTR_OUTPUT_NTS)
        *static_cast<SQLINTEGER *>(value) = SQL_TRUE;
    else
        return fail(environment.diagnostics, "HYC00", "The attribute is not served");
    return SQL_SUCCESS;
}

static SQLRETURN set_autocommit(Connection &connection, bool autocommit)
{
    // Turning it on commits what is open, as ODBC prescribes.
    if (autocommit && end_transaction(connection, connection.diagnostics, true) != SQL_SUCCESS)
        return SQL_ERROR;
    connection.autocommit = autocommit;
    return SQL_SUCCESS;
}

EXPORTED SQLRETURN SQL_API SQLSetConnectAttr(SQLHDBC handle, SQLINTEGER attribute, SQLPOINTER value, SQLINTEGER)
{
    Connection &connection = connection_of(handle);
    SQLULEN number = number_in(value);
    switch (attribute) {
    case SQL_ATTR_AUTOCOMMIT:
        return set_autocommit(connection, number == SQL_AUTOCOMMIT_ON);
    case SQL_ATTR_LOGIN_TIMEOUT:
        connection.login_timeout = static_cast<SQLUINTEGER>(number);
        return SQL_SUCCESS;
    case SQL_ATTR_ACCESS_MODE:
        connection.access_mode = static_cast<SQLUINTEGER>(number);
        return SQL_SUCCESS;
    case SQL_ATTR_TXN_ISOLATION:
        return number == SQL_TXN_READ_COMMITTED
                   ? SQL_SUCCESS : fail(connection.diagnostics, "HYC00", "Only read committed isolation is served");
    case SQL_ATTR_CONNECTION_TIMEOUT:
    case SQL_ATTR_QUIET_MODE:
    case SQL_ATTR_ODBC_CURSORS:
        return SQL_SUCCESS;
    default:
        return fail(connection.diagnostics, "HYC00", "The attribute is not served");
    }
}

EXPORTED SQLRETURN SQL_API SQLGetConnectAttr(SQLHDBC handle, SQLINTEGER attribute, SQLPOINTER value, SQLINTEGER size,
                                             SQLINTEGER *length)
{
    Connection &connection = connection_of(handle);
    if (value == nullptr)
        return fail(connection.diagnostics, "HY009", no_room);
    SQLUINTEGER *number = static_cast<SQLUINTEGER *>(value);
    switch (attribute) {
    case SQL_ATTR_AUTOCOMMIT: *number = connection.autocommit ? SQL_AUTOCOMMIT_ON : SQL_AUTOCOMMIT_OFF; break;
    case SQL_ATTR_LOGIN_TIMEOUT: *number = connection.login_timeout; break;
    case SQL_ATTR_ACCESS_MODE: *number = connection.access_mode; break;
    case SQL_ATTR_TXN_ISOLATION: *number = SQL_TXN_READ_COMMITTED; break;
    case SQL_ATTR_CONNECTION_TIMEOUT: *number = 0; break;
    case SQL_ATTR_CONNECTION_DEAD: *number = connection.database != nullptr ? SQL_CD_FALSE : SQL_CD_TRUE; break;
    case SQL_ATTR_CURRENT_CATALOG: {
        SQLSMALLINT written;
        copy_out("", static_cast<SQLCHAR *>(value), size, &written);
        if (length != nullptr)
            *length = 0;
        break;
    }
    default:
        return fail(connection.diagnostics, "HYC00", "The attribute is not served");
    }
    return SQL_SUCCESS;
}

// Attributes that have one value only: setting that value succeeds, any other is refused.
struct FixedAttribute { SQLINTEGER attribute; SQLULEN value; };

constexpr FixedAttribute fixed_attributes[] = {
    {SQL_ATTR_CURSOR_TYPE, SQL_CURSOR_FORWARD_ONLY}, {SQL_ATTR_CONCURRENCY, SQL_CONCUR_READ_ONLY},
    {SQL_ATTR_CURSOR_SCROLLABLE, SQL_NONSCROLLABLE}, {SQL_ATTR_CURSOR_SENSITIVITY, SQL_INSENSITIVE},
    {SQL_ATTR_ROW_ARRAY_SIZE, 1}, {SQL_ROWSET_SIZE, 1}, {SQL_ATTR_PARAMSET_SIZE, 1},
    {SQL_ATTR_ROW_BIND_TYPE, SQL_BIND_BY_COLUMN}, {SQL_ATTR_PARAM_BIND_TYPE, SQL_PARAM_BIND_BY_COLUMN},
    {SQL_ATTR_USE_BOOKMARKS, SQL_UB_OFF}, {SQL_ATTR_ASYNC_ENABLE, SQL_ASYNC_ENABLE_OFF},
    {SQL_ATTR_RETRIEVE_DATA, SQL_RD_ON}, {SQL_ATTR_ENABLE_AUTO_IPD, SQL_FALSE},
};

// Where an attribute that is kept as a number is kept.
static SQLULEN *kept_number(Statement &statement, SQLINTEGER attribute)
{
    switch (attribute) {
    case SQL_ATTR_QUERY_TIMEOUT: return &statement.query_timeout;
    case SQL_ATTR_MAX_ROWS: return &statement.max_rows;
    case SQL_ATTR_MAX_LENGTH: return &statement.max_length;
    case SQL_ATTR_METADATA_ID: return &statement.metadata_id;
    case SQL_ATTR_NOSCAN: return &statement.no_scan;
    default: return nullptr;
    }
}

EXPORTED SQLRETURN SQL_API SQLSetStmtAttr(SQLHSTMT handle, SQLINTEGER attribute, SQLPOINTER value, SQLINTEGER)
{
    Statement &statement = statement_of(handle);
    if (SQLULEN *kept = kept_number(statement, attribute)) {
        *kept = number_in(value);
        return SQL_SUCCESS;
    }
    for (const FixedAttribute &fixed : fixed_attributes)
        if (fixed.attribute == attribute)
            return fixed.value == number_in(value)
                       ? SQL_SUCCESS : fail(statement.diagnostics, "HYC00", "The attribute's value is not served");
    switch (attribute) {
    case SQL_ATTR_ROWS_FETCHED_PTR: statement.rows_fetched = static_cast<SQLULEN *>(value); return SQL_SUCCESS;
    case SQL_ATTR_ROW_STATUS_PTR: statement.row_status = static_cast<SQLUSMALLINT *>(value); return SQL_SUCCESS;
    default: return fail(statement.diagnostics, "HYC00", "The attribute is not served");
    }
}

EXPORTED SQLRETURN SQL_API SQLGetStmtAttr(SQLHSTMT handle, SQLINTEGER attribute, SQLPOINTER value, SQLINTEGER,
                                          SQLINTEGER *)
{
    Statement &statement = statement_of(handle);
    if (value == nullptr)
        return fail(statement.diagnostics, "HY009", no_room);
    if (SQLULEN *kept = kept_number(statement, attribute)) {
        *static_cast<SQLULEN *>(value) = *kept;
        return SQL_SUCCESS;
    }
    for (const FixedAttribute &fixed : fixed_attributes) {
        if (fixed.attribute == attribute) {
            *static_cast<SQLULEN *>(value) = fixed.value;
            return SQL_SUCCESS;
        }
    }
    switch (attribute) {
    case SQL_ATTR_ROW_NUMBER: *static_cast<SQLULEN *>(value) = statement.next_row; return SQL_SUCCESS;
    case SQL_ATTR_ROWS_FETCHED_PTR: *static_cast<SQLPOINTER *>(value) = statement.rows_fetched; return SQL_SUCCESS;
    case SQL_ATTR_ROW_STATUS_PTR: *static_cast<SQLPOINTER *>(value) = statement.row_status; return SQL_SUCCESS;
    case SQL_ATTR_APP_ROW_DESC:
    case SQL_ATTR_APP_PARAM_DESC:
    case SQL_ATTR_IMP_ROW_DESC:
    case SQL_ATTR_IMP_PARAM_DESC:
        // The driver manager wants a handle for each, all different.
        *static_cast<SQLPOINTER *>(value) = &statement.descriptors[attribute - SQL_ATTR_APP_ROW_DESC];
        return SQL_SUCCESS;
    default: return fail(statement.diagnostics, "HYC00", "The attribute is not served");
    }
}
