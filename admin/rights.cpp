#include "admin/rights.h"

#include "admin/connection.h"
#include "admin/error_page.h"
#include "admin/grants.h"
#include "admin/html_kit.h"
#include "admin/odbc.h"
#include "admin/page_frame.h"
#include "admin/table_name.h"
#include "common/text.h"

#include <cstring>
#include <iterator>
#include <sql.h>

namespace {

// Holds the query below with four of the longest user names.
constexpr int query_size = 2048;

constexpr const char *list_headers[] = {"Catalog", "Schema", "Table",  "Grantor", "Grantee",
                                        "Select",  "Insert", "Update", "Delete"};
constexpr int first_name_column = 1, last_name_column = 3;
constexpr int grantor_column = 4, grantee_column = 5;
constexpr int first_privilege_column = 6;

// Five cells with a column's text, four with a row key, and what stands around them.
constexpr size_t row_size = html_growth * (5 * column_size + 4 * sizeof(RowKey)) + 2048;
static_assert(row_size <= page_size, "a row goes into the page in one piece");

// The user that the buttons would act for could not be read: they act for nobody then, not even by name.
bool is_first_user_unread;

// False when the posted name does not fit: an action meant for it must not meet the user who would stand in its place.
bool choose_user(const FormField *form_fields)
{
    const char *user = getvalue(form_fields, "isamuser");
    const char *drawn_for = getvalue(form_fields, "last_datasource");
    bool is_of_this_source = user && drawn_for && strcmp(drawn_for, datasource) == 0;
    return copy_text(isamuser, is_of_this_source ? user : "");
}

// False when the list ended before its end.
bool output_user_options(PageContext &context, PageBuffer &page)
{
    if (!execute(context.stmt, "select username from nordvale.system.user order by 1;"))
        diagnostic_text(SQL_HANDLE_STMT, context.stmt);
    SQLRETURN fetched;
    while (succeeded(fetched = SQLFetch(context.stmt))) {
        ColumnText user;
        Reading reading = read_column(context.stmt, 1, user);
        // The next name would pass for the first, and the buttons would act for it.
        if (reading == Reading::failed && !isamuser[0])
            break;
        if (reading != Reading::whole || strcmp(user, context.dbo_user) == 0)
            continue;
        if (!isamuser[0])
            copy_text(isamuser, user);
        output_option(context.request->socket, page, strcmp(user, isamuser) == 0, user);
    }
    return fetched == SQL_NO_DATA;
}

void output_buttons(int socket, PageBuffer &page)
{
    http_printf(socket, page, "<br>&nbsp;<br>");
    http_printf(socket, page, TABLE_BEGIN_NOBORDER);
    http_printf(socket, page, "<tr>\n");
    // Two tags without their ">", on purpose: browsers end the tag at the next one.
    http_printf(socket, page, "%s<input type=submit name=rights_grant value=\"Grant All\"%s\n", DETAIL_TDBEGIN,
                DETAIL_TDEND);
    http_printf(socket, page, "%s<input type=submit name=rights_revoke value=\"Revoke All\"%s\n", DETAIL_TDBEGIN,
                DETAIL_TDEND);
    http_printf(socket, page, "%s<input type=submit name=submit_selection value=\"Submit Selection\">%s\n",
                DETAIL_TDBEGIN, DETAIL_TDEND);
    http_printf(socket, page, "</tr>\n");
    http_printf(socket, page, TABLE_END);
}

int apply_action(PageContext &context, PageBuffer &page, const FormField *form_fields)
{
    if (is_first_user_unread)
        return 0;
    if (getvalue(form_fields, "rights_revoke"))
        return revoke_all(context, page, isamuser);
    if (getvalue(form_fields, "rights_grant"))
        return grant_all(context, page);
    if (getvalue(form_fields, "submit_selection"))
        return submit_selection(context, page, form_fields);
    return 0;
}

// The user name goes into the query as it is: a name with a quote makes the query fail, and the failure is shown.
bool query_privileges(SQLHSTMT statement)
{
    char query[query_size];
    format_text(query,
                "select a.catalog, a.schema, a.table, b.grantor, b.grantee, b.privilege, c.privilege, d.privilege,"
                " e.privilege   from nordvale.system.table a  "
                "   left outer join nordvale.system.tableprv b on a.catalog = b.catalog and a.schema = b.schema and"
                "       a.table = b.table and b.privilege = 'SELECT' and b.grantee = '%s' "
                "   left outer join nordvale.system.tableprv c on a.catalog = c.catalog and a.schema = c.schema and"
                "       a.table = c.table and c.privilege = 'INSERT' and c.grantee = '%s' "
                "   left outer join nordvale.system.tableprv d on a.catalog = d.catalog and a.schema = d.schema and"
                "       a.table = d.table and d.privilege = 'UPDATE' and d.grantee = '%s' "
                "   left outer join nordvale.system.tableprv e on a.catalog = e.catalog and a.schema = e.schema and"
                "       a.table = e.table and e.privilege = 'DELETE' and e.grantee = '%s'",
                isamuser, isamuser, isamuser, isamuser);
    return execute(statement, query);
}

void output_list_header(int socket, PageBuffer &page)
{
    http_printf(socket, page, "&nbsp;<br>Permissions currently allowed for user <strong>%s</strong>.",
                html_text(isamuser).text);
    http_printf(socket, page, "<br>&nbsp;<br>");
    http_printf(socket, page, TABLE_BEGIN);
    http_printf(socket, page, "<tr>\n");
    for (const char *label : list_headers)
        http_printf(socket, page, "%s%s%s\n", HEADER_TDBEGIN, label, HEADER_TDEND);
    http_printf(socket, page, "</tr>\n");
}

void put_cell(TextWriter &row, const char *value, const char *if_empty)
{
    put(row, DETAIL_TDBEGIN);
    if (*value)
        put_html(row, value);
    else
        put(row, if_empty);
    put(row, DETAIL_TDEND);
}

// False when a part of the name is not whole.
bool put_names(TextWriter &row, SQLHSTMT statement, TableName &name)
{
    bool whole = true;
    ColumnText *const columns[] = {&name.catalog, &name.schema, &name.table};
    for (int column = first_name_column; column <= last_name_column; column++) {
        ColumnText &text = *columns[column - first_name_column];
        whole = read_shown_column(statement, column, text) && whole;
        put_cell(row, text, "&nbsp;");
    }
    return whole;
}

// Both come with the select privilege alone, so an empty one says something and stays empty, unlike an empty name.
void put_grantor_and_grantee(TextWriter &row, SQLHSTMT statement)
{
    for (int column : {grantor_column, grantee_column}) {
        ColumnText text;
        read_shown_column(statement, column, text);
        put_cell(row, text, "");
    }
}

void put_checkbox(TextWriter &row, const char *key, const char *privilege, bool held)
{
    put(row, DETAIL_TDBEGIN_CENTER);
    put(row, "<input type=checkbox name=\"");
    put(row, key);
    put(row, '_');
    put(row, privilege);
    // Unquoted, so that browsers read "ON checked" as a value and the attribute that ticks the box.
    put(row, held ? "\" value=ON checked></input>" : "\" value=OFF></input>");
    put(row, DETAIL_TDEND);
    put(row, '\n');
}

void put_checkboxes(TextWriter &row, SQLHSTMT statement, const TableName &name)
{
    RowKey key;
    build_row_key(name, key);
    auto escaped = html_attribute(key);
    int column = first_privilege_column;
    for (const char *privilege : privileges) {
        ColumnText text;
        read_shown_column(statement, column++, text);
        put_checkbox(row, escaped.text, privilege, text[0]);
    }
}

void put_no_checkboxes(TextWriter &row)
{
    for (size_t box = 0; box < std::size(privileges); box++)
        put_blank_cell(row, DETAIL_TDBEGIN_CENTER);
}

void output_table_row(PageContext &context, PageBuffer &page)
{
    char text[row_size];
    TextWriter row{text};
    TableName name;
    put(row, "<tr>\n");
    bool whole = put_names(row, context.stmt, name);
    put_grantor_and_grantee(row, context.stmt);
    // The boxes of a cut name would be those of another table.
    if (whole)
        put_checkboxes(row, context.stmt, name);
    else
        put_no_checkboxes(row);
    put(row, "</tr>\n");
    append_row(context.request->socket, page, row);
}

}

int output_user(PageContext &context, PageBuffer &page, const FormField *form_fields)
{
    if (int result = uri_reset(context, page); result < 0)
        return result;
    if (!choose_user(form_fields))
        return return_error(context, "User name is too long.\n");
    int socket = context.request->socket;
    http_printf(socket, page, "<tr>\n");
    http_printf(socket, page, "%sIsam User%s\n", HEADER_TDBEGIN, HEADER_TDEND);
    http_printf(socket, page, "%s<select name=isamuser size=1>\n", DETAIL_TDBEGIN);
    is_first_user_unread = !output_user_options(context, page) && !isamuser[0];
    http_printf(socket, page, "</select>\n");
    http_printf(socket, page, "<input type=hidden name=last_isamuser value=%s>\n", html_unquoted(isamuser).text);
    http_printf(socket, page, DETAIL_TDEND);
    http_printf(socket, page, "%s<input type=submit name=rights_refresh value=\"Refresh\">%s\n", DETAIL_TDBEGIN,
                DETAIL_TDEND);
    http_printf(socket, page, "</tr>\n");
    SQLCloseCursor(context.stmt);
    return 0;
}

int display_rights(PageContext &context, PageBuffer &page, FormField *form_fields)
{
    output_buttons(context.request->socket, page);
    if (int result = uri_reset(context, page); result < 0)
        return result;
    if (int result = apply_action(context, page, form_fields); result < 0)
        return result;
    // A list that failed has shown its error page; the page goes on behind it all the same.
    display_rights_list(context, page);
    return append_template(context, page, "rightshelp.html");
}

int display_rights_list(PageContext &context, PageBuffer &page)
{
    if (int result = uri_reset(context, page); result < 0)
        return result;
    if (!query_privileges(context.stmt))
        return report_failure(context, page, "SQLTables", SQL_HANDLE_STMT, context.stmt);
    int socket = context.request->socket;
    output_list_header(socket, page);
    while (succeeded(SQLFetch(context.stmt)))
        output_table_row(context, page);
    SQLCloseCursor(context.stmt);
    http_printf(socket, page, TABLE_END);
    http_printf(socket, page, "<br>&nbsp;<br>\n");
    return 0;
}
