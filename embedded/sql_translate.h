// Turns a statement as users write it, with names of one, two or three parts, into one for SQLite, and says what the
// statement is and which tables it names. Text in, text out: nothing here knows a database.
#pragma once

#include "table_name.h"

#include <string>
#include <string_view>
#include <vector>

enum class StatementKind { query, change, create_table, drop_table, grant, revoke };

// A set of these, as bits.
enum Privilege : unsigned {
    privilege_select = 1,
    privilege_insert = 2,
    privilege_update = 4,
    privilege_delete = 8,
    privilege_all = 15,
};

// Bytes of a statement, and names of tables in it: enough for any that people or programs write, and few enough that
// looking each of them up takes no time to speak of.
constexpr size_t longest_statement = 1000000;
constexpr size_t most_table_names = 500;

struct TranslatedStatement {
    StatementKind kind;
    std::string sql;                    // for SQLite; empty for grant and revoke
    std::vector<TableName> tables;      // every table the statement names, in order; create, drop, grant: the first
    std::vector<TableName> sources;     // those of them that rows come from: all but the target of a change
    bool replaces;                      // "replace" or "or replace": rows in the way are deleted
    bool if_exists;                     // create table if not exists, drop table if exists
    unsigned privileges;                // grant and revoke
    std::string grantee;                // grant and revoke: the user's name, "public" for everybody
};

// Translates one statement; a ";" behind it is left out. Returns 0, or -1 with the reason in `problem`: no statement or
// more than one, a quote or comment without end, a statement that is not served (only select, values, with, insert,
// replace, update, delete, create table, drop table, grant and revoke are), a table name of more than three parts or
// without its last one, more text or table names than the limits above.
int translate(std::string_view text, TranslatedStatement &statement, std::string &problem);
