// What the server asks of the application behind its pages. The application implements the three procedures; the
// linker joins them, so the server knows nothing else of it.

#pragma once

#include "server/form.h"
#include "server/request.h"
#include "server/response.h"

#include <cstdint>

struct UriEntry;

// Builds a page. The response header has been sent already, so the status line cannot change any more.
// Arguments: its own row; the request; the page buffer, whose contents are overwritten; the page's length, page_size on
// entry, on return the number of page bytes that are still to be sent (0 or less: none); the form, or null.
// Returns a negative number for failure: nothing more is sent then.
using Handler = int (*)(const UriEntry *, RequestRecord *, PageBuffer &, int *, FormField *);

// Bit of a row's flags: the page needs a chosen data source and the credentials of its administrator.
constexpr uint32_t URI_AUTH = 4;

struct UriEntry {
    const char *uri;        // the request path, matched exactly; null ends a table
    Handler handler;
    const char *page_name;
    uint32_t flags;         // URI_AUTH; the whole word goes to protocol_header too
};

// The handler of the administration pages.
int uri_isam(const UriEntry *entry, RequestRecord *request, PageBuffer &page, int *length, FormField *form_fields);

// Checks the credentials against the data source that the form names. `message` receives the text of any failure.
// Returns 0 accepted, -1 refused, -2 when an error page has already been written to the client.
int validate_user(const char *user, const char *password, PageBuffer &message, RequestRecord *request,
                  FormField *form_fields);

// Answers a request for a URI_AUTH page whose form names no data source with an error page. Returns a negative number.
int refuse_without_datasource(RequestRecord *request, FormField *form_fields);
