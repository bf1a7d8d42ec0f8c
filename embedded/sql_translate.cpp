#include "sql_translate.h"

#include "sql_grant.h"
#include "sql_tokens.h"

#include <algorithm>
#include <iterator>
#include <optional>

struct TableReference {
    TableName name;
    std::string alias;      // empty: none
    bool source;            // rows come from it
};

// One level of parentheses. A comma names another table only inside a FROM clause, and only at the clause's own level.
struct Level {
    bool from_clause, table_expected, source;
};

struct Translator {
    std::vector<Token> tokens;
    std::vector<TableReference> references;     // in the order of their places in the text
    std::vector<std::string> common_tables;     // names that WITH introduces
    std::vector<size_t> table_places;           // indexes of tokens that begin a table name
};

constexpr std::string_view from_clause_ends[] = {
    "where", "group", "order", "having", "limit", "union", "except", "intersect",
    "select", "set", "values", "returning",
};

// Words that may follow a table name and are no alias.
constexpr std::string_view words_behind_table[] = {
    "as", "on", "using", "where", "left", "right", "full", "inner", "outer", "cross", "natural", "join", "group",
    "order", "having", "limit", "offset", "union", "except", "intersect", "set", "values", "select", "default",
    "indexed", "not", "window", "returning", "from", "with", "and", "or", "in", "is", "then", "else", "end", "when",
    "between", "like", "glob", "desc", "asc", "collate", "isnull", "notnull", "match", "deferrable", "constraint",
    "check", "unique", "primary", "references", "null", "without", "strict",
};

constexpr std::string_view odbc_escapes[] = {"d", "t", "ts", "fn", "oj"};

static bool is_one_of(const Token &token, const std::string_view *begin, const std::string_view *end)
{
    return token.kind == TokenKind::word &&
           std::any_of(begin, end, [&](std::string_view word) { return same_name(token.source, word); });
}

static bool keyword_at(const std::vector<Token> &tokens, size_t at, std::string_view keyword)
{
    return at < tokens.size() && is_keyword(tokens[at], keyword);
}

static bool sign_at(const std::vector<Token> &tokens, size_t at, char sign)
{
    return at < tokens.size() && is_sign(tokens[at], sign);
}

static bool text_at(const std::vector<Token> &tokens, size_t at)
{
    return at < tokens.size() && tokens[at].source[0] == '\'';
}

static bool begins_query(const std::vector<Token> &tokens, size_t at)
{
    return keyword_at(tokens, at, "select") || keyword_at(tokens, at, "values") || keyword_at(tokens, at, "with");
}

static int refuse(std::string &problem, const std::string &reason)
{
    problem = reason;
    return -1;
}

// Drops "{fn" and the like together with their closing braces: what ODBC escapes enclose is already SQLite's dialect.
static int remove_odbc_escapes(std::vector<Token> &tokens, std::string &problem)
{
    std::vector<Token> kept;
    int open = 0;
    for (size_t i = 0; i < tokens.size(); ++i) {
        if (is_sign(tokens[i], '{')) {
            if (i + 1 == tokens.size() || !is_one_of(tokens[i + 1], std::begin(odbc_escapes), std::end(odbc_escapes)))
                return refuse(problem, "Unknown escape sequence after \"{\"");
            ++open;
            ++i;
            continue;
        }
        if (is_sign(tokens[i], '}')) {
            if (--open < 0)
                return refuse(problem, "Syntax error near \"}\"");
            continue;
        }
        kept.push_back(tokens[i]);
        kept.back().blank_before = true;
    }
    if (open != 0)
        return refuse(problem, "Escape sequence without its \"}\"");
    tokens.swap(kept);
    return 0;
}

static int remove_final_semicolon(std::vector<Token> &tokens, std::string &problem)
{
    auto semicolon = std::find_if(tokens.begin(), tokens.end(), [](const Token &token) { return is_sign(token, ';'); });
    if (std::any_of(semicolon, tokens.end(), [](const Token &token) { return !is_sign(token, ';'); }))
        return refuse(problem, "Only one statement at a time");
    tokens.erase(semicolon, tokens.end());
    return tokens.empty() ? refuse(problem, "There is no statement") : 0;
}

// For each opening parenthesis the index behind the one that closes it, or the number of tokens. All in one go, so that
// many that are never closed take no time.
static std::vector<size_t> ends_of_parentheses(const std::vector<Token> &tokens)
{
    std::vector<size_t> ends(tokens.size(), tokens.size()), open;
    for (size_t at = 0; at < tokens.size(); ++at) {
        if (is_sign(tokens[at], '('))
            open.push_back(at);
        else if (is_sign(tokens[at], ')') && !open.empty()) {
            ends[open.back()] = at + 1;
            open.pop_back();
        }
    }
    return ends;
}

// The index of the first token of the body that "as [[not] materialized] (" at `at` opens, or nothing.
static std::optional<size_t> common_table_body(const std::vector<Token> &tokens, size_t at)
{
    if (!keyword_at(tokens, at, "as"))
        return {};
    ++at;
    if (keyword_at(tokens, at, "not"))
        ++at;
    if (keyword_at(tokens, at, "materialized"))
        ++at;
    if (!sign_at(tokens, at, '('))
        return {};
    return at + 1;
}

// SQLite looks for a table of a common table's name where the common table is out of scope. None of its own names can
// be meant there: those of tables contain points, those of its schema begin with "sqlite_".
static bool may_be_common_table(std::string_view name)
{
    constexpr std::string_view reserved = "sqlite_";
    return name.find('.') == std::string_view::npos && !same_name(name.substr(0, reserved.size()), reserved);
}

// A name between "with", "recursive" or a comma and "as (select" is a common table's, wherever in the statement.
static int collect_common_tables(Translator &translator, std::string &problem)
{
    const std::vector<Token> &tokens = translator.tokens;
    if (std::none_of(tokens.begin(), tokens.end(), [](const Token &token) { return is_keyword(token, "with"); }))
        return 0;
    std::vector<size_t> ends = ends_of_parentheses(tokens);
    for (size_t i = 1; i < tokens.size(); ++i) {
        bool introduced = is_keyword(tokens[i - 1], "with") || is_keyword(tokens[i - 1], "recursive") ||
                          is_sign(tokens[i - 1], ',');
        if (!introduced || !is_name(tokens[i]))
            continue;
        size_t behind = sign_at(tokens, i + 1, '(') ? ends[i + 1] : i + 1;
        std::optional<size_t> body = common_table_body(tokens, behind);
        if (!body || !begins_query(tokens, *body))
            continue;
        if (!may_be_common_table(tokens[i].name))
            return refuse(problem, "A name that WITH introduces contains no point and does not begin with sqlite_");
        if (translator.common_tables.size() == most_table_names)
            return refuse(problem, "The statement names too many tables");
        translator.common_tables.push_back(tokens[i].name);
    }
    return 0;
}

static bool is_common_table(const Translator &translator, const std::string &name)
{
    return std::any_of(translator.common_tables.begin(), translator.common_tables.end(),
                       [&](const std::string &known) { return same_name(known, name); });
}

// The index behind the dotted name that begins at `at`; its parts in `parts`. Two dots in a row enclose an empty part.
static size_t read_dotted_name(const std::vector<Token> &tokens, size_t at, std::vector<std::string> &parts)
{
    parts.assign(1, tokens[at].name);
    ++at;
    while (sign_at(tokens, at, '.')) {
        ++at;
        if (sign_at(tokens, at, '.')) {
            parts.emplace_back();
        } else if (at < tokens.size() && (is_name(tokens[at]) || is_sign(tokens[at], '*'))) {
            parts.push_back(is_sign(tokens[at], '*') ? "*" : tokens[at].name);
            ++at;
        } else {
            parts.emplace_back();
            break;
        }
    }
    return at;
}

// Reads the table name and its alias at `at`; returns the index behind the name (the alias stays in the text), or -1.
static int read_table(Translator &translator, size_t at, bool source, std::string &problem)
{
    const std::vector<Token> &tokens = translator.tokens;
    std::vector<std::string> parts;
    TableReference reference{{}, {}, source};
    size_t behind = read_dotted_name(tokens, at, parts);

    // A table function or a name that WITH gave is no table of ours. What neither of them is, SQLite refuses.
    bool own = parts.size() > 1 || !is_common_table(translator, parts[0]);
    if (!own)
        return static_cast<int>(behind);
    if (table_of_parts(parts, reference.name, problem) < 0)
        return -1;

    size_t alias = keyword_at(tokens, behind, "as") ? behind + 1 : behind;
    if (alias < tokens.size() && is_name(tokens[alias]) &&
        (alias != behind ||
         !is_one_of(tokens[alias], std::begin(words_behind_table), std::end(words_behind_table))))
        reference.alias = tokens[alias].name;
    if (translator.references.size() == most_table_names)
        return refuse(problem, "The statement names too many tables");
    translator.references.push_back(reference);
    translator.table_places.push_back(at);
    return static_cast<int>(behind);
}

// A verb stands at the beginning or behind common tables; elsewhere the word is a column's name or belongs to
// "on conflict", "on update".
static bool is_verb(const std::vector<Token> &tokens, size_t at, std::string_view verb)
{
    return is_keyword(tokens[at], verb) && (at == 0 || is_sign(tokens[at - 1], ')'));
}

static bool is_from(const std::vector<Token> &tokens, size_t at)
{
    bool comparison = at >= 2 && is_keyword(tokens[at - 1], "distinct") &&
                      (is_keyword(tokens[at - 2], "is") || is_keyword(tokens[at - 2], "not"));
    return is_keyword(tokens[at], "from") && !comparison;
}

// "or rollback" and its kind stand between "update" and the table.
static size_t skip_conflict_clause(const std::vector<Token> &tokens, size_t at)
{
    return keyword_at(tokens, at + 1, "or") ? at + 2 : at;
}

static bool expects_table(const std::vector<Token> &tokens, size_t at)
{
    bool before_name = at + 1 < tokens.size() && is_name(tokens[at + 1]);
    return is_from(tokens, at) || is_keyword(tokens[at], "join") || is_keyword(tokens[at], "into") ||
           is_verb(tokens, at, "update") || (is_keyword(tokens[at], "references") && before_name) ||
           (is_keyword(tokens[at], "in") && before_name);
}

// Rows only go to what follows "into", "update", "references" and "delete from"; they come from all other tables.
static bool names_source(const std::vector<Token> &tokens, size_t at)
{
    if (is_from(tokens, at))
        return at == 0 || !is_verb(tokens, at - 1, "delete");
    return is_keyword(tokens[at], "join") || is_keyword(tokens[at], "in");
}

// "window" is a name unless "name as" follows: "from T window, U" names two tables.
static bool begins_window_clause(const std::vector<Token> &tokens, size_t at)
{
    return is_keyword(tokens[at], "window") && keyword_at(tokens, at + 2, "as");
}

static void open_parenthesis(const std::vector<Token> &tokens, size_t at, std::vector<Level> &levels)
{
    bool joined_tables = levels.back().table_expected && !begins_query(tokens, at + 1);
    levels.back().table_expected = false;
    levels.push_back({joined_tables, joined_tables, joined_tables});
}

// One sign or word that is not a table's name: what it means for where table names may stand.
static size_t step_over(const std::vector<Token> &tokens, size_t at, std::vector<Level> &levels)
{
    const Token &token = tokens[at];
    Level &level = levels.back();
    if (is_sign(token, '(')) {
        open_parenthesis(tokens, at, levels);
    } else if (is_sign(token, ')')) {
        if (levels.size() > 1)
            levels.pop_back();
    } else if (is_sign(token, ',')) {
        level.table_expected = level.source = level.from_clause;
    } else if (expects_table(tokens, at)) {
        level.table_expected = true;
        level.source = names_source(tokens, at);
        level.from_clause = level.from_clause || is_from(tokens, at);
        return (is_verb(tokens, at, "update") ? skip_conflict_clause(tokens, at) : at) + 1;
    } else if (is_one_of(token, std::begin(from_clause_ends), std::end(from_clause_ends)) ||
               begins_window_clause(tokens, at)) {
        level.from_clause = false;
    }
    return at + 1;
}

static int collect_tables(Translator &translator, size_t start, std::string &problem)
{
    const std::vector<Token> &tokens = translator.tokens;
    std::vector<Level> levels(1, {false, false, false});
    std::vector<std::string> parts;

    for (size_t at = start; at < tokens.size();) {
        // SQLite would take a text for the name of a table.
        if (text_at(tokens, at) && (levels.back().table_expected || (at > 0 && is_keyword(tokens[at - 1], "in"))))
            return refuse(problem, "A text stands where a table's name is expected");
        if (levels.back().table_expected && is_name(tokens[at])) {
            levels.back().table_expected = false;
            int behind = read_table(translator, at, levels.back().source, problem);
            if (behind < 0)
                return -1;
            at = static_cast<size_t>(behind);
        } else if (is_name(tokens[at]) && sign_at(tokens, at + 1, '.')) {
            at = read_dotted_name(tokens, at, parts);
        } else {
            at = step_over(tokens, at, levels);
        }
    }
    return 0;
}

static bool has_alias(const Translator &translator, const std::string &name)
{
    return std::any_of(translator.references.begin(), translator.references.end(),
                       [&](const TableReference &reference) { return same_name(reference.alias, name); });
}

// The table that the parts before a column's name mean; nullptr when they are an alias or nothing known.
static const TableName *table_of_column(const Translator &translator, const std::vector<std::string> &parts)
{
    size_t count = parts.size() - 1;
    const std::string &table = parts[count - 1];
    if (count == 1 && (has_alias(translator, table) || is_common_table(translator, table)))
        return nullptr;
    for (const TableReference &reference : translator.references) {
        const TableName &name = reference.name;
        if (reference.alias.empty() && same_name(name.table, table) &&
            (count < 2 || same_name(name.schema, parts[count - 2])) &&
            (count < 3 || same_name(name.catalog, parts[count - 3])))
            return &name;
    }
    return nullptr;
}

static std::string column_text(const std::string &name)
{
    return name == "*" ? name : quoted_name(name);
}

// Writes the column's name at `at`, which has two parts at least, and returns the index behind it.
static size_t put_column(const Translator &translator, size_t at, std::string &sql)
{
    std::vector<std::string> parts;
    size_t behind = read_dotted_name(translator.tokens, at, parts);
    if (const TableName *table = table_of_column(translator, parts)) {
        sql += quoted_name(stored_name(*table)) + "." + column_text(parts.back());
        return behind;
    }
    for (size_t i = 0; i < parts.size(); ++i) {
        sql += i == 0 ? "" : ".";
        sql += column_text(parts[i]);
    }
    return behind;
}

// The statement from token `start` on, for SQLite.
static void put_statement(const Translator &translator, size_t start, std::string &sql)
{
    const std::vector<Token> &tokens = translator.tokens;
    std::vector<std::string> parts;
    size_t next_table = 0;

    for (size_t at = start; at < tokens.size();) {
        // Two names in double quotes that touch would be one name with a quote in it.
        bool touches_name = is_name(tokens[at]) && sql.ends_with('"');
        if (!sql.empty() && (tokens[at].blank_before || touches_name))
            sql += ' ';
        if (next_table < translator.table_places.size() && translator.table_places[next_table] == at) {
            sql += quoted_name(stored_name(translator.references[next_table++].name));
            at = read_dotted_name(tokens, at, parts);
        } else if (is_name(tokens[at]) && sign_at(tokens, at + 1, '.')) {
            at = put_column(translator, at, sql);
        } else if (tokens[at].kind == TokenKind::quoted) {
            sql += quoted_name(tokens[at++].name);
        } else if (is_keyword(tokens[at], "table")) {
            sql += quoted_name(tokens[at++].source);    // behind the verb it can only be a column's name
        } else {
            sql += tokens[at++].source;
        }
    }
}

// "create table [if not exists]" or "drop table [if exists]": the index of the name, or 0.
static size_t table_definition(const std::vector<Token> &tokens, std::string_view verb, bool &if_exists)
{
    if (!keyword_at(tokens, 0, verb) || !keyword_at(tokens, 1, "table"))
        return 0;
    size_t at = 2;
    if_exists = keyword_at(tokens, at, "if");
    if (!if_exists)
        return at;
    at = keyword_at(tokens, at + 1, "not") ? at + 2 : at + 1;
    return keyword_at(tokens, at, "exists") ? at + 1 : 0;
}

// The definition's own name first, then the tables that its clauses or its query name.
static int translate_definition(Translator &translator, size_t at, TranslatedStatement &statement, std::string &problem)
{
    if (at >= translator.tokens.size() || !is_name(translator.tokens[at]))
        return refuse(problem, "A table name is missing");
    int behind = read_table(translator, at, false, problem);
    if (behind < 0 || collect_tables(translator, static_cast<size_t>(behind), problem) < 0)
        return -1;
    if (statement.kind == StatementKind::drop_table && static_cast<size_t>(behind) != translator.tokens.size())
        return refuse(problem, "Syntax error behind the table's name");
    statement.sql = statement.kind == StatementKind::create_table ? "create table" : "drop table";
    put_statement(translator, at, statement.sql);
    return 0;
}

// What stands behind the common tables of WITH, or the first word.
static size_t verb_of(const std::vector<Token> &tokens)
{
    if (!keyword_at(tokens, 0, "with"))
        return 0;
    size_t depth = 0;
    for (size_t at = 1; at < tokens.size(); ++at) {
        if (is_sign(tokens[at], '('))
            ++depth;
        else if (is_sign(tokens[at], ')') && depth > 0)
            --depth;
        else if (depth == 0 && is_sign(tokens[at - 1], ')') && is_name(tokens[at]) && !keyword_at(tokens, at, "as"))
            return at;
    }
    return 0;
}

static int kind_of_verb(const std::vector<Token> &tokens, size_t verb, TranslatedStatement &statement)
{
    struct Verb { std::string_view word; StatementKind kind; };
    constexpr Verb verbs[] = {
        {"select", StatementKind::query}, {"values", StatementKind::query},
        {"insert", StatementKind::change}, {"replace", StatementKind::change},
        {"update", StatementKind::change}, {"delete", StatementKind::change},
    };
    for (const Verb &known : verbs) {
        if (!is_keyword(tokens[verb], known.word))
            continue;
        statement.kind = known.kind;
        statement.replaces = known.word == "replace" ||
                             (known.kind == StatementKind::change && keyword_at(tokens, verb + 1, "or") &&
                              keyword_at(tokens, verb + 2, "replace"));
        return 0;
    }
    return -1;
}

static int translate_tokens(Translator &translator, TranslatedStatement &statement, std::string &problem)
{
    const std::vector<Token> &tokens = translator.tokens;
    if (is_keyword(tokens[0], "grant") || is_keyword(tokens[0], "revoke")) {
        TableReference reference{};
        statement.kind = is_keyword(tokens[0], "grant") ? StatementKind::grant : StatementKind::revoke;
        int result = read_grant(tokens, reference.name, statement.privileges, statement.grantee, problem);
        translator.references.push_back(reference);
        return result;
    }
    if (collect_common_tables(translator, problem) < 0)
        return -1;
    if (size_t name = table_definition(tokens, "create", statement.if_exists); name != 0) {
        statement.kind = StatementKind::create_table;
        return translate_definition(translator, name, statement, problem);
    }
    if (size_t name = table_definition(tokens, "drop", statement.if_exists); name != 0) {
        statement.kind = StatementKind::drop_table;
        return translate_definition(translator, name, statement, problem);
    }
    if (kind_of_verb(tokens, verb_of(tokens), statement) < 0)
        return refuse(problem, quoted_name(tokens[0].source) + " begins no statement that is served here");
    if (collect_tables(translator, 0, problem) < 0)
        return -1;
    put_statement(translator, 0, statement.sql);
    return 0;
}

int translate(std::string_view text, TranslatedStatement &statement, std::string &problem)
{
    Translator translator;
    statement = {};
    if (text.size() > longest_statement)
        return refuse(problem, "The statement is too long");
    if (!read_tokens(text, translator.tokens, problem))
        return -1;
    bool escaped = std::any_of(translator.tokens.begin(), translator.tokens.end(),
                               [](const Token &token) { return is_sign(token, '{') || is_sign(token, '}'); });
    if (escaped && remove_odbc_escapes(translator.tokens, problem) < 0)
        return -1;
    if (remove_final_semicolon(translator.tokens, problem) < 0)
        return -1;
    if (translate_tokens(translator, statement, problem) < 0)
        return -1;
    for (const TableReference &reference : translator.references) {
        statement.tables.push_back(reference.name);
        if (reference.source)
            statement.sources.push_back(reference.name);
    }
    return 0;
}
