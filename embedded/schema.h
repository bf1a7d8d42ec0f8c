// The system tables of a database file, and the marks by which a file of ours is known.
#pragma once

#include <string>
#include <string_view>

struct sqlite3;

// Creates the file `path` with the system tables, the administrator and the user "public", ready for use by several
// processes. Returns 0, or -1 with the reason in `problem`: the file exists or cannot be written, the name is empty or
// "public".
int create_database(const std::string &path, std::string_view administrator, std::string_view password,
                    std::string &problem);

// The file carries our marks.
bool is_our_database(sqlite3 *database);
