// Any bytes as an SQL text, and as a connection string, for the embedded data source.

#include "connection_string.h"
#include "sql_tokens.h"
#include "sql_translate.h"

#include "tests/fuzz/target.h"

#include <sqlite3.h>

namespace {

sqlite3 *open_database()
{
    sqlite3 *database = nullptr;
    PROMISE(sqlite3_open(":memory:", &database) == SQLITE_OK);
    return database;
}

// What is translated is one statement, whatever was written.
void check_is_one_statement(const std::string &sql)
{
    static sqlite3 *database = open_database();
    sqlite3_stmt *statement = nullptr;
    const char *rest = nullptr;
    if (sqlite3_prepare_v2(database, sql.c_str(), -1, &statement, &rest) == SQLITE_OK) {
        std::vector<Token> tokens;
        std::string problem;
        PROMISE(read_tokens(rest, tokens, problem) && tokens.empty());
    }
    sqlite3_finalize(statement);
}

void check_statement(const TranslatedStatement &statement)
{
    bool is_grant = statement.kind == StatementKind::grant || statement.kind == StatementKind::revoke;
    PROMISE(statement.sql.empty() == is_grant);
    PROMISE(statement.sql.find('\0') == std::string::npos);
    for (const TableName &name : statement.tables) {
        PROMISE(!name.table.empty());
        PROMISE(same_name(stored_name(name), stored_name(name)));
    }
    if (is_grant) {
        PROMISE(statement.privileges != 0 && (statement.privileges & ~unsigned{privilege_all}) == 0);
        PROMISE(statement.tables.size() == 1);
        return;
    }
    check_is_one_statement(statement.sql);
}

// The tokens stand in the text, in order, and no two of them share a byte.
void check_tokens(std::string_view text)
{
    std::vector<Token> tokens;
    std::string problem;
    bool read = read_tokens(text, tokens, problem);
    PROMISE(read == problem.empty());
    const char *next = text.data();
    for (const Token &token : tokens) {
        PROMISE(!token.source.empty() && token.source.data() >= next);
        next = token.source.data() + token.source.size();
        PROMISE(next <= text.data() + text.size());
    }
}

void check_connection_string(std::string_view text)
{
    ConnectionValues values;
    if (read_connection_string(text, values) != 0)
        return;
    size_t length = 0;
    for (const auto &[keyword, value] : values) {
        PROMISE(keyword.find_first_of(";=") == std::string::npos);
        length += keyword.size() + value.size();
        PROMISE(value_of(values, keyword));
    }
    PROMISE(length <= text.size());
}

}

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    std::unique_ptr<char[]> copy(new char[size]);
    memcpy(copy.get(), data, size);
    std::string_view text(copy.get(), size);
    check_tokens(text);
    check_connection_string(text);
    TranslatedStatement statement = {};
    std::string problem;
    if (translate(text, statement, problem) == 0)
        check_statement(statement);
    else
        PROMISE(!problem.empty());
    return 0;
}
