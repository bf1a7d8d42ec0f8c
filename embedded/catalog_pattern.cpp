#include "catalog_pattern.h"

std::optional<std::string> optional_text(const SQLCHAR *text, SQLSMALLINT length)
{
    if (text == nullptr)
        return {};
    return text_argument(text, length);
}

NamePattern pattern_of(const Statement &statement, const CatalogArguments &arguments)
{
    return {arguments.catalog, arguments.schema, arguments.table, statement.metadata_id == SQL_TRUE};
}

// Goes back to the last "%" on a mismatch, so the time is at worst the product of the two lengths.
static bool matches_pattern(std::string_view pattern, std::string_view name)
{
    size_t p = 0, n = 0, after_percent = std::string_view::npos, retry = 0;
    while (n < name.size()) {
        bool escaped = p + 1 < pattern.size() && pattern[p] == '\\';
        if (!escaped && p < pattern.size() && pattern[p] == '%') {
            after_percent = ++p;
            retry = n;
        } else if (p < pattern.size() && ((!escaped && pattern[p] == '_') ||
                                          same_name(pattern.substr(p + escaped, 1), name.substr(n, 1)))) {
            p += escaped ? 2 : 1;
            ++n;
        } else if (after_percent != std::string_view::npos) {
            p = after_percent;
            n = ++retry;
        } else {
            return false;
        }
    }
    while (p < pattern.size() && pattern[p] == '%')
        ++p;
    return p == pattern.size();
}

bool matches_part(const std::optional<std::string> &pattern, std::string_view name, bool plain)
{
    return !pattern || (plain ? same_name(*pattern, name) : matches_pattern(*pattern, name));
}

bool matches(const NamePattern &pattern, const TableName &name)
{
    return matches_part(pattern.catalog, name.catalog, pattern.plain) &&
           matches_part(pattern.schema, name.schema, pattern.plain) &&
           matches_part(pattern.table, name.table, pattern.plain);
}

bool wants_type(std::string_view types, std::string_view type)
{
    while (!types.empty()) {
        size_t comma = types.find(',');
        std::string_view wanted = types.substr(0, comma);
        types = comma == std::string_view::npos ? std::string_view() : types.substr(comma + 1);
        size_t first = wanted.find_first_not_of(" '");
        if (first == std::string_view::npos)
            continue;
        wanted = wanted.substr(first, wanted.find_last_not_of(" '") - first + 1);
        if (wanted == "%" || same_name(wanted, type))
            return true;
    }
    return false;
}
