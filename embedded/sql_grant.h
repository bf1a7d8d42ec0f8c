// The grammar of grant and revoke, which SQLite does not know:
//   grant  {all [privileges] | privilege [, privilege ...]} on [table] name to   {user | public}
//   revoke {all [privileges] | privilege [, privilege ...]} on [table] name from {user | public}
#pragma once

#include "sql_tokens.h"
#include "table_name.h"

#include <string>
#include <vector>

// Reads a whole statement, whose first token is grant or revoke. The keyword public in any letter case gives the
// grantee "public"; a user's name, quoted or not, is given as written. Returns 0, or -1 with the reason in `problem`.
int read_grant(const std::vector<Token> &tokens, TableName &table, unsigned &privileges, std::string &grantee,
               std::string &problem);
