// The users page: every user's description and password to be changed, ordinary users to be deleted, a row for a new
// one. "public" stands for everybody and is neither shown nor changed; the administrator cannot be deleted, and its
// password changes only for the one who knows the old one.

#pragma once

#include "admin/page_context.h"
#include "server/response.h"

// Appends the page's body, after applying the form when its Submit button was pressed ("submit_users"). A user of whom
// something cannot be read has a row without fields.
// Returns 0, or the negative result of submit_users, uri_reset or the help text's template.
int display_users(PageContext &context, PageBuffer &page, FormField *form_fields);

// Turns the form into update, delete and insert statements, row by row in the order of the user names, the new user
// last. A field that is missing from the form is unchanged. What a statement does is not examined: the page that
// follows shows the table as it is.
//
// Returns 0, or the negative result of uri_reset or return_error (`message` has received an ODBC failure's text) for a
// wrong or missing old administrator password, a new name with a single quote, a posted value that is longer than its
// column's 254 characters, and a change to a row whose stored values are: writing them back would cut them. The rows
// before stay changed, the later ones and the new user are left alone then.
int submit_users(PageContext &context, PageBuffer &message, const FormField *form_fields);
