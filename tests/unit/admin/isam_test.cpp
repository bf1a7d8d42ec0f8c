#include "server/application.h"

#include "common/text.h"
#include "failing_odbc.h"
#include "same_bytes.h"
#include "source_fixture.h"

#include <cstring>

namespace {

using ValidateUser = SourceFixture;
using UriIsam = SourceFixture;

TEST_F(ValidateUser, accepts_the_administrator_in_any_letter_case)
{
    Form form = {{"datasource", "sample"}};
    EXPECT_EQ(validate_user("ADMIN", administrator_password, page, &request, form), 0);
    EXPECT_STREQ(logonuser, "ADMIN");
    EXPECT_STREQ(logonauth, administrator_password);
    EXPECT_STREQ(datasource, "sample");
    EXPECT_EQ(connection.received(), "");
}

TEST_F(ValidateUser, refuses_another_user_of_the_database)
{
    run({"insert into nordvale.system.user (username, password, description) values ('anna', 'a', '')"});
    Form form = {{"datasource", "sample"}};
    EXPECT_EQ(validate_user("anna", "a", page, &request, form), -1);
    EXPECT_EQ(connection.received(), "");
}

TEST_F(ValidateUser, refuses_a_wrong_password_and_an_empty_user)
{
    Form form = {{"datasource", "sample"}};
    EXPECT_EQ(validate_user(administrator, "wrong", page, &request, form), -1);
    EXPECT_EQ(validate_user("", "", page, &request, form), -1);
    EXPECT_EQ(connection.received(), "");
}

TEST_F(ValidateUser, clears_the_message_where_there_is_nothing_to_tell)
{
    Form form = {{"datasource", "sample"}};
    set_page(page, "left over");
    EXPECT_EQ(validate_user(administrator, administrator_password, page, &request, form), 0);
    EXPECT_STREQ(page.text, "");
}

TEST_F(ValidateUser, takes_the_initial_data_source_before_the_other)
{
    Form form = {{"datasource", "missing"}, {"initial_datasource", "sample"}};
    EXPECT_EQ(validate_user(administrator, administrator_password, page, &request, form), 0);
}

TEST_F(ValidateUser, answers_any_other_failure_with_an_error_page)
{
    Form form = {{"datasource", "missing"}};
    EXPECT_EQ(validate_user(administrator, administrator_password, page, &request, form), -2);
    EXPECT_EQ(std::string(page.text).rfind("SQLDriverConnect failed with ", 0), 0u) << page.text;
    EXPECT_BYTES(error_page(page.text), connection.received());
}

TEST_F(ValidateUser, refuses_a_form_without_a_data_source)
{
    Form form = {{"users.x", "1"}};
    EXPECT_EQ(validate_user(administrator, administrator_password, page, &request, form), -1);
    EXPECT_STREQ(page.text, "No datasource specified.\n");
}

TEST_F(ValidateUser, answers_texts_that_do_not_fit_with_an_error_page)
{
    std::string fits(column_size - 1, 'x'), too_long(column_size, 'x');
    struct {
        const char *user, *password, *source;
    } cases[] = {{too_long.c_str(), "p", "sample"}, {"u", too_long.c_str(), "sample"}, {"u", "p", too_long.c_str()}};
    for (auto &c : cases) {
        Form form = {{"datasource", c.source}};
        EXPECT_EQ(validate_user(c.user, c.password, page, &request, form), -2);
        EXPECT_BYTES(error_page("User name, password or data source name is too long.\n"), connection.received());
    }
    Form form = {{"datasource", "sample"}};
    EXPECT_EQ(validate_user(fits.c_str(), fits.c_str(), page, &request, form), -1);
}

TEST_F(UriIsam, tells_the_length_of_the_landing_page)
{
    int length = page_size;
    EXPECT_EQ(uri_isam(nullptr, &request, page, &length, nullptr), 0);
    EXPECT_EQ(length, int(strlen(page.text)));
    // What had no room beside the footer has been sent.
    EXPECT_NE((connection.received() + page.text).find("<form method=POST action=/isam.cgi>"), std::string::npos);
}

TEST_F(UriIsam, passes_a_failed_connection_up)
{
    logonuser[0] = logonauth[0] = 0;
    Form form = {{"datasource", "sample"}, {"users.x", "1"}};
    int length = page_size;
    EXPECT_LT(uri_isam(nullptr, &request, page, &length, form), 0);
    EXPECT_EQ(length, page_size);
    EXPECT_BYTES(error_page(page.text), connection.received());
}

TEST_F(UriIsam, shows_nothing_to_a_user_of_the_data_source_who_is_not_its_administrator)
{
    run({"insert into nordvale.system.user (username, password, description) values ('anna', 'a', '')"});
    copy_text(logonuser, "anna");
    copy_text(logonauth, "a");
    Form form = {{"datasource", "sample"}, {"users.x", "1"}};
    int length = page_size;
    EXPECT_LT(uri_isam(nullptr, &request, page, &length, form), 0);
    EXPECT_BYTES(error_page("Only the administrator of the data source can work with it.\n"), connection.received());
}

TEST_F(UriIsam, shows_the_page_to_the_administrator_in_any_letter_case)
{
    copy_text(logonuser, "Admin");
    copy_text(logonauth, administrator_password);
    Form form = {{"datasource", "sample"}, {"reports.x", "1"}};
    int length = page_size;
    EXPECT_EQ(uri_isam(nullptr, &request, page, &length, form), 0);
    EXPECT_EQ(length, int(strlen(page.text)));
}

// How many statements a page allocates before one can be missing without ending it: three for the connection, two for
// the page, two for each procedure that follows. Those of the privilege list are not counted.
struct StatementsOfPage {
    const char *page_field, *button;
    int count;
};

constexpr StatementsOfPage statements_of_pages[] = {
    {"reports.x", "", 5},
    {"users.x", "", 7},
    {"users.x", "submit_users", 11},
    {"rights.x", "", 9},
    {"rights.x", "rights_grant", 11},
    {"rights.x", "rights_revoke", 11},
    {"rights.x", "submit_selection", 11},
};

TEST_F(UriIsam, without_one_of_its_statements_is_one_error_page_and_no_length)
{
    copy_text(logonuser, administrator);
    copy_text(logonauth, administrator_password);
    for (const StatementsOfPage &statements : statements_of_pages) {
        Form form = {{"datasource", "sample"}, {statements.page_field, "1"}, {statements.button, "pressed"}};
        for (int number = 1; number <= statements.count; number++) {
            let_allocation_fail(SQL_HANDLE_STMT, number);
            int length = page_size;
            EXPECT_EQ(uri_isam(nullptr, &request, page, &length, form), -1) << statements.button << number;
            EXPECT_EQ(length, page_size);
            EXPECT_BYTES(error_page(failed_allocation), connection.received());
        }
    }
}

TEST_F(UriIsam, goes_on_behind_a_privilege_list_without_a_statement)
{
    copy_text(logonuser, administrator);
    copy_text(logonauth, administrator_password);
    Form form = {{"datasource", "sample"}, {"rights.x", "1"}};
    for (int number : {10, 11}) {
        let_allocation_fail(SQL_HANDLE_STMT, number);
        int length = page_size;
        EXPECT_EQ(uri_isam(nullptr, &request, page, &length, form), 0);
        EXPECT_EQ(length, int(strlen(page.text)));
        EXPECT_EQ((connection.received() + page.text).rfind(error_page(failed_allocation) + failed_allocation, 0), 0u);
    }
}

TEST_F(UriIsam, answers_a_form_without_data_source_with_a_bare_page)
{
    Form form = {{"users.x", "1"}};
    EXPECT_EQ(refuse_without_datasource(&request, form), -1);
    EXPECT_BYTES(error_page("No datasource specified, re-select<br>"), connection.received());
}

}
