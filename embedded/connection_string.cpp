#include "connection_string.h"

#include "table_name.h"

static std::string_view trimmed(std::string_view text)
{
    constexpr std::string_view blanks = " \t\r\n";
    size_t begin = text.find_first_not_of(blanks);
    if (begin == std::string_view::npos)
        return {};
    return text.substr(begin, text.find_last_not_of(blanks) - begin + 1);
}

// Reads the braced value whose "{" is at `at`; returns the position behind its "}", or npos.
static size_t read_braced(std::string_view text, size_t at, std::string &value)
{
    for (++at; at < text.size(); ++at) {
        if (text[at] == '}') {
            if (at + 1 == text.size() || text[at + 1] != '}')
                return at + 1;
            ++at;
        }
        value += text[at];
    }
    return std::string_view::npos;
}

int read_connection_string(std::string_view text, ConnectionValues &values)
{
    for (size_t at = 0; at < text.size();) {
        size_t equals = text.find_first_of("=;", at);
        if (equals == std::string_view::npos)
            return 0;
        if (text[equals] == ';') {
            at = equals + 1;
            continue;
        }
        std::string keyword(trimmed(text.substr(at, equals - at))), value;
        at = text.find_first_not_of(" \t", equals + 1);
        if (at != std::string_view::npos && text[at] == '{') {
            at = read_braced(text, at, value);
            if (at == std::string_view::npos)
                return -1;
            at = text.find(';', at);
        } else {
            at = text.find(';', equals + 1);
            value = trimmed(text.substr(equals + 1, at == std::string_view::npos ? at : at - equals - 1));
        }
        values.emplace_back(keyword, value);
        if (at == std::string_view::npos)
            return 0;
        ++at;
    }
    return 0;
}

const std::string *value_of(const ConnectionValues &values, std::string_view keyword)
{
    for (const auto &[known, value] : values)
        if (same_name(known, keyword))
            return &value;
    return nullptr;
}
