// One column of a result as a value in a page. Part of the pages' interface; no page uses it at present.

#pragma once

#include "admin/page_context.h"
#include "server/response.h"

// Appends the column of the statement's current row to the page, "&nbsp;" for a null or empty value, and copies the
// value (or "&nbsp;") to `copy` unless that is null. The page gets the value escaped, the copy as it is.
void output_column(PageContext &context, SQLHSTMT statement, int column, PageBuffer &page, ColumnText *copy);
