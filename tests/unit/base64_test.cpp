#include "common/base64.h"

#include "tests/unit/guarded_text.h"

#include <cstring>
#include <gtest/gtest.h>
#include <string>

namespace {

struct Sample {
    std::string bytes, text;
};

const Sample samples[] = {
    {"", ""},
    {"f", "Zg=="},
    {"fo", "Zm8="},
    {"foo", "Zm9v"},
    {"foob", "Zm9vYg=="},
    {"fooba", "Zm9vYmE="},
    {"foobar", "Zm9vYmFy"},
    {"M", "TQ=="},
    {"user:pass", "dXNlcjpwYXNz"},
    {":pass", "OnBhc3M="},
    {std::string("\0\0\0", 3), "AAAA"},
    {"\xff\xff\xff", "////"},
    {"\xfb\xef\xbe", "++++"},
    {"\xff", "/w=="},
    {std::string("\0\x10\x83\x10\x51\x87\x20\x92\x8b\x30\xd3\x8f\x41\x14\x93\x51\x55\x97\x61\x96\x9b\x71\xd7\x9f"
                 "\x82\x18\xa3\x92\x59\xa7\xa2\x9a\xab\xb2\xdb\xaf\xc3\x1c\xb3\xd3\x5d\xb7\xe3\x9e\xbb\xf3\xdf\xbf",
                 48),
     "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/"},
};

std::string decoded(const std::string &text)
{
    GuardedText source(text);
    std::string bytes(size_t(base64decode_len(source.text())), '#');
    GuardedText room(bytes.substr(1));
    int count = base64decode(room.text(), source.text());
    EXPECT_EQ(0, room.text()[count]) << "no NUL behind the last byte of " << text;
    return std::string(room.text(), size_t(count));
}

std::string encoded(const std::string &bytes)
{
    std::string room(size_t(base64encode_len(int(bytes.size()))), '#');
    GuardedText text(room.substr(1));
    int written = base64encode(text.text(), bytes.data(), int(bytes.size()));
    EXPECT_EQ(base64encode_len(int(bytes.size())), written);
    return std::string(text.text());
}

}

TEST(Base64Decode, gives_the_bytes_of_the_text)
{
    for (const Sample &sample : samples)
        EXPECT_EQ(sample.bytes, decoded(sample.text)) << sample.text;
}

TEST(Base64Decode, does_without_the_padding)
{
    for (const Sample &sample : samples)
        EXPECT_EQ(sample.bytes, decoded(sample.text.substr(0, sample.text.find('=')))) << sample.text;
}

TEST(Base64Decode, stops_at_the_first_character_outside_the_alphabet)
{
    for (const char *behind : {"=", " ", "\r\n", "-", "_", ",", ":", "\x80", "\xff", "=Zm9v", " Zm9v", "\nZm9v"})
        EXPECT_EQ("foo", decoded(std::string("Zm9v") + behind)) << behind;
}

TEST(Base64Decode, knows_exactly_the_64_characters_of_the_alphabet)
{
    const char alphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    for (int byte = 1; byte < 256; byte++) {
        const char text[] = {'A', 'A', 'A', char(byte), 0};
        const char *position = strchr(alphabet, byte);
        unsigned char bytes[4];
        EXPECT_EQ(position ? 3 : 2, base64decode_binary(bytes, text)) << byte;
        EXPECT_EQ(position ? position - alphabet : 0, bytes[2]) << byte;
    }
}

TEST(Base64Decode, a_single_leftover_character_yields_nothing)
{
    EXPECT_EQ("", decoded("Z"));
    EXPECT_EQ("foo", decoded("Zm9vY"));
}

TEST(Base64Decode, counts_two_and_three_leftover_characters)
{
    EXPECT_EQ("foof", decoded("Zm9vZg"));
    EXPECT_EQ("foofo", decoded("Zm9vZm8"));
}

TEST(Base64Decode, of_no_character_gives_0_and_a_nul)
{
    for (const char *text : {"", "=", "=Zg", " Zg"}) {
        char bytes[2] = "#";
        EXPECT_EQ(0, base64decode(bytes, text)) << text;
        EXPECT_EQ(0, bytes[0]) << text;
    }
}

TEST(Base64Decode, binary_and_text_forms_agree)
{
    for (const Sample &sample : samples) {
        unsigned char binary[64];
        char text[64];
        ASSERT_EQ(base64decode_binary(binary, sample.text.c_str()), base64decode(text, sample.text.c_str()));
        EXPECT_EQ(0, memcmp(binary, text, sample.bytes.size() + 1)) << sample.text;
    }
}

TEST(Base64DecodeLen, counts_whole_groups_and_the_nul)
{
    const struct {
        const char *text;
        int room;
    } cases[] = {{"", 1},     {"A", 4},     {"AA", 4},     {"AAA", 4},     {"AAAA", 4},  {"AAAAA", 7},
                 {"=", 1},    {"AA==", 4},  {"AAAA=", 4},  {"AAAA AAAA", 4}, {"AAAAAAAA", 7}, {"AAAAAAAAA", 10},
                 {"\x80", 1}, {"AB\xff", 4}};
    for (const auto &sample : cases)
        EXPECT_EQ(sample.room, base64decode_len(GuardedText(sample.text).text())) << sample.text;
}

TEST(Base64Encode, gives_the_text_of_the_bytes_padded_to_whole_groups)
{
    for (const Sample &sample : samples)
        EXPECT_EQ(sample.text, encoded(sample.bytes));
}

TEST(Base64Encode, counts_the_nul_too)
{
    char text[16];
    EXPECT_EQ(1, base64encode(text, "", 0));
    EXPECT_EQ(5, base64encode(text, "M", 1));
    EXPECT_STREQ("TQ==", text);
    EXPECT_EQ(5, base64encode(text, "Man", 3));
    EXPECT_EQ(9, base64encode(text, "Many", 4));
}

TEST(Base64Encode, reads_only_the_bytes_that_it_is_given)
{
    for (int count = 0; count < 7; count++) {
        // The guard's closing NUL is one more byte than the source has.
        GuardedText bytes(std::string(size_t(count), 'x'));
        memmove(bytes.text() + 1, bytes.text(), size_t(count));
        char text[16];
        EXPECT_EQ(base64encode_len(count), base64encode(text, bytes.text() + 1, count));
    }
}

TEST(Base64Encode, binary_and_text_forms_agree)
{
    for (const Sample &sample : samples) {
        char binary[128], text[128];
        auto bytes = reinterpret_cast<const unsigned char *>(sample.bytes.data());
        int count = int(sample.bytes.size());
        EXPECT_EQ(base64encode_binary(binary, bytes, count), base64encode(text, sample.bytes.data(), count));
        EXPECT_STREQ(binary, text);
    }
}

TEST(Base64Encode, decodes_to_the_same_bytes_again)
{
    std::string bytes;
    for (int byte = 0; byte < 256; byte++) {
        bytes += char(byte);
        ASSERT_EQ(bytes, decoded(encoded(bytes)));
    }
}

TEST(Base64EncodeLen, counts_whole_groups_and_the_nul)
{
    const int lengths[] = {1, 5, 5, 5, 9, 9, 9, 13};
    for (int count = 0; count < 8; count++)
        EXPECT_EQ(lengths[count], base64encode_len(count)) << count;
}
