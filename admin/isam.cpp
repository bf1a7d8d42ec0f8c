#include "admin/connection.h"
#include "admin/datasource.h"
#include "admin/error_page.h"
#include "admin/html_kit.h"
#include "admin/page_context.h"
#include "admin/page_frame.h"
#include "admin/rights.h"
#include "admin/users.h"
#include "common/text.h"
#include "server/application.h"

#include <cstring>
#include <strings.h>

namespace {

// A menu button, or the hidden field that stands for it in later submissions, and that hidden field.
struct RefreshField {
    const char *present, *refresh_name;
};

constexpr RefreshField refresh_fields[] = {
    {"users.x", "users_refresh"},         {"rights.x", "rights_refresh"},
    {"reports.x", "reports_refresh"},     {"users_refresh", "users_refresh"},
    {"rights_refresh", "rights_refresh"}, {"reports_refresh", "reports_refresh"},
};

struct PageBody {
    const char *present;
    int (*display)(PageContext &, PageBuffer &, FormField *);
};

// The reports page has no body.
constexpr PageBody page_bodies[] = {
    {"users.x", display_users},
    {"rights.x", display_rights},
    {"users_refresh", display_users},
    {"rights_refresh", display_rights},
};

bool is_present(const PageContext &context, const char *field)
{
    return getvalue(context.form_fields, field) != nullptr;
}

// The hidden field keeps the choice of page, so that any other button stays on the same page.
void output_refresh_field(const PageContext &context, PageBuffer &page)
{
    for (const RefreshField &field : refresh_fields) {
        if (!is_present(context, field.present))
            continue;
        http_printf(context.request->socket, page, "<input type=hidden name=%s>\n", field.refresh_name);
        return;
    }
}

int begin_page(PageContext &context, PageBuffer &page)
{
    set_page(page, "");
    if (int result = append_template(context, page, "header.html"); result < 0)
        return result;
    http_printf(context.request->socket, page, "<form method=POST action=/isam.cgi>");
    if (int result = append_template(context, page, "menu.html"); result < 0)
        return result;
    output_refresh_field(context, page);
    http_printf(context.request->socket, page, TABLE_BEGIN_CENTER);
    return 0;
}

void end_chooser(const PageContext &context, PageBuffer &page)
{
    http_printf(context.request->socket, page, TABLE_END);
    http_printf(context.request->socket, page, "<br>\n");
}

int end_page(PageContext &context, PageBuffer &page, int *length)
{
    http_printf(context.request->socket, page, "</form>");
    int result = append_template(context, page, "footer.html");
    if (result == 0)
        *length = int(page.length);
    uri_disconnect(context, page.text);
    return result;
}

// Whom the log-in has accepted, in the data source's spelling.
ColumnText accepted_administrator;

// A name that the page cannot read is the one that the log-in has just read. Without it the administrator would be an
// ordinary user: shown with its password, and given the empty one that its field holds.
void settle_administrator(PageContext &context)
{
    if (!context.dbo_user[0])
        copy_text(context.dbo_user, accepted_administrator);
}

// Whether the data source that the page is connected to let somebody in whom the log-in did not accept: nobody at all
// (a form posted to the landing page), or the administrator of another data source named beside this one.
bool is_somebody_else(const PageContext &context)
{
    return !logonuser[0] || strcasecmp(context.dbo_user, logonuser) != 0;
}

int connect_page(PageContext &context, PageBuffer &page)
{
    if (int result = uri_connect(context, page, 1); result < 0)
        return result;
    settle_administrator(context);
    if (is_somebody_else(context))
        return return_error(context, "Only the administrator of the data source can work with it.\n");
    return uri_reset(context, page);
}

// A menu button outweighs the hidden field of the page that it was pressed on; of the hidden fields, that of the users
// page decides, as it does for the page's body.
bool has_user_chooser(const PageContext &context)
{
    for (const char *button : {"users.x", "rights.x", "reports.x"})
        if (is_present(context, button))
            return is_present(context, "rights.x");
    return is_present(context, "rights_refresh") && !is_present(context, "users_refresh");
}

int output_body(PageContext &context, PageBuffer &page)
{
    for (const PageBody &body : page_bodies)
        if (is_present(context, body.present))
            return body.display(context, page, context.form_fields);
    return 0;
}

int output_connected_page(PageContext &context, PageBuffer &page)
{
    if (has_user_chooser(context) && output_user(context, page, context.form_fields) < 0)
        return -1;
    end_chooser(context, page);
    return output_body(context, page);
}

int refuse(PageContext &context, const char *message)
{
    return_error(context, message);
    return -2;
}

}

int uri_isam(const UriEntry *, RequestRecord *request, PageBuffer &page, int *length, FormField *form_fields)
{
    PageContext context = {};
    context.form_fields = form_fields;
    uri_setup(context, page.text, request);
    if (int result = begin_page(context, page); result < 0)
        return result;
    const char *chooser = form_fields ? "datasource" : "initial_datasource";
    if (int result = output_datasource(context, page, form_fields, chooser); result < 0)
        return result;
    if (!form_fields) {
        end_chooser(context, page);
        return end_page(context, page, length);
    }
    // Failures up to here release nothing: the process ends with the request.
    if (int result = connect_page(context, page); result < 0)
        return result;
    if (int result = output_connected_page(context, page); result < 0) {
        uri_disconnect(context, page.text);
        return result;
    }
    return end_page(context, page, length);
}

int validate_user(const char *user, const char *password, PageBuffer &message, RequestRecord *request,
                  FormField *form_fields)
{
    set_page(message, "");
    // The other way round than in the chooser, on purpose: the log-in is for the data source of the landing page.
    const char *source = getvalue(form_fields, "initial_datasource");
    if (!source)
        source = getvalue(form_fields, "datasource");
    if (!source) {
        set_page(message, "No datasource specified.\n");
        return -1;
    }
    PageContext context = {};
    uri_setup(context, message.text, request);
    if (!copy_text(logonuser, user) || !copy_text(logonauth, password) || !copy_text(datasource, source))
        return refuse(context, "User name, password or data source name is too long.\n");
    // Without a data source name uri_connect has sent its page already and a second one follows: kept, as nothing but an
    // emptied chooser leads here.
    if (uri_connect(context, message, 0) < 0)
        return strstr(message.text, "Invalid user and or password specified") ? -1 : refuse(context, message.text);
    // An administrator that could not be read is nobody, an empty user name least of all. The connection of a refused
    // user is left to the end of the process.
    if (!context.dbo_user[0] || strcasecmp(context.dbo_user, user) != 0)
        return -1;
    copy_text(accepted_administrator, context.dbo_user);
    uri_disconnect(context, message.text);
    return 0;
}

int refuse_without_datasource(RequestRecord *request, FormField *form_fields)
{
    PageContext context = {};
    context.form_fields = form_fields;
    uri_setup(context, nullptr, request);
    return return_error(context, "No datasource specified, re-select<br>");
}
