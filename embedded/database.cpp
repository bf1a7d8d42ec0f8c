#include "database.h"

#include <sqlite3.h>

Query::Query(sqlite3 *database, std::string_view sql)
{
    sqlite3_prepare_v2(database, sql.data(), static_cast<int>(sql.size()), &prepared, nullptr);
}

Query::~Query()
{
    sqlite3_finalize(prepared);
}

void bind(Query &query, std::initializer_list<std::string_view> texts)
{
    int number = 0;
    for (std::string_view text : texts)
        sqlite3_bind_text(query.prepared, ++number, text.data(), static_cast<int>(text.size()), SQLITE_TRANSIENT);
}

bool step(Query &query)
{
    return query.prepared != nullptr && sqlite3_step(query.prepared) == SQLITE_ROW;
}

bool run(sqlite3 *database, std::string_view sql, std::initializer_list<std::string_view> texts)
{
    Query query(database, sql);
    if (query.prepared == nullptr)
        return false;
    bind(query, texts);
    int result = SQLITE_ROW;
    while (result == SQLITE_ROW)
        result = sqlite3_step(query.prepared);
    return result == SQLITE_DONE;
}

std::string text_column(Query &query, int column)
{
    const unsigned char *text = sqlite3_column_text(query.prepared, column);
    if (text == nullptr)
        return {};
    return {reinterpret_cast<const char *>(text), static_cast<size_t>(sqlite3_column_bytes(query.prepared, column))};
}
