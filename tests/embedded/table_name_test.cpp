#include "table_name.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <map>

TEST(StoredName, keeps_the_place_of_empty_parts)
{
    EXPECT_EQ(stored_name({"C", "S", "T"}), "C.S.T");
    EXPECT_EQ(stored_name({"", "S", "T"}), ".S.T");
    EXPECT_EQ(stored_name({"", "", "T"}), "..T");
    EXPECT_EQ(stored_name({"C", "", "T"}), "C..T");
}

TEST(StoredName, differs_for_different_names)
{
    const char *parts[] = {"", "a", ".", "%", "a.", ".a", "..", "%2E", "%25", "a.b", "\"", "sqlite_", "%73qlite_"};
    std::map<std::string, std::string> seen;
    for (std::string catalog : parts)
        for (std::string schema : parts)
            for (std::string table : parts) {
                std::string key = catalog + '\n' + schema + '\n' + table;
                auto [known, added] = seen.emplace(stored_name({catalog, schema, table}), key);
                EXPECT_TRUE(added) << key << " and " << known->second;
            }
}

TEST(StoredName, is_never_one_that_sqlite_reserves)
{
    EXPECT_EQ(stored_name({"sqlite_a", "S", "T"}), "%73qlite_a.S.T");
    EXPECT_EQ(stored_name({"SQLITE_a", "S", "T"}), "%73QLITE_a.S.T");
}

TEST(ShownName, leaves_out_what_is_empty_before_the_first_part)
{
    EXPECT_EQ(shown_name({"C", "S", "T"}), "C.S.T");
    EXPECT_EQ(shown_name({"", "S", "T"}), "S.T");
    EXPECT_EQ(shown_name({"", "", "T"}), "T");
    EXPECT_EQ(shown_name({"C", "", "T"}), "C..T");
}

TEST(QuotedName, doubles_double_quotes)
{
    EXPECT_EQ(quoted_name("a\"b"), "\"a\"\"b\"");
}

TEST(SameName, ignores_the_case_of_ascii_letters_only)
{
    EXPECT_TRUE(same_name("abc", "ABC"));
    EXPECT_FALSE(same_name("abc", "abcd"));
    EXPECT_FALSE(same_name("\xc3\xa4", "\xc3\x84"));
}
