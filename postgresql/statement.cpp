#include "statement.h"

#include "table_name.h"

#include <algorithm>
#include <iterator>
#include <vector>

namespace {

enum class TokenKind { word, quoted_name, other };

struct Token {
    TokenKind kind;
    std::string_view source;
};

bool is_blank(char letter)
{
    return letter == ' ' || (letter >= '\t' && letter <= '\r');
}

bool is_digit(char letter)
{
    return letter >= '0' && letter <= '9';
}

// Every byte above ASCII is a letter to PostgreSQL, whatever the encoding.
bool starts_word(char letter)
{
    return (letter >= 'a' && letter <= 'z') || (letter >= 'A' && letter <= 'Z') || letter == '_' ||
           static_cast<unsigned char>(letter) >= 0x80;
}

bool continues_word(char letter)
{
    return starts_word(letter) || is_digit(letter) || letter == '$';
}

size_t end_of_word(std::string_view text, size_t at)
{
    while (at < text.size() && continues_word(text[at]))
        ++at;
    return at;
}

// The end of what is quoted from `at` on, doubled quotes being part of it; the end of the text if there is none.
size_t end_of_quoted(std::string_view text, size_t at, bool backslash_escapes)
{
    char quote = text[at];
    for (++at; at < text.size(); ++at) {
        if (backslash_escapes && text[at] == '\\')
            ++at;
        else if (text[at] == quote && (at + 1 == text.size() || text[at + 1] != quote))
            return at + 1;
        else if (text[at] == quote)
            ++at;
    }
    return text.size();
}

size_t end_of_line(std::string_view text, size_t at)
{
    return std::min(text.find_first_of("\r\n", at), text.size());
}

// Where a text goes on behind its closing quote: at the next quote, if only blanks and line comments stand between, with
// an end of line among them. npos: nowhere.
size_t continuation(std::string_view text, size_t at)
{
    bool on_other_line = false;
    for (; at < text.size(); ++at) {
        if (text.substr(at, 2) == "--")
            at = end_of_line(text, at);
        if (at == text.size() || !is_blank(text[at]))
            break;
        on_other_line = on_other_line || text[at] == '\n' || text[at] == '\r';
    }
    return on_other_line && at < text.size() && text[at] == '\'' ? at : std::string_view::npos;
}

// A text in which a backslash escapes, in its continuations, too.
size_t end_of_escaped(std::string_view text, size_t at)
{
    size_t end = end_of_quoted(text, at, true);
    for (size_t next; (next = continuation(text, end)) != std::string_view::npos;)
        end = end_of_quoted(text, next, true);
    return end;
}

// $$...$$ or $word$...$word$; 0 if that is not what begins at `at`.
size_t end_of_dollar_quoted(std::string_view text, size_t at)
{
    size_t second = at + 1;
    if (second < text.size() && starts_word(text[second]))
        while (second < text.size() && continues_word(text[second]) && text[second] != '$')
            ++second;
    if (second >= text.size() || text[second] != '$')
        return 0;
    std::string_view delimiter = text.substr(at, second + 1 - at);
    size_t closing = text.find(delimiter, second + 1);
    return closing == std::string_view::npos ? text.size() : closing + delimiter.size();
}

// These comments nest.
size_t end_of_comment(std::string_view text, size_t at)
{
    int depth = 0;
    for (; at + 1 < text.size(); ++at) {
        if (text.substr(at, 2) == "/*") {
            ++depth;
            ++at;
        } else if (text.substr(at, 2) == "*/") {
            ++at;
            if (--depth == 0)
                return at + 1;
        }
    }
    return text.size();
}

size_t skip_blanks(std::string_view text, size_t at)
{
    while (at < text.size()) {
        if (is_blank(text[at]))
            ++at;
        else if (text.substr(at, 2) == "--")
            at = end_of_line(text, at);
        else if (text.substr(at, 2) == "/*")
            at = end_of_comment(text, at);
        else
            break;
    }
    return at;
}

size_t end_of_token(std::string_view text, size_t at, TokenKind &kind)
{
    kind = TokenKind::other;
    if (text[at] == '\'')
        return end_of_quoted(text, at, false);
    if ((text[at] == 'e' || text[at] == 'E') && at + 1 < text.size() && text[at + 1] == '\'')
        return end_of_escaped(text, at + 1);
    if (text[at] == '$')
        if (size_t end = end_of_dollar_quoted(text, at))
            return end;
    if (is_digit(text[at]))
        return end_of_word(text, at);

    kind = TokenKind::quoted_name;
    if (text[at] == '"')
        return end_of_quoted(text, at, false);

    kind = TokenKind::word;
    if (starts_word(text[at]))
        return end_of_word(text, at);

    kind = TokenKind::other;
    return at + 1;
}

std::vector<Token> tokens_of(std::string_view text)
{
    std::vector<Token> tokens;
    for (size_t at = skip_blanks(text, 0); at < text.size();) {
        TokenKind kind;
        size_t end = end_of_token(text, at, kind);
        tokens.push_back({kind, text.substr(at, end - at)});
        at = skip_blanks(text, end);
    }
    return tokens;
}

bool is_word(const Token &token, std::string_view word)
{
    return token.kind == TokenKind::word && same_name(token.source, word);
}

bool is_sign(const Token &token, std::string_view sign)
{
    return token.kind == TokenKind::other && token.source == sign;
}

bool has_several_statements(const std::vector<Token> &tokens)
{
    bool ended = false;
    for (const Token &token : tokens) {
        bool is_end = is_sign(token, ";");
        if (ended && !is_end)
            return true;
        ended = is_end;
    }
    return false;
}

// A grant or revoke as the pages make them; name and grantee as they are written.
struct Grant {
    std::string_view verb, privilege, table, grantee;
};

constexpr std::string_view privileges[] = {"select", "insert", "update", "delete", "all"};

bool is_name(const Token &token)
{
    return token.kind != TokenKind::other;
}

// The source from one token to another.
std::string_view between(const Token &first, const Token &last)
{
    const char *end = last.source.data() + last.source.size();
    return {first.source.data(), static_cast<size_t>(end - first.source.data())};
}

// verb privilege on name . name . name to grantee
bool read_grant(std::vector<Token> tokens, Grant &grant)
{
    while (!tokens.empty() && is_sign(tokens.back(), ";"))
        tokens.pop_back();
    if (tokens.size() != 10 || !is_word(tokens[2], "on") || !is_sign(tokens[4], ".") || !is_sign(tokens[6], "."))
        return false;
    for (size_t at : {3, 5, 7, 9})
        if (!is_name(tokens[at]))
            return false;
    if (is_word(tokens[0], "grant") && is_word(tokens[8], "to"))
        grant.verb = "grant";
    else if (is_word(tokens[0], "revoke") && is_word(tokens[8], "from"))
        grant.verb = "revoke";
    else
        return false;
    auto privilege = std::find_if(std::begin(privileges), std::end(privileges),
                                  [&](std::string_view word) { return is_word(tokens[1], word); });
    if (privilege == std::end(privileges))
        return false;
    grant.privilege = *privilege;
    grant.table = between(tokens[3], tokens[7]);
    grant.grantee = tokens[9].source;
    return true;
}

std::string quoted_text(std::string_view text)
{
    std::string quoted = "'";
    for (char letter : text) {
        if (letter == '\'')
            quoted += '\'';
        quoted += letter;
    }
    return quoted + "'";
}

std::string call_of(const Grant &grant)
{
    return "call tabwarden.change_privilege(" + quoted_text(grant.verb) + ", " + quoted_text(grant.privilege) + ", " +
           quoted_text(grant.table) + ", " + quoted_text(grant.grantee) + ")";
}

std::string with_our_schema(std::string_view text, const std::vector<Token> &tokens)
{
    std::string adapted;
    const char *copied = text.data();
    for (size_t at = 0; at + 3 < tokens.size(); ++at) {
        bool is_system_table = is_word(tokens[at], "nordvale") && is_sign(tokens[at + 1], ".") &&
                               is_word(tokens[at + 2], "system") && is_sign(tokens[at + 3], ".");
        if (!is_system_table || (at > 0 && is_sign(tokens[at - 1], ".")))
            continue;
        adapted.append(copied, tokens[at].source.data());
        adapted += "tabwarden";
        copied = tokens[at + 3].source.data();
    }
    return adapted.append(copied, text.data() + text.size());
}

}

std::string adapted_statement(std::string_view text)
{
    std::vector<Token> tokens = tokens_of(text);
    if (has_several_statements(tokens))
        return "do 'begin raise syntax_error using message = ''one statement at a time''; end'";
    if (Grant grant; read_grant(tokens, grant))
        return call_of(grant);
    return with_our_schema(text, tokens);
}
