// The name of a table: catalog, schema and table, of which the first two may be empty; and the one name under which
// SQLite keeps that table. Names are compared without regard to the case of ASCII letters, as SQLite compares them.
#pragma once

#include <string>
#include <string_view>
#include <vector>

struct TableName {
    std::string catalog, schema, table;
};

// The name with these one to three parts, the table last. Returns 0, or -1 with the reason in `problem`.
int table_of_parts(const std::vector<std::string> &parts, TableName &name, std::string &problem);

// The SQLite name: the three parts joined by dots, empty parts included, with "%" and "." inside a part written "%25"
// and "%2E". Different names (case aside) have different SQLite names, and none is reserved by SQLite.
std::string stored_name(const TableName &name);

// The name as its users know it: "C.S.T", "S.T", "T" or "C..T", nothing quoted. For messages.
std::string shown_name(const TableName &name);

// `text` between double quotes, double quotes inside doubled.
std::string quoted_name(std::string_view text);

// Equal without regard to the case of ASCII letters.
bool same_name(std::string_view one, std::string_view other);

// A part of nordvale.system, where the tables of users and privileges live.
bool is_system_name(const TableName &name);
