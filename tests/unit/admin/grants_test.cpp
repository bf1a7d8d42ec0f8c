#include "admin/grants.h"

#include "admin/connection.h"
#include "common/text.h"
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
    revoke_all(context, page, "public");
    revoke_all(context, page, "Public");
    Texts sent = statements();
    ASSERT_GE(sent.size(), 5u);
    EXPECT_EQ(sent[1], "revoke all on \"u\" from public");
    EXPECT_EQ(sent[4], "revoke all on \"u\" from \"Public\"");
}

TEST_F(Grants, double_quotes_in_a_user_name_are_doubled)
{
    revoke_all(context, page, "a\"b");
    EXPECT_EQ(statements()[1], "revoke all on \"u\" from \"a\"\"b\"");
}

TEST_F(Grants, without_a_connection_end_in_the_error_page)
{
    PageContext unconnected = {};
    uri_setup(unconnected, page, &request);
    EXPECT_LT(grant_all(unconnected, page), 0);
    EXPECT_BYTES(error_page("SQLAllocHandle failed with no diagnostic available\n"), connection.received());
    uri_disconnect(unconnected, page);
}

}
