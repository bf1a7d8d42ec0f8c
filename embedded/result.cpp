#include "result.h"

#include "table_name.h"

#include <sqlite3.h>

#include <algorithm>
#include <charconv>

struct DeclaredType { std::string_view word; SQLSMALLINT type; SQLULEN size; };

// Looked for inside the declared type in this order, as SQLite itself derives affinities. Integers are 64 bits wide
// whatever they are called.
constexpr DeclaredType declared_types[] = {
    {"int", SQL_BIGINT, 19}, {"char", SQL_VARCHAR, 255}, {"clob", SQL_VARCHAR, 255}, {"text", SQL_VARCHAR, 255},
    {"blob", SQL_VARBINARY, 255}, {"binary", SQL_VARBINARY, 255}, {"real", SQL_DOUBLE, 15},
    {"floa", SQL_DOUBLE, 15}, {"doub", SQL_DOUBLE, 15}, {"numeric", SQL_DOUBLE, 15}, {"decimal", SQL_DOUBLE, 15},
};

size_t row_count(const Result &result)
{
    return result.columns.empty() ? 0 : result.cells.size() / result.columns.size();
}

static bool contains_word(std::string_view text, std::string_view word)
{
    for (size_t i = 0; i + word.size() <= text.size(); ++i)
        if (same_name(text.substr(i, word.size()), word))
            return true;
    return false;
}

static SQLULEN declared_size(std::string_view declared)
{
    size_t open = declared.find('(');
    SQLULEN size = 0;
    if (open != std::string_view::npos)
        std::from_chars(declared.data() + open + 1, declared.data() + declared.size(), size);
    return size;
}

void describe_declared(std::string_view declared, Column &column)
{
    column.type_name = declared.substr(0, declared.find('('));
    column.type = SQL_VARCHAR;
    column.size = 255;
    for (const DeclaredType &known : declared_types) {
        if (!contains_word(declared, known.word))
            continue;
        column.type = known.type;
        column.size = known.size;
        break;
    }
    bool sized = column.type == SQL_VARCHAR || column.type == SQL_VARBINARY;
    SQLULEN size = sized ? declared_size(declared) : 0;
    column.size_declared = !sized || size != 0;
    if (size != 0)
        column.size = size;
}

void describe_columns(sqlite3_stmt *prepared, Result &result)
{
    int count = sqlite3_column_count(prepared);
    for (int i = 0; i < count; ++i) {
        Column column;
        const char *declared = sqlite3_column_decltype(prepared, i);
        const char *name = sqlite3_column_name(prepared, i);
        describe_declared(declared != nullptr ? declared : "", column);
        if (declared == nullptr)
            column.type = SQL_UNKNOWN_TYPE;
        column.name = name != nullptr ? name : "";
        result.columns.push_back(column);
    }
}

static void add_bytes(Result &result, CellKind kind, const void *bytes, size_t length)
{
    Cell cell;
    cell.kind = kind;
    cell.offset = result.bytes.size();
    cell.length = length;
    if (length > 0)
        result.bytes.append(static_cast<const char *>(bytes), length);
    result.cells.push_back(cell);
}

void add_null(Result &result)
{
    result.cells.emplace_back();
}

void add_integer(Result &result, int64_t value)
{
    Cell cell;
    cell.kind = CellKind::integer;
    cell.integer = value;
    result.cells.push_back(cell);
}

static void add_real(Result &result, double value)
{
    Cell cell;
    cell.kind = CellKind::real;
    cell.real = value;
    result.cells.push_back(cell);
}

void add_text(Result &result, std::string_view text)
{
    add_bytes(result, CellKind::text, text.data(), text.size());
}

static void append_value(sqlite3_stmt *prepared, int column, Result &result)
{
    switch (sqlite3_column_type(prepared, column)) {
    case SQLITE_INTEGER:
        return add_integer(result, sqlite3_column_int64(prepared, column));
    case SQLITE_FLOAT:
        return add_real(result, sqlite3_column_double(prepared, column));
    case SQLITE_TEXT: {
        const unsigned char *text = sqlite3_column_text(prepared, column);
        return add_bytes(result, CellKind::text, text, static_cast<size_t>(sqlite3_column_bytes(prepared, column)));
    }
    case SQLITE_BLOB: {
        const void *bytes = sqlite3_column_blob(prepared, column);
        return add_bytes(result, CellKind::blob, bytes, static_cast<size_t>(sqlite3_column_bytes(prepared, column)));
    }
    default:
        return add_null(result);
    }
}

void append_row(sqlite3_stmt *prepared, Result &result)
{
    for (size_t i = 0; i < result.columns.size(); ++i)
        append_value(prepared, static_cast<int>(i), result);
}

struct Contents { bool integers, reals, texts, blobs; size_t longest; };

static Contents contents_of(const Result &result, size_t column)
{
    Contents contents{};
    for (size_t i = column; i < result.cells.size(); i += result.columns.size()) {
        const Cell &cell = result.cells[i];
        contents.integers |= cell.kind == CellKind::integer;
        contents.reals |= cell.kind == CellKind::real;
        contents.texts |= cell.kind == CellKind::text;
        contents.blobs |= cell.kind == CellKind::blob;
        contents.longest = std::max(contents.longest, cell.length);
    }
    return contents;
}

static SQLSMALLINT type_of_contents(const Contents &contents)
{
    if (contents.blobs && !contents.texts && !contents.integers && !contents.reals)
        return SQL_VARBINARY;
    if (contents.texts || contents.blobs || !(contents.integers || contents.reals))
        return SQL_VARCHAR;
    return contents.reals ? SQL_DOUBLE : SQL_BIGINT;
}

static bool holds(SQLSMALLINT type, const Contents &contents)
{
    switch (type) {
    case SQL_BIGINT: return !contents.reals && !contents.texts && !contents.blobs;
    case SQL_DOUBLE: return !contents.texts && !contents.blobs;
    case SQL_VARBINARY: return !contents.integers && !contents.reals && !contents.texts;
    case SQL_VARCHAR: return !contents.blobs || contents.texts;
    default: return false;
    }
}

void fit_columns(Result &result)
{
    constexpr SQLULEN longest_number = 24;
    for (size_t i = 0; i < result.columns.size(); ++i) {
        Column &column = result.columns[i];
        Contents contents = contents_of(result, i);
        if (!holds(column.type, contents)) {
            column.type = type_of_contents(contents);
            column.size_declared = column.type == SQL_BIGINT || column.type == SQL_DOUBLE;
            column.size = column.type == SQL_BIGINT ? 19 : column.type == SQL_DOUBLE ? 15 : 0;
        }
        if (column.type == SQL_BIGINT || column.type == SQL_DOUBLE)
            continue;
        SQLULEN longest = std::max<SQLULEN>(contents.longest, 1);
        if (contents.integers || contents.reals)
            longest = std::max(longest, longest_number);
        column.size = column.size_declared ? std::max(column.size, longest) : longest;
    }
}

std::string_view text_of(const Result &result, const Cell &cell)
{
    return std::string_view(result.bytes).substr(cell.offset, cell.length);
}
