// The page's connection to its data source, from the first handle to the last.

#pragma once

#include "admin/page_context.h"
#include "server/response.h"

// Stores the request in the context, opens the product configuration, which then reads through the ODBC installer
// library, and makes `dbc`, `stmt` and `stmt2` null. `env` and `message` are left alone. Returns 0.
int uri_setup(PageContext &context, char *message, RequestRecord *request);

// Connects to `datasource` as `logonuser` with `logonauth`, unless the context is connected already or `datasource` is
// empty, and reads the data source's administrator into `dbo_user`. On success `stmt` and `stmt2` are allocated and
// free of results.
//
// Returns 0. On failure `message` receives the text and the result is negative; with `report` non-zero the text has
// been sent as an error page too, and always when `stmt` cannot be allocated anew behind the administrator query, as
// with an empty `datasource`. A data source name that would end its field of the connection string is refused.
int uri_connect(PageContext &context, PageBuffer &message, int report);

// Gives the page two fresh statement handles. Returns 0, or the negative result of return_error.
int uri_reset(PageContext &context, PageBuffer &message);

// Gives everything back: configuration, statements, connection, environment. `page` is not used. Returns 0.
int uri_disconnect(PageContext &context, char *page);
