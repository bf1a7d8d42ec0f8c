// The rows of an executed query or catalog call, held whole. A result is read to its end before its statement returns,
// so that no read transaction stays open behind a cursor, and so that changes by another statement of the connection
// neither repeat nor hide a row. The price is memory: about 32 bytes and the text for each value.
#pragma once

#include <sql.h>
#include <sqlext.h>

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

struct sqlite3_stmt;

enum class CellKind : unsigned char { null, integer, real, text, blob };

struct Cell {
    CellKind kind = CellKind::null;
    int64_t integer = 0;
    double real = 0;
    size_t offset = 0, length = 0;      // text and blob: where in Result::bytes
};

struct Column {
    std::string name, table, type_name;
    SQLSMALLINT type = SQL_VARCHAR;     // an SQL_ type
    SQLULEN size = 255;                 // characters of a text, bytes of a blob, digits of a number
    bool size_declared = false;
    SQLSMALLINT nullable = SQL_NULLABLE_UNKNOWN;
};

struct Result {
    std::vector<Column> columns;        // empty: no result set
    std::vector<Cell> cells;            // row by row
    std::string bytes;
};

size_t row_count(const Result &result);

// Describes the columns of a prepared statement from their declared types.
void describe_columns(sqlite3_stmt *prepared, Result &result);

// The SQL type of a column declared as `declared`, its size and whether the size was given.
void describe_declared(std::string_view declared, Column &column);

// Appends the row on which `prepared` stands.
void append_row(sqlite3_stmt *prepared, Result &result);

// Makes the columns fit the rows that are there: SQLite keeps any value in any column, so a declared number that holds
// a text becomes a text, an expression gets the type of its values, and sizes grow to the longest text.
void fit_columns(Result &result);

void add_null(Result &result);
void add_integer(Result &result, int64_t value);
void add_text(Result &result, std::string_view text);

std::string_view text_of(const Result &result, const Cell &cell);
