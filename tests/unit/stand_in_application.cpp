#include "tests/unit/stand_in_application.h"

#include <cstring>

StandInApplication stand_in;

namespace {

void note(const char *name, RequestRecord *request, FormField *form_fields)
{
    stand_in.calls.push_back(name);
    stand_in.request = request;
    stand_in.status = request->status;
    stand_in.socket = request->socket;
    stand_in.form_fields = form_fields;
    stand_in.fields.clear();
    for (FormField *field = form_fields; field && field->name; field++)
        stand_in.fields.emplace_back(field->name, field->value);
}

}

int uri_isam(const UriEntry *entry, RequestRecord *request, PageBuffer &page, int *length, FormField *form_fields)
{
    note("uri_isam", request, form_fields);
    stand_in.entry = entry;
    stand_in.path = entry->uri;
    stand_in.page_name = entry->page_name;
    stand_in.page_on_entry.assign(page.text, page.length);
    stand_in.length_on_entry = *length;
    if (stand_in.build_page)
        return stand_in.build_page(request, page, length);
    *length = 0;
    return 0;
}

int validate_user(const char *user, const char *password, PageBuffer &message, RequestRecord *request,
                  FormField *form_fields)
{
    note("validate_user", request, form_fields);
    stand_in.user = user;
    stand_in.password = password;
    stand_in.page_on_entry.assign(message.text, message.length);
    if (!stand_in.validate_user_message.empty())
        set_page(message, stand_in.validate_user_message);
    return stand_in.validate_user_result;
}

int refuse_without_datasource(RequestRecord *request, FormField *form_fields)
{
    note("refuse_without_datasource", request, form_fields);
    return stand_in.refusal_result;
}
