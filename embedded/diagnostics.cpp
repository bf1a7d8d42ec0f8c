#include "diagnostics.h"

#include "handles.h"

#include <sqlite3.h>

#include <algorithm>
#include <cstring>

struct StateOfCode { int code; const char *state; };

constexpr StateOfCode states_of_codes[] = {
    {SQLITE_BUSY, "HYT00"}, {SQLITE_LOCKED, "HYT00"}, {SQLITE_CONSTRAINT, "23000"}, {SQLITE_AUTH, "42000"},
    {SQLITE_NOMEM, "HY001"}, {SQLITE_TOOBIG, "22001"}, {SQLITE_MISMATCH, "22018"}, {SQLITE_INTERRUPT, "HY008"},
    {SQLITE_READONLY, "42000"}, {SQLITE_CANTOPEN, "08001"}, {SQLITE_NOTADB, "08001"}, {SQLITE_RANGE, "07009"},
};

struct StateOfText { std::string_view beginning; const char *state; };

// SQLite gives one code for everything that is wrong with a statement's text; only its words tell more.
constexpr StateOfText states_of_texts[] = {
    {"no such table", "42S02"}, {"no such column", "42S22"}, {"ambiguous column", "42000"},
    {"near ", "42000"}, {"incomplete input", "42000"}, {"unrecognized token", "42000"},
};

SQLRETURN fail(Diagnostics &diagnostics, std::string_view state, std::string_view message, int native)
{
    diagnostics.push_back({std::string(state), "[NORDVALE][ISAM]" + std::string(message), native});
    return SQL_ERROR;
}

SQLRETURN warn(Diagnostics &diagnostics, std::string_view state, std::string_view message)
{
    fail(diagnostics, state, message);
    return SQL_SUCCESS_WITH_INFO;
}

std::string_view state_of(int code, std::string_view message)
{
    for (const StateOfCode &known : states_of_codes)
        if ((code & 0xff) == known.code)
            return known.state;
    if ((code & 0xff) != SQLITE_ERROR)
        return "HY000";
    for (const StateOfText &known : states_of_texts)
        if (message.starts_with(known.beginning))
            return known.state;
    if (message.find("has no column named") != std::string_view::npos)
        return "42S22";
    return message.ends_with("already exists") ? "42S01" : "42000";
}

SQLRETURN fail_with_sqlite(Diagnostics &diagnostics, sqlite3 *database)
{
    int code = sqlite3_extended_errcode(database);
    const char *message = sqlite3_errmsg(database);
    return fail(diagnostics, state_of(code, message), message, code);
}

bool copy_out(std::string_view text, SQLCHAR *buffer, SQLLEN size, SQLSMALLINT *length)
{
    if (length != nullptr)
        *length = static_cast<SQLSMALLINT>(std::min<size_t>(text.size(), 32767));
    if (buffer == nullptr || size <= 0)
        return buffer == nullptr;
    size_t room = static_cast<size_t>(size) - 1;
    size_t copied = std::min(room, text.size());
    std::memcpy(buffer, text.data(), copied);
    buffer[copied] = '\0';
    return copied == text.size();
}

// Where record `number` of the handle is, or nullptr.
static const Diagnostic *record_of(SQLSMALLINT type, SQLHANDLE handle, SQLSMALLINT number)
{
    const Diagnostics *diagnostics = diagnostics_of(type, handle);
    if (diagnostics == nullptr || number < 1 || static_cast<size_t>(number) > diagnostics->size())
        return nullptr;
    return &(*diagnostics)[static_cast<size_t>(number) - 1];
}

EXPORTED SQLRETURN SQL_API SQLGetDiagRec(SQLSMALLINT type, SQLHANDLE handle, SQLSMALLINT number, SQLCHAR *state,
                                         SQLINTEGER *native, SQLCHAR *message, SQLSMALLINT size, SQLSMALLINT *length)
{
    if (handle == nullptr)
        return SQL_INVALID_HANDLE;
    if (number < 1 || size < 0)
        return SQL_ERROR;
    const Diagnostic *record = record_of(type, handle, number);
    if (record == nullptr)
        return SQL_NO_DATA;
    copy_out(record->state, state, 6, nullptr);
    if (native != nullptr)
        *native = record->native;
    return copy_out(record->message, message, size, length) ? SQL_SUCCESS : SQL_SUCCESS_WITH_INFO;
}

static SQLRETURN returned_with(const Diagnostics &diagnostics)
{
    if (diagnostics.empty())
        return SQL_SUCCESS;
    bool warnings = std::all_of(diagnostics.begin(), diagnostics.end(),
                                [](const Diagnostic &record) { return record.state.starts_with("01"); });
    return warnings ? SQL_SUCCESS_WITH_INFO : SQL_ERROR;
}

static SQLRETURN header_field(SQLSMALLINT type, SQLHANDLE handle, SQLSMALLINT field, SQLPOINTER value)
{
    const Diagnostics &diagnostics = *diagnostics_of(type, handle);
    if (field == SQL_DIAG_NUMBER)
        *static_cast<SQLINTEGER *>(value) = static_cast<SQLINTEGER>(diagnostics.size());
    else if (field == SQL_DIAG_RETURNCODE)
        *static_cast<SQLRETURN *>(value) = returned_with(diagnostics);
    else if (type == SQL_HANDLE_STMT)
        *static_cast<SQLLEN *>(value) = static_cast<Statement *>(handle)->row_count;
    else
        return SQL_ERROR;
    return SQL_SUCCESS;
}

static SQLRETURN record_text(const Diagnostic &record, SQLSMALLINT field, std::string_view &text)
{
    switch (field) {
    case SQL_DIAG_SQLSTATE: text = record.state; return SQL_SUCCESS;
    case SQL_DIAG_MESSAGE_TEXT: text = record.message; return SQL_SUCCESS;
    case SQL_DIAG_CLASS_ORIGIN:
    case SQL_DIAG_SUBCLASS_ORIGIN: text = "ODBC 3.0"; return SQL_SUCCESS;
    case SQL_DIAG_CONNECTION_NAME:
    case SQL_DIAG_SERVER_NAME: text = ""; return SQL_SUCCESS;
    default: return SQL_ERROR;
    }
}

EXPORTED SQLRETURN SQL_API SQLGetDiagField(SQLSMALLINT type, SQLHANDLE handle, SQLSMALLINT number, SQLSMALLINT field,
                                           SQLPOINTER value, SQLSMALLINT size, SQLSMALLINT *length)
{
    if (handle == nullptr || diagnostics_of(type, handle) == nullptr)
        return SQL_INVALID_HANDLE;
    if (field == SQL_DIAG_NUMBER || field == SQL_DIAG_RETURNCODE || field == SQL_DIAG_ROW_COUNT)
        return value == nullptr ? SQL_ERROR : header_field(type, handle, field, value);
    const Diagnostic *record = record_of(type, handle, number);
    if (record == nullptr)
        return number < 1 ? SQL_ERROR : SQL_NO_DATA;
    if (field == SQL_DIAG_NATIVE && value != nullptr) {
        *static_cast<SQLINTEGER *>(value) = record->native;
        return SQL_SUCCESS;
    }
    std::string_view text;
    if (record_text(*record, field, text) != SQL_SUCCESS)
        return SQL_ERROR;
    return copy_out(text, static_cast<SQLCHAR *>(value), size, length) ? SQL_SUCCESS : SQL_SUCCESS_WITH_INFO;
}
