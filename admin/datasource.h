// The chooser of the data source, and whose data sources it offers.

#pragma once

#include "admin/page_context.h"
#include "server/response.h"

// Settles the current data source in the global `datasource` (the posted "datasource", else the posted
// "initial_datasource", else the first in the driver manager's list that the product's driver serves) and appends the
// chooser's table row, a select named `select_name`. A select named "datasource" gets a Refresh button.
//
// Returns 0, or the negative result of return_error when the posted name is too long for `datasource`.
int output_datasource(PageContext &context, PageBuffer &page, const FormField *form_fields, const char *select_name);
