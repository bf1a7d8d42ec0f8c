#include "sql_translate.h"

#include <gtest/gtest.h>

static std::string translated(const char *text)
{
    TranslatedStatement statement;
    std::string problem;
    return translate(text, statement, problem) == 0 ? statement.sql : "problem: " + problem;
}

static std::string tables_of(const char *text)
{
    TranslatedStatement statement;
    std::string problem, tables;
    if (translate(text, statement, problem) < 0)
        return "problem: " + problem;
    for (const TableName &name : statement.tables)
        tables.append(tables.empty() ? "" : " ").append(stored_name(name));
    return tables;
}

static TranslatedStatement grant_of(const char *text)
{
    TranslatedStatement statement;
    std::string problem;
    EXPECT_EQ(translate(text, statement, problem), 0) << text << ": " << problem;
    return statement;
}

TEST(Translate, gives_tables_their_stored_names)
{
    struct { const char *text, *sql; } cases[] = {
        {"select * from T", "select * from \"..T\""},
        {"select * from S.T", "select * from \".S.T\""},
        {"select * from C.S.T;", "select * from \"C.S.T\""},
        {"select * from \"C\".\"\".\"T\"", "select * from \"C..T\""},
        {"select * from C..T", "select * from \"C..T\""},
        {"select * from \"a.b\".\"c\"\"d\"", "select * from \".a%2Eb.c\"\"d\""},
        {"select 1", "select 1"},
        {"values (1)", "values (1)"},
        {"insert into S.T (a) values ('from x')", "insert into \".S.T\" (a) values ('from x')"},
        {"insert into T select * from S.U", "insert into \"..T\" select * from \".S.U\""},
        {"replace into T values (1)", "replace into \"..T\" values (1)"},
        {"update T set a = 1 where b in (select b from S.U)",
         "update \"..T\" set a = 1 where b in (select b from \".S.U\")"},
        {"update or ignore S.T set a = 1", "update or ignore \".S.T\" set a = 1"},
        {"delete from C.S.T where a = 1", "delete from \"C.S.T\" where a = 1"},
        {"select * from A, S.B", "select * from \"..A\", \".S.B\""},
        {"select * from (A join S.B using (x)), C", "select * from (\"..A\" join \".S.B\" using (x)), \"..C\""},
        {"select * from (select 1, 2), T", "select * from (select 1, 2), \"..T\""},
        {"select * from T where a in S.U", "select * from \"..T\" where a in \".S.U\""},
        {"select a from T order by b, c", "select a from \"..T\" order by b, c"},
        {"create table S.T (a int, b int references U (x))",
         "create table \".S.T\" (a int, b int references \"..U\" (x))"},
        {"create table if not exists T (a)", "create table \"..T\" (a)"},
        {"create table T as select * from S.U", "create table \"..T\" as select * from \".S.U\""},
        {"drop table \"C\".\"S\".\"T\";", "drop table \"C.S.T\""},
        {"insert into T values (1) on conflict (a) do update set a = 2",
         "insert into \"..T\" values (1) on conflict (a) do update set a = 2"},
    };
    for (const auto &one : cases)
        EXPECT_EQ(translated(one.text), one.sql) << one.text;
}

TEST(Translate, gives_columns_the_table_that_stands_before_them)
{
    struct { const char *text, *sql; } cases[] = {
        {"select T.a from T", "select \"..T\".\"a\" from \"..T\""},
        {"select T.a from C.S.T", "select \"C.S.T\".\"a\" from \"C.S.T\""},
        {"select S.T.a from C.S.T", "select \"C.S.T\".\"a\" from \"C.S.T\""},
        {"select C.S.T.* from C.S.T", "select \"C.S.T\".* from \"C.S.T\""},
        {"select x.a from C.S.T x", "select \"x\".\"a\" from \"C.S.T\" x"},
        {"select x.a from T as x", "select \"x\".\"a\" from \"..T\" as x"},
        {"select A.T.x, B.T.x from A.T, B.T", "select \".A.T\".\"x\", \".B.T\".\"x\" from \".A.T\", \".B.T\""},
    };
    for (const auto &one : cases)
        EXPECT_EQ(translated(one.text), one.sql) << one.text;
}

TEST(Translate, leaves_a_column_whose_table_is_not_named_alone)
{
    EXPECT_EQ(translated("select X.S.T.a from C.S.T"), "select \"X\".\"S\".\"T\".\"a\" from \"C.S.T\"");
    EXPECT_EQ(translated("select X.T.a from C.S.T"), "select \"X\".\"T\".\"a\" from \"C.S.T\"");
    EXPECT_EQ(translated("select X.a from C.S.T"), "select \"X\".\"a\" from \"C.S.T\"");
}

TEST(Translate, leaves_to_SQLite_what_is_no_statement_at_all)
{
    struct { const char *text, *tables; } cases[] = {
        {"select 1) from A, B", "..A ..B"}, {"with q as (select 1)) select 1 from q, A", "..A"}, {"select a.(1) from A", "..A"}, {"select a.", ""},
        {"select 1 from A where a in", "..A"}, {"select references (a) from A", "..A"}, {"select distinct from A", "..A"},
        {"with q as (1) select 1 from q", "..q"}, {"with q as select 1 from A", "problem: \"with\" begins no statement that is served here"},
        {"with q) select 1 from A", "..A"},
    };
    for (const auto &one : cases)
        EXPECT_EQ(tables_of(one.text), one.tables) << one.text;
}

TEST(Translate, takes_keywords_for_names_behind_a_dot)
{
    EXPECT_EQ(translated("select a.table, a.order from nordvale.system.table a"),
              "select \"a\".\"table\", \"a\".\"order\" from \"nordvale.system.table\" a");
    EXPECT_EQ(translated("select table from T"), "select \"table\" from \"..T\"");
}

TEST(Translate, leaves_names_of_common_tables_alone)
{
    EXPECT_EQ(translated("with q (a) as (select a from S.T) select q.a from q, T"),
              "with q (a) as (select a from \".S.T\") select \"q\".\"a\" from q, \"..T\"");
    EXPECT_EQ(tables_of("with q as (select 1), r as not materialized (select 2) insert into T select * from q, r"),
              "..T");
}

TEST(Translate, refuses_common_tables_that_could_be_taken_for_tables_of_the_file)
{
    for (const char *text : {"with \"..T\" as (select 1) select 1", "select * from (with SQLite_schema as (values (1)) select 1)"})
        EXPECT_TRUE(translated(text).starts_with("problem")) << text;
}

TEST(Translate, refuses_a_text_for_a_table)
{
    for (const char *text : {"select * from 'T'", "select * from A, ('T')", "insert into 'T' values (1)", "update 'T' set a = 1",
                             "delete from 'T'", "select 1 in 'T'", "select * from A join 'T'"})
        EXPECT_TRUE(translated(text).starts_with("problem")) << text;
    EXPECT_EQ(translated("select 'T' in ('T') from A 'x' where a = 'T'"), "select 'T' in ('T') from \"..A\" 'x' where a = 'T'");
}

TEST(Translate, takes_window_for_a_clause_only_where_SQLite_does)
{
    EXPECT_EQ(tables_of("select * from A window, B"), "..A ..B");
    EXPECT_EQ(tables_of("select * from A as window, B where window in (1, 2)"), "..A ..B");
    EXPECT_EQ(tables_of("select * from A window x as (order by a), y as (order by b)"), "..A");
}

TEST(Translate, keeps_names_side_by_side_apart)
{
    EXPECT_EQ(translated("select [a]\"b\" from T\"u\""), "select \"a\" \"b\" from \"..T\" \"u\"");
    EXPECT_EQ(translated("select * from A, B.*\"x\""), "select * from \"..A\", \".B.*\" \"x\"");
}

TEST(Translate, finds_no_table_in_texts_comments_and_comparisons)
{
    EXPECT_EQ(tables_of("select 'from A' -- from B\n, a is not distinct from b /* from C */ from T"), "..T");
}

TEST(Translate, resolves_odbc_escapes)
{
    EXPECT_EQ(translated("select {fn upper('a')}, {d '2024-01-02'} from {oj A left join B on 1}"),
              "select upper ( 'a' ) , '2024-01-02' from \"..A\" left join \"..B\" on 1");
    EXPECT_TRUE(std::string(translated("select {call x}")).starts_with("problem"));
    EXPECT_TRUE(std::string(translated("select {d 'x'")).starts_with("problem"));
    EXPECT_TRUE(std::string(translated("select {")).starts_with("problem"));
    EXPECT_TRUE(std::string(translated("select 1}")).starts_with("problem"));
}

TEST(Translate, refuses_more_or_less_than_one_statement)
{
    for (const char *text : {"", " ", ";", "-- nothing", "select 1; select 2", "select 1; drop table T"})
        EXPECT_TRUE(std::string(translated(text)).starts_with("problem")) << text;
    EXPECT_EQ(translated("select 1 ; -- end\n;"), "select 1");
}

TEST(Translate, refuses_statements_that_are_not_served)
{
    for (const char *text : {"attach 'x' as y", "pragma writable_schema = 1", "begin", "commit", "vacuum",
                             "create view V as select 1", "create index I on T (a)", "create temp table T (a)",
                             "create trigger X after insert on T begin select 1; end", "alter table T add b",
                             "explain select 1", "drop view V", "reindex", "analyze", "savepoint a", "(select 1)"})
        EXPECT_TRUE(std::string(translated(text)).starts_with("problem")) << text;
}

TEST(Translate, refuses_table_names_of_no_or_too_many_parts)
{
    for (const char *text : {"select * from A.B.C.D", "select * from \"\"", "select * from A.\"\"",
                             "drop table", "create table", "drop table A B", "create table (a)", "create table 'T' (a)",
                             "create table A.B.C.D (a)", "create table T (a references A.B.C.D (x))", "drop table A.B.C.D",
                             "create table if T (a)", "create table if not T (a)", "create table if", "drop table if T"})
        EXPECT_TRUE(std::string(translated(text)).starts_with("problem")) << text;
}

TEST(Translate, notices_replacing_statements)
{
    TranslatedStatement statement;
    std::string problem;
    for (const char *text : {"replace into T values (1)", "insert or replace into T values (1)",
                             "update or replace T set a = 1", "with q as (select 1) replace into T select * from q"}) {
        ASSERT_EQ(translate(text, statement, problem), 0) << text;
        EXPECT_TRUE(statement.replaces) << text;
    }
    for (const char *text : {"insert into T values (replace('a', 'b', 'c'))", "insert or ignore into T values (1)"}) {
        ASSERT_EQ(translate(text, statement, problem), 0) << text;
        EXPECT_FALSE(statement.replaces) << text;
    }
}

TEST(Translate, tells_the_tables_that_rows_come_from)
{
    struct { const char *text, *sources; } cases[] = {
        {"insert into A select * from B", "..B"}, {"delete from A", ""}, {"delete from A where x in B", "..B"},
        {"update A set x = 1", ""}, {"select q.delete from A q", "..A"}, {"with q as (select 1) delete from A", ""}, {"update A set x = 1 from B, C", "..B ..C"}, {"delete from A where x in (select 1 from A)", "..A"},
        {"select * from (A join B on 1), C", "..A ..B ..C"}, {"create table A (x references B (y))", ""},
        {"create table A as select * from B", "..B"}, {"with q as (select * from A) insert into B select * from q", "..A"},
    };
    for (const auto &one : cases) {
        TranslatedStatement statement = grant_of(one.text);
        std::string sources;
        for (const TableName &name : statement.sources)
            sources.append(sources.empty() ? "" : " ").append(stored_name(name));
        EXPECT_EQ(sources, one.sources) << one.text;
    }
}

TEST(Translate, tells_the_kinds_of_statements_apart)
{
    EXPECT_EQ(grant_of("select 1").kind, StatementKind::query);
    EXPECT_EQ(grant_of("with q as (select 1) select * from q").kind, StatementKind::query);
    EXPECT_EQ(grant_of("with q as (select 1) delete from T").kind, StatementKind::change);
    EXPECT_EQ(grant_of("create table T (a)").kind, StatementKind::create_table);
    EXPECT_EQ(grant_of("drop table T").kind, StatementKind::drop_table);
    EXPECT_TRUE(grant_of("drop table if exists T").if_exists);
}

TEST(Grant, names_privileges_table_and_grantee)
{
    struct { const char *text; unsigned privileges; const char *table, *grantee; } cases[] = {
        {"grant select on T to public", privilege_select, "..T", "public"},
        {"grant insert on S.T to PUBLIC", privilege_insert, ".S.T", "public"},
        {"grant update on \"C\".\"S\".\"T\" to \"bob\"", privilege_update, "C.S.T", "bob"},
        {"grant delete on \"C\".\"\".\"T\" to bob;", privilege_delete, "C..T", "bob"},
        {"grant all on \"a\"\"b\" to \"x\"\"y\"", privilege_all, "..a\"b", "x\"y"},
        {"grant all privileges on table T to \"Public\"", privilege_all, "..T", "Public"},
        {"grant delete on C..T to bob", privilege_delete, "C..T", "bob"},
        {"grant select, insert on table to bob", privilege_select | privilege_insert, "..table", "bob"},
    };
    for (const auto &one : cases) {
        TranslatedStatement statement = grant_of(one.text);
        EXPECT_EQ(statement.kind, StatementKind::grant) << one.text;
        EXPECT_EQ(statement.privileges, one.privileges) << one.text;
        EXPECT_EQ(stored_name(statement.tables.at(0)), one.table) << one.text;
        EXPECT_EQ(statement.grantee, one.grantee) << one.text;
    }
}

TEST(Revoke, takes_from_where_grant_takes_to)
{
    EXPECT_EQ(grant_of("revoke all on T from \"bob\"").kind, StatementKind::revoke);
    EXPECT_TRUE(std::string(translated("revoke all on T to bob")).starts_with("problem"));
    EXPECT_TRUE(std::string(translated("grant all on T from bob")).starts_with("problem"));
}

TEST(Grant, refuses_what_it_does_not_know)
{
    for (const char *text : {"grant", "grant all", "grant all on", "grant all on T", "grant all on T to",
                             "grant all on T to a, b", "grant all on T to bob with grant option",
                             "grant execute on T to bob", "grant all on A.B.C.D to bob", "grant all on \"\" to bob",
                             "grant all on 'T' to bob", "grant all on T to 'bob'", "grant , on T to bob", "grant select,", "grant all on .T to bob",
                             "grant all on C. to bob", "grant all on C.", "grant all on C..", "grant all on C.S.'T' to bob"})
        EXPECT_TRUE(std::string(translated(text)).starts_with("problem")) << text;
}
