#include "sql_grant.h"

#include "sql_translate.h"

#include <string_view>

struct PrivilegeWord { std::string_view word; unsigned privileges; };

constexpr PrivilegeWord privilege_words[] = {
    {"select", privilege_select}, {"insert", privilege_insert}, {"update", privilege_update},
    {"delete", privilege_delete}, {"all", privilege_all},
};

static int refuse_at(const std::vector<Token> &tokens, size_t at, std::string &problem)
{
    problem = at < tokens.size() ? "Syntax error near " : "The statement is incomplete";
    if (at < tokens.size())
        problem += quoted_name(tokens[at].source);
    return -1;
}

static unsigned privileges_of(const Token &token)
{
    for (const PrivilegeWord &known : privilege_words)
        if (is_keyword(token, known.word))
            return known.privileges;
    return 0;
}

static bool take_keyword(const std::vector<Token> &tokens, size_t &at, std::string_view keyword)
{
    if (at >= tokens.size() || !is_keyword(tokens[at], keyword))
        return false;
    ++at;
    return true;
}

static int read_privileges(const std::vector<Token> &tokens, size_t &at, unsigned &privileges, std::string &problem)
{
    privileges = 0;
    do {
        unsigned given = at < tokens.size() ? privileges_of(tokens[at]) : 0;
        if (given == 0)
            return refuse_at(tokens, at, problem);
        privileges |= given;
        ++at;
        if (given == privilege_all)
            take_keyword(tokens, at, "privileges");
    } while (at < tokens.size() && is_sign(tokens[at], ',') && ++at);
    return 0;
}

static int read_table_name(const std::vector<Token> &tokens, size_t &at, TableName &name, std::string &problem)
{
    std::vector<std::string> parts;
    for (;;) {
        bool empty_part = at < tokens.size() && is_sign(tokens[at], '.') && !parts.empty();
        if (at >= tokens.size() || (!is_name(tokens[at]) && !empty_part))
            return refuse_at(tokens, at, problem);
        parts.push_back(empty_part ? "" : tokens[at++].name);
        if (at >= tokens.size() || !is_sign(tokens[at], '.'))
            break;
        ++at;
    }
    return table_of_parts(parts, name, problem);
}

int read_grant(const std::vector<Token> &tokens, TableName &table, unsigned &privileges, std::string &grantee,
               std::string &problem)
{
    size_t at = 1;
    if (read_privileges(tokens, at, privileges, problem) < 0)
        return -1;
    if (!take_keyword(tokens, at, "on"))
        return refuse_at(tokens, at, problem);

    // "on table T", but also "on table" and "on table.T", where the word is a name.
    bool noise = at + 1 < tokens.size() && is_name(tokens[at + 1]) && !is_keyword(tokens[at + 1], "to") &&
                 !is_keyword(tokens[at + 1], "from");
    if (noise)
        take_keyword(tokens, at, "table");
    if (read_table_name(tokens, at, table, problem) < 0)
        return -1;

    if (!take_keyword(tokens, at, is_keyword(tokens[0], "grant") ? "to" : "from"))
        return refuse_at(tokens, at, problem);
    if (at + 1 != tokens.size() || !is_name(tokens[at]))
        return refuse_at(tokens, at + 1 < tokens.size() ? at + 1 : at, problem);
    grantee = is_keyword(tokens[at], "public") ? "public" : tokens[at].name;
    return 0;
}
