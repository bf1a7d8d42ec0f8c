// ODBC calls that fail on demand, in the driver manager and with its diagnostic: they reach it with an argument that it
// does not accept; and one that succeeds and tells less than the embedded driver does. All others reach it as they are.

#pragma once

#include <sql.h>

// The next SQLTables fails.
void let_tables_fail();

// Of the coming allocations of that type of handle the one of this number fails, 1 being the next.
void let_allocation_fail(SQLSMALLINT handle_type, int number);

// The next SQLGetData does not tell how long its text is.
void let_length_be_unknown();

// What is reported of them when the diagnostic is taken from the statement, and from the handle that was to have
// another one.
constexpr char failed_tables[] = "SQLTables failed with [unixODBC][Driver Manager]Invalid string or buffer length\n";
constexpr char failed_allocation[] =
    "SQLAllocHandle failed with [unixODBC][Driver Manager]Invalid use of null pointer\n";
