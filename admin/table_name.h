// The two spellings of a table's name: as the key of its checkboxes in the form, and as a name in SQL. Both leave out
// an empty catalog, and an empty schema unless there is a catalog.

#pragma once

#include "admin/page_context.h"
#include "common/text.h"

// As the data source returns them; catalog and schema may be empty.
struct TableName {
    ColumnText catalog, schema, table;
};

// Room for three whole names and two dots.
using RowKey = char[3 * column_size];

// Room for three names with each character doubled, their quotes and two dots.
using QuotedTable = char[3 * (2 * column_size + 2)];

// Reads columns 1 to 3 of the current row. False when one of them is not whole: the name must not be used then.
bool read_table_name(SQLHSTMT statement, TableName &name);

// catalog.schema.table as the names are: C.S.T, S.T, T, and C..T for a catalog without schema.
void build_row_key(const TableName &name, RowKey &key);

// "catalog"."schema"."table", double quotes in names doubled.
void quote_table(const TableName &name, QuotedTable &quoted);
