#include "sql_tokens.h"

#include "table_name.h"

#include <algorithm>

static bool is_blank(char letter)
{
    return letter == ' ' || (letter >= '\t' && letter <= '\r');
}

static bool is_digit(char letter)
{
    return letter >= '0' && letter <= '9';
}

// Bytes above ASCII belong to names, so that UTF-8 letters need no quotes; SQLite does the same.
static bool starts_word(char letter)
{
    return (letter >= 'a' && letter <= 'z') || (letter >= 'A' && letter <= 'Z') || letter == '_' ||
           static_cast<unsigned char>(letter) >= 0x80;
}

static bool continues_word(char letter)
{
    return starts_word(letter) || is_digit(letter) || letter == '$';
}

// A byte order mark where a token could begin is a blank to SQLite, and so not the beginning of a word.
constexpr std::string_view byte_order_mark = "\xef\xbb\xbf";

// The position behind blanks and comments, or npos for a comment without end.
static size_t skip_blanks(std::string_view text, size_t at)
{
    while (at < text.size()) {
        if (is_blank(text[at])) {
            ++at;
        } else if (text.substr(at, byte_order_mark.size()) == byte_order_mark) {
            at += byte_order_mark.size();
        } else if (text.substr(at, 2) == "--") {
            size_t end = text.find('\n', at);
            at = end == std::string_view::npos ? text.size() : end + 1;
        } else if (text.substr(at, 2) == "/*") {
            size_t end = text.find("*/", at + 2);
            if (end == std::string_view::npos)
                return end;
            at = end + 2;
        } else {
            return at;
        }
    }
    return at;
}

// The position behind the closing quote of what begins at `at`, or npos. Brackets know no doubling.
static size_t end_of_quoted(std::string_view text, size_t at, char closing)
{
    for (size_t end = text.find(closing, at + 1); end != std::string_view::npos; end = text.find(closing, end + 2)) {
        if (closing == ']' || end + 1 == text.size() || text[end + 1] != closing)
            return end + 1;
    }
    return std::string_view::npos;
}

static size_t end_of_word(std::string_view text, size_t at)
{
    while (at < text.size() && continues_word(text[at]))
        ++at;
    return at;
}

// Digits, a point, an exponent with its sign. Letters stuck to it stay in it, so that SQLite sees and refuses them.
static size_t end_of_number(std::string_view text, size_t at)
{
    bool hexadecimal = text.size() > at + 1 && text[at] == '0' && (text[at + 1] == 'x' || text[at + 1] == 'X');
    while (at < text.size()) {
        char letter = text[at];
        bool exponent = !hexadecimal && (letter == 'e' || letter == 'E');
        if (!continues_word(letter) && letter != '.')
            break;
        ++at;
        if (exponent && at < text.size() && (text[at] == '+' || text[at] == '-'))
            ++at;
    }
    return at;
}

static std::string unquoted(std::string_view source)
{
    char closing = source.back();
    std::string name;
    for (size_t i = 1; i + 1 < source.size(); ++i) {
        name += source[i];
        if (source[i] == closing && closing != ']')
            ++i;
    }
    return name;
}

// Where the token at `at` ends, and its kind; npos for a quote without end.
static size_t end_of_token(std::string_view text, size_t at, TokenKind &kind)
{
    char letter = text[at];
    char next = at + 1 < text.size() ? text[at + 1] : '\0';

    kind = TokenKind::literal;
    if (letter == '\'')
        return end_of_quoted(text, at, '\'');
    if ((letter == 'x' || letter == 'X') && next == '\'')
        return end_of_quoted(text, at + 1, '\'');
    if (is_digit(letter) || (letter == '.' && is_digit(next)))
        return end_of_number(text, at);

    kind = TokenKind::quoted;
    if (letter == '"' || letter == '`')
        return end_of_quoted(text, at, letter);
    if (letter == '[')
        return end_of_quoted(text, at, ']');

    kind = TokenKind::word;
    if (starts_word(letter))
        return end_of_word(text, at);

    kind = TokenKind::sign;
    if (letter == '?')
        return std::min(text.find_first_not_of("0123456789", at + 1), text.size());
    return at + 1;
}

constexpr std::string_view named_parameters = ":@$#";

bool read_tokens(std::string_view text, std::vector<Token> &tokens, std::string &problem)
{
    if (text.find('\0') != std::string_view::npos) {
        problem = "The statement contains a NUL character";
        return false;
    }
    for (size_t at = 0;;) {
        size_t start = skip_blanks(text, at);
        if (start == std::string_view::npos) {
            problem = "Comment without its end";
            return false;
        }
        if (start == text.size())
            return true;

        // What SQLite takes for a parameter's name behind these may hold quotes and comment signs.
        if (named_parameters.find(text[start]) != std::string_view::npos) {
            problem = "Parameters are written as question marks";
            return false;
        }
        // "1.5" after a name is a number, ".5" after one cannot be: a name's dot wins.
        TokenKind kind;
        bool after_name = !tokens.empty() && is_name(tokens.back()) && start == at;
        size_t end = after_name && text[start] == '.' ? start + 1 : end_of_token(text, start, kind);
        if (after_name && text[start] == '.')
            kind = TokenKind::sign;
        if (end == std::string_view::npos) {
            problem = "Quote without its end";
            return false;
        }
        Token token{kind, text.substr(start, end - start), {}, start != at};
        if (kind == TokenKind::word)
            token.name = token.source;
        else if (kind == TokenKind::quoted)
            token.name = unquoted(token.source);
        tokens.push_back(token);
        at = end;
    }
}

bool is_keyword(const Token &token, std::string_view keyword)
{
    return token.kind == TokenKind::word && same_name(token.source, keyword);
}

bool is_sign(const Token &token, char letter)
{
    return token.kind == TokenKind::sign && token.source[0] == letter;
}

bool is_name(const Token &token)
{
    return token.kind == TokenKind::word || token.kind == TokenKind::quoted;
}
