#include "admin/table_name.h"

#include <gtest/gtest.h>
#include <string>

namespace {

struct Spelling {
    const char *catalog, *schema, *table, *key, *quoted;
};

constexpr Spelling spellings[] = {
    {"C", "S", "T", "C.S.T", "\"C\".\"S\".\"T\""},
    {"", "S", "T", "S.T", "\"S\".\"T\""},
    {"", "", "T", "T", "\"T\""},
    {"C", "", "T", "C..T", "\"C\".\"\".\"T\""},
    {"a b", "x.y", "t'", "a b.x.y.t'", "\"a b\".\"x.y\".\"t'\""},
    {"", "", "say \"so\"", "say \"so\"", "\"say \"\"so\"\"\""},
};

TableName table_name(const Spelling &spelling)
{
    TableName name;
    copy_text(name.catalog, spelling.catalog);
    copy_text(name.schema, spelling.schema);
    copy_text(name.table, spelling.table);
    return name;
}

std::string quoted(const TableName &name)
{
    QuotedTable text;
    quote_table(name, text);
    return text;
}

TEST(TableName, empty_parts_are_left_out_except_the_schema_behind_a_catalog)
{
    for (const Spelling &spelling : spellings) {
        RowKey key;
        build_row_key(table_name(spelling), key);
        EXPECT_STREQ(key, spelling.key);
        EXPECT_EQ(quoted(table_name(spelling)), spelling.quoted);
    }
}

TEST(TableName, three_of_the_longest_names_fit_whole)
{
    std::string longest(column_size - 1, '"'), doubled(2 * (column_size - 1) + 2, '"');
    TableName name = table_name({longest.c_str(), longest.c_str(), longest.c_str(), "", ""});
    RowKey key;
    build_row_key(name, key);
    EXPECT_EQ(std::string(key), longest + "." + longest + "." + longest);
    EXPECT_EQ(quoted(name), doubled + "." + doubled + "." + doubled);
}

}
