// The pages that a failure ends in.

#pragma once

#include "admin/page_context.h"
#include "server/response.h"

// Sends a complete error page with `message` straight to the request's connection, framed by the header and footer
// templates (left out where they do not load). `message` is HTML of less than page_size characters: data in it has
// been escaped by the caller. Returns -1, which callers pass up; nothing more is sent for the request then.
int return_error(PageContext &context, const char *message);

// describe_failure, then return_error: the way out of a failed ODBC call. `message` receives the text.
int report_failure(PageContext &context, PageBuffer &message, const char *call, SQLSMALLINT handle_type,
                   SQLHANDLE handle);

// Builds a stand-alone error page in memory, the counterpart of return_error for callers that send it themselves; no
// page does at present. `message` as for return_error; one that does not fit is left out whole. Stores the text's
// length through `length` and returns it.
int add_html_error(const char *message, PageBuffer &out, int *length);
