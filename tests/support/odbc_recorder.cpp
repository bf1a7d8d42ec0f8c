// Writes down the ODBC calls of the program that it is preloaded into (LD_PRELOAD), and forwards them to the driver
// manager. Each call is one line of the file that ODBC_CALLS names:
//
//     SQLExecDirect(stmt1, "select 1", NTS) = SUCCESS
//
// Some failures no data source gives at will. The file that ODBC_FAILURE names may ask for one of them, such as
// "SQLTables 2": the second call of SQLTables in a process gives SQL_ERROR and is not forwarded.
//
// Handles bear the names env1, dbc1, stmt1, ... in the order of their allocation in the process; the name of a freed
// handle never comes again. Only calls from the program's own code are written down, told by the return address: the
// driver manager and its drivers call the same functions for themselves.

#include "tests/support/preloaded.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <initializer_list>
#include <odbcinst.h>
#include <sql.h>
#include <sqlext.h>
#include <string>
#include <unistd.h>

namespace {

constexpr int handles_at_most = 1000;

struct NamedHandle {
    SQLHANDLE handle;
    std::string name;
};

NamedHandle handles[handles_at_most];
int handle_count;
int allocated_of_type[SQL_HANDLE_STMT + 1];

struct Constant {
    long value;
    const char *name;
};

constexpr Constant results[] = {
    {SQL_SUCCESS, "SUCCESS"}, {SQL_SUCCESS_WITH_INFO, "SUCCESS_WITH_INFO"}, {SQL_NO_DATA, "NO_DATA"},
    {SQL_ERROR, "ERROR"},     {SQL_INVALID_HANDLE, "INVALID_HANDLE"},
};
constexpr Constant handle_types[] = {{SQL_HANDLE_ENV, "ENV"}, {SQL_HANDLE_DBC, "DBC"}, {SQL_HANDLE_STMT, "STMT"}};
constexpr Constant attributes[] = {{SQL_ATTR_ODBC_VERSION, "ODBC_VERSION"}};
constexpr Constant lengths[] = {{SQL_NTS, "NTS"}};
constexpr Constant directions[] = {{SQL_FETCH_FIRST, "FIRST"}, {SQL_FETCH_NEXT, "NEXT"}};
constexpr Constant target_types[] = {{SQL_C_CHAR, "CHAR"}};
constexpr Constant completions[] = {{SQL_DRIVER_NOPROMPT, "NOPROMPT"}, {SQL_DRIVER_COMPLETE, "COMPLETE"}};

// A value without a name of its own is shown as the number.
template <size_t count> std::string name_of(const Constant (&constants)[count], long value)
{
    for (const Constant &constant : constants)
        if (constant.value == value)
            return constant.name;
    return std::to_string(value);
}

std::string name_of(SQLHANDLE handle)
{
    if (!handle)
        return "null";
    for (int i = handle_count - 1; i >= 0; i--)
        if (handles[i].handle == handle)
            return handles[i].name;
    return "unknown";
}

void name_handle(SQLSMALLINT type, SQLHANDLE handle)
{
    constexpr const char *prefixes[] = {"", "env", "dbc", "stmt"};
    if (handle_count == handles_at_most || type < SQL_HANDLE_ENV || type > SQL_HANDLE_STMT)
        abort();
    handles[handle_count++] = {handle, prefixes[type] + std::to_string(++allocated_of_type[type])};
}

// Its address may become that of another handle.
void forget_handle(SQLHANDLE handle)
{
    for (int i = 0; i < handle_count; i++)
        if (handles[i].handle == handle)
            handles[i].handle = nullptr;
}

std::string text_of(const void *text, SQLINTEGER length = SQL_NTS)
{
    if (!text)
        return "null";
    auto begin = static_cast<const char *>(text);
    std::string shown = "\"";
    for (char character : std::string(begin, length == SQL_NTS ? strlen(begin) : size_t(length)))
        if (character == '\n')
            shown += "\\n";
        else if (character == '"' || character == '\\')
            shown += {'\\', character};
        else
            shown += character;
    return shown + '"';
}

void write_down(const char *function, std::initializer_list<std::string> arguments, const std::string &result)
{
    const char *path = getenv("ODBC_CALLS");
    if (!path)
        return;
    std::string line = function;
    const char *separator = "(";
    for (const std::string &argument : arguments) {
        line += separator + argument;
        separator = ", ";
    }
    line += ") = " + result + '\n';
    int file = open(path, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
    if (file < 0 || write(file, line.data(), line.size()) != ssize_t(line.size()))
        abort();
    close(file);
}

// Counts the calls of a function whose failure can be asked for.
bool shall_fail(const char *function, int &called)
{
    called++;
    const char *path = getenv("ODBC_FAILURE");
    FILE *file = path ? fopen(path, "re") : nullptr;
    if (!file)
        return false;
    char name[64] = "";
    int number = 0;
    bool asked = fscanf(file, "%63s %d", name, &number) == 2;
    fclose(file);
    return asked && strcmp(name, function) == 0 && number == called;
}

}

#define NEXT(function) next_of<decltype(::function)>(#function)
#define RECORDED is_program(__builtin_return_address(0))

SQLRETURN SQL_API SQLAllocHandle(SQLSMALLINT type, SQLHANDLE parent, SQLHANDLE *handle)
{
    static int called;
    if (!RECORDED)
        return NEXT(SQLAllocHandle)(type, parent, handle);
    SQLRETURN result = SQL_ERROR;
    if (shall_fail("SQLAllocHandle", called))
        *handle = nullptr;
    else
        result = NEXT(SQLAllocHandle)(type, parent, handle);
    std::string name = "none";
    if (SQL_SUCCEEDED(result)) {
        name_handle(type, *handle);
        name = name_of(*handle);
    }
    write_down("SQLAllocHandle", {name_of(handle_types, type), name_of(parent), name}, name_of(results, result));
    return result;
}

SQLRETURN SQL_API SQLFreeHandle(SQLSMALLINT type, SQLHANDLE handle)
{
    std::string name = name_of(handle);
    SQLRETURN result = NEXT(SQLFreeHandle)(type, handle);
    if (!RECORDED)
        return result;
    if (SQL_SUCCEEDED(result))
        forget_handle(handle);
    write_down("SQLFreeHandle", {name_of(handle_types, type), name}, name_of(results, result));
    return result;
}

SQLRETURN SQL_API SQLSetEnvAttr(SQLHENV env, SQLINTEGER attribute, SQLPOINTER value, SQLINTEGER length)
{
    SQLRETURN result = NEXT(SQLSetEnvAttr)(env, attribute, value, length);
    if (RECORDED)
        write_down("SQLSetEnvAttr",
                   {name_of(env), name_of(attributes, attribute), std::to_string(reinterpret_cast<long>(value))},
                   name_of(results, result));
    return result;
}

SQLRETURN SQL_API SQLDataSources(SQLHENV env, SQLUSMALLINT direction, SQLCHAR *name, SQLSMALLINT name_size,
                                 SQLSMALLINT *name_length, SQLCHAR *description, SQLSMALLINT description_size,
                                 SQLSMALLINT *description_length)
{
    SQLRETURN result = NEXT(SQLDataSources)(env, direction, name, name_size, name_length, description,
                                            description_size, description_length);
    if (RECORDED)
        write_down("SQLDataSources",
                   {name_of(env), name_of(directions, direction), std::to_string(name_size),
                    std::to_string(description_size)},
                   name_of(results, result));
    return result;
}

SQLRETURN SQL_API SQLDriverConnect(SQLHDBC dbc, SQLHWND window, SQLCHAR *in, SQLSMALLINT in_length, SQLCHAR *out,
                                   SQLSMALLINT out_size, SQLSMALLINT *out_length, SQLUSMALLINT completion)
{
    SQLRETURN result = NEXT(SQLDriverConnect)(dbc, window, in, in_length, out, out_size, out_length, completion);
    if (RECORDED)
        write_down("SQLDriverConnect",
                   {name_of(dbc), window ? "window" : "no window", text_of(in, in_length),
                    name_of(lengths, in_length), std::to_string(out_size), name_of(completions, completion)},
                   name_of(results, result));
    return result;
}

SQLRETURN SQL_API SQLDisconnect(SQLHDBC dbc)
{
    SQLRETURN result = NEXT(SQLDisconnect)(dbc);
    if (RECORDED)
        write_down("SQLDisconnect", {name_of(dbc)}, name_of(results, result));
    return result;
}

SQLRETURN SQL_API SQLExecDirect(SQLHSTMT stmt, SQLCHAR *sql, SQLINTEGER length)
{
    static int called;
    if (!RECORDED)
        return NEXT(SQLExecDirect)(stmt, sql, length);
    SQLRETURN result = SQL_ERROR;
    if (!shall_fail("SQLExecDirect", called))
        result = NEXT(SQLExecDirect)(stmt, sql, length);
    write_down("SQLExecDirect", {name_of(stmt), text_of(sql, length), name_of(lengths, length)},
               name_of(results, result));
    return result;
}

SQLRETURN SQL_API SQLTables(SQLHSTMT stmt, SQLCHAR *catalog, SQLSMALLINT catalog_length, SQLCHAR *schema,
                            SQLSMALLINT schema_length, SQLCHAR *table, SQLSMALLINT table_length, SQLCHAR *type,
                            SQLSMALLINT type_length)
{
    static int called;
    if (!RECORDED)
        return NEXT(SQLTables)(stmt, catalog, catalog_length, schema, schema_length, table, table_length, type,
                               type_length);
    SQLRETURN result = SQL_ERROR;
    if (!shall_fail("SQLTables", called))
        result = NEXT(SQLTables)(stmt, catalog, catalog_length, schema, schema_length, table, table_length, type,
                                 type_length);
    write_down("SQLTables",
               {name_of(stmt), text_of(catalog, catalog_length), name_of(lengths, catalog_length),
                text_of(schema, schema_length), name_of(lengths, schema_length), text_of(table, table_length),
                name_of(lengths, table_length), text_of(type, type_length), name_of(lengths, type_length)},
               name_of(results, result));
    return result;
}

SQLRETURN SQL_API SQLFetch(SQLHSTMT stmt)
{
    SQLRETURN result = NEXT(SQLFetch)(stmt);
    if (RECORDED)
        write_down("SQLFetch", {name_of(stmt)}, name_of(results, result));
    return result;
}

SQLRETURN SQL_API SQLGetData(SQLHSTMT stmt, SQLUSMALLINT column, SQLSMALLINT type, SQLPOINTER value, SQLLEN size,
                             SQLLEN *indicator)
{
    SQLRETURN result = NEXT(SQLGetData)(stmt, column, type, value, size, indicator);
    if (RECORDED)
        write_down("SQLGetData",
                   {name_of(stmt), std::to_string(column), name_of(target_types, type), std::to_string(size)},
                   name_of(results, result));
    return result;
}

SQLRETURN SQL_API SQLCloseCursor(SQLHSTMT stmt)
{
    SQLRETURN result = NEXT(SQLCloseCursor)(stmt);
    if (RECORDED)
        write_down("SQLCloseCursor", {name_of(stmt)}, name_of(results, result));
    return result;
}

SQLRETURN SQL_API SQLGetDiagRec(SQLSMALLINT type, SQLHANDLE handle, SQLSMALLINT record, SQLCHAR *state,
                                SQLINTEGER *native_error, SQLCHAR *message, SQLSMALLINT size, SQLSMALLINT *length)
{
    SQLRETURN result = NEXT(SQLGetDiagRec)(type, handle, record, state, native_error, message, size, length);
    if (RECORDED)
        write_down("SQLGetDiagRec",
                   {name_of(handle_types, type), name_of(handle), std::to_string(record), std::to_string(size)},
                   name_of(results, result));
    return result;
}

int INSTAPI SQLGetPrivateProfileString(LPCSTR section, LPCSTR key, LPCSTR default_value, LPSTR value, int size,
                                       LPCSTR file)
{
    int result = NEXT(SQLGetPrivateProfileString)(section, key, default_value, value, size, file);
    if (RECORDED)
        write_down("SQLGetPrivateProfileString",
                   {text_of(section), text_of(key), text_of(default_value), std::to_string(size), text_of(file)},
                   std::to_string(result));
    return result;
}
