#include "sql_tokens.h"

#include <gtest/gtest.h>

static std::string joined(std::string_view text)
{
    std::vector<Token> tokens;
    std::string problem, result;
    if (!read_tokens(text, tokens, problem))
        return "problem: " + problem;
    for (const Token &token : tokens)
        result.append(result.empty() ? "" : "|").append(token.source);
    return result;
}

TEST(ReadTokens, cuts_names_literals_and_signs)
{
    struct { const char *text, *tokens; } cases[] = {
        {"select a.b", "select|a|.|b"},
        {"'it''s' x", "'it''s'|x"},
        {"\"a\"\"b\".\"\".[c d]", "\"a\"\"b\"|.|\"\"|.|[c d]"},
        {"`a``b`", "`a``b`"},
        {"1.5 .5 1e-3 0x1F", "1.5|.5|1e-3|0x1F"},
        {"x'0a' X'0B'", "x'0a'|X'0B'"},
        {"a-- b\nc", "a|c"},
        {"a/* b */c", "a|c"},
        {"m\xc3\xbcller$1", "m\xc3\xbcller$1"},
        {"", ""},
        {"t.1", "t|.|1"},
        {"?1from ?x ?", "?1|from|?|x|?"},
        {"\xef\xbb\xbf" "a\xef\xbb\xbf" "b \xef\xbb\xbf", "a\xef\xbb\xbf" "b"},
    };
    for (const auto &one : cases)
        EXPECT_EQ(joined(one.text), one.tokens) << one.text;
}

TEST(ReadTokens, refuses_what_has_no_end)
{
    for (const char *text : {"'a", "\"a", "[a", "`a", "'a''", "x'0", "/* a", "'"})
        EXPECT_TRUE(joined(text).starts_with("problem")) << text;
}

TEST(ReadTokens, refuses_parameters_with_names)
{
    for (const char *text : {"$x(')", ":a", "@a", "#1"})
        EXPECT_TRUE(joined(text).starts_with("problem")) << text;
}

TEST(ReadTokens, refuses_a_nul)
{
    EXPECT_TRUE(joined(std::string_view("a\0b", 3)).starts_with("problem"));
}

TEST(ReadTokens, takes_quotes_off_names)
{
    std::vector<Token> tokens;
    std::string problem;
    ASSERT_TRUE(read_tokens("\"a\"\"b\" [c]", tokens, problem));
    EXPECT_EQ(tokens[0].name, "a\"b");
    EXPECT_EQ(tokens[1].name, "c");
}
