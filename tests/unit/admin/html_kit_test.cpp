#include "admin/html_kit.h"

#include <cstring>
#include <gtest/gtest.h>

namespace {

struct Fragment {
    const char *actual, *expected;
};

const Fragment fragments[] = {
    {HEADER_TDBEGIN, "<td nowrap bgcolor=#0a1965><font size=-1 color=#fdb025><strong>"},
    {HEADER_TDBEGIN_CENTER, "<td nowrap bgcolor=#0a1965 align=center><font size=-1 color=#fdb025><strong>"},
    {HEADER_TDBEGIN_CENTER_2, "<td nowrap bgcolor=#0a1965 align=center colspan=2><font size=-1 color=#fdb025><strong>"},
    {HEADER_TDBEGIN_CENTER_3, "<td nowrap bgcolor=#0a1965 align=center colspan=3><font size=-1 color=#fdb025><strong>"},
    {HEADER_TDEND, "</strong></font></td>"},
    {DETAIL_TDBEGIN, "<td bgcolor=#FFFFFF nowrap><font size=2>\n"},
    {DETAIL_TDBEGIN_CENTER, "<td bgcolor=#FFFFFF align=center nowrap><font size=2>\n"},
    {DETAIL_TDBEGIN_CENTER_NOFONT, "<td bgcolor=#FFFFFF align=center nowrap>\n"},
    {DETAIL_TDEND, "</font></td>\n"},
    {DETAIL_TDEND_NOFONT, "</td>\n"},
    {TABLE_BEGIN, "<table border=0 cellpadding=2 cellspacing=0 bgcolor=#0A1965>\n <tr>\n  <td>\n   <table border=0 "
                  "cellpadding=2 cellspacing=1>\n"},
    {TABLE_BEGIN_NOBORDER, "<table border=0 cellpadding=2 cellspacing=0 bgcolor=#FFFFFF>\n <tr>\n  <td>\n   <table "
                           "border=0 cellpadding=2 cellspacing=1>\n"},
    {TABLE_BEGIN_NOBORDER_CENTER, "<table align=center border=0 cellpadding=2 cellspacing=0 bgcolor=#FFFFFF>\n <tr>\n"
                                  "  <td>\n   <table border=0 cellpadding=2 cellspacing=1>\n"},
    {TABLE_BEGIN_CENTER, "<table align=center border=0 cellpadding=2 cellspacing=0 bgcolor=#0A1965>\n <tr>\n  <td>\n"
                         "   <table border=0 cellpadding=2 cellspacing=1>\n"},
    {TABLE_END, "   </table>\n  </td>\n </tr>\n</table>\n"},
    {BODY_BEGIN, "<body bgcolor=#FFFFFF text=#000000 link=#0A1965 alink=#0A1965 vlink=#0A1965>"},
    {BODY_END, "</body>"},
    {HTML_BEGIN, ""},
    {HTML_END, ""},
};

TEST(HtmlKit, fragments_are_what_style_sheets_match)
{
    for (const Fragment &fragment : fragments)
        EXPECT_STREQ(fragment.actual, fragment.expected);
}

TEST(HtmlKit, no_fragment_holds_a_percent_sign_so_each_can_be_a_format)
{
    for (const Fragment &fragment : fragments)
        EXPECT_EQ(strchr(fragment.actual, '%'), nullptr) << fragment.actual;
}

}
