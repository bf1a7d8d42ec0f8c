#include "admin/grants.h"

#include "admin/connection.h"
#include "admin/error_page.h"
#include "admin/odbc.h"
#include "admin/table_name.h"
#include "common/text.h"

#include <cstring>
#include <sql.h>

namespace {

// Verb, privilege and the words between them, a table and a user, each of their characters doubled.
constexpr int statement_size = 32 + quoted_table_size + 2 * column_size + 2;

// A row key, "_" and a privilege.
constexpr int field_size = 3 * column_size + 8;

struct Verb {
    const char *name, *preposition;
};

constexpr Verb grant = {"grant", "to"};
constexpr Verb revoke = {"revoke", "from"};

int open_table_list(PageContext &context, PageBuffer &page)
{
    if (int result = uri_reset(context, page); result < 0)
        return result;
    if (!list_tables(context.stmt))
        return report_failure(context, page, "SQLTables", SQL_HANDLE_STMT, context.stmt);
    return 0;
}

bool next_table(PageContext &context, TableName &table)
{
    while (succeeded(SQLFetch(context.stmt)))
        if (read_table_name(context.stmt, table))
            return true;
    return false;
}

// For example: grant select on "C"."S"."T" to "user". False, nothing sent, for a text that does not fit.
bool change_privilege(SQLHSTMT statement, Verb verb, const char *privilege, const TableName &table, const char *user)
{
    char text[statement_size];
    TextWriter sql{text};
    for (const char *word : {verb.name, " ", privilege, " on "})
        put(sql, word);
    put_quoted_table(sql, table);
    for (const char *word : {" ", verb.preposition, " "})
        put(sql, word);
    if (strcmp(user, "public") == 0)
        put(sql, user);
    else
        put_sql_name(sql, user);
    return !sql.overflow && execute(statement, text);
}

void replace_failed_statement(PageContext &context)
{
    diagnostic_text(SQL_HANDLE_STMT, context.stmt2);
    free_statement(context.stmt2);
    SQLAllocHandle(SQL_HANDLE_STMT, context.dbc, &context.stmt2);
}

void submit_table(PageContext &context, const TableName &table, const FormField *form_fields)
{
    RowKey key;
    build_row_key(table, key);
    for (const char *privilege : privileges) {
        char field[field_size];
        format_text(field, "%s_%s", key, privilege);
        Verb verb = getvalue(form_fields, field) ? grant : revoke;
        if (!change_privilege(context.stmt2, verb, privilege, table, isamuser))
            replace_failed_statement(context);
    }
}

int change_all(PageContext &context, PageBuffer &page, Verb verb, const char *user)
{
    if (int result = open_table_list(context, page); result < 0)
        return result;
    TableName table;
    while (next_table(context, table)) {
        if (change_privilege(context.stmt2, verb, "all", table, user))
            continue;
        // The tables behind this one stay as they are, on purpose, unlike in submit_selection.
        diagnostic_text(SQL_HANDLE_STMT, context.stmt2);
        break;
    }
    return 0;
}

}

int submit_selection(PageContext &context, PageBuffer &page, const FormField *form_fields)
{
    if (int result = open_table_list(context, page); result < 0)
        return result;
    TableName table;
    while (next_table(context, table))
        submit_table(context, table, form_fields);
    return 0;
}

int grant_all(PageContext &context, PageBuffer &page)
{
    return change_all(context, page, grant, isamuser);
}

int revoke_all(PageContext &context, PageBuffer &page, const char *user)
{
    return change_all(context, page, revoke, user);
}
