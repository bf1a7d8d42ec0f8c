// Templates as parts of a page.

#pragma once

#include "admin/page_context.h"
#include "server/response.h"

// Loads the template and appends it to the page, which is sent first where both do not fit into the page buffer.
// Returns 0, or the negative result of load_template or of sending the page.
int append_template(PageContext &context, PageBuffer &page, const char *name);
