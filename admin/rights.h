// The rights page: which of the four table privileges a chosen user holds on every table, and the buttons that change
// them. The three procedures need an open connection and give it fresh statements with uri_reset.

#pragma once

#include "admin/page_context.h"
#include "server/response.h"

// Settles the user that the page is about in `isamuser` and appends the chooser's table row. The posted "isamuser"
// counts only if the page was drawn for this data source ("last_datasource"); without one it is the first user by
// name, nobody where that name cannot be read. The administrator is not offered. A user list that cannot be read leaves
// the chooser empty.
// Returns 0, the negative result of uri_reset, or -1 for a posted user that does not fit: the error page has been sent.
int output_user(PageContext &context, PageBuffer &page, const FormField *form_fields);

// Appends the page's body: the buttons, then the list as it is after the action that the pressed button asks for
// ("rights_revoke", "rights_grant", "submit_selection": at most one, none where output_user could not
// read whom it is for), then the help text. A list that could not be read does not stop it.
// Returns 0, or the negative result of uri_reset, of the action or of the help text's template.
int display_rights(PageContext &context, PageBuffer &page, FormField *form_fields);

// Appends the list: a row per table of the data source with four checkboxes, or none for a name that is not whole.
// Returns 0, or a negative number when the list cannot be read; the error page has been sent then.
int display_rights_list(PageContext &context, PageBuffer &page);
