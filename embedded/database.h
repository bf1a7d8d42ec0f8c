// Statements of our own on SQLite: prepared, bound with texts, given back by their owner's end.
#pragma once

#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

struct sqlite3;
struct sqlite3_stmt;

// Our own statements stay compiled while the connection lasts: compiling takes most of their time. Here are those that
// are not in use. What users write never gets here; it is compiled anew for each execution, with their privileges.
struct OwnStatements {
    sqlite3 *database = nullptr;
    std::vector<sqlite3_stmt *> idle;
    // SQLite's code of one that failed. What it did not find may be there all the same, and SQLite may have ended the
    // transaction with it, so none is run behind it until a new step begins.
    int failure = 0;
};

void free_own_statements(OwnStatements &own);

// Owns a prepared statement. A text that SQLite does not accept leaves `prepared` null; then step() is false.
struct Query {
    Query() = default;
    Query(sqlite3 *database, std::string_view sql);         // finalised at the end
    Query(OwnStatements &statements, std::string_view sql); // goes back to them at the end
    ~Query();
    Query(const Query &) = delete;
    Query &operator=(const Query &) = delete;

    sqlite3_stmt *prepared = nullptr;
    OwnStatements *own = nullptr;
};

// Binds the texts to the parameters from the first on.
void bind(Query &query, std::initializer_list<std::string_view> texts);

// True: on a row. False: at the end or failed.
bool step(Query &query);

// Runs to the end, rows ignored. False: failed, sqlite3_errmsg tells why.
bool run(sqlite3 *database, std::string_view sql, std::initializer_list<std::string_view> texts = {});
bool run(OwnStatements &own, std::string_view sql, std::initializer_list<std::string_view> texts = {});

// A column of the current row as text; null is empty.
std::string text_column(Query &query, int column);
