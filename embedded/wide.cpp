// The wide entry points: each turns its texts into UTF-8 or back and lets the narrow one do the work. The driver manager
// would convert as well, but by the character set of the process's locale, in which most names cannot be written.

#include "handles.h"
#include "unicode.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <utility>
#include <vector>

// More than any text that the driver itself gives out but a value or a statement; longer diagnostics are cut.
constexpr size_t largest_text = 16384;

// A text argument as the narrow calls take it: a null pointer stays one.
struct NarrowArgument {
    NarrowArgument(const SQLWCHAR *wide, SQLLEN length) : given(wide != nullptr)
    {
        if (!given)
            return;
        const char16_t *start = reinterpret_cast<const char16_t *>(wide);
        if (length == SQL_NTS)
            text = narrow_text(start);
        else if (length > 0)
            text = narrow_text({start, static_cast<size_t>(length)});
    }
    SQLCHAR *data() { return given ? reinterpret_cast<SQLCHAR *>(text.data()) : nullptr; }
    // In UTF-8 a text may become too long for the narrow call's type; it is told by its NUL then.
    template <typename Length = SQLSMALLINT>
    Length length() const { return std::in_range<Length>(text.size()) ? static_cast<Length>(text.size()) : SQL_NTS; }

    std::string text;
    bool given;
};

// Room for a text that a narrow call gives out.
struct NarrowRoom {
    SQLCHAR *data() { return bytes.data(); }
    std::string_view text() const { return reinterpret_cast<const char *>(bytes.data()); }

    std::vector<SQLCHAR> bytes = std::vector<SQLCHAR>(largest_text);
    SQLSMALLINT length = 0;
};

// Copies `text` as UTF-16 with a NUL into `buffer` of `size` characters, cut where it is too long, and stores the whole
// length in characters. True when it was not cut.
template <typename Length>
static bool copy_out_wide(std::string_view text, SQLPOINTER buffer, SQLLEN size, Length *length)
{
    std::u16string wide = wide_text(text);
    if (length != nullptr)
        *length = static_cast<Length>(wide.size());
    if (buffer == nullptr || size <= 0)
        return buffer == nullptr;
    size_t whole = wide.size(), copied = std::min(whole, static_cast<size_t>(size) - 1);
    wide.resize(copied);
    std::memcpy(buffer, wide.c_str(), (copied + 1) * sizeof(char16_t));
    return copied == whole;
}

// The result of a narrow call that succeeded.
static SQLRETURN result_of_copy(SQLRETURN result, bool whole, Diagnostics *diagnostics)
{
    if (whole)
        return result;
    return diagnostics != nullptr ? warn(*diagnostics, "01004", "Text cut") : SQL_SUCCESS_WITH_INFO;
}

EXPORTED SQLRETURN SQL_API SQLConnectW(SQLHDBC handle, SQLWCHAR *data_source, SQLSMALLINT data_source_length,
                                       SQLWCHAR *user, SQLSMALLINT user_length, SQLWCHAR *password,
                                       SQLSMALLINT password_length)
{
    NarrowArgument source(data_source, data_source_length), name(user, user_length),
        secret(password, password_length);
    return SQLConnect(handle, source.data(), source.length(), name.data(), name.length(), secret.data(),
                      secret.length());
}

EXPORTED SQLRETURN SQL_API SQLDriverConnectW(SQLHDBC handle, SQLHWND window, SQLWCHAR *text, SQLSMALLINT length,
                                             SQLWCHAR *completed, SQLSMALLINT size, SQLSMALLINT *completed_length,
                                             SQLUSMALLINT completion)
{
    NarrowArgument string(text, length);
    NarrowRoom room;
    SQLRETURN result = SQLDriverConnect(handle, window, string.data(), string.length(), room.data(), largest_text,
                                        &room.length, completion);
    if (!SQL_SUCCEEDED(result))
        return result;
    return result_of_copy(result, copy_out_wide(room.text(), completed, size, completed_length),
                          diagnostics_of(SQL_HANDLE_DBC, handle));
}

EXPORTED SQLRETURN SQL_API SQLExecDirectW(SQLHSTMT handle, SQLWCHAR *text, SQLINTEGER length)
{
    NarrowArgument statement(text, length);
    return SQLExecDirect(handle, statement.data(), statement.length<SQLINTEGER>());
}

EXPORTED SQLRETURN SQL_API SQLPrepareW(SQLHSTMT handle, SQLWCHAR *text, SQLINTEGER length)
{
    NarrowArgument statement(text, length);
    return SQLPrepare(handle, statement.data(), statement.length<SQLINTEGER>());
}

EXPORTED SQLRETURN SQL_API SQLNativeSqlW(SQLHDBC handle, SQLWCHAR *text, SQLINTEGER length, SQLWCHAR *native,
                                         SQLINTEGER size, SQLINTEGER *native_length)
{
    NarrowArgument statement(text, length);
    SQLINTEGER narrow_length = 0;
    SQLRETURN result = SQLNativeSql(handle, statement.data(), statement.length<SQLINTEGER>(), nullptr, 0,
                                    &narrow_length);
    if (!SQL_SUCCEEDED(result))
        return result;
    NarrowRoom room;
    room.bytes.resize(static_cast<size_t>(narrow_length) + 1);     // a statement may be longer than any other text
    result = SQLNativeSql(handle, statement.data(), statement.length<SQLINTEGER>(), room.data(), narrow_length + 1,
                          nullptr);
    return result_of_copy(result, copy_out_wide(room.text(), native, size, native_length),
                          diagnostics_of(SQL_HANDLE_DBC, handle));
}

EXPORTED SQLRETURN SQL_API SQLDescribeColW(SQLHSTMT handle, SQLUSMALLINT number, SQLWCHAR *name,
                                           SQLSMALLINT name_size, SQLSMALLINT *name_length, SQLSMALLINT *type,
                                           SQLULEN *size, SQLSMALLINT *digits, SQLSMALLINT *nullable)
{
    NarrowRoom room;
    SQLRETURN result = SQLDescribeCol(handle, number, room.data(), largest_text, &room.length, type, size, digits,
                                      nullable);
    if (!SQL_SUCCEEDED(result))
        return result;
    return result_of_copy(result, copy_out_wide(room.text(), name, name_size, name_length),
                          diagnostics_of(SQL_HANDLE_STMT, handle));
}

// The calls that count their rooms in bytes, and that give out a text or a number: a text was given out where the
// narrow call stored its length.
static SQLRETURN give_field(SQLRETURN result, const NarrowRoom &room, SQLPOINTER value, SQLSMALLINT size,
                            SQLSMALLINT *length, Diagnostics *diagnostics)
{
    SQLSMALLINT characters = 0;
    bool whole = copy_out_wide(room.text(), value, size / static_cast<SQLSMALLINT>(sizeof(SQLWCHAR)), &characters);
    if (length != nullptr)
        *length = static_cast<SQLSMALLINT>(static_cast<size_t>(characters) * sizeof(SQLWCHAR));
    return result_of_copy(result, whole, diagnostics);
}

static bool is_text_attribute(SQLUSMALLINT field)
{
    constexpr SQLUSMALLINT texts[] = {
        SQL_DESC_NAME, SQL_DESC_LABEL, SQL_COLUMN_NAME, SQL_DESC_BASE_COLUMN_NAME, SQL_DESC_TYPE_NAME,
        SQL_DESC_LOCAL_TYPE_NAME, SQL_DESC_TABLE_NAME, SQL_DESC_BASE_TABLE_NAME, SQL_DESC_SCHEMA_NAME,
        SQL_DESC_CATALOG_NAME, SQL_DESC_LITERAL_PREFIX, SQL_DESC_LITERAL_SUFFIX,
    };
    return std::find(std::begin(texts), std::end(texts), field) != std::end(texts);
}

EXPORTED SQLRETURN SQL_API SQLColAttributeW(SQLHSTMT handle, SQLUSMALLINT number, SQLUSMALLINT field,
                                            SQLPOINTER text_value, SQLSMALLINT size, SQLSMALLINT *length,
                                            SQLLEN *number_value)
{
    if (!is_text_attribute(field))
        return SQLColAttribute(handle, number, field, text_value, size, length, number_value);
    NarrowRoom room;
    SQLRETURN result = SQLColAttribute(handle, number, field, room.data(), largest_text, &room.length, number_value);
    if (!SQL_SUCCEEDED(result))
        return result;
    return give_field(result, room, text_value, size, length, diagnostics_of(SQL_HANDLE_STMT, handle));
}

EXPORTED SQLRETURN SQL_API SQLGetDiagRecW(SQLSMALLINT type, SQLHANDLE handle, SQLSMALLINT number, SQLWCHAR *state,
                                          SQLINTEGER *native, SQLWCHAR *message, SQLSMALLINT size,
                                          SQLSMALLINT *length)
{
    NarrowRoom room;
    SQLCHAR narrow_state[6] = "";
    SQLRETURN result = SQLGetDiagRec(type, handle, number, narrow_state, native, room.data(), largest_text,
                                     &room.length);
    if (!SQL_SUCCEEDED(result))
        return result;
    copy_out_wide<SQLSMALLINT>(reinterpret_cast<const char *>(narrow_state), state, 6, nullptr);
    return result_of_copy(result, copy_out_wide(room.text(), message, size, length), nullptr);
}

EXPORTED SQLRETURN SQL_API SQLGetDiagFieldW(SQLSMALLINT type, SQLHANDLE handle, SQLSMALLINT number, SQLSMALLINT field,
                                            SQLPOINTER value, SQLSMALLINT size, SQLSMALLINT *length)
{
    bool is_text = field == SQL_DIAG_SQLSTATE || field == SQL_DIAG_MESSAGE_TEXT || field == SQL_DIAG_CLASS_ORIGIN ||
                   field == SQL_DIAG_SUBCLASS_ORIGIN || field == SQL_DIAG_CONNECTION_NAME ||
                   field == SQL_DIAG_SERVER_NAME;
    if (!is_text)
        return SQLGetDiagField(type, handle, number, field, value, size, length);
    NarrowRoom room;
    SQLRETURN result = SQLGetDiagField(type, handle, number, field, room.data(), largest_text, &room.length);
    return SQL_SUCCEEDED(result) ? give_field(result, room, value, size, length, nullptr) : result;
}

EXPORTED SQLRETURN SQL_API SQLGetInfoW(SQLHDBC handle, SQLUSMALLINT kind, SQLPOINTER value, SQLSMALLINT size,
                                       SQLSMALLINT *length)
{
    if (!is_text_info(kind))
        return SQLGetInfo(handle, kind, value, size, length);
    NarrowRoom room;
    SQLRETURN result = SQLGetInfo(handle, kind, room.data(), largest_text, &room.length);
    return give_field(result, room, value, size, length, diagnostics_of(SQL_HANDLE_DBC, handle));
}

EXPORTED SQLRETURN SQL_API SQLTablesW(SQLHSTMT handle, SQLWCHAR *catalog, SQLSMALLINT catalog_length, SQLWCHAR *schema,
                                      SQLSMALLINT schema_length, SQLWCHAR *table, SQLSMALLINT table_length,
                                      SQLWCHAR *types, SQLSMALLINT types_length)
{
    NarrowArgument first(catalog, catalog_length), second(schema, schema_length), third(table, table_length),
        fourth(types, types_length);
    return SQLTables(handle, first.data(), first.length(), second.data(), second.length(), third.data(),
                     third.length(), fourth.data(), fourth.length());
}

EXPORTED SQLRETURN SQL_API SQLColumnsW(SQLHSTMT handle, SQLWCHAR *catalog, SQLSMALLINT catalog_length,
                                       SQLWCHAR *schema, SQLSMALLINT schema_length, SQLWCHAR *table,
                                       SQLSMALLINT table_length, SQLWCHAR *column, SQLSMALLINT column_length)
{
    NarrowArgument first(catalog, catalog_length), second(schema, schema_length), third(table, table_length),
        fourth(column, column_length);
    return SQLColumns(handle, first.data(), first.length(), second.data(), second.length(), third.data(),
                      third.length(), fourth.data(), fourth.length());
}

EXPORTED SQLRETURN SQL_API SQLTablePrivilegesW(SQLHSTMT handle, SQLWCHAR *catalog, SQLSMALLINT catalog_length,
                                               SQLWCHAR *schema, SQLSMALLINT schema_length, SQLWCHAR *table,
                                               SQLSMALLINT table_length)
{
    NarrowArgument first(catalog, catalog_length), second(schema, schema_length), third(table, table_length);
    return SQLTablePrivileges(handle, first.data(), first.length(), second.data(), second.length(), third.data(),
                              third.length());
}

EXPORTED SQLRETURN SQL_API SQLPrimaryKeysW(SQLHSTMT handle, SQLWCHAR *catalog, SQLSMALLINT catalog_length,
                                           SQLWCHAR *schema, SQLSMALLINT schema_length, SQLWCHAR *table,
                                           SQLSMALLINT table_length)
{
    NarrowArgument first(catalog, catalog_length), second(schema, schema_length), third(table, table_length);
    return SQLPrimaryKeys(handle, first.data(), first.length(), second.data(), second.length(), third.data(),
                          third.length());
}

EXPORTED SQLRETURN SQL_API SQLGetTypeInfoW(SQLHSTMT handle, SQLSMALLINT type)
{
    return SQLGetTypeInfo(handle, type);
}

EXPORTED SQLRETURN SQL_API SQLSetConnectAttrW(SQLHDBC handle, SQLINTEGER attribute, SQLPOINTER value, SQLINTEGER size)
{
    return SQLSetConnectAttr(handle, attribute, value, size);    // no attribute that is served takes a text
}

EXPORTED SQLRETURN SQL_API SQLGetConnectAttrW(SQLHDBC handle, SQLINTEGER attribute, SQLPOINTER value, SQLINTEGER size,
                                              SQLINTEGER *length)
{
    if (attribute == SQL_ATTR_CURRENT_CATALOG && value != nullptr && size >= static_cast<SQLINTEGER>(sizeof(SQLWCHAR)))
        std::memset(value, 0, sizeof(SQLWCHAR));
    if (attribute == SQL_ATTR_CURRENT_CATALOG && length != nullptr)
        *length = 0;
    return attribute == SQL_ATTR_CURRENT_CATALOG ? SQLRETURN{SQL_SUCCESS}
                                                 : SQLGetConnectAttr(handle, attribute, value, size, length);
}
