#include "admin/page_context.h"

ColumnText datasource;
ColumnText logonuser;
ColumnText logonauth;
ColumnText isamuser;
