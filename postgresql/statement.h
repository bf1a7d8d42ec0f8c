// What the statements of the pages are to PostgreSQL. Text in, text out.
#pragma once

#include <string>
#include <string_view>

// The statement to send in place of `text`, which is read as PostgreSQL reads it with standard_conforming_strings on:
// - nordvale.system.TABLE, in any letter case, is tabwarden.TABLE; not in quotes and comments;
// - grant or revoke of one of select, insert, update, delete or all on a table whose name has three parts, to or from one
//   user, is a call of tabwarden.change_privilege. Any other grant or revoke is sent as it is;
// - several statements are one that fails with SQLSTATE 42601, "one statement at a time". PostgreSQL would run them all.
std::string adapted_statement(std::string_view text);
