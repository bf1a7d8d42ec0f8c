#include "admin/users.h"

#include "admin/connection.h"
#include "admin/error_page.h"
#include "admin/grants.h"
#include "admin/html_kit.h"
#include "admin/odbc.h"
#include "admin/page_frame.h"
#include "common/text.h"

#include <cstring>
#include <sql.h>

namespace {

// A user name and the suffix of its field.
constexpr int field_size = column_size + 16;

// A value of the longest column with each character doubled.
using QuotedText = char[2 * column_size];

// The fixed text of the longest statement, two quoted values and a name.
constexpr int statement_size = 128 + 2 * 2 * column_size + column_size;

struct UserRow {
    ColumnText user, description, password;
    bool user_is_whole, values_are_readable, values_are_whole;
};

// What a row's fields ask for; null: as it is stored.
struct RowChange {
    const char *password, *description;
};

bool next_user(SQLHSTMT statement, UserRow &row)
{
    while (succeeded(SQLFetch(statement))) {
        Reading user = read_column(statement, 1, row.user);
        Reading description = read_column(statement, 2, row.description);
        Reading password = read_column(statement, 3, row.password);
        row.user_is_whole = user == Reading::whole;
        row.values_are_readable = description != Reading::failed && password != Reading::failed;
        row.values_are_whole = description == Reading::whole && password == Reading::whole;
        if (strcmp(row.user, "public") != 0)
            return true;
    }
    return false;
}

bool is_administrator(const PageContext &context, const UserRow &row)
{
    return strcmp(row.user, context.dbo_user) == 0;
}

void output_list_header(int socket, PageBuffer &page)
{
    http_printf(socket, page, TABLE_BEGIN);
    http_printf(socket, page, "<tr>\n");
    http_printf(socket, page, "%sUser%s\n", HEADER_TDBEGIN, HEADER_TDEND);
    http_printf(socket, page, "%sDescription %s\n", HEADER_TDBEGIN, HEADER_TDEND);
    http_printf(socket, page, "%sPassword%s\n", HEADER_TDBEGIN, HEADER_TDEND);
    http_printf(socket, page, "%sOld Password%s\n", HEADER_TDBEGIN, HEADER_TDEND);
    http_printf(socket, page, "%sDelete%s\n", HEADER_TDBEGIN, HEADER_TDEND);
    http_printf(socket, page, "</tr>\n");
}

void output_blank_cell(int socket, PageBuffer &page)
{
    http_printf(socket, page, "%s&nbsp;%s\n", DETAIL_TDBEGIN, DETAIL_TDEND);
}

void output_ordinary_fields(int socket, PageBuffer &page, const UserRow &row)
{
    http_printf(socket, page, "%s<input type=text name=\"%s_password\" value=\"%s\" size=20>%s\n", DETAIL_TDBEGIN,
                html_attribute(row.user).text, html_attribute(row.password).text, DETAIL_TDEND);
    output_blank_cell(socket, page);
    http_printf(socket, page, "%s<input type=checkbox name=\"%s_checkbox\" value=\"OFF\"></input>%s\n",
                DETAIL_TDBEGIN_CENTER, html_attribute(row.user).text, DETAIL_TDEND);
}

void output_administrator_fields(int socket, PageBuffer &page, const UserRow &row)
{
    http_printf(socket, page, "%s<input type=text name=\"%s_password\" size=20>%s\n", DETAIL_TDBEGIN,
                html_attribute(row.user).text, DETAIL_TDEND);
    http_printf(socket, page, "%s<input type=password name=\"%s_oldpassword\" size=20>%s\n", DETAIL_TDBEGIN,
                html_attribute(row.user).text, DETAIL_TDEND);
    output_blank_cell(socket, page);
}

void output_fields(const PageContext &context, PageBuffer &page, const UserRow &row)
{
    int socket = context.request->socket;
    http_printf(socket, page, "%s<input type=text name=\"%s_file\" value=\"%s\" size=40>%s\n", DETAIL_TDBEGIN,
                html_attribute(row.user).text, html_attribute(row.description).text, DETAIL_TDEND);
    if (is_administrator(context, row))
        output_administrator_fields(socket, page, row);
    else
        output_ordinary_fields(socket, page, row);
}

// Description, password, old password and delete box of a user whose name is not whole, as the fields would be another
// user's, or whose values could not be read, as the next Submit would write empty ones back.
void output_no_fields(int socket, PageBuffer &page)
{
    for (int cell = 0; cell < 4; cell++)
        output_blank_cell(socket, page);
}

void output_user_row(const PageContext &context, PageBuffer &page, const UserRow &row)
{
    int socket = context.request->socket;
    http_printf(socket, page, "<tr>\n");
    http_printf(socket, page, "%s%s%s", DETAIL_TDBEGIN, html_text(row.user).text, DETAIL_TDEND);
    if (row.user_is_whole && row.values_are_readable)
        output_fields(context, page, row);
    else
        output_no_fields(socket, page);
    http_printf(socket, page, "</tr>\n");
}

void output_user_rows(PageContext &context, PageBuffer &page)
{
    // In the data source's own order, unlike the listing that applies a form.
    if (!execute(context.stmt, "select username, description, password from nordvale.system.user;"))
        diagnostic_text(SQL_HANDLE_STMT, context.stmt);
    UserRow row;
    while (next_user(context.stmt, row))
        output_user_row(context, page, row);
    SQLCloseCursor(context.stmt);
}

void output_new_user_row(int socket, PageBuffer &page)
{
    // Opened by a closing tag, on purpose: browsers open the row by themselves at its first cell.
    http_printf(socket, page, "</tr>\n");
    http_printf(socket, page, "%s<input type=text name=__newuser size=20>%s\n", DETAIL_TDBEGIN, DETAIL_TDEND);
    http_printf(socket, page, "%s<input type=text name=__newfile size=40>%s\n", DETAIL_TDBEGIN, DETAIL_TDEND);
    http_printf(socket, page, "%s<input type=text name=__newpass size=20>%s\n", DETAIL_TDBEGIN, DETAIL_TDEND);
    output_blank_cell(socket, page);
    output_blank_cell(socket, page);
    http_printf(socket, page, "</tr>\n");
}

void output_buttons(int socket, PageBuffer &page)
{
    http_printf(socket, page, TABLE_END);
    http_printf(socket, page, "<br>\n");
    http_printf(socket, page, TABLE_BEGIN_NOBORDER);
    http_printf(socket, page, "<tr>\n");
    http_printf(socket, page, "%s<input type=submit name=submit_users value=Submit>%s\n", DETAIL_TDBEGIN, DETAIL_TDEND);
    http_printf(socket, page, "%s<input type=submit name=refresh_users value=Refresh>%s\n", DETAIL_TDBEGIN,
                DETAIL_TDEND);
    http_printf(socket, page, "</tr>\n");
    http_printf(socket, page, TABLE_END);
    http_printf(socket, page, "<br>\n");
}

const char *posted_field(const FormField *form_fields, const UserRow &row, const char *suffix)
{
    char field[field_size];
    format_text(field, "%s_%s", row.user, suffix);
    return getvalue(form_fields, field);
}

// The posted value where it differs from the stored one.
const char *changed(const char *posted, const char *stored)
{
    return posted && strcmp(posted, stored) != 0 ? posted : nullptr;
}

// The new password for the administrator, null for unchanged. False when the old one is wrong or missing.
bool administrator_password(const FormField *form_fields, const UserRow &row, const char *&password)
{
    const char *posted = posted_field(form_fields, row, "password");
    const char *old_posted = posted_field(form_fields, row, "oldpassword");
    const char *old = old_posted ? old_posted : "";
    bool old_is_right = strcmp(old, row.password) == 0;
    if (*old && !old_is_right)
        return false;
    if (!*old && posted && *posted && row.password[0])
        return false;
    password = old_is_right ? changed(posted, row.password) : nullptr;
    return true;
}

// A statement and the values that go into it, their single quotes doubled.
struct UserStatement {
    QuotedText password, description;
    char sql[statement_size];
};

// False when the value is longer than its column.
bool quote_value(QuotedText &quoted, const char *value)
{
    ColumnText fitting;
    bool fits = copy_text(fitting, value);
    copy_text(quoted, fitting);
    quote_string(quoted);
    return fits;
}

bool quote_values(UserStatement &statement, const char *password, const char *description)
{
    return quote_value(statement.password, password) && quote_value(statement.description, description);
}

int update_user(PageContext &context, SQLHSTMT writer, const UserRow &row, const RowChange &change)
{
    UserStatement update;
    const char *password = change.password ? change.password : row.password;
    const char *description = change.description ? change.description : row.description;
    if (!row.values_are_whole || !quote_values(update, password, description))
        return return_error(context, "Password or description is too long.\n");
    format_text(update.sql, "update nordvale.system.user set password='%s', description='%s' where username='%s';",
                update.password, update.description, row.user);
    execute(writer, update.sql);
    return 0;
}

void delete_user(PageContext &context, PageBuffer &message, SQLHSTMT writer, const UserRow &row)
{
    char sql[statement_size];
    format_text(sql, "delete from nordvale.system.user where username = '%s'", row.user);
    execute(writer, sql);
    revoke_all(context, message, row.user);
}

int submit_row(PageContext &context, PageBuffer &message, SQLHSTMT writer, const UserRow &row,
               const FormField *form_fields)
{
    RowChange change = {nullptr, changed(posted_field(form_fields, row, "file"), row.description)};
    if (is_administrator(context, row)) {
        if (!administrator_password(form_fields, row, change.password))
            return return_error(context, "Invalid manager password specified.\n");
    } else {
        if (posted_field(form_fields, row, "checkbox")) {
            delete_user(context, message, writer, row);
            return 0;
        }
        change.password = changed(posted_field(form_fields, row, "password"), row.password);
    }
    if (!change.password && !change.description)
        return 0;
    return update_user(context, writer, row, change);
}

int insert_user(PageContext &context, PageBuffer &message, SQLHSTMT writer, const FormField *form_fields)
{
    const char *posted = getvalue(form_fields, "__newuser");
    if (!posted || !*posted)
        return 0;
    ColumnText user;
    if (!copy_text(user, posted))
        return return_error(context, "New username is too long.\n");
    if (strchr(user, '\'')) {
        copy_text(message, "New username cannot contain '.");
        return return_error(context, message);
    }
    UserStatement insert;
    const char *password = getvalue(form_fields, "__newpass");
    const char *description = getvalue(form_fields, "__newfile");
    if (!quote_values(insert, password ? password : "", description ? description : ""))
        return return_error(context, "Password or description is too long.\n");
    format_text(insert.sql,
                "insert into nordvale.system.user (username, password, description) values ('%s','%s','%s');", user,
                insert.password, insert.description);
    execute(writer, insert.sql);
    return 0;
}

}

int display_users(PageContext &context, PageBuffer &page, FormField *form_fields)
{
    int socket = context.request->socket;
    http_printf(socket, page, "<br>&nbsp;<br>\n");
    if (getvalue(form_fields, "submit_users"))
        if (int result = submit_users(context, page, form_fields); result < 0)
            return result;
    if (int result = uri_reset(context, page); result < 0)
        return result;
    output_list_header(socket, page);
    output_user_rows(context, page);
    output_new_user_row(socket, page);
    output_buttons(socket, page);
    return append_template(context, page, "userhelp.html");
}

int submit_users(PageContext &context, PageBuffer &message, const FormField *form_fields)
{
    if (int result = uri_reset(context, message); result < 0)
        return result;
    Statement reader, writer;
    if (!succeeded(SQLAllocHandle(SQL_HANDLE_STMT, context.dbc, &reader.handle)) ||
        !succeeded(SQLAllocHandle(SQL_HANDLE_STMT, context.dbc, &writer.handle)))
        return report_failure(context, message, "SQLAllocHandle", SQL_HANDLE_DBC, context.dbc);
    if (!execute(reader.handle, "select username, description, password from nordvale.system.user order by 1;"))
        diagnostic_text(SQL_HANDLE_STMT, reader.handle);
    UserRow row;
    while (next_user(reader.handle, row)) {
        // A cut name would name another user.
        if (!row.user_is_whole)
            continue;
        if (int result = submit_row(context, message, writer.handle, row, form_fields); result < 0)
            return result;
    }
    if (int result = insert_user(context, message, writer.handle, form_fields); result < 0)
        return result;
    SQLCloseCursor(reader.handle);
    return 0;
}
