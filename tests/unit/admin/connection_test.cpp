#include "admin/connection.h"

#include "admin/odbc.h"
#include "common/text.h"
#include "failing_odbc.h"
#include "same_bytes.h"
#include "source_fixture.h"

#include <sql.h>

namespace {

using Connection = SourceFixture;

constexpr char administrator_query[] = "select \"VALUE\" from nordvale.system.sysinfo where attribute = 'dbo_user';";

TEST(UriSetup, leaves_the_environment_alone_and_clears_the_other_handles)
{
    RequestRecord request;
    int marker;
    PageContext context = {&marker, &marker, &marker, &marker, nullptr, nullptr, nullptr, ""};
    EXPECT_EQ(uri_setup(context, nullptr, &request), 0);
    EXPECT_EQ(context.env, &marker);
    EXPECT_EQ(context.dbc, nullptr);
    EXPECT_EQ(context.stmt, nullptr);
    EXPECT_EQ(context.stmt2, nullptr);
    EXPECT_EQ(context.request, &request);
    EXPECT_NE(context.registry, nullptr);
    close_registry(context.registry);
}

TEST_F(Connection, reads_the_administrator_and_leaves_two_fresh_statements)
{
    forget_statements();
    ASSERT_EQ(connect(), 0);
    EXPECT_STREQ(context.dbo_user, administrator);
    EXPECT_EQ(statements(), (std::vector<std::string>{"{connect}", administrator_query}));
    EXPECT_TRUE(execute(context.stmt, "select username from nordvale.system.user"));
    EXPECT_TRUE(execute(context.stmt2, "select username from nordvale.system.user"));
    EXPECT_EQ(connection.received(), "");
}

TEST_F(Connection, is_not_made_twice)
{
    ASSERT_EQ(connect(), 0);
    SQLHDBC first = context.dbc;
    forget_statements();
    ASSERT_EQ(connect(), 0);
    EXPECT_EQ(context.dbc, first);
    EXPECT_EQ(statements(), std::vector<std::string>{administrator_query});
}

TEST_F(Connection, failure_is_only_returned_without_report)
{
    EXPECT_EQ(connect(administrator, "wrong"), -1);
    EXPECT_EQ(std::string(page.text).rfind("SQLDriverConnect failed with ", 0), 0u) << page.text;
    EXPECT_NE(std::string(page.text).find("Invalid user and or password specified"), std::string::npos) << page.text;
    EXPECT_EQ(connection.received(), "");
}

TEST_F(Connection, failure_is_an_error_page_with_report)
{
    connect(administrator, "wrong");
    EXPECT_LT(uri_connect(context, page, 1), 0);
    SQLHDBC unconnected = context.dbc;
    EXPECT_NE(unconnected, nullptr);
    uri_disconnect(context, page.text);
    uri_setup(context, page.text, &request);
    connection.received();
    EXPECT_LT(uri_connect(context, page, 1), 0);
    EXPECT_BYTES(error_page(page.text), connection.received());
}

TEST_F(Connection, without_a_data_source_ends_in_the_error_page_even_without_report)
{
    datasource[0] = 0;
    EXPECT_EQ(uri_connect(context, page, 0), -1);
    EXPECT_STREQ(page.text, "SQLAllocHandle failed with no diagnostic available\n");
    EXPECT_BYTES(error_page(page.text), connection.received());
}

TEST_F(Connection, refuses_a_data_source_name_that_would_end_its_field)
{
    for (const char *name : {"sample;uid=x", "{sample}", "sample}"}) {
        forget_statements();
        copy_text(datasource, name);
        EXPECT_EQ(uri_connect(context, page, 0), -1) << name;
        EXPECT_STREQ(page.text, "Data source name cannot contain ; { or }.\n");
        EXPECT_TRUE(statements().empty()) << name;
    }
}

TEST_F(Connection, takes_any_password_as_one_value)
{
    run({"insert into nordvale.system.user (username, password, description) values ('odd', '', '')"});
    for (const char *password : {"a;uid=admin", "{", "}", "a}b", "{a}", " blank ", "a=b", "pwd='\"", "}};{"}) {
        std::string quoted;
        for (const char *c = password; *c; c++)
            quoted += *c == '\'' ? "''" : std::string(1, *c);
        std::string update = "update nordvale.system.user set password = '" + quoted + "' where username = 'odd'";
        run({update.c_str()});
        EXPECT_EQ(connect("odd", password), 0) << password << ": " << page.text;
        uri_disconnect(context, page.text);
        uri_setup(context, page.text, &request);
    }
}

TEST_F(Connection, takes_the_longest_user_and_password_in_braces)
{
    std::string longest(column_size - 1, '}');
    EXPECT_EQ(connect(longest.c_str(), longest.c_str()), -1);
    EXPECT_NE(std::string(page.text).find("Invalid user and or password specified"), std::string::npos) << page.text;
}

TEST_F(Connection, reset_gives_fresh_statements)
{
    ASSERT_EQ(connect(), 0);
    ASSERT_TRUE(execute(context.stmt, "select username from nordvale.system.user"));
    EXPECT_EQ(uri_reset(context, page), 0);
    EXPECT_FALSE(succeeded(SQLFetch(context.stmt)));
    EXPECT_TRUE(execute(context.stmt2, "select username from nordvale.system.user"));
}

TEST_F(Connection, reset_without_a_connection_ends_in_the_error_page)
{
    EXPECT_EQ(uri_reset(context, page), -1);
    EXPECT_STREQ(page.text, "SQLAllocHandle failed with no diagnostic available\n");
    EXPECT_BYTES(error_page(page.text), connection.received());
}

TEST_F(Connection, that_lacks_a_handle_is_an_error_page_with_report_only)
{
    struct {
        SQLSMALLINT type;
        int number;
    } cases[] = {{SQL_HANDLE_DBC, 1}, {SQL_HANDLE_STMT, 1}, {SQL_HANDLE_STMT, 2}};
    copy_text(datasource, "sample");
    copy_text(logonuser, administrator);
    copy_text(logonauth, administrator_password);
    for (auto &c : cases)
        for (int report : {0, 1}) {
            let_allocation_fail(c.type, c.number);
            EXPECT_EQ(uri_connect(context, page, report), -1);
            EXPECT_STREQ(page.text, failed_allocation);
            EXPECT_BYTES(report ? error_page(failed_allocation) : "", connection.received());
            EXPECT_NE(context.env, nullptr);
            EXPECT_EQ(context.dbc != nullptr, c.type == SQL_HANDLE_STMT);
            EXPECT_EQ(context.stmt2, nullptr);
            uri_disconnect(context, page.text);
            uri_setup(context, page.text, &request);
        }
}

TEST_F(Connection, that_gets_no_statement_behind_the_administrator_query_is_an_error_page_even_without_report)
{
    let_allocation_fail(SQL_HANDLE_STMT, 3);
    EXPECT_EQ(connect(), -1);
    EXPECT_STREQ(page.text, failed_allocation);
    EXPECT_BYTES(error_page(failed_allocation), connection.received());
    EXPECT_STREQ(context.dbo_user, administrator);
    EXPECT_EQ(context.stmt, nullptr);
}

TEST_F(Connection, that_has_ended_is_told_in_the_connection_s_own_words)
{
    ASSERT_EQ(connect(), 0);
    SQLDisconnect(context.dbc);
    context.stmt = context.stmt2 = nullptr;
    for (int (*procedure)(PageContext &, PageBuffer &) :
         {uri_reset, +[](PageContext &c, PageBuffer &message) { return uri_connect(c, message, 0); }}) {
        set_page(page, "");
        EXPECT_EQ(procedure(context, page), -1);
        std::string message = page.text;
        EXPECT_EQ(message.rfind("SQLAllocHandle failed with [unixODBC]", 0), 0u) << message;
        std::string diagnostic = diagnostic_text(SQL_HANDLE_DBC, context.dbc).text;
        EXPECT_EQ(message, "SQLAllocHandle failed with " + diagnostic + "\n");
        EXPECT_BYTES(error_page(message), connection.received());
    }
}

TEST_F(Connection, reset_fails_when_either_statement_does)
{
    ASSERT_EQ(connect(), 0);
    for (int number : {1, 2}) {
        let_allocation_fail(SQL_HANDLE_STMT, number);
        EXPECT_EQ(uri_reset(context, page), -1);
        EXPECT_STREQ(page.text, failed_allocation);
        EXPECT_BYTES(error_page(failed_allocation), connection.received());
    }
}

TEST_F(Connection, disconnect_makes_every_handle_null_and_can_be_repeated)
{
    ASSERT_EQ(connect(), 0);
    for (int i = 0; i < 2; i++) {
        EXPECT_EQ(uri_disconnect(context, page.text), 0);
        EXPECT_EQ(context.env, nullptr);
        EXPECT_EQ(context.dbc, nullptr);
        EXPECT_EQ(context.stmt, nullptr);
        EXPECT_EQ(context.stmt2, nullptr);
        EXPECT_EQ(context.registry, nullptr);
    }
}

}
