#include "admin/datasource.h"

#include "common/text.h"
#include "same_bytes.h"
#include "source_fixture.h"

#include <fstream>

namespace {

class Chooser : public SourceFixture {
protected:
    void list(const char *odbc_ini) { std::ofstream(folder + "/odbc.ini") << odbc_ini; }
};

TEST_F(Chooser, of_a_connected_page_has_a_refresh_button_and_selects_the_posted_source)
{
    list("[first]\nDriver=NORDVALE_ISAM\n[other]\nDriver=Foreign\n[second]\nDriver=tabrin\n");
    Form form = {{"datasource", "SECOND"}, {"initial_datasource", "first"}};
    EXPECT_EQ(output_datasource(context, page, form, "datasource"), 0);
    EXPECT_STREQ(datasource, "SECOND");
    EXPECT_BYTES("<tr>\n"
                 "<td nowrap bgcolor=#0a1965><font size=-1 color=#fdb025><strong>Datasource</strong></font></td>\n"
                 "<td bgcolor=#FFFFFF nowrap><font size=2>\n<select name=datasource size=1>\n"
                 "<option value=\"first\">first</option>\n"
                 "<option selected value=\"second\">second</option>\n"
                 "</select>\n"
                 "<input type=hidden name=last_datasource value=SECOND></font></td>\n\n"
                 "<td bgcolor=#FFFFFF nowrap><font size=2>\n"
                 "<input type=submit name=datasource_refresh value=\"Refresh\"></font></td>\n\n"
                 "</tr>\n",
                 page.text);
}

TEST_F(Chooser, of_the_landing_page_preselects_the_first_source_of_interest)
{
    list("[foreign]\nDriver=Foreign\n[first]\nDriver=Nordvale_Isam\n[second]\nDriver=NORDVALE_ISAM\n");
    EXPECT_EQ(output_datasource(context, page, nullptr, "initial_datasource"), 0);
    EXPECT_STREQ(datasource, "first");
    std::string text = page.text;
    EXPECT_NE(text.find("<option selected value=\"first\">first</option>\n<option value=\"second\">second</option>\n"),
              std::string::npos) << text;
    EXPECT_EQ(text.find("datasource_refresh"), std::string::npos);
}

TEST_F(Chooser, without_any_source_is_empty)
{
    list("");
    copy_text(datasource, "left over");
    EXPECT_EQ(output_datasource(context, page, nullptr, "initial_datasource"), 0);
    EXPECT_STREQ(datasource, "");
    EXPECT_NE(std::string(page.text).find("size=1>\n</select>\n<input type=hidden name=last_datasource value=></font></td>"),
              std::string::npos) << page.text;
}

TEST_F(Chooser, takes_the_initial_source_where_no_other_is_posted)
{
    Form form = {{"initial_datasource", "sample"}};
    EXPECT_EQ(output_datasource(context, page, form, "datasource"), 0);
    EXPECT_STREQ(datasource, "sample");
}

TEST_F(Chooser, refuses_a_posted_name_that_does_not_fit)
{
    std::string name(column_size, 'x');
    Form form = {{"datasource", name.c_str()}};
    EXPECT_EQ(output_datasource(context, page, form, "datasource"), -1);
    EXPECT_BYTES(error_page("Data source name is too long.\n"), connection.received());
}

TEST_F(Chooser, keeps_markup_in_a_posted_name_from_becoming_markup)
{
    Form form = {{"datasource", "a><b \"'`="}};
    output_datasource(context, page, form, "datasource");
    EXPECT_NE(std::string(page.text).find("value=a&gt;&lt;b &quot;&#39;&#96;&#61;></font>"), std::string::npos) << page.text;
}

}
