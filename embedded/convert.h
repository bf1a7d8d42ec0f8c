// One value of a result in the form in which a program asks for it.
#pragma once

#include "handles.h"

// Stores `cell` as C type `type` into `value` of `size` bytes and its length through `indicator`. `offset` says how
// many bytes of a text or blob were given out before and grows by what is given out now; `finished` becomes true with
// the last piece. Returns SQL_SUCCESS, SQL_SUCCESS_WITH_INFO (01004: more to come, 01S07: digits lost) or SQL_ERROR.
SQLRETURN convert_cell(Statement &statement, size_t column, const Cell &cell, SQLSMALLINT type, SQLPOINTER value,
                       SQLLEN size, SQLLEN *indicator, size_t &offset, bool &finished);

// The C type that SQL_C_DEFAULT means for a column of SQL type `type`.
SQLSMALLINT default_c_type(SQLSMALLINT type);
