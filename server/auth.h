// Basic authentication (RFC 7617). The application's validate_user is the only authority; any scheme word is taken for
// Basic.

#pragma once

#include "server/form.h"
#include "server/request.h"
#include "server/response.h"

// Finds the request's "authorization" header, decodes its credentials and asks validate_user.
//
// Returns 1 when they are accepted. Otherwise a negative number, with `page` holding and `*length_out` counting the
// text that is to be sent behind the header:
// -1 and status 401 when the header is missing or empty (nothing to send) or when the credentials are refused (the
// refusal text); -2 when validate_user has answered the client itself (nothing to send, status unchanged); any other
// negative result of validate_user like -1.
//
// Ends the process with abort() for a header without credentials, credentials without a colon, and for want of memory.
int authorised(RequestRecord *request, PageBuffer &page, int *length_out, FormField *form_fields);
