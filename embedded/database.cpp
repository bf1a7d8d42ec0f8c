#include "database.h"

#include <sqlite3.h>

#include <algorithm>

static void note_result(OwnStatements *own, int result)
{
    if (own != nullptr && own->failure == SQLITE_OK && result != SQLITE_ROW && result != SQLITE_DONE)
        own->failure = result;
}

static int advance(Query &query)
{
    if (query.own != nullptr && query.own->failure != SQLITE_OK)
        return query.own->failure;
    int result = sqlite3_step(query.prepared);
    note_result(query.own, result);
    return result;
}

Query::Query(sqlite3 *database, std::string_view sql)
{
    sqlite3_prepare_v2(database, sql.data(), static_cast<int>(sql.size()), &prepared, nullptr);
}

Query::Query(OwnStatements &statements, std::string_view sql) : own(&statements)
{
    auto known = std::find_if(own->idle.begin(), own->idle.end(),
                              [&](sqlite3_stmt *statement) { return sql == sqlite3_sql(statement); });
    if (known == own->idle.end()) {
        note_result(own, sqlite3_prepare_v2(own->database, sql.data(), static_cast<int>(sql.size()), &prepared,
                                            nullptr));
        return;
    }
    prepared = *known;
    own->idle.erase(known);
}

Query::~Query()
{
    if (own == nullptr || prepared == nullptr) {
        sqlite3_finalize(prepared);
        return;
    }
    // At once: until then it would keep its transaction open. Tells of a text that found no memory, too.
    note_result(own, sqlite3_reset(prepared));
    own->idle.push_back(prepared);
}

void free_own_statements(OwnStatements &own)
{
    for (sqlite3_stmt *statement : own.idle)
        sqlite3_finalize(statement);
    own = {};
}

void bind(Query &query, std::initializer_list<std::string_view> texts)
{
    int number = 0;
    for (std::string_view text : texts)
        note_result(query.own, sqlite3_bind_text(query.prepared, ++number, text.data(), static_cast<int>(text.size()),
                                                 SQLITE_TRANSIENT));
}

bool step(Query &query)
{
    return query.prepared != nullptr && advance(query) == SQLITE_ROW;
}

static bool run(Query &query, std::initializer_list<std::string_view> texts)
{
    if (query.prepared == nullptr)
        return false;
    bind(query, texts);
    int result = SQLITE_ROW;
    while (result == SQLITE_ROW)
        result = advance(query);
    return result == SQLITE_DONE;
}

bool run(sqlite3 *database, std::string_view sql, std::initializer_list<std::string_view> texts)
{
    Query query(database, sql);
    return run(query, texts);
}

bool run(OwnStatements &own, std::string_view sql, std::initializer_list<std::string_view> texts)
{
    Query query(own, sql);
    return run(query, texts);
}

std::string text_column(Query &query, int column)
{
    const unsigned char *text = sqlite3_column_text(query.prepared, column);
    if (text == nullptr)
        return {};
    return {reinterpret_cast<const char *>(text), static_cast<size_t>(sqlite3_column_bytes(query.prepared, column))};
}
