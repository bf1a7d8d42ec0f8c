// The embedded driver's texts: tokens, names, statements and connection strings. What translates is compiled by SQLite
// on a small database, to see that a statement touches no table that it was not said to name.

#include "connection_string.h"
#include "sql_tokens.h"
#include "sql_translate.h"
#include "table_name.h"
#include "tests/fuzz/target.h"

#include <algorithm>
#include <iterator>
#include <sqlite3.h>
#include <string>
#include <string_view>
#include <vector>

namespace {

constexpr const char *schema = R"(
    create table "..T" (a integer primary key, b, c);
    create table "..U" (a, b unique, x);
    create table ".S.T" (a, b, c);
    create table "C.S.T" (a, b, c);
    create table "nordvale.system.user" (username, description, password);
)";

// The tables of the schema and SQLite's own, in contrast to those that WITH introduces.
bool is_stored(std::string_view table)
{
    return table.starts_with("sqlite_") || strcasestr(schema, quoted_name(table).c_str());
}

// What SQLite does for one statement.
struct Touched {
    std::vector<std::string> read, changed;
    bool others = false;
};

Touched touched;

int note(void *, int action, const char *first, const char *, const char *, const char *)
{
    switch (action) {
    case SQLITE_SELECT:
    case SQLITE_RECURSIVE:
    case SQLITE_FUNCTION: break;
    case SQLITE_READ: touched.read.emplace_back(first); break;
    case SQLITE_INSERT:
    case SQLITE_UPDATE:
    case SQLITE_DELETE: touched.changed.emplace_back(first); break;
    default: touched.others = true;
    }
    return SQLITE_OK;
}

sqlite3 *open_database()
{
    sqlite3 *database;
    PROMISE(sqlite3_open(":memory:", &database) == SQLITE_OK);
    PROMISE(sqlite3_exec(database, schema, nullptr, nullptr, nullptr) == SQLITE_OK);
    sqlite3_db_config(database, SQLITE_DBCONFIG_DQS_DML, 0, nullptr);
    sqlite3_db_config(database, SQLITE_DBCONFIG_DQS_DDL, 0, nullptr);
    // A short text can ask for very long work.
    sqlite3_limit(database, SQLITE_LIMIT_VDBE_OP, 20000);
    sqlite3_limit(database, SQLITE_LIMIT_COMPOUND_SELECT, 20);
    sqlite3_set_authorizer(database, note, nullptr);
    return database;
}

bool names(const std::vector<TableName> &tables, std::string_view stored)
{
    return std::any_of(tables.begin(), tables.end(),
                       [&](const TableName &table) { return same_name(stored_name(table), stored); });
}

bool defines(const TranslatedStatement &statement)
{
    return statement.kind == StatementKind::create_table || statement.kind == StatementKind::drop_table;
}

struct Prepared {
    sqlite3_stmt *statement = nullptr;

    Prepared(sqlite3 *database, const std::string &sql)
    {
        const char *rest = nullptr;
        int length = int(sql.size()) + 1;
        if (sqlite3_prepare_v2(database, sql.c_str(), length, &statement, &rest) == SQLITE_OK)
            PROMISE(!*rest);
    }
    Prepared(const Prepared &) = delete;
    Prepared &operator=(const Prepared &) = delete;
    ~Prepared() { sqlite3_finalize(statement); }
};

std::string table_at(sqlite3 *database, int root_page)
{
    Prepared query(database, "select tbl_name from sqlite_master where rootpage = " + std::to_string(root_page));
    return sqlite3_step(query.statement) == SQLITE_ROW
               ? reinterpret_cast<const char *>(sqlite3_column_text(query.statement, 0))
               : "";
}

// Rows come only from tables that the statement names as sources, but for those of the table that it changes. SQLite
// does not ask its authoriser for every table that it reads; its program tells.
void check_sources(sqlite3 *database, const TranslatedStatement &statement)
{
    Prepared program(database, "explain " + statement.sql);
    if (!program.statement)
        return;
    while (sqlite3_step(program.statement) == SQLITE_ROW) {
        std::string_view operation = reinterpret_cast<const char *>(sqlite3_column_text(program.statement, 1));
        int root_page = sqlite3_column_int(program.statement, 3);
        if (operation != "OpenRead" || sqlite3_column_int(program.statement, 4) != 0)
            continue;
        std::string table = table_at(database, root_page);
        bool target = statement.kind == StatementKind::change && !statement.tables.empty() &&
                      same_name(stored_name(statement.tables[0]), table);
        PROMISE(target || names(statement.sources, table));
    }
}

void check_compiled(const TranslatedStatement &statement)
{
    static sqlite3 *database = open_database();
    touched = {};
    Prepared compiled(database, statement.sql);
    if (!compiled.statement)
        return;
    bool definition = defines(statement);
    for (const std::string &table : touched.read)
        PROMISE(!is_stored(table) || names(statement.tables, table) || (definition && table == "sqlite_master"));
    if (definition)
        return;
    PROMISE(!touched.others);
    PROMISE(touched.changed.empty() || statement.kind == StatementKind::change);
    for (const std::string &table : touched.changed)
        PROMISE(names(statement.tables, table));
    if (statement.kind == StatementKind::query)
        PROMISE(sqlite3_stmt_readonly(compiled.statement) && sqlite3_column_count(compiled.statement) > 0);
    check_sources(database, statement);
}

// The tokens without regard to names: "N" for a name of one or more parts, literals and signs as written. Nothing when
// a name ends in a dot, which no statement of SQLite's does.
std::vector<std::string> outline(std::string_view sql)
{
    std::vector<Token> tokens;
    std::string problem;
    PROMISE(read_tokens(sql, tokens, problem));
    std::vector<std::string> items;
    for (size_t at = 0; at < tokens.size();) {
        if (is_name(tokens[at])) {
            ++at;
            while (at < tokens.size() && is_sign(tokens[at], '.')) {
                ++at;
                bool part = at < tokens.size() && (is_name(tokens[at]) || is_sign(tokens[at], '*'));
                if (!part && (at == tokens.size() || !is_sign(tokens[at], '.')))
                    return {};
                at += part;
            }
            items.emplace_back("N");
        } else {
            items.emplace_back(tokens[at++].source);
        }
    }
    return items;
}

bool holds_any(std::string_view text, std::string_view letters)
{
    return text.find_first_of(letters) != text.npos;
}

void check_grant(const TranslatedStatement &statement)
{
    PROMISE(statement.sql.empty() && statement.tables.size() == 1 && statement.sources.empty());
    PROMISE(statement.privileges >= 1 && statement.privileges <= privilege_all);
    const TableName &table = statement.tables[0];
    bool grants = statement.kind == StatementKind::grant;
    std::string text = grants ? "grant " : "revoke ", problem;
    const char *separator = "";
    for (auto [bit, word] : {std::pair{privilege_select, "select"}, {privilege_insert, "insert"},
                             {privilege_update, "update"}, {privilege_delete, "delete"}}) {
        if (!(statement.privileges & bit))
            continue;
        text.append(separator).append(word);
        separator = ", ";
    }
    text += " on " + quoted_name(table.catalog) + "." + quoted_name(table.schema) + "." + quoted_name(table.table) +
            (grants ? " to " : " from ") + quoted_name(statement.grantee);
    TranslatedStatement again;
    PROMISE(translate(text, again, problem) == 0);
    PROMISE(again.kind == statement.kind && again.privileges == statement.privileges);
    PROMISE(again.grantee == statement.grantee && stored_name(again.tables.at(0)) == stored_name(table));
}

void try_statement(std::string_view text)
{
    TranslatedStatement statement;
    std::string problem;
    if (translate(text, statement, problem) < 0) {
        PROMISE(!problem.empty());
        return;
    }
    auto source = statement.sources.begin();
    for (const TableName &table : statement.tables) {
        PROMISE(!table.table.empty());
        if (source != statement.sources.end() && stored_name(*source) == stored_name(table))
            ++source;
    }
    PROMISE(source == statement.sources.end());
    if (statement.kind == StatementKind::grant || statement.kind == StatementKind::revoke) {
        check_grant(statement);
        return;
    }
    if (defines(statement))
        PROMISE(!statement.tables.empty());
    else if (std::vector<std::string> items = outline(text); !items.empty() && !holds_any(text, ";{}"))
        PROMISE(outline(statement.sql) == items);
    check_compiled(statement);
}

void try_tokens(std::string_view text)
{
    std::vector<Token> tokens, again;
    std::string problem, spaced;
    if (!read_tokens(text, tokens, problem)) {
        PROMISE(!problem.empty());
        return;
    }
    const char *end = text.data();
    for (const Token &token : tokens) {
        PROMISE(!token.source.empty() && token.source.data() >= end);
        PROMISE(token.blank_before == (token.source.data() > end));
        end = token.source.data() + token.source.size();
        spaced.append(token.source).append(" ");
    }
    PROMISE(end <= text.data() + text.size());
    PROMISE(read_tokens(spaced, again, problem) && again.size() == tokens.size());
    for (size_t i = 0; i < tokens.size(); i++) {
        PROMISE(again[i].kind == tokens[i].kind && again[i].source == tokens[i].source);
        PROMISE(again[i].name == tokens[i].name);
    }
}

std::string unescaped(std::string_view part)
{
    std::string text;
    for (; !part.empty(); part.remove_prefix(1)) {
        bool escape = part[0] == '%';
        PROMISE(!escape || part.size() >= 3);
        text += escape ? char(std::stoi(std::string(part.substr(1, 2)), nullptr, 16)) : part[0];
        if (escape)
            part.remove_prefix(2);
    }
    return text;
}

// The text's first three lines as the parts of a name.
void try_name(std::string_view text)
{
    TableName name;
    for (std::string *part : {&name.catalog, &name.schema, &name.table}) {
        *part = text.substr(0, text.find('\n'));
        text.remove_prefix(std::min(part->size() + 1, text.size()));
    }
    std::string stored = stored_name(name);
    PROMISE(!same_name(stored.substr(0, 7), "sqlite_"));
    size_t first = stored.find('.'), last = stored.rfind('.');
    PROMISE(first < last && stored.find('.', first + 1) == last);
    PROMISE(same_name(unescaped(stored.substr(0, first)), name.catalog));
    PROMISE(unescaped(stored.substr(first + 1, last - first - 1)) == name.schema);
    PROMISE(unescaped(stored.substr(last + 1)) == name.table);

    std::vector<Token> tokens;
    std::string problem, quoted = quoted_name(name.table);
    bool has_nul = name.table.find('\0') != std::string::npos;
    PROMISE(read_tokens(quoted, tokens, problem) == !has_nul);
    if (!has_nul)
        PROMISE(tokens.size() == 1 && tokens[0].kind == TokenKind::quoted && tokens[0].name == name.table);
}

void try_connection_string(std::string_view text)
{
    ConnectionValues values, again;
    if (read_connection_string(text, values) < 0)
        return;
    std::string written;
    for (const auto &[keyword, value] : values) {
        PROMISE(!holds_any(keyword, "=;"));
        written += keyword + "={";
        for (char letter : value)
            written.append(letter == '}' ? 2 : 1, letter);
        written += "};";
        PROMISE(value_of(values, keyword) != nullptr);
    }
    PROMISE(read_connection_string(written, again) == 0 && again == values);
    for (const auto &[keyword, value] : values)
        PROMISE(*value_of(values, keyword) == *value_of(again, keyword));
}

}

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    // No NUL behind it: everything here takes views.
    std::unique_ptr<char[]> copy(new char[size]);
    memcpy(copy.get(), data, size);
    std::string_view text(copy.get(), size);
    try_tokens(text);
    try_statement(text);
    try_name(text);
    try_connection_string(text);
    return 0;
}
