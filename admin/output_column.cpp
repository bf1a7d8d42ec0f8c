#include "admin/output_column.h"

#include "admin/odbc.h"
#include "common/text.h"

#include <sql.h>

void output_column(PageContext &context, SQLHSTMT statement, int column, PageBuffer &page, ColumnText *copy)
{
    ColumnText name, value;
    SQLSMALLINT name_length, type, digits, nullable;
    SQLULEN size;
    if (copy)
        (*copy)[0] = 0;
    SQLDescribeCol(statement, SQLUSMALLINT(column), reinterpret_cast<SQLCHAR *>(name), sizeof name, &name_length,
                   &type, &size, &digits, &nullable);
    SQLLEN indicator;
    read_column(statement, column, value, &indicator);
    bool shown = indicator >= 1;
    if (shown)
        http_printf(context.request->socket, page, "%s", html_text(value).text);
    else
        http_printf(context.request->socket, page, "&nbsp;");
    if (copy)
        copy_text(*copy, shown ? value : "&nbsp;");
}
