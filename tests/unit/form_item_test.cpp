#include "server/form_item.h"

#include <gtest/gtest.h>

namespace {

constexpr FormItemSpec items[] = {
    {"name", 0, {0, 0}, nullptr},
    {"privileges", form_item_is_group, {0, 0}, "select insert update delete"},
    {"not_a_group", 15, {0, 0}, "hidden select_too"},
    {"with_other_flags", form_item_is_group | 3, {0, 0}, "other"},
    {"select", 0, {0, 0}, nullptr},
    {"second_name", 0, {0, 0}, nullptr},
    {nullptr, form_item_is_group, {0, 0}, "behind_the_end"},
    {"behind", 0, {0, 0}, nullptr},
};

}

TEST(FindFfItemFromName, finds_an_item_by_its_own_name)
{
    EXPECT_EQ(&items[0], find_ff_item_from_name(items, "name"));
    EXPECT_EQ(&items[5], find_ff_item_from_name(items, "second_name"));
}

TEST(FindFfItemFromName, finds_a_group_by_its_own_name)
{
    EXPECT_EQ(&items[1], find_ff_item_from_name(items, "privileges"));
}

TEST(FindFfItemFromName, finds_a_group_by_each_of_its_members)
{
    for (const char *member : {"select", "insert", "update", "delete"})
        EXPECT_EQ(&items[1], find_ff_item_from_name(items, member)) << member;
}

TEST(FindFfItemFromName, looks_only_at_the_bit_of_value_16)
{
    EXPECT_EQ(nullptr, find_ff_item_from_name(items, "hidden"));
    EXPECT_EQ(&items[3], find_ff_item_from_name(items, "other"));
}

TEST(FindFfItemFromName, compares_case_sensitively_and_whole)
{
    for (const char *name : {"Name", "NAME", "nam", "name2", "Select", "selec", "insert update", "", " "})
        EXPECT_EQ(nullptr, find_ff_item_from_name(items, name)) << name;
}

TEST(FindFfItemFromName, stops_at_the_first_null_name)
{
    EXPECT_EQ(nullptr, find_ff_item_from_name(items, "behind"));
    EXPECT_EQ(nullptr, find_ff_item_from_name(items, "behind_the_end"));
    EXPECT_EQ(nullptr, find_ff_item_from_name(&items[6], "name"));
}

TEST(FindFfItemFromName, leaves_the_member_list_as_it_is)
{
    char members[] = "one two";
    const FormItemSpec writable[] = {{"group", form_item_is_group, {0, 0}, members}, {nullptr, 0, {0, 0}, nullptr}};
    EXPECT_EQ(writable, find_ff_item_from_name(writable, "two"));
    EXPECT_STREQ("one two", members);
}

TEST(FindFfItemFromName, finds_no_member_of_a_group_without_a_list)
{
    const FormItemSpec groups[] = {{"group", form_item_is_group, {0, 0}, nullptr}, {"item", 0, {0, 0}, nullptr},
                                   {nullptr, 0, {0, 0}, nullptr}};
    EXPECT_EQ(&groups[0], find_ff_item_from_name(groups, "group"));
    EXPECT_EQ(&groups[1], find_ff_item_from_name(groups, "item"));
    EXPECT_EQ(nullptr, find_ff_item_from_name(groups, ""));
}

TEST(BitnoOfMask, gives_0_for_an_item_without_a_list)
{
    const FormItemSpec item = {"group", form_item_is_group, {0, 0}, nullptr};
    EXPECT_EQ(0, bitno_of_mask("group", &item));
}

TEST(BitnoOfMask, gives_the_position_of_a_member_from_0)
{
    EXPECT_EQ(0, bitno_of_mask("select", &items[1]));
    EXPECT_EQ(1, bitno_of_mask("insert", &items[1]));
    EXPECT_EQ(2, bitno_of_mask("update", &items[1]));
    EXPECT_EQ(3, bitno_of_mask("delete", &items[1]));
}

TEST(BitnoOfMask, gives_0_for_what_is_no_member)
{
    for (const char *name : {"Insert", "inser", "insert ", "insert2", "", "privileges"})
        EXPECT_EQ(0, bitno_of_mask(name, &items[1])) << name;
}

TEST(BitnoOfMask, gives_the_first_of_equal_members)
{
    const FormItemSpec item = {"group", 0, {0, 0}, "a b a b"};
    EXPECT_EQ(1, bitno_of_mask("b", &item));
}

TEST(BitnoOfMask, counts_a_run_of_blanks_as_one)
{
    const FormItemSpec item = {"group", 0, {0, 0}, " a  b "};
    EXPECT_EQ(0, bitno_of_mask("a", &item));
    EXPECT_EQ(1, bitno_of_mask("b", &item));
}

TEST(BitnoOfMask, leaves_the_member_list_as_it_is)
{
    char members[] = "one two three";
    const FormItemSpec item = {"group", 0, {0, 0}, members};
    EXPECT_EQ(2, bitno_of_mask("three", &item));
    EXPECT_STREQ("one two three", members);
}
