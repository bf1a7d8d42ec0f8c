// Statements of our own on SQLite: prepared, bound with texts, finalised by their owner's end.
#pragma once

#include <initializer_list>
#include <string>
#include <string_view>

struct sqlite3;
struct sqlite3_stmt;

// Owns a prepared statement. A text that SQLite does not accept leaves `prepared` null; then step() is false.
struct Query {
    Query() = default;
    Query(sqlite3 *database, std::string_view sql);
    ~Query();
    Query(const Query &) = delete;
    Query &operator=(const Query &) = delete;

    sqlite3_stmt *prepared = nullptr;
};

// Binds the texts to the parameters from the first on.
void bind(Query &query, std::initializer_list<std::string_view> texts);

// True: on a row. False: at the end or failed.
bool step(Query &query);

// Runs to the end, rows ignored. False: failed, sqlite3_errmsg tells why.
bool run(sqlite3 *database, std::string_view sql, std::initializer_list<std::string_view> texts = {});

// A column of the current row as text; null is empty.
std::string text_column(Query &query, int column);
