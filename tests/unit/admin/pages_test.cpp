#include "admin/connection.h"
#include "admin/page_frame.h"
#include "admin/rights.h"
#include "admin/users.h"
#include "common/text.h"
#include "failing_odbc.h"
#include "same_bytes.h"
#include "server/template.h"
#include "source_fixture.h"

#include <cstring>
#include <fstream>

namespace {

class Pages : public SourceFixture {
protected:
    Pages()
    {
        run({"insert into nordvale.system.user (username, password, description) values ('bert', 'b', 'Stock')",
             "insert into nordvale.system.user (username, password, description) values ('anna', 'a', 'Sales')"});
        EXPECT_EQ(connect(), 0);
        copy_text(isamuser, "");
        set_page(page, "");
        forget_statements();
    }
};

TEST_F(Pages, output_user_offers_everybody_but_the_administrator_and_takes_the_first)
{
    Form form = {{"rights.x", "1"}};
    EXPECT_EQ(output_user(context, page, form), 0);
    EXPECT_STREQ(isamuser, "anna");
    EXPECT_NE(std::string(page.text).find("<option selected value=\"anna\">anna</option>\n"
                                     "<option value=\"bert\">bert</option>\n"
                                     "<option value=\"public\">public</option>\n</select>\n"),
              std::string::npos) << page.text;
}

TEST_F(Pages, output_user_keeps_the_posted_user_only_for_the_same_data_source)
{
    struct {
        const char *last_datasource, *chosen;
    } cases[] = {{"sample", "bert"}, {"Sample", "anna"}, {"other", "anna"}};
    for (auto &c : cases) {
        Form form = {{"isamuser", "bert"}, {"last_datasource", c.last_datasource}};
        EXPECT_EQ(output_user(context, page, form), 0);
        EXPECT_STREQ(isamuser, c.chosen) << c.last_datasource;
    }
    Form without_source = {{"isamuser", "bert"}};
    EXPECT_EQ(output_user(context, page, without_source), 0);
    EXPECT_STREQ(isamuser, "anna");
}

TEST_F(Pages, output_user_refuses_a_posted_user_that_does_not_fit)
{
    std::string name(column_size, 'x');
    Form form = {{"isamuser", name.c_str()}, {"last_datasource", "sample"}};
    EXPECT_EQ(output_user(context, page, form), -1);
    EXPECT_STREQ(isamuser, "");
    EXPECT_BYTES(error_page("User name is too long.\n"), connection.received());
}

TEST_F(Pages, output_user_is_an_empty_chooser_where_the_users_cannot_be_read)
{
    uri_disconnect(context, page.text);
    uri_setup(context, page.text, &request);
    ASSERT_EQ(connect("anna", "a"), 0);
    for (const char *posted : {"", "bert"}) {
        set_page(page, "");
        Form form = {{"isamuser", posted}, {"last_datasource", "sample"}};
        EXPECT_EQ(output_user(context, page, form), 0);
        EXPECT_STREQ(isamuser, posted);
        EXPECT_NE(std::string(page.text).find("<select name=isamuser size=1>\n</select>\n"), std::string::npos) << page.text;
    }
    EXPECT_EQ(connection.received(), "");
}

TEST_F(Pages, display_rights_ends_before_the_list_where_its_button_failed)
{
    for (const char *button : {"rights_revoke", "rights_grant", "submit_selection"}) {
        Form form = {{button, "pressed"}};
        let_tables_fail();
        EXPECT_EQ(display_rights(context, page, form), -1);
        EXPECT_STREQ(page.text, failed_tables);
        EXPECT_BYTES(error_page(page.text), connection.received());
    }
    EXPECT_TRUE(statements().empty());
}

TEST_F(Pages, display_rights_list_fails_on_a_user_name_with_a_quote)
{
    copy_text(isamuser, "o'hara");
    EXPECT_EQ(display_rights_list(context, page), -1);
    EXPECT_EQ(std::string(page.text).rfind("SQLTables failed with ", 0), 0u) << page.text;
    EXPECT_BYTES(error_page(page.text), connection.received());
}

TEST_F(Pages, display_rights_goes_on_behind_a_list_that_failed)
{
    copy_text(isamuser, "o'hara");
    Form form = {{"rights.x", "1"}};
    EXPECT_EQ(display_rights(context, page, form), 0);
    char help[template_size] = "";
    load_template("rightshelp.html", help, sizeof help, &request);
    EXPECT_EQ(std::string(page.text).rfind("SQLTables failed with ", 0), 0u);
    EXPECT_NE(std::string(page.text).find(help), std::string::npos);
}

TEST_F(Pages, submit_users_changes_nothing_for_a_form_of_the_stored_values)
{
    Form form = {{"anna_file", "Sales"}, {"anna_password", "a"}, {"bert_file", "Stock"}, {"bert_password", "b"},
                 {"admin_file", "Administrator"}, {"admin_password", ""}, {"admin_oldpassword", ""}, {"__newuser", ""}};
    EXPECT_EQ(submit_users(context, page, form), 0);
    EXPECT_EQ(statements(), std::vector<std::string>{
                                "select username, description, password from nordvale.system.user order by 1;"});
}

TEST_F(Pages, submit_users_goes_on_behind_a_deleted_user_whose_privileges_cannot_be_revoked)
{
    Form form = {{"anna_checkbox", "OFF"}, {"bert_file", "Store"}, {"__newuser", "carl"}};
    let_tables_fail();
    EXPECT_EQ(submit_users(context, page, form), 0);
    EXPECT_STREQ(page.text, failed_tables);
    EXPECT_BYTES(error_page(failed_tables), connection.received());
    EXPECT_EQ(statements(),
              (std::vector<std::string>{
                  "select username, description, password from nordvale.system.user order by 1;",
                  "delete from nordvale.system.user where username = 'anna'",
                  "update nordvale.system.user set password='b', description='Store' where username='bert';",
                  "insert into nordvale.system.user (username, password, description) values ('carl','','');"}));
}

TEST_F(Pages, submit_users_leaves_the_refusal_of_a_new_name_in_the_message)
{
    Form form = {{"__newuser", "o'hara"}};
    EXPECT_EQ(submit_users(context, page, form), -1);
    EXPECT_STREQ(page.text, "New username cannot contain '.");
    EXPECT_BYTES(error_page(page.text), connection.received());
}

TEST_F(Pages, submit_users_refuses_a_value_longer_than_its_column_for_that_row)
{
    std::string longest(column_size - 1, '\''), too_long(column_size, 'x');
    Form form = {{"anna_password", longest.c_str()}, {"bert_password", too_long.c_str()}};
    EXPECT_EQ(submit_users(context, page, form), -1);
    EXPECT_BYTES(error_page("Password or description is too long.\n"), connection.received());
    std::string doubled(2 * (column_size - 1), '\'');
    EXPECT_EQ(statements().back(),
              "update nordvale.system.user set password='" + doubled + "', description='Sales' where username='anna';");
}

TEST_F(Pages, submit_users_refuses_a_description_longer_than_its_column)
{
    std::string too_long(column_size, 'x');
    Form forms[] = {{{"anna_file", too_long.c_str()}}, {{"__newuser", "carl"}, {"__newfile", too_long.c_str()}}};
    for (Form &form : forms) {
        forget_statements();
        EXPECT_EQ(submit_users(context, page, form), -1);
        EXPECT_BYTES(error_page("Password or description is too long.\n"), connection.received());
        EXPECT_EQ(statements().size(), 1u);
    }
}

TEST_F(Pages, display_users_without_a_connection_ends_in_the_error_page)
{
    PageContext unconnected = {};
    uri_setup(unconnected, page.text, &request);
    EXPECT_LT(display_users(unconnected, page, nullptr), 0);
    EXPECT_BYTES(error_page("SQLAllocHandle failed with no diagnostic available\n"), connection.received());
    uri_disconnect(unconnected, page.text);
}

TEST_F(Pages, a_long_list_goes_out_in_pieces_as_soon_as_each_is_long_enough)
{
    for (int number = 0; number < 80; number++)
        run({("insert into nordvale.system.user (username, password, description) values ('user" +
              std::to_string(number) + "', 'p', 'd')").c_str()});
    SocketPair datagrams(SOCK_DGRAM);
    request.socket = datagrams.server();
    ASSERT_EQ(display_users(context, page, nullptr), 0);
    std::vector<std::string> pieces = datagrams.received_pieces();
    ASSERT_GE(pieces.size(), 2u);
    std::string whole;
    for (const std::string &piece : pieces) {
        // With the row that made it too long. The last one only made room for the help text.
        if (&piece != &pieces.back()) {
            EXPECT_GT(piece.size(), size_t(page_flush_length));
        }
        EXPECT_LT(piece.size(), size_t(page_flush_length) + 800);
        whole += piece;
    }
    whole += page.text;
    EXPECT_EQ(whole.rfind("<br>&nbsp;<br>\n<table border=0", 0), 0u);
    size_t rows = 0;
    for (size_t at = 0; (at = whole.find("_checkbox\" value=\"OFF\">", at)) != std::string::npos; at++)
        rows++;
    EXPECT_EQ(rows, 82u);
}

TEST_F(Pages, a_template_that_fits_behind_a_long_page_is_only_appended)
{
    set_page(page, std::string(page_flush_length + 1, 'p'));
    EXPECT_EQ(append_template(context, page, "menu.html"), 0);
    EXPECT_EQ(connection.received(), "");
    char menu[template_size] = "";
    load_template("menu.html", menu, sizeof menu, &request);
    EXPECT_BYTES(std::string(page_flush_length + 1, 'p') + menu, page.text);
}

TEST_F(Pages, a_template_that_does_not_fit_behind_the_page_goes_out_behind_it)
{
    set_page(page, std::string(page_size - 10, 'p'));
    EXPECT_EQ(append_template(context, page, "footer.html"), 0);
    EXPECT_EQ(connection.received(), std::string(page_size - 10, 'p'));
    char footer[template_size] = "";
    load_template("footer.html", footer, sizeof footer, &request);
    EXPECT_STREQ(page.text, footer);
}

TEST_F(Pages, a_template_that_is_missing_is_reported)
{
    EXPECT_EQ(append_template(context, page, "no_such_template.html"), -1);
    EXPECT_EQ(request.status, 404);
    EXPECT_NE(connection.received().find("Failed to open or read template"), std::string::npos);
}

}
