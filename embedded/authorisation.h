// Who may do what. The tables that a statement names are looked up with the user's privileges before it is compiled;
// SQLite's authoriser then allows what was found and refuses everything else, so a name that no check has seen is
// never reachable. The authoriser is not asked everywhere, so the compiled program is looked through as well: it opens
// the tables that were looked up and no other. The rules:
//
// - The administrator reads and changes every table; of the system tables only nordvale.system.user is changed with
//   insert, update and delete, the others change through create table, drop table, grant and revoke.
// - Other users have on a table what was granted to them or to public. They read nordvale.system.table and
//   nordvale.system.sysinfo, and nothing of nordvale.system.user and nordvale.system.tableprv.
// - Reading any column takes the select privilege, also in the conditions and expressions of update and delete and
//   behind returning. "replace" takes delete beside insert or update, because it deletes the rows that are in the way.
#pragma once

#include "diagnostics.h"
#include "sql_translate.h"

#include <cstdint>
#include <string>
#include <unordered_map>
#include <vector>

struct Connection;
struct sqlite3;

struct TableAccess {
    TableName registered;   // the name as it was registered, whose letter case may differ from the statement's
    std::string stored;     // the SQLite name
    std::string shown;      // the registered name for messages
    unsigned privileges;
};

struct Access {
    bool guarded = false;               // false: our own statements, which may do everything
    bool defines = false;               // create table or drop table by the administrator
    bool replaces = false;
    bool checked = false;               // check_program has seen the whole program; without that it does not run
    std::vector<TableAccess> tables;
    std::string denial;                 // set by the authoriser: what was refused, as a sentence
};

// The pages on which the rows and the indexes of tables begin, as far as SQLite's schema has been read.
struct RootPages {
    int64_t schema_version = -1;
    int64_t last_row = 0;               // of sqlite_schema
    std::unordered_map<int64_t, std::string> tables;
};

// Installs the authoriser on the connection's database, and what makes its root pages forgotten with a rollback.
void install_authoriser(Connection &connection);

// Looks up the tables of `statement` for the connection's user, in the transaction that is open. Fills
// connection.access, not yet guarded. Returns SQL_SUCCESS, or SQL_ERROR with a diagnostic: a user who was deleted
// meanwhile (28000), a table that does not exist (42S02).
SQLRETURN load_access(Connection &connection, Diagnostics &diagnostics, const TranslatedStatement &statement);

// Looks through the program that SQLite makes of `sql`, a query or a change whose access is loaded. Returns SQL_SUCCESS,
// also for a text that cannot be compiled, or SQL_ERROR with a diagnostic (42000) if it opens any other table. A program
// that could not be seen to its end, cancelled or without memory, is left unchecked in connection.access.
SQLRETURN check_program(Connection &connection, Diagnostics &diagnostics, const std::string &sql);

// SQL_SUCCESS, or SQL_ERROR with a diagnostic (28000) when the connection's user was deleted meanwhile.
SQLRETURN require_user(Connection &connection, Diagnostics &diagnostics);

// SQL_SUCCESS for the administrator, otherwise SQL_ERROR with a diagnostic that names `action` (42000).
SQLRETURN require_administrator(Connection &connection, Diagnostics &diagnostics, const std::string &action);

// "select", "insert", "update" or "delete" of one privilege bit, and the same in upper case as tableprv records it.
const char *privilege_word(unsigned privilege);
const char *recorded_privilege(unsigned privilege);
