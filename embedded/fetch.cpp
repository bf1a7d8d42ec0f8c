#include "convert.h"
#include "handles.h"

// Fills the bound columns from the row at `row`. The first failure or warning is the row's.
static SQLRETURN fill_bound_columns(Statement &statement, size_t row)
{
    Result &result = statement.result;
    SQLRETURN row_result = SQL_SUCCESS;
    for (size_t i = 0; i < statement.bound_columns.size() && i < result.columns.size(); ++i) {
        const BoundColumn &bound = statement.bound_columns[i];
        if (bound.value == nullptr && bound.indicator == nullptr)
            continue;
        size_t offset = 0;
        bool finished;
        SQLRETURN column_result = convert_cell(statement, i, result.cells[row * result.columns.size() + i], bound.type,
                                               bound.value, bound.size, bound.indicator, offset, finished);
        if (column_result == SQL_ERROR)
            return SQL_ERROR;
        if (column_result != SQL_SUCCESS)
            row_result = column_result;
    }
    return row_result;
}

static SQLUSMALLINT row_status_of(SQLRETURN result)
{
    return result == SQL_SUCCESS ? SQL_ROW_SUCCESS : result == SQL_ERROR ? SQL_ROW_ERROR : SQL_ROW_SUCCESS_WITH_INFO;
}

static SQLRETURN fetch(Statement &statement)
{
    if (!statement.cursor_open)
        return fail(statement.diagnostics, "24000", "No cursor is open");
    statement.read_column = 0;
    bool row = statement.next_row < row_count(statement.result);
    if (statement.rows_fetched != nullptr)
        *statement.rows_fetched = row ? 1 : 0;
    if (!row) {
        statement.next_row = row_count(statement.result) + 1;
        if (statement.row_status != nullptr)
            *statement.row_status = SQL_ROW_NOROW;
        return SQL_NO_DATA;
    }
    SQLRETURN result = fill_bound_columns(statement, statement.next_row++);
    if (statement.row_status != nullptr)
        *statement.row_status = row_status_of(result);
    return result;
}

EXPORTED SQLRETURN SQL_API SQLFetch(SQLHSTMT handle)
{
    return fetch(statement_of(handle));
}

EXPORTED SQLRETURN SQL_API SQLFetchScroll(SQLHSTMT handle, SQLSMALLINT orientation, SQLLEN)
{
    Statement &statement = statement_of(handle);
    if (orientation != SQL_FETCH_NEXT)
        return fail(statement.diagnostics, "HY106", "Cursors only move forward");
    return fetch(statement);
}

EXPORTED SQLRETURN SQL_API SQLBindCol(SQLHSTMT handle, SQLUSMALLINT number, SQLSMALLINT type, SQLPOINTER value,
                                      SQLLEN size, SQLLEN *indicator)
{
    Statement &statement = statement_of(handle);
    if (number < 1)
        return fail(statement.diagnostics, "07009", "Bookmarks are not served");
    if (statement.bound_columns.size() < number)
        statement.bound_columns.resize(number);
    statement.bound_columns[number - 1u] = {type, value, size, indicator};
    return SQL_SUCCESS;
}

EXPORTED SQLRETURN SQL_API SQLGetData(SQLHSTMT handle, SQLUSMALLINT number, SQLSMALLINT type, SQLPOINTER value,
                                      SQLLEN size, SQLLEN *indicator)
{
    Statement &statement = statement_of(handle);
    const Result &result = statement.result;
    if (!statement.cursor_open || statement.next_row < 1 || statement.next_row > row_count(result))
        return fail(statement.diagnostics, "24000", "The cursor is on no row");
    if (number < 1 || number > result.columns.size())
        return fail(statement.diagnostics, "07009", "There is no such column");

    if (statement.read_column != number) {
        statement.read_column = number;
        statement.read_offset = 0;
        statement.read_finished = false;
    }
    if (statement.read_finished)
        return SQL_NO_DATA;
    const Cell &cell = result.cells[(statement.next_row - 1) * result.columns.size() + number - 1];
    return convert_cell(statement, number - 1u, cell, type, value, size, indicator, statement.read_offset,
                        statement.read_finished);
}
