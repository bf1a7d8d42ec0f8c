// The fragments that all administration pages are made of. None holds a "%", so each can stand alone as the format of
// an http_printf call.
//
// A table is an opener, rows and TABLE_END. Every opener opens two tables, an outer one of a single cell whose
// background shows through the inner one's cell spacing as grid lines; TABLE_END closes both. A cell is a begin
// fragment, its content and the end fragment of the same kind. The case of the colours differs between the fragments
// on purpose.

#pragma once

#include "admin/page_context.h"
#include "server/response.h"

// Appends one option of a select, `name` as its value and its label.
void output_option(int socket, PageBuffer &page, bool selected, const ColumnText &name);

// Puts a cell that opens with `begin` and shows nothing into a row.
void put_blank_cell(TextWriter &row, const char *begin);

inline constexpr const char *HEADER_TDBEGIN =
    "<td nowrap bgcolor=#0a1965><font size=-1 color=#fdb025><strong>";
inline constexpr const char *HEADER_TDBEGIN_CENTER =
    "<td nowrap bgcolor=#0a1965 align=center><font size=-1 color=#fdb025><strong>";
inline constexpr const char *HEADER_TDBEGIN_CENTER_2 =
    "<td nowrap bgcolor=#0a1965 align=center colspan=2><font size=-1 color=#fdb025><strong>";
inline constexpr const char *HEADER_TDBEGIN_CENTER_3 =
    "<td nowrap bgcolor=#0a1965 align=center colspan=3><font size=-1 color=#fdb025><strong>";
inline constexpr const char *HEADER_TDEND = "</strong></font></td>";

inline constexpr const char *DETAIL_TDBEGIN = "<td bgcolor=#FFFFFF nowrap><font size=2>\n";
inline constexpr const char *DETAIL_TDBEGIN_CENTER = "<td bgcolor=#FFFFFF align=center nowrap><font size=2>\n";
inline constexpr const char *DETAIL_TDBEGIN_CENTER_NOFONT = "<td bgcolor=#FFFFFF align=center nowrap>\n";
inline constexpr const char *DETAIL_TDEND = "</font></td>\n";
inline constexpr const char *DETAIL_TDEND_NOFONT = "</td>\n";

inline constexpr const char *TABLE_BEGIN =
    "<table border=0 cellpadding=2 cellspacing=0 bgcolor=#0A1965>\n <tr>\n  <td>\n"
    "   <table border=0 cellpadding=2 cellspacing=1>\n";
inline constexpr const char *TABLE_BEGIN_NOBORDER =
    "<table border=0 cellpadding=2 cellspacing=0 bgcolor=#FFFFFF>\n <tr>\n  <td>\n"
    "   <table border=0 cellpadding=2 cellspacing=1>\n";
inline constexpr const char *TABLE_BEGIN_NOBORDER_CENTER =
    "<table align=center border=0 cellpadding=2 cellspacing=0 bgcolor=#FFFFFF>\n <tr>\n  <td>\n"
    "   <table border=0 cellpadding=2 cellspacing=1>\n";
inline constexpr const char *TABLE_BEGIN_CENTER =
    "<table align=center border=0 cellpadding=2 cellspacing=0 bgcolor=#0A1965>\n <tr>\n  <td>\n"
    "   <table border=0 cellpadding=2 cellspacing=1>\n";
inline constexpr const char *TABLE_END = "   </table>\n  </td>\n </tr>\n</table>\n";

inline constexpr const char *BODY_BEGIN =
    "<body bgcolor=#FFFFFF text=#000000 link=#0A1965 alink=#0A1965 vlink=#0A1965>";
inline constexpr const char *BODY_END = "</body>";
inline constexpr const char *HTML_BEGIN = "";
inline constexpr const char *HTML_END = "";
