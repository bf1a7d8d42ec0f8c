#include "common/text.h"

#include "tests/unit/guarded_text.h"

#include <cwchar>
#include <gtest/gtest.h>
#include <string>

namespace {

struct QuoteCase {
    const char *text, *quoted;
};

constexpr QuoteCase quote_cases[] = {
    {"", ""},
    {"plain", "plain"},
    {"'", "''"},
    {"''", "''''"},
    {"O'Brien", "O''Brien"},
    {"'first", "''first"},
    {"last'", "last''"},
    {"a'b'c", "a''b''c"},
    {"\"double\" \\ ; -- %s", "\"double\" \\ ; -- %s"},
    {"\xc3\xa4'\xff", "\xc3\xa4''\xff"},
};

std::string written(void (*put)(TextWriter &, const char *), const char *text)
{
    char out[256];
    TextWriter writer{out};
    put(writer, text);
    return out;
}

}

TEST(CopyText, copies_a_text_that_fits_exactly)
{
    char out[4] = "zzz";
    EXPECT_TRUE(copy_text(out, "abc"));
    EXPECT_STREQ("abc", out);
}

TEST(CopyText, refuses_a_text_that_is_one_character_too_long_and_leaves_nothing)
{
    char out[4] = "zzz";
    EXPECT_FALSE(copy_text(out, "abcd"));
    EXPECT_STREQ("", out);
}

TEST(CopyText, copies_the_empty_text_into_a_buffer_of_one)
{
    char out[1] = {'z'};
    EXPECT_TRUE(copy_text(out, ""));
    EXPECT_STREQ("", out);
}

TEST(CopyText, writes_nothing_behind_the_buffer)
{
    GuardedText room("1234567");
    EXPECT_TRUE(copy_text({room.text(), 8}, "abcdefg"));
    EXPECT_STREQ("abcdefg", room.text());
    EXPECT_FALSE(copy_text({room.text(), 8}, "abcdefgh"));
    EXPECT_STREQ("", room.text());
}

TEST(CopyText, reads_nothing_behind_the_text)
{
    GuardedText text("abc");
    char out[16];
    EXPECT_TRUE(copy_text(out, text.text()));
    EXPECT_STREQ("abc", out);
}

TEST(FormatText, formats_what_fits_exactly)
{
    char out[6];
    EXPECT_TRUE(format_text(out, "%s-%d", "ab", 34));
    EXPECT_STREQ("ab-34", out);
}

TEST(FormatText, refuses_what_is_one_character_too_long_and_leaves_nothing)
{
    char out[5] = "zzzz";
    EXPECT_FALSE(format_text(out, "%s-%d", "ab", 34));
    EXPECT_STREQ("", out);
}

TEST(FormatText, refuses_what_has_no_form_and_leaves_nothing)
{
    char out[8] = "before";
    EXPECT_FALSE(format_text(out, "a%lc", wint_t(L'\x20ac')));
    EXPECT_STREQ("", out);
}

TEST(FormatText, writes_nothing_behind_the_buffer)
{
    GuardedText room("1234567");
    EXPECT_FALSE(format_text({room.text(), 8}, "%s", "abcdefgh"));
    EXPECT_STREQ("", room.text());
    EXPECT_TRUE(format_text({room.text(), 8}, "%s", "abcdefg"));
    EXPECT_STREQ("abcdefg", room.text());
}

TEST(TextWriter, begins_with_the_empty_text)
{
    char out[8] = "before";
    TextWriter writer{out};
    EXPECT_STREQ("", out);
    EXPECT_EQ(0u, writer.length);
    EXPECT_FALSE(writer.overflow);
}

TEST(TextWriter, appends_texts_and_characters)
{
    char out[16];
    TextWriter writer{out};
    put(writer, "ab");
    put(writer, 'c');
    put(writer, "");
    put(writer, "def");
    EXPECT_STREQ("abcdef", out);
    EXPECT_EQ(6u, writer.length);
    EXPECT_FALSE(writer.overflow);
}

TEST(TextWriter, is_full_one_character_below_its_size)
{
    char out[4];
    TextWriter writer{out};
    put(writer, "abc");
    EXPECT_FALSE(writer.overflow);
    EXPECT_STREQ("abc", out);
    put(writer, 'd');
    EXPECT_TRUE(writer.overflow);
    EXPECT_STREQ("abc", out);
}

TEST(TextWriter, drops_a_text_that_does_not_fit_as_a_whole)
{
    char out[8];
    TextWriter writer{out};
    put(writer, "abcd");
    put(writer, "efgh");
    EXPECT_TRUE(writer.overflow);
    EXPECT_STREQ("abcd", out);
    EXPECT_EQ(4u, writer.length);
}

TEST(TextWriter, takes_nothing_more_after_an_overflow)
{
    char out[8];
    TextWriter writer{out};
    put(writer, "too long for it");
    put(writer, "a");
    put(writer, 'b');
    EXPECT_TRUE(writer.overflow);
    EXPECT_STREQ("", out);
}

TEST(TextWriter, writes_nothing_behind_the_buffer)
{
    GuardedText room("123");
    TextWriter writer{{room.text(), 4}};
    for (const char *text : {"ab", "c", "d", "efg"})
        put(writer, text);
    EXPECT_TRUE(writer.overflow);
    EXPECT_STREQ("abc", room.text());
}

TEST(PutNumber, is_decimal_with_zeros_up_to_the_digits_asked_for)
{
    char out[128];
    TextWriter writer{out};
    for (int digits : {1, 2, 4}) {
        for (unsigned number : {0u, 7u, 42u, 2026u, 4294967295u}) {
            put_number(writer, number, digits);
            put(writer, ' ');
        }
    }
    EXPECT_STREQ("0 7 42 2026 4294967295 00 07 42 2026 4294967295 0000 0007 0042 2026 4294967295 ", out);
}

TEST(PutSqlName, stands_between_double_quotes)
{
    char out[32];
    TextWriter writer{out};
    put_sql_name(writer, "Order Lines");
    EXPECT_STREQ("\"Order Lines\"", out);
}

TEST(PutSqlName, doubles_double_quotes_and_nothing_else)
{
    char out[32];
    TextWriter writer{out};
    put_sql_name(writer, "a\"b'c\"");
    EXPECT_STREQ("\"a\"\"b'c\"\"\"", out);
}

TEST(PutSqlName, sets_overflow_when_the_closing_quote_does_not_fit)
{
    char fitting[6], small[5];
    TextWriter fits{fitting}, overflows{small};
    put_sql_name(fits, "abc");
    put_sql_name(overflows, "abc");
    EXPECT_FALSE(fits.overflow);
    EXPECT_STREQ("\"abc\"", fitting);
    EXPECT_TRUE(overflows.overflow);
}

TEST(PutHtml, replaces_what_is_markup_between_tags)
{
    EXPECT_EQ("a&lt;b&gt;&amp;&amp;lt;", written(put_html, "a<b>&&lt;"));
}

TEST(PutHtml, leaves_quotes_and_everything_else_as_it_is)
{
    const char ordinary[] = "O'Brien \"x\" `=;%s\xc3\xa4\x80\xff\t/";
    EXPECT_EQ(ordinary, written(put_html, ordinary));
}

TEST(PutAttribute, replaces_double_quotes_too)
{
    EXPECT_EQ("&quot;&lt;&amp;&gt;'=`", written(put_attribute, "\"<&>'=`"));
}

TEST(PutUnquotedAttribute, replaces_everything_that_could_begin_a_value)
{
    EXPECT_EQ("&amp;&lt;&gt;&quot;&#39;&#96;&#61; b", written(put_unquoted_attribute, "&<>\"'`= b"));
}

TEST(PutHtml, of_the_empty_text_puts_nothing)
{
    EXPECT_EQ("", written(put_html, ""));
    EXPECT_EQ("", written(put_attribute, ""));
    EXPECT_EQ("", written(put_unquoted_attribute, ""));
}

TEST(PutHtml, drops_an_entity_that_does_not_fit_as_a_whole)
{
    char out[6];
    TextWriter writer{out};
    put_html(writer, "ab&");
    EXPECT_STREQ("ab", out);
    EXPECT_TRUE(writer.overflow);
}

TEST(HtmlText, has_room_for_the_worst_case)
{
    char worst[255];
    std::string expected;
    for (size_t i = 0; i + 1 < sizeof worst; i++) {
        worst[i] = '"';
        expected += "&quot;";
    }
    worst[sizeof worst - 1] = 0;
    EXPECT_EQ(expected, html_unquoted(worst).text);
}

TEST(HtmlText, is_the_text_as_it_stands_between_tags)
{
    EXPECT_STREQ("a&lt;\"", html_text("a<\"").text);
    EXPECT_STREQ("", html_text("").text);
}

TEST(QuoteString, doubles_every_single_quote_and_changes_nothing_else)
{
    for (const QuoteCase &sample : quote_cases) {
        char text[64] = "";
        ASSERT_TRUE(copy_text(text, sample.text));
        EXPECT_EQ(text, quote_string(text));
        EXPECT_STREQ(sample.quoted, text);
    }
}

TEST(QuoteString, fills_its_buffer_to_the_last_byte)
{
    GuardedText exact(std::string_view("'b'\0\0", 5));
    EXPECT_EQ(exact.text(), quote_string({exact.text(), 6}));
    EXPECT_STREQ("''b''", exact.text());
}

TEST(QuoteString, refuses_a_result_that_is_one_character_too_long_and_leaves_the_text)
{
    char text[5] = "'b'";
    EXPECT_EQ(nullptr, quote_string(text));
    EXPECT_STREQ("'b'", text);
}

TEST(QuoteString, fits_when_the_buffer_has_twice_the_length_and_one)
{
    char text[9] = "''''";
    EXPECT_EQ(text, quote_string(text));
    EXPECT_STREQ("''''''''", text);
}
