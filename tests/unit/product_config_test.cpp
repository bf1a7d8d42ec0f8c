#include "common/product_config.h"

#include "tests/unit/product_file.h"

#include <cstdio>
#include <cstring>
#include <gtest/gtest.h>
#include <string>

namespace {

const char sample[] =
    "[Other]\n"
    "LogDir = /wrong\n"
    "\n"
    "[Settings]\n"
    "Before = 1\n"
    "LogDir = /var/log/tabwarden\n"
    "Blanks inside = yes\n"
    "Behind=2\n";

// What get_profile_string left in the buffer, with its result.
struct Value {
    int length;
    std::string text;
};

class ProductConfig : public testing::Test {
protected:
    ProductConfig() : registry(open_registry()) {}
    ~ProductConfig() override { close_registry(registry); }

    void use(const std::string &content)
    {
        file = folder.write_file("product.ini", content);
        set_config(registry, file.c_str());
    }

    Value read(const char *section, const char *key, int size = 512)
    {
        std::string buffer(size_t(size), '#');
        int length = get_profile_string(registry, nullptr, section, key, "/tmp/", buffer.data(), size);
        return {length, buffer.c_str()};
    }

    TemporaryFolder folder;
    std::string file;
    Registry *registry;
};

void expect_value(const std::string &expected, const Value &value)
{
    EXPECT_EQ(expected, value.text);
    EXPECT_EQ(int(expected.size()), value.length);
}

std::string asked_for;

int note_and_answer(const char *section, const char *key, const char *default_value, char *buffer, int size,
                    const char *file)
{
    asked_for = std::string(section) + "|" + key + "|" + default_value + "|" + file;
    return snprintf(buffer, size_t(size), "%s", "answered");
}

int fail_to_read(const char *, const char *, const char *, char *, int, const char *)
{
    return -1;
}

}

TEST_F(ProductConfig, reads_the_value_of_a_key_in_its_section)
{
    use(sample);
    expect_value("/var/log/tabwarden", read("Settings", "LogDir"));
    expect_value("/wrong", read("Other", "LogDir"));
    expect_value("2", read("Settings", "Behind"));
}

TEST_F(ProductConfig, gives_the_default_for_a_missing_file)
{
    set_config(registry, "/nowhere/at/all/product.ini");
    expect_value("/tmp/", read("Settings", "LogDir"));
}

TEST_F(ProductConfig, does_not_make_a_missing_file)
{
    std::string missing = folder.path() + "/product.ini";
    set_config(registry, missing.c_str());
    expect_value("/tmp/", read("Settings", "LogDir"));
    EXPECT_EQ(std::nullopt, read_file(missing));
}

TEST_F(ProductConfig, gives_the_default_for_a_folder_in_place_of_the_file)
{
    set_config(registry, folder.path().c_str());
    expect_value("/tmp/", read("Settings", "LogDir"));
}

TEST_F(ProductConfig, gives_the_default_for_a_missing_section)
{
    use("[Other]\nLogDir = /wrong\n");
    expect_value("/tmp/", read("Settings", "LogDir"));
}

TEST_F(ProductConfig, gives_the_default_for_a_missing_key)
{
    use("[Settings]\nLogFile = /wrong\n");
    expect_value("/tmp/", read("Settings", "LogDir"));
}

TEST_F(ProductConfig, gives_the_default_for_an_empty_file)
{
    use("");
    expect_value("/tmp/", read("Settings", "LogDir"));
}

TEST_F(ProductConfig, gives_the_default_before_a_file_is_named)
{
    expect_value("/tmp/", read("Settings", "LogDir"));
}

TEST_F(ProductConfig, refuses_a_value_that_does_not_fit)
{
    use("[Settings]\nLogDir = /abcdef\n");
    expect_value("/abcdef", read("Settings", "LogDir", 9));
    expect_value("/abcdef", read("Settings", "LogDir", 8));
    Value value = read("Settings", "LogDir", 7);
    EXPECT_EQ(-1, value.length);
    EXPECT_EQ("", value.text);
}

TEST_F(ProductConfig, refuses_a_value_of_the_callers_whole_size)
{
    std::string longest(511, 'd'), too_long(512, 'e');
    use("[Settings]\nLogDir = " + longest + "\nTooLong = " + too_long + "\n");
    expect_value(longest, read("Settings", "LogDir"));
    EXPECT_EQ(-1, read("Settings", "TooLong").length);
    EXPECT_EQ("", read("Settings", "TooLong").text);
}

TEST_F(ProductConfig, refuses_a_default_that_does_not_fit)
{
    Value value = read("Settings", "LogDir", 5);
    EXPECT_EQ(-1, value.length);
    EXPECT_EQ("", value.text);
}

TEST_F(ProductConfig, hands_everything_to_a_reader_that_replaces_its_own)
{
    set_config(registry, "/some/file.ini");
    set_ini_function(registry, note_and_answer);
    expect_value("answered", read("Settings", "LogDir"));
    EXPECT_EQ("Settings|LogDir|/tmp/|/some/file.ini", asked_for);
}

TEST_F(ProductConfig, gives_the_default_when_its_reader_fails)
{
    set_config(registry, "/some/file.ini");
    set_ini_function(registry, fail_to_read);
    expect_value("/tmp/", read("Settings", "LogDir"));
}

TEST(ProductConfigWithoutHandle, reads_only_defaults)
{
    set_config(nullptr, "/some/file.ini");
    set_ini_function(nullptr, note_and_answer);
    char buffer[16] = "###";
    EXPECT_EQ(5, get_profile_string(nullptr, nullptr, "Settings", "LogDir", "/tmp/", buffer, sizeof buffer));
    EXPECT_STREQ("/tmp/", buffer);
    close_registry(nullptr);
}
