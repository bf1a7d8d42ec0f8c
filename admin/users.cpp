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

// Six texts of columns, and what stands around them.
constexpr size_t row_size = html_growth * 6 * column_size + 1024;
static_assert(row_size <= page_size, "a row goes into the page in one piece");

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

// An input field of the user's, up to the end of its name: the opening tag is still open.
void put_field(TextWriter &row, const char *begin, const char *type, const UserRow &user, const char *suffix)
{
    put(row, begin);
    put(row, "<input type=");
    put(row, type);
    put(row, " name=\"");
    put_attribute(row, user.user);
    put(row, '_');
    put(row, suffix);
    put(row, '"');
}

void put_value(TextWriter &row, const char *value)
{
    put(row, " value=\"");
    put_attribute(row, value);
    put(row, '"');
}

void put_field_end(TextWriter &row, const char *end)
{
    put(row, end);
    put(row, DETAIL_TDEND);
    put(row, '\n');
}

void put_ordinary_fields(TextWriter &row, const UserRow &user)
{
    put_field(row, DETAIL_TDBEGIN, "text", user, "password");
    put_value(row, user.password);
    put_field_end(row, " size=20>");
    put_blank_cell(row, DETAIL_TDBEGIN);
    put_field(row, DETAIL_TDBEGIN_CENTER, "checkbox", user, "checkbox");
    put_field_end(row, " value=\"OFF\"></input>");
}

void put_administrator_fields(TextWriter &row, const UserRow &user)
{
    put_field(row, DETAIL_TDBEGIN, "text", user, "password");
    put_field_end(row, " size=20>");
    put_field(row, DETAIL_TDBEGIN, "password", user, "oldpassword");
    put_field_end(row, " size=20>");
    put_blank_cell(row, DETAIL_TDBEGIN);
}

void put_fields(TextWriter &row, const PageContext &context, const UserRow &user)
{
    put_field(row, DETAIL_TDBEGIN, "text", user, "file");
    put_value(row, user.description);
    put_field_end(row, " size=40>");
    if (is_administrator(context, user))
        put_administrator_fields(row, user);
    else
        put_ordinary_fields(row, user);
}

// Description, password, old password and delete box of a user whose name is not whole, as the fields would be another
// user's, or whose values could not be read, as the next Submit would write empty ones back.
void put_no_fields(TextWriter &row)
{
    for (int cell = 0; cell < 4; cell++)
        put_blank_cell(row, DETAIL_TDBEGIN);
}

void output_user_row(const PageContext &context, PageBuffer &page, const UserRow &user)
{
    char text[row_size];
    TextWriter row{text};
    put(row, "<tr>\n");
    put(row, DETAIL_TDBEGIN);
    put_html(row, user.user);
    put(row, DETAIL_TDEND);
    if (user.user_is_whole && user.values_are_readable)
        put_fields(row, context, user);
    else
        put_no_fields(row);
    put(row, "</tr>\n");
    append_row(context.request->socket, page, row);
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
    for (int cell = 0; cell < 2; cell++)
        http_printf(socket, page, "%s&nbsp;%s\n", DETAIL_TDBEGIN, DETAIL_TDEND);
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
        set_page(message, "New username cannot contain '.");
        return return_error(context, message.text);
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
