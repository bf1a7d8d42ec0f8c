#include "connection_string.h"

#include <gtest/gtest.h>

static std::string value_in(const char *text, const char *keyword)
{
    ConnectionValues values;
    if (read_connection_string(text, values) < 0)
        return "(refused)";
    const std::string *value = value_of(values, keyword);
    return value != nullptr ? *value : "(none)";
}

TEST(ConnectionString, finds_keywords_in_any_letter_case)
{
    EXPECT_EQ(value_in("dsn=a;UID=b;Pwd=c", "PWD"), "c");
    EXPECT_EQ(value_in("dsn=a", "UID"), "(none)");
}

TEST(ConnectionString, reads_values)
{
    struct { const char *text, *value; } cases[] = {
        {"PWD=a b", "a b"}, {"PWD= a ;x=y", "a"}, {"PWD=a=b", "a=b"}, {"PWD=", ""}, {"PWD=;UID=x", ""},
        {"PWD={a;b}", "a;b"}, {"PWD={a}}b;c};UID=x", "a}b;c"}, {"PWD={ a }", " a "}, {"PWD={}", ""},
        {"PWD={}}}", "}"}, {"PWD=a{b}", "a{b}"}, {"PWD=first;PWD=second", "first"}, {";;PWD=a;", "a"},
        {"PWD={{}", "{"}, {"PWD={a", "(refused)"}, {"PWD={a}}", "(refused)"}, {"nonsense", "(none)"},
    };
    for (const auto &one : cases)
        EXPECT_EQ(value_in(one.text, "pwd"), one.value) << one.text;
}

TEST(ConnectionString, does_not_find_keywords_inside_braces)
{
    EXPECT_EQ(value_in("UID={a;PWD=x;};PWD=y", "PWD"), "y");
}
