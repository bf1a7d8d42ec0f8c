// Cuts an SQL text into tokens. Knows quoting and comments, nothing of grammar and nothing of SQLite.
#pragma once

#include <string>
#include <string_view>
#include <vector>

enum class TokenKind {
    word,       // an unquoted name or keyword
    quoted,     // a name in double quotes, brackets or back quotes
    literal,    // a string, blob or number
    sign,       // one operator or punctuation character, or a parameter, "?" or "?1"
};

struct Token {
    TokenKind kind;
    std::string_view source;    // as written; points into the text that was given
    std::string name;           // word: as written; quoted: the quotes taken off and inner doubled ones halved
    bool blank_before;          // blanks or a comment stand before it
};

// Appends the tokens of `text` to `tokens`, comments and blanks left out. False, with the reason in `problem`, for a
// quote or comment without its end, a NUL or a parameter that is not written "?".
bool read_tokens(std::string_view text, std::vector<Token> &tokens, std::string &problem);

// A word, not a quoted name, equal to `keyword` without regard to case.
bool is_keyword(const Token &token, std::string_view keyword);

// The sign `letter`.
bool is_sign(const Token &token, char letter);

// A word or a quoted name.
bool is_name(const Token &token);
