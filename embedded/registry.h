// What the system tables record: users, tables and granted privileges. All of it runs in the caller's transaction.
#pragma once

#include "table_name.h"

#include <string>

struct OwnStatements;

// The name as it was registered, whose letter case may differ. False: there is no such table.
bool find_table(OwnStatements &own, const TableName &name, TableName &registered);

bool register_table(OwnStatements &own, const TableName &name);

// Forgets the table and all privileges on it.
bool unregister_table(OwnStatements &own, const TableName &name);

// The spelling under which the user is kept: the name itself if a user has exactly it, else that of the user whose
// name differs in letter case alone. "public" only matches exactly. False: there is no such user.
bool find_user(OwnStatements &own, const std::string &name, std::string &spelled);

// Records or forgets these privileges (bits of Privilege). What is recorded already stays, what is absent is no failure.
// False: SQLite failed.
bool grant_privileges(OwnStatements &own, const TableName &table, unsigned privileges, const std::string &grantor,
                      const std::string &grantee);

// A `grantee` who is no user any more is matched without regard to case.
bool revoke_privileges(OwnStatements &own, const TableName &table, unsigned privileges, const std::string &grantee);
