#include "statement.h"

#include "tests/unit/guarded_text.h"

#include <gtest/gtest.h>

namespace {

constexpr char refusal[] = "do 'begin raise syntax_error using message = ''one statement at a time''; end'";

struct Adapted {
    const char *text, *sent;
};

template <size_t Count> void expect_sent(const Adapted (&cases)[Count])
{
    for (const Adapted &one : cases)
        EXPECT_EQ(adapted_statement(one.text), one.sent) << one.text;
}

template <size_t Count> void expect_unchanged(const char *const (&texts)[Count])
{
    for (const char *text : texts)
        EXPECT_EQ(adapted_statement(text), text);
}

template <size_t Count> void expect_refused(const char *const (&texts)[Count])
{
    for (const char *text : texts)
        EXPECT_EQ(adapted_statement(text), refusal) << text;
}

}

TEST(AdaptedStatement, the_pages_read_and_change_users_through_our_schema)
{
    expect_sent({
        {"select \"VALUE\" from nordvale.system.sysinfo where attribute = 'dbo_user';",
         "select \"VALUE\" from tabwarden.sysinfo where attribute = 'dbo_user';"},
        {"select username, description, password from nordvale.system.user;",
         "select username, description, password from tabwarden.user;"},
        {"select username, description, password from nordvale.system.user order by 1;",
         "select username, description, password from tabwarden.user order by 1;"},
        {"select username from nordvale.system.user order by 1;", "select username from tabwarden.user order by 1;"},
        {"update nordvale.system.user set password='lamb', description='Mary''s' where username='mary';",
         "update tabwarden.user set password='lamb', description='Mary''s' where username='mary';"},
        {"insert into nordvale.system.user (username, password, description) values ('a','b','c');",
         "insert into tabwarden.user (username, password, description) values ('a','b','c');"},
        {"delete from nordvale.system.user where username = 'mary'",
         "delete from tabwarden.user where username = 'mary'"},
    });
}

TEST(AdaptedStatement, the_list_of_rights_reads_our_schema)
{
    expect_sent({
        {"select a.catalog, a.schema, a.table, b.grantor from nordvale.system.table a"
         "     left outer join nordvale.system.tableprv b on a.catalog = b.catalog and a.schema = b.schema and"
         "       a.table = b.table and b.privilege = 'SELECT' and b.grantee = 'mary'",
         "select a.catalog, a.schema, a.table, b.grantor from tabwarden.table a"
         "     left outer join tabwarden.tableprv b on a.catalog = b.catalog and a.schema = b.schema and"
         "       a.table = b.table and b.privilege = 'SELECT' and b.grantee = 'mary'"},
    });
}

TEST(AdaptedStatement, grant_and_revoke_are_calls)
{
    for (const char *privilege : {"select", "insert", "update", "delete", "all"}) {
        std::string words = std::string(privilege) + " on \"C\".\"S\".\"T\"", values = std::string(privilege) + "', ";
        EXPECT_EQ(adapted_statement("grant " + words + " to \"mary\""),
                  "call tabwarden.change_privilege('grant', '" + values + "'\"C\".\"S\".\"T\"', '\"mary\"')");
        EXPECT_EQ(adapted_statement("revoke " + words + " from public"),
                  "call tabwarden.change_privilege('revoke', '" + values + "'\"C\".\"S\".\"T\"', 'public')");
    }
}

TEST(AdaptedStatement, names_in_grants_keep_their_quotes)
{
    expect_sent({
        {R"(grant all on "a.b"."c ""d"""."it's" to "o'x""; drop")",
         R"(call tabwarden.change_privilege('grant', 'all', '"a.b"."c ""d"""."it''s"', '"o''x""; drop"'))"},
        {R"(grant all on "C"."$$"."/* --" to "\")",
         R"(call tabwarden.change_privilege('grant', 'all', '"C"."$$"."/* --"', '"\"'))"},
        {"grant all on \"C\".\"nordvale.system.user\".\"T\" to \"m\xc3\xb6\"",
         "call tabwarden.change_privilege('grant', 'all', '\"C\".\"nordvale.system.user\".\"T\"', '\"m\xc3\xb6\"')"},
        {"grant all on C.S.T to mary",
         "call tabwarden.change_privilege('grant', 'all', 'C.S.T', 'mary')"},
    });
}

TEST(AdaptedStatement, grants_are_known_in_any_letter_case_with_blanks_comments_and_an_end)
{
    expect_sent({
        {"GRANT Select ON C.S.T TO mary", "call tabwarden.change_privilege('grant', 'select', 'C.S.T', 'mary')"},
        {" \t\n\v\f\rgrant/* all */all--on\non C.S.T to mary ; ;",
         "call tabwarden.change_privilege('grant', 'all', 'C.S.T', 'mary')"},
        {"Revoke DELETE on \"C\" . \"S\" . \"T\" From \"mary\";",
         "call tabwarden.change_privilege('revoke', 'delete', '\"C\" . \"S\" . \"T\"', '\"mary\"')"},
    });
}

TEST(AdaptedStatement, other_grants_are_sent_as_they_are)
{
    expect_unchanged({
        "grant all on \"S\".\"T\" to mary",
        "grant all on \"T\" to mary",
        "grant all on a.b.c.d to mary",
        "grant all on table a.b.c to mary",
        "grant all on a.b.c, a.b.d to mary",
        "grant all on a.b.c to mary, bob",
        "grant all on a.b.c to mary with grant option",
        "grant all on a.b.c to mary granted by bob",
        "grant all on a.b.c to group mary",
        "grant all on a.b.c to 'mary'",
        "grant all on a.b.'c' to mary",
        "grant all on a..c to mary",
        "grant all on a,b.c to mary",
        "grant all on a.b,c to mary",
        "grant all to a.b.c to mary",
        "grant all on a.b.c to",
        "grant all on a.b.c mary",
        "grant all on a.b.c from mary",
        "revoke all on a.b.c to mary",
        "revoke all on a.b.c from mary cascade",
        "revoke grant option for all on a.b.c from mary",
        "grant all privileges on a.b.c to mary",
        "grant select, insert on a.b.c to mary",
        "grant select (x) on a.b.c to mary",
        "grant trigger on a.b.c to mary",
        "grant truncate on a.b.c to mary",
        "grant \"select\" on a.b.c to mary",
        "\"grant\" all on a.b.c to mary",
        "grants all on a.b.c to mary",
        "grant all on U&\"a\".b.c to mary",
        "grant mary to bob",
        "grant",
        "",
    });
}

TEST(AdaptedStatement, our_schema_is_meant_in_any_letter_case_and_spacing)
{
    expect_sent({
        {"select * from NordVale.SYSTEM.User", "select * from tabwarden.User"},
        {"select * from nordvale . system\n.user", "select * from tabwarden.user"},
        {"select * from nordvale/* x */.system--y\n.user", "select * from tabwarden.user"},
        {"select nordvale.system.user.username from nordvale.system.user",
         "select tabwarden.user.username from tabwarden.user"},
        {"select * from nordvale.system.\"user\"", "select * from tabwarden.\"user\""},
        {"select 1 from(nordvale.system.user)", "select 1 from(tabwarden.user)"},
    });
}

TEST(AdaptedStatement, names_that_are_not_quite_ours_stay)
{
    expect_unchanged({
        "select * from nordvale.systems.user",
        "select * from xnordvale.system.user",
        "select * from nordvale$.system.user",
        "select * from a.nordvale.system.user",
        "select * from \"nordvale\".system.user",
        "select * from nordvale.\"system\".user",
        "select * from nordvale.system",
        "select * from nordvale,system.user",
        "select * from nordvale.system,user",
        "select nordvale",
        "select system.user",
    });
}

TEST(AdaptedStatement, quotes_and_comments_stay_as_they_are)
{
    expect_unchanged({
        "select 'nordvale.system.user; x'",
        "select 'it''s nordvale.system.user; x'",
        "select \"nordvale.system.user; x\"",
        "select \"a\"\"nordvale.system.user; x\"",
        "select E'\\'nordvale.system.user; x'",
        "select e'\\\\''nordvale.system.user; x'",
        "select 'a\\', 'nordvale.system.user; x'",
        "select $$nordvale.system.user; x$$",
        "select $$ $a$ nordvale.system.user; x$$",
        "select $a$ $$ $b$ nordvale.system.user; x$a$",
        "select $\xc3\xa4$nordvale.system.user; x$\xc3\xa4$",
        "select 1 -- nordvale.system.user; x",
        "select 1 /* nordvale.system.user; x */",
        "select 1 /* /* */ nordvale.system.user; x */",
        "select 1 /*/ nordvale.system.user; x */",
    });
}

// The server's own error is better than ours.
TEST(AdaptedStatement, what_has_no_end_is_sent_as_it_is)
{
    expect_unchanged({
        "select 'a; b", "select E'a\\'; b", "select \"a; b", "select $$a; b", "select $a$a; b$$", "select 1 /* a; b",
        "select 1 /* /* a */; b", "'", "\"", "$", "$$", "$a", "$a$", "/*", "/", "-", "--", "E'", "E'\\", "e", "\\",
    });
}

TEST(AdaptedStatement, one_statement_may_have_ends)
{
    expect_unchanged({"select 1;", "select 1;;", ";", "; ;", "select 1; -- more", "select 1; /* more */ ;"});
}

TEST(AdaptedStatement, several_statements_are_refused)
{
    expect_refused({
        "select 1; select 2",
        "select 1;select 2;",
        "select 1;;select 2",
        "select 1;select;",
        "; select 2",
        "select 1; x",
        "select 1; 'x'",
        "select 1; \"x\"",
        "select 1; (",
        "grant all on a.b.c to mary; select 1",
        "grant all on a.b.c to mary; grant all on a.b.d to mary",
        "select 1 from nordvale.system.user; drop table x",
        "begin; commit",
    });
}

TEST(AdaptedStatement, several_statements_are_refused_behind_quotes_that_end)
{
    expect_refused({
        "select 'a\\'; drop table x --'",
        "select 'a'''; drop table x",
        "select E'a\\\\'; drop table x",
        "select E'a'''; drop table x",
        "select U&'a\\'; drop table x --'",
        "select U&\"a\\\"; drop table x",
        "select N'a\\'; drop table x --'",
        "select type'a\\'; drop table x --'",
        "select \"e\"'a\\'; drop table x --'",
        "select \"a\"\"\"; drop table x",
        "select $$a$$; drop table x",
        "select $a$ $b$a$; drop table x",
        "select a$a$ ; drop table x --$a$",
        "select $1$a; drop table x --$1$",
        "select $1; drop table x --$1$",
        "select 1 --\n; drop table x",
        "select 1 --\r; drop table x",
        "select 1 -- /*\n; drop table x -- */",
        "select 1 /**/; drop table x",
        "select 1 /* -- */; drop table x",
        "select 1 /* ' */; drop table x --'",
        "select 1 /* /* */ */; drop table x",
        "select 1 /*/*/ */ */; drop table x",
        "select 1 +/* */; drop table x",
        "select 1 +-- \n; drop table x",
    });
}

// A text in quotes goes on behind a line end, with the backslashes that the first piece has.
TEST(AdaptedStatement, a_text_in_pieces_is_one_text)
{
    expect_refused({
        "select E'a'\n'\\''; drop table x --'",
        "select e'a' \t-- b\n 'c'\n'\\''; drop table x --'",
        "select E'a' -- b\r'\\''; drop table x --'",
    });
    expect_unchanged({
        "select E'a'\n'\\'; x'",
        "select E'a' -- b\n-- c\n'\\'; x'",
    });
    expect_refused({
        "select E'a' '\\'; drop table x --'",
        "select E'a' /*\n*/ '\\'; drop table x --'",
        "select E'a',\n'\\'; drop table x --'",
        "select 'a'\n'\\'; drop table x --'",
    });
}

TEST(AdaptedStatement, a_text_is_read_no_further_than_its_end)
{
    const char *const whole[] = {
        "select E'a\\''\n'\\'' /* /* */ */ \"b\"\"\" $c$ $c$ -- d",
        "grant all on \"C\".\"S\".\"T\" to \"mary\"",
        "select * from nordvale.system.user;",
    };
    for (std::string_view text : whole)
        for (size_t length = 0; length < text.size(); length++) {
            GuardedText guarded(text.substr(0, length));
            guarded.text()[length] = text[length];
            EXPECT_EQ(adapted_statement({guarded.text(), length + 1}),
                      adapted_statement(std::string(text.substr(0, length + 1))));
        }
}
