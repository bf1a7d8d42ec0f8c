// Changes of table privileges: SQL grant and revoke statements over every table of the data source's catalog.
//
// All three procedures need an open connection. Each begins with uri_reset, so a caller must not hold a result on the
// context's statement handles across the call. They write no HTML; `page` serves as message buffer. The user "public",
// in exactly this spelling, stands for everybody; any other name is quoted. Names with double quotes have them doubled.
//
// They return 0 when the list of tables could be read, whatever became of the statements, which take effect one by one;
// otherwise the negative result of uri_reset or return_error, the error page having been sent. A table whose name does
// not come whole (254 characters) is passed over: a cut name would name another table.

#pragma once

#include "admin/page_context.h"
#include "server/response.h"

// The four privileges in the order in which pages show and statements change them.
constexpr const char *privileges[] = {"select", "insert", "update", "delete"};

// Makes the privileges of `isamuser` match the posted boxes of the rights list: for each table and privilege a grant if
// the field is in the form, whatever its value, a revoke if not. There is no comparison with what is held already. A
// statement that fails does not stop the others and shows no message.
int submit_selection(PageContext &context, PageBuffer &page, const FormField *form_fields);

// Grants all privileges on every table to `isamuser`. Ends at the first statement that fails, without a message.
int grant_all(PageContext &context, PageBuffer &page);

// Revokes all privileges on every table from `user`, which has at most 254 characters. Ends at the first statement
// that fails, without a message.
int revoke_all(PageContext &context, PageBuffer &page, const char *user);
