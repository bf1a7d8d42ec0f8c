#include "admin/html_kit.h"

#include "common/text.h"

void output_option(int socket, PageBuffer &page, bool selected, const ColumnText &name)
{
    char option[2 * html_growth * column_size + 64];
    TextWriter row{option};
    put(row, selected ? "<option selected value=\"" : "<option value=\"");
    put_attribute(row, name);
    put(row, "\">");
    put_html(row, name);
    put(row, "</option>\n");
    append_row(socket, page, row);
}

void put_blank_cell(TextWriter &row, const char *begin)
{
    put(row, begin);
    put(row, "&nbsp;");
    put(row, DETAIL_TDEND);
    put(row, '\n');
}
