#include "table_name.h"

#include <algorithm>

static char lower(char letter)
{
    return letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter + ('a' - 'A')) : letter;
}

static void append_escaped(std::string &text, std::string_view part)
{
    for (char letter : part) {
        if (letter == '%')
            text += "%25";
        else if (letter == '.')
            text += "%2E";
        else
            text += letter;
    }
}

bool same_name(std::string_view one, std::string_view other)
{
    return std::equal(one.begin(), one.end(), other.begin(), other.end(),
                      [](char a, char b) { return lower(a) == lower(b); });
}

std::string stored_name(const TableName &name)
{
    std::string text;
    append_escaped(text, name.catalog);
    text += '.';
    append_escaped(text, name.schema);
    text += '.';
    append_escaped(text, name.table);

    // SQLite keeps names that begin with "sqlite_" for itself.
    constexpr std::string_view reserved = "sqlite_";
    if (same_name(std::string_view(text).substr(0, reserved.size()), reserved))
        text.replace(0, 1, "%73");
    return text;
}

std::string shown_name(const TableName &name)
{
    std::string text;
    if (!name.catalog.empty())
        text += name.catalog + ".";
    if (!name.catalog.empty() || !name.schema.empty())
        text += name.schema + ".";
    return text + name.table;
}

std::string quoted_name(std::string_view text)
{
    std::string quoted = "\"";
    for (char letter : text) {
        if (letter == '"')
            quoted += '"';
        quoted += letter;
    }
    return quoted + '"';
}

bool is_system_name(const TableName &name)
{
    return same_name(name.catalog, "nordvale") && same_name(name.schema, "system");
}

int table_of_parts(const std::vector<std::string> &parts, TableName &name, std::string &problem)
{
    name = {};
    if (parts.size() > 3)
        problem = "A table name has at most three parts";
    else if (parts.empty() || parts.back().empty())
        problem = "A table name cannot be empty";
    else {
        name.table = parts.back();
        name.schema = parts.size() > 1 ? parts[parts.size() - 2] : "";
        name.catalog = parts.size() > 2 ? parts[0] : "";
        return 0;
    }
    return -1;
}
