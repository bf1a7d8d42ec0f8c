#include "admin/grants.h"

#include "admin/connection.h"
#include "admin/odbc.h"
#include "admin/table_name.h"
#include "common/text.h"
#include "failing_odbc.h"
#include "same_bytes.h"
#include "source_fixture.h"

namespace {

class Grants : public SourceFixture {
protected:
    Grants()
    {
        run({"create table c.s.t (a integer)", "create table u (a integer)",
             "insert into nordvale.system.user (username, password, description) values ('anna', 'a', '')"});
        EXPECT_EQ(connect(), 0);
        copy_text(isamuser, "anna");
        forget_statements();
    }
};

using Texts = std::vector<std::string>;

TEST_F(Grants, submit_selection_sends_four_statements_for_every_table)
{
    Form form = {{"u_select", ""}, {"c.s.t_delete", "OFF"}, {"u_drop", "ON"}};
    EXPECT_EQ(submit_selection(context, page, form), 0);
    EXPECT_EQ(statements(),
              (Texts{"{SQLTables}", "grant select on \"u\" to \"anna\"", "revoke insert on \"u\" from \"anna\"",
                     "revoke update on \"u\" from \"anna\"", "revoke delete on \"u\" from \"anna\"",
                     "revoke select on \"c\".\"s\".\"t\" from \"anna\"", "revoke insert on \"c\".\"s\".\"t\" from \"anna\"",
                     "revoke update on \"c\".\"s\".\"t\" from \"anna\"",
                     "grant delete on \"c\".\"s\".\"t\" to \"anna\""}));
}

TEST_F(Grants, submit_selection_finds_boxes_wherever_they_stand_in_the_form)
{
    Form form = {{"u_update", "ON"}, {"u", ""}, {"c.s.t_select_", ""}, {"U_insert", "ON"}, {"c.s.t_insert", "ON"},
                 {"u_update", "OFF"}, {"a", "u_delete"}, {"", ""}, {"c.s.t_", ""}, {"u_insert", ""}};
    EXPECT_EQ(submit_selection(context, page, form), 0);
    EXPECT_EQ(statements(),
              (Texts{"{SQLTables}", "revoke select on \"u\" from \"anna\"", "grant insert on \"u\" to \"anna\"",
                     "grant update on \"u\" to \"anna\"", "revoke delete on \"u\" from \"anna\"",
                     "revoke select on \"c\".\"s\".\"t\" from \"anna\"",
                     "grant insert on \"c\".\"s\".\"t\" to \"anna\"",
                     "revoke update on \"c\".\"s\".\"t\" from \"anna\"",
                     "revoke delete on \"c\".\"s\".\"t\" from \"anna\""}));
}

TEST_F(Grants, submit_selection_goes_on_behind_statements_that_fail)
{
    copy_text(isamuser, "nobody");
    Form form = {{"u_select", ""}, {"u_insert", ""}, {"u_update", ""}, {"u_delete", ""}};
    EXPECT_EQ(submit_selection(context, page, form), 0);
    EXPECT_EQ(statements().size(), 9u);
    EXPECT_EQ(connection.received(), "");
}

TEST_F(Grants, grant_all_grants_on_every_table)
{
    EXPECT_EQ(grant_all(context, page), 0);
    EXPECT_EQ(statements(),
              (Texts{"{SQLTables}", "grant all on \"u\" to \"anna\"", "grant all on \"c\".\"s\".\"t\" to \"anna\""}));
}

TEST_F(Grants, grant_all_ends_at_the_first_failure_without_a_message)
{
    copy_text(isamuser, "nobody");
    EXPECT_EQ(grant_all(context, page), 0);
    EXPECT_EQ(statements(), (Texts{"{SQLTables}", "grant all on \"u\" to \"nobody\""}));
    EXPECT_EQ(connection.received(), "");
}

TEST_F(Grants, revoke_all_takes_the_user_that_it_is_given)
{
    EXPECT_EQ(revoke_all(context, page, "bert"), 0);
    EXPECT_EQ(statements(),
              (Texts{"{SQLTables}", "revoke all on \"u\" from \"bert\"", "revoke all on \"c\".\"s\".\"t\" from \"bert\""}));
}

TEST_F(Grants, public_in_exactly_this_spelling_is_the_keyword)
{
    struct {
        const char *user, *statement;
    } cases[] = {{"public", "revoke all on \"u\" from public"},
                 {"Public", "revoke all on \"u\" from \"Public\""},
                 {"public2", "revoke all on \"u\" from \"public2\""},
                 {"publi", "revoke all on \"u\" from \"publi\""},
                 {" public", "revoke all on \"u\" from \" public\""},
                 {"", "revoke all on \"u\" from \"\""}};
    for (auto &c : cases) {
        forget_statements();
        revoke_all(context, page, c.user);
        ASSERT_GE(statements().size(), 2u);
        EXPECT_EQ(statements()[1], c.statement);
    }
}

TEST_F(Grants, double_quotes_in_a_user_name_are_doubled)
{
    revoke_all(context, page, "a\"b");
    EXPECT_EQ(statements()[1], "revoke all on \"u\" from \"a\"\"b\"");
}

TEST_F(Grants, without_the_list_of_tables_end_in_the_error_page_and_change_nothing)
{
    int (*operations[])(PageContext &, PageBuffer &) = {
        [](PageContext &c, PageBuffer &p) { return submit_selection(c, p, nullptr); },
        grant_all,
        [](PageContext &c, PageBuffer &p) { return revoke_all(c, p, "anna"); },
    };
    for (auto operation : operations) {
        set_page(page, "begun");
        let_tables_fail();
        EXPECT_EQ(operation(context, page), -1);
        EXPECT_STREQ(page.text, failed_tables);
        EXPECT_BYTES(error_page(failed_tables), connection.received());
    }
    EXPECT_TRUE(statements().empty());
}

TEST_F(Grants, the_longest_names_of_a_table_and_a_user_fit_into_a_statement_whole)
{
    std::string name(column_size - 1, '"'), user(2 * (column_size - 1) + 2, '"');
    std::string table = user + "." + user + "." + user, box = name + "." + name + "." + name + "_update";
    run({"drop table u", "drop table c.s.t", ("create table " + table + " (a integer)").c_str()});
    forget_statements();
    copy_text(isamuser, name.c_str());
    Form form = {{box.c_str(), ""}};
    submit_selection(context, page, form);
    revoke_all(context, page, name.c_str());
    std::string sent;
    for (const std::string &statement : statements())
        sent += statement + "\n";
    EXPECT_BYTES("{SQLTables}\nrevoke select on " + table + " from " + user + "\nrevoke insert on " + table + " from " +
                     user + "\ngrant update on " + table + " to " + user + "\nrevoke delete on " + table + " from " +
                     user + "\n{SQLTables}\nrevoke all on " + table + " from " + user + "\n",
                 sent);
}

TEST_F(Grants, take_a_null_part_of_a_table_s_name_for_an_empty_one)
{
    ASSERT_TRUE(execute(context.stmt, "select null, null, 't' from nordvale.system.sysinfo"));
    ASSERT_TRUE(succeeded(SQLFetch(context.stmt)));
    TableName name = {"left", "over", "here"};
    EXPECT_TRUE(read_table_name(context.stmt, name));
    EXPECT_STREQ(name.catalog, "");
    EXPECT_STREQ(name.schema, "");
    EXPECT_STREQ(name.table, "t");
}

TEST_F(Grants, without_a_connection_end_in_the_error_page)
{
    PageContext unconnected = {};
    uri_setup(unconnected, page.text, &request);
    EXPECT_LT(grant_all(unconnected, page), 0);
    EXPECT_BYTES(error_page("SQLAllocHandle failed with no diagnostic available\n"), connection.received());
    uri_disconnect(unconnected, page.text);
}

}
