#include "bench/walks.h"

#include <sql.h>
#include <sqlext.h>

namespace {

bool walk_on(SQLHENV env, SQLUSMALLINT direction)
{
    SQLCHAR name[255], description[255];
    SQLSMALLINT name_length, description_length;
    return SQL_SUCCEEDED(SQLDataSources(env, direction, name, sizeof name, &name_length, description,
                                        sizeof description, &description_length));
}

}

void walk_data_sources()
{
    SQLHENV env = nullptr;
    SQLAllocHandle(SQL_HANDLE_ENV, nullptr, &env);
    SQLSetEnvAttr(env, SQL_ATTR_ODBC_VERSION, reinterpret_cast<SQLPOINTER>(SQL_OV_ODBC3), 0);
    // To the first data source of interest, which each one of the benchmark is, then through all of them.
    walk_on(env, SQL_FETCH_FIRST);
    for (SQLUSMALLINT direction = SQL_FETCH_FIRST; walk_on(env, direction); direction = SQL_FETCH_NEXT)
        continue;
    SQLFreeHandle(SQL_HANDLE_ENV, env);
}
