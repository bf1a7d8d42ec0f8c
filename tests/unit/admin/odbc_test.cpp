#include "admin/odbc.h"

#include "admin/output_column.h"
#include "failing_odbc.h"
#include "source_fixture.h"

#include <sql.h>
#include <sqlext.h>

namespace {

using Odbc = SourceFixture;

TEST(Succeeded, is_true_for_success_with_and_without_information_only)
{
    EXPECT_TRUE(succeeded(SQL_SUCCESS));
    EXPECT_TRUE(succeeded(SQL_SUCCESS_WITH_INFO));
    for (SQLRETURN result : {SQL_NO_DATA, SQL_ERROR, SQL_INVALID_HANDLE, SQL_NEED_DATA, SQL_STILL_EXECUTING})
        EXPECT_FALSE(succeeded(result)) << result;
}

TEST(DiagnosticText, of_a_handle_that_was_never_allocated_is_a_fixed_text)
{
    EXPECT_STREQ(diagnostic_text(SQL_HANDLE_DBC, nullptr).text, "no diagnostic available");
}

TEST_F(Odbc, a_failure_is_described_with_the_call_and_the_diagnostic)
{
    ASSERT_EQ(connect(), 0);
    EXPECT_FALSE(execute(context.stmt, "select * from nosuch"));
    std::string diagnostic = diagnostic_text(SQL_HANDLE_STMT, context.stmt).text;
    EXPECT_NE(diagnostic.find("nosuch"), std::string::npos);
    describe_failure(page, "SQLTables", SQL_HANDLE_STMT, context.stmt);
    EXPECT_EQ(std::string(page.text), "SQLTables failed with " + diagnostic + "\n");
}

TEST_F(Odbc, markup_in_a_diagnostic_is_escaped)
{
    ASSERT_EQ(connect(), 0);
    EXPECT_FALSE(execute(context.stmt, "select * from \"<b>&\""));
    describe_failure(page, "SQLTables", SQL_HANDLE_STMT, context.stmt);
    EXPECT_NE(std::string(page.text).find("&lt;b&gt;&amp;"), std::string::npos) << page.text;
    EXPECT_EQ(std::string(page.text).find('<'), std::string::npos) << page.text;
}

TEST_F(Odbc, a_column_of_254_characters_is_whole_and_one_of_255_is_not)
{
    ASSERT_EQ(connect(), 0);
    for (int length : {254, 255}) {
        std::string query = "select '" + std::string(size_t(length), 'x') + "' from nordvale.system.sysinfo";
        ASSERT_TRUE(execute(context.stmt, query.c_str()));
        ASSERT_TRUE(succeeded(SQLFetch(context.stmt)));
        ColumnText text;
        EXPECT_EQ(read_column(context.stmt, 1, text), length == 254 ? Reading::whole : Reading::cut);
        EXPECT_EQ(std::string(text), std::string(254, 'x'));
        SQLCloseCursor(context.stmt);
    }
}

TEST_F(Odbc, a_column_of_unknown_length_is_not_whole)
{
    ASSERT_EQ(connect(), 0);
    ASSERT_TRUE(execute(context.stmt, "select 'text' from nordvale.system.sysinfo"));
    ASSERT_TRUE(succeeded(SQLFetch(context.stmt)));
    let_length_be_unknown();
    ColumnText text;
    EXPECT_EQ(read_column(context.stmt, 1, text), Reading::cut);
    EXPECT_STREQ(text, "text");
}

TEST_F(Odbc, a_null_column_is_whole_and_empty)
{
    ASSERT_EQ(connect(), 0);
    ASSERT_TRUE(execute(context.stmt, "select null from nordvale.system.sysinfo"));
    ASSERT_TRUE(succeeded(SQLFetch(context.stmt)));
    ColumnText text = "left";
    SQLLEN indicator = 5;
    EXPECT_EQ(read_column(context.stmt, 1, text, &indicator), Reading::whole);
    EXPECT_STREQ(text, "");
    EXPECT_EQ(indicator, SQL_NULL_DATA);
}

TEST_F(Odbc, a_column_that_cannot_be_read_is_not_whole)
{
    ColumnText text = "left";
    SQLLEN indicator = 5;
    EXPECT_EQ(read_column(nullptr, 1, text, &indicator), Reading::failed);
    EXPECT_STREQ(text, "");
    EXPECT_EQ(indicator, 0);
}

TEST_F(Odbc, a_shown_column_is_its_text)
{
    ASSERT_EQ(connect(), 0);
    ASSERT_TRUE(execute(context.stmt, "select 'shown', '' from nordvale.system.sysinfo"));
    ASSERT_TRUE(succeeded(SQLFetch(context.stmt)));
    ColumnText text;
    read_shown_column(context.stmt, 1, text);
    EXPECT_STREQ(text, "shown");
    read_shown_column(context.stmt, 2, text);
    EXPECT_STREQ(text, "");
}

struct ColumnCase {
    const char *value, *shown, *copied;
};

constexpr ColumnCase column_cases[] = {
    {"'plain'", "plain", "plain"},
    {"null", "&nbsp;", "&nbsp;"},
    {"''", "&nbsp;", "&nbsp;"},
    {"'<b>&%s%n'", "&lt;b&gt;&amp;%s%n", "<b>&%s%n"},
};

TEST_F(Odbc, output_column_appends_the_value_as_text_and_copies_it)
{
    ASSERT_EQ(connect(), 0);
    for (const ColumnCase &column : column_cases) {
        std::string query = std::string("select ") + column.value + " from nordvale.system.sysinfo";
        for (bool copying : {false, true}) {
            ASSERT_TRUE(execute(context.stmt, query.c_str()));
            ASSERT_TRUE(succeeded(SQLFetch(context.stmt)));
            ColumnText copy = "left";
            set_page(page, "");
            output_column(context, context.stmt, 1, page, copying ? &copy : nullptr);
            EXPECT_STREQ(page.text, column.shown);
            EXPECT_STREQ(copy, copying ? column.copied : "left");
            SQLCloseCursor(context.stmt);
        }
    }
}

TEST_F(Odbc, a_freed_statement_is_null)
{
    ASSERT_EQ(connect(), 0);
    free_statement(context.stmt);
    EXPECT_EQ(context.stmt, nullptr);
    free_statement(context.stmt);
    EXPECT_EQ(context.stmt, nullptr);
}

}
