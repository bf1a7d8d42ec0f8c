#include "convert.h"

#include "unicode.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstring>
#include <limits>
#include <utility>

SQLSMALLINT default_c_type(SQLSMALLINT type)
{
    switch (type) {
    case SQL_BIGINT: return SQL_C_SBIGINT;
    case SQL_INTEGER: return SQL_C_SLONG;
    case SQL_SMALLINT: return SQL_C_SSHORT;
    case SQL_DOUBLE: return SQL_C_DOUBLE;
    case SQL_VARBINARY: return SQL_C_BINARY;
    default: return SQL_C_CHAR;
    }
}

// "3.0" and not "3": a number with a point stays one when it is read back.
static std::string real_text(double value)
{
    char text[40];
    auto end = std::to_chars(text, text + sizeof text, value);
    std::string result(text, end.ptr);
    if (result.find_first_not_of("-0123456789") == std::string::npos)
        result += ".0";
    return result;
}

static std::string hexadecimal_text(std::string_view bytes)
{
    constexpr char digits[] = "0123456789ABCDEF";
    std::string text;
    for (char byte : bytes) {
        text += digits[static_cast<unsigned char>(byte) >> 4];
        text += digits[static_cast<unsigned char>(byte) & 0xf];
    }
    return text;
}

static std::string character_text(const Result &result, const Cell &cell)
{
    switch (cell.kind) {
    case CellKind::integer: return std::to_string(cell.integer);
    case CellKind::real: return real_text(cell.real);
    case CellKind::blob: return hexadecimal_text(text_of(result, cell));
    default: return std::string(text_of(result, cell));
    }
}

// Gives out the next piece of `bytes`, leaving room for a terminator of `terminator` bytes.
static SQLRETURN give_piece(Statement &statement, std::string_view bytes, size_t terminator, SQLPOINTER value,
                            SQLLEN size, SQLLEN *indicator, size_t &offset, bool &finished)
{
    std::string_view rest = bytes.substr(std::min(offset, bytes.size()));
    if (indicator != nullptr)
        *indicator = static_cast<SQLLEN>(rest.size());
    size_t room = value == nullptr || size < 0 ? 0 : static_cast<size_t>(size);
    bool terminated = terminator > 0 && room >= terminator;
    room = room < terminator ? 0 : room - terminator;
    if (terminator > 1)
        room -= room % terminator;
    size_t given = std::min(room, rest.size());
    if (given > 0)
        std::memcpy(value, rest.data(), given);
    if (terminated)
        std::memset(static_cast<char *>(value) + given, 0, terminator);
    offset += given;
    finished = given == rest.size() && (terminator == 0 || terminated);
    return finished ? SQL_SUCCESS : warn(statement.diagnostics, "01004", "Data cut, more is to be read");
}

static bool parse_real(std::string_view text, double &value)
{
    while (!text.empty() && text.front() == ' ')
        text.remove_prefix(1);
    while (!text.empty() && text.back() == ' ')
        text.remove_suffix(1);
    auto end = std::from_chars(text.data(), text.data() + text.size(), value);
    return end.ec == std::errc() && end.ptr == text.data() + text.size();
}

struct Number { bool exact; int64_t integer; double real; };

static bool number_of(const Result &result, const Cell &cell, Number &number)
{
    std::string_view text = text_of(result, cell);
    number = {true, cell.integer, static_cast<double>(cell.integer)};
    if (cell.kind == CellKind::integer)
        return true;
    if (cell.kind == CellKind::text) {
        auto end = std::from_chars(text.data(), text.data() + text.size(), number.integer);
        if (end.ec == std::errc() && end.ptr == text.data() + text.size()) {
            number.real = static_cast<double>(number.integer);
            return true;
        }
    }
    number.exact = false;
    number.real = cell.real;
    return cell.kind == CellKind::real || (cell.kind == CellKind::text && parse_real(text, number.real));
}

template <typename Integer>
static SQLRETURN give_integer(Statement &statement, const Number &number, SQLPOINTER value, SQLLEN *indicator)
{
    constexpr auto lowest = std::numeric_limits<Integer>::min();
    constexpr auto highest = std::numeric_limits<Integer>::max();
    constexpr double beyond = 9223372036854775808.0;
    bool fraction = false;
    int64_t integer = number.integer;
    if (!number.exact) {
        if (!(number.real >= -beyond && number.real < beyond))
            return fail(statement.diagnostics, "22003", "Number out of range");
        integer = static_cast<int64_t>(number.real);
        fraction = number.real != std::trunc(number.real);
    }
    if (std::cmp_less(integer, lowest) || std::cmp_greater(integer, highest))
        return fail(statement.diagnostics, "22003", "Number out of range");
    Integer given = static_cast<Integer>(integer);
    if (value != nullptr)
        std::memcpy(value, &given, sizeof given);
    if (indicator != nullptr)
        *indicator = sizeof given;
    return fraction ? warn(statement.diagnostics, "01S07", "Digits behind the point lost") : SQL_SUCCESS;
}

template <typename Real>
static SQLRETURN give_real(const Number &number, SQLPOINTER value, SQLLEN *indicator)
{
    Real given = static_cast<Real>(number.exact ? static_cast<double>(number.integer) : number.real);
    if (value != nullptr)
        std::memcpy(value, &given, sizeof given);
    if (indicator != nullptr)
        *indicator = sizeof given;
    return SQL_SUCCESS;
}

static SQLRETURN give_number(Statement &statement, const Cell &cell, SQLSMALLINT type, SQLPOINTER value,
                             SQLLEN *indicator)
{
    Number number;
    if (!number_of(statement.result, cell, number))
        return fail(statement.diagnostics, "22018", "The value is not a number");
    switch (type) {
    case SQL_C_BIT: return give_integer<unsigned char>(statement, number, value, indicator);
    case SQL_C_TINYINT:
    case SQL_C_STINYINT: return give_integer<signed char>(statement, number, value, indicator);
    case SQL_C_UTINYINT: return give_integer<unsigned char>(statement, number, value, indicator);
    case SQL_C_SHORT:
    case SQL_C_SSHORT: return give_integer<int16_t>(statement, number, value, indicator);
    case SQL_C_USHORT: return give_integer<uint16_t>(statement, number, value, indicator);
    case SQL_C_LONG:
    case SQL_C_SLONG: return give_integer<int32_t>(statement, number, value, indicator);
    case SQL_C_ULONG: return give_integer<uint32_t>(statement, number, value, indicator);
    case SQL_C_SBIGINT: return give_integer<int64_t>(statement, number, value, indicator);
    case SQL_C_UBIGINT: return give_integer<uint64_t>(statement, number, value, indicator);
    case SQL_C_FLOAT: return give_real<float>(number, value, indicator);
    case SQL_C_DOUBLE: return give_real<double>(number, value, indicator);
    default: return fail(statement.diagnostics, "HYC00", "The C type is not served");
    }
}

SQLRETURN convert_cell(Statement &statement, size_t column, const Cell &cell, SQLSMALLINT type, SQLPOINTER value,
                       SQLLEN size, SQLLEN *indicator, size_t &offset, bool &finished)
{
    const Result &result = statement.result;
    finished = true;
    if (cell.kind == CellKind::null) {
        if (indicator == nullptr)
            return fail(statement.diagnostics, "22002", "A null value needs an indicator");
        *indicator = SQL_NULL_DATA;
        return SQL_SUCCESS;
    }
    if (type == SQL_C_DEFAULT)
        type = default_c_type(result.columns[column].type);
    switch (type) {
    case SQL_C_CHAR:
        return give_piece(statement, character_text(result, cell), 1, value, size, indicator, offset, finished);
    case SQL_C_WCHAR: {
        std::u16string wide = wide_text(character_text(result, cell));
        std::string_view bytes(reinterpret_cast<const char *>(wide.data()), wide.size() * sizeof(char16_t));
        return give_piece(statement, bytes, sizeof(char16_t), value, size, indicator, offset, finished);
    }
    case SQL_C_BINARY: {
        bool as_kept = cell.kind == CellKind::text || cell.kind == CellKind::blob;
        std::string number = as_kept ? std::string() : character_text(result, cell);
        return give_piece(statement, as_kept ? text_of(result, cell) : std::string_view(number), 0, value, size,
                          indicator, offset, finished);
    }
    default:
        return give_number(statement, cell, type, value, indicator);
    }
}
