#include "admin/grants.h"

#include "admin/connection.h"
#include "admin/error_page.h"
#include "admin/odbc.h"
#include "admin/table_name.h"
#include "common/text.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <sql.h>

namespace {

// A user name between double quotes, each of its characters doubled.
using Grantee = char[2 * column_size + 2];

// Verb, privilege and the words between them, a table and a user.
constexpr int statement_size = 32 + sizeof(QuotedTable) + sizeof(Grantee);

// A row key, "_" and a privilege.
constexpr int field_size = 3 * column_size + 8;

struct Verb {
    const char *name, *preposition;
};

constexpr Verb grant = {"grant", "to"};
constexpr Verb revoke = {"revoke", "from"};

// The names of a form's fields in the order of strcmp: a page asks for four boxes of each of its tables.
struct PostedNames {
    const char *names[post_size / 2];   // a field takes two bytes of a body at least
    size_t count;
};

bool is_before(const char *name, const char *other)
{
    return strcmp(name, other) < 0;
}

void sort_names(PostedNames &posted, const FormField *field)
{
    posted.count = 0;
    for (; field && field->name && posted.count < std::size(posted.names); field++)
        posted.names[posted.count++] = field->name;
    std::sort(posted.names, posted.names + posted.count, is_before);
}

bool is_posted(const PostedNames &posted, const char *name)
{
    return std::binary_search(posted.names, posted.names + posted.count, name, is_before);
}

void name_grantee(Grantee &grantee, const char *user)
{
    TextWriter sql{grantee};
    if (strcmp(user, "public") == 0)
        put(sql, user);
    else
        put_sql_name(sql, user);
}

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
bool change_privilege(SQLHSTMT statement, Verb verb, const char *privilege, const QuotedTable &table,
                      const Grantee &grantee)
{
    char text[statement_size];
    TextWriter sql{text};
    for (const char *word : {verb.name, " ", privilege, " on ", table, " ", verb.preposition, " ", grantee})
        put(sql, word);
    return !sql.overflow && execute(statement, text);
}

void replace_failed_statement(PageContext &context)
{
    diagnostic_text(SQL_HANDLE_STMT, context.stmt2);
    free_statement(context.stmt2);
    SQLAllocHandle(SQL_HANDLE_STMT, context.dbc, &context.stmt2);
}

bool is_ticked(const PostedNames &posted, const RowKey &key, const char *privilege)
{
    char text[field_size];
    TextWriter field{text};
    for (const char *part : {static_cast<const char *>(key), "_", privilege})
        put(field, part);
    return is_posted(posted, text);
}

void submit_table(PageContext &context, const TableName &table, const PostedNames &posted, const Grantee &grantee)
{
    RowKey key;
    QuotedTable quoted;
    build_row_key(table, key);
    quote_table(table, quoted);
    for (const char *privilege : privileges)
        if (!change_privilege(context.stmt2, is_ticked(posted, key, privilege) ? grant : revoke, privilege, quoted,
                              grantee))
            replace_failed_statement(context);
}

int change_all(PageContext &context, PageBuffer &page, Verb verb, const char *user)
{
    if (int result = open_table_list(context, page); result < 0)
        return result;
    Grantee grantee;
    name_grantee(grantee, user);
    TableName table;
    while (next_table(context, table)) {
        QuotedTable quoted;
        quote_table(table, quoted);
        if (change_privilege(context.stmt2, verb, "all", quoted, grantee))
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
    PostedNames posted;
    sort_names(posted, form_fields);
    Grantee grantee;
    name_grantee(grantee, isamuser);
    TableName table;
    while (next_table(context, table))
        submit_table(context, table, posted, grantee);
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
