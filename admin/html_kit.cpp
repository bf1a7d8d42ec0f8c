#include "admin/html_kit.h"

#include "common/text.h"

void output_option(int socket, PageBuffer &page, bool selected, const ColumnText &name)
{
    http_printf(socket, page, "<option%s value=\"%s\">%s</option>\n", selected ? " selected" : "",
                html_attribute(name).text, html_text(name).text);
}
