// Statements for PostgreSQL. Beside them a plainer reading, which goes through the text once and blanks out what is in
// quotes and comments.

#include "statement.h"
#include "tests/fuzz/target.h"

#include <string>
#include <string_view>

namespace {

bool is_letter(char letter)
{
    return letter == '_' || isalpha(static_cast<unsigned char>(letter)) || static_cast<unsigned char>(letter) >= 0x80;
}

// A number, too: letters behind it belong to it.
bool begins_word(char letter)
{
    return is_letter(letter) || isdigit(static_cast<unsigned char>(letter));
}

bool is_part_of_word(char letter)
{
    return is_letter(letter) || isdigit(static_cast<unsigned char>(letter)) || letter == '$';
}

// The delimiter of a dollar quoted text that begins at `at`, or nothing.
std::string_view dollar_delimiter(std::string_view text, size_t at)
{
    size_t end = text.find('$', at + 1);
    if (text[at] != '$' || end == std::string_view::npos || (end > at + 1 && !is_letter(text[at + 1])))
        return {};
    for (size_t inside = at + 1; inside < end; ++inside)
        if (!is_part_of_word(text[inside]))
            return {};
    return text.substr(at, end + 1 - at);
}

// Takes `count` characters over as this letter.
void blank_out(std::string &plain, size_t &at, size_t count, char letter)
{
    plain.append(count, letter);
    at += count;
}

size_t length_until(std::string_view text, size_t at, std::string_view closing, size_t behind)
{
    size_t found = text.find(closing, at + behind);
    return (found == std::string_view::npos ? text.size() : found + closing.size()) - at;
}

size_t comment_length(std::string_view text, size_t at)
{
    size_t end = at + 2;
    for (int depth = 1; depth > 0 && end < text.size();) {
        std::string_view two = text.substr(end, 2);
        depth += two == "/*" ? 1 : two == "*/" ? -1 : 0;
        end += two == "/*" || two == "*/" ? 2 : 1;
    }
    return end - at;
}

// The part of a text with backslashes from its quote on, and what goes on with it on other lines.
size_t escaped_length(std::string_view text, size_t at)
{
    size_t end = at;
    for (size_t next = at; next != std::string_view::npos;) {
        for (end = next + 1; end < text.size() && text[end] != '\'';)
            end += text[end] == '\\' ? 2 : 1;
        if (end >= text.size())
            return text.size() - at;
        if (text.substr(++end, 1) == "'") {
            next = end;
            continue;
        }
        size_t quote = end;
        bool in_comment = false;
        while (quote < text.size() && (in_comment || isspace(static_cast<unsigned char>(text[quote])) ||
                                       text.substr(quote, 2) == "--")) {
            in_comment = in_comment ? text[quote] != '\n' && text[quote] != '\r' : text[quote] == '-';
            ++quote;
        }
        bool goes_on = text.substr(quote, 1) == "'" && text.substr(end, quote - end).find_first_of("\r\n") != text.npos;
        next = goes_on ? quote : std::string_view::npos;
    }
    return end - at;
}

std::string without_quoted(std::string_view text)
{
    std::string plain;
    size_t word = 0;    // letters of the word that is being read
    for (size_t at = 0; at < text.size();) {
        bool escapes = word == 1 && (text[at - 1] == 'e' || text[at - 1] == 'E');
        std::string_view delimiter = word ? std::string_view() : dollar_delimiter(text, at);
        size_t before = at;
        if (text.substr(at, 2) == "--")
            blank_out(plain, at, std::min(text.find_first_of("\r\n", at), text.size()) - at, ' ');
        else if (text.substr(at, 2) == "/*")
            blank_out(plain, at, comment_length(text, at), ' ');
        else if (text[at] == '\'' && escapes)
            blank_out(plain, at, escaped_length(text, at), ')');
        else if (text[at] == '\'' || text[at] == '"')
            blank_out(plain, at, length_until(text, at, text.substr(at, 1), 1), ')');
        else if (!delimiter.empty())
            blank_out(plain, at, length_until(text, at, delimiter, delimiter.size()), ')');
        else
            plain += text[at++];
        bool goes_on = plain.back() == text[before] && (word ? is_part_of_word(plain.back()) : begins_word(plain.back()));
        word = goes_on ? word + 1 : 0;
    }
    return plain;
}

bool has_several_statements(const std::string &plain)
{
    size_t end = plain.find(';');
    return end != std::string::npos && plain.find_first_not_of("; \t\n\v\f\r", end) != std::string::npos;
}

bool has(const std::string &text, const char *word)
{
    return strcasestr(text.c_str(), word) != nullptr;
}

}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    std::string text = text_of(data, size, 4000);
    std::string adapted = adapted_statement({exact_copy(text).get(), text.size()});

    std::string plain = without_quoted(text);
    static const std::string refusal = adapted_statement("a;b");
    bool is_refused = adapted == refusal && text != refusal;
    PROMISE(is_refused == has_several_statements(plain));
    if (is_refused)
        return 0;
    if (!has(plain, "grant") && !has(plain, "revoke") && !has(plain, "nordvale"))
        PROMISE(adapted == text);
    // Nothing is added but the schema and the call, and both only once.
    if (!adapted.starts_with("call tabwarden.change_privilege("))
        PROMISE(adapted.size() <= text.size());
    PROMISE(adapted_statement(adapted) == adapted);
    return 0;
}
