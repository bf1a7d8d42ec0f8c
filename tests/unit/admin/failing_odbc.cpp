#include "failing_odbc.h"

#include <dlfcn.h>
#include <sqlext.h>

namespace {

bool tables_fail = false;
bool length_is_unknown = false;
SQLSMALLINT failing_type = 0;
int allocations_left = 0;

template <typename Call> Call *driver_manager_s(Call &, const char *name)
{
    return reinterpret_cast<Call *>(dlsym(RTLD_NEXT, name));
}

}

void let_tables_fail()
{
    tables_fail = true;
}

void let_allocation_fail(SQLSMALLINT handle_type, int number)
{
    failing_type = handle_type;
    allocations_left = number;
}

void let_length_be_unknown()
{
    length_is_unknown = true;
}

// The dynamic linker prefers these to the driver manager's of the same names.

extern "C" SQLRETURN SQL_API SQLTables(SQLHSTMT statement, SQLCHAR *catalog, SQLSMALLINT catalog_length,
                                       SQLCHAR *schema, SQLSMALLINT schema_length, SQLCHAR *table,
                                       SQLSMALLINT table_length, SQLCHAR *types, SQLSMALLINT types_length)
{
    if (tables_fail)
        types_length = -99;
    tables_fail = false;
    return driver_manager_s(SQLTables, "SQLTables")(statement, catalog, catalog_length, schema, schema_length, table,
                                                    table_length, types, types_length);
}

extern "C" SQLRETURN SQL_API SQLAllocHandle(SQLSMALLINT type, SQLHANDLE input, SQLHANDLE *output)
{
    bool fails = type == failing_type && allocations_left > 0 && --allocations_left == 0;
    return driver_manager_s(SQLAllocHandle, "SQLAllocHandle")(type, input, fails ? nullptr : output);
}

extern "C" SQLRETURN SQL_API SQLGetData(SQLHSTMT statement, SQLUSMALLINT column, SQLSMALLINT type, SQLPOINTER out,
                                        SQLLEN room, SQLLEN *length)
{
    SQLRETURN result = driver_manager_s(SQLGetData, "SQLGetData")(statement, column, type, out, room, length);
    if (length_is_unknown)
        *length = SQL_NO_TOTAL;
    length_is_unknown = false;
    return result;
}
