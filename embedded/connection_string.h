// ODBC connection strings: keyword=value pairs separated by ";". A value that begins with "{" ends at the first "}" that
// is not doubled and may contain anything, "}" doubled; any other value ends before ";" or at the end.
#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

using ConnectionValues = std::vector<std::pair<std::string, std::string>>;

// The pairs in order, braces taken off. Blanks around keywords and unbraced values are dropped. Returns 0, or -1 for a
// value whose "}" is missing.
int read_connection_string(std::string_view text, ConnectionValues &values);

// The value of `keyword`, letter case ignored; the first one counts. nullptr: not there.
const std::string *value_of(const ConnectionValues &values, std::string_view keyword);
