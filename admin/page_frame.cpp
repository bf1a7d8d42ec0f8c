#include "admin/page_frame.h"

#include "server/template.h"

int append_template(PageContext &context, PageBuffer &page, const char *name)
{
    char text[template_size];
    text[0] = 0;
    if (int result = load_template(name, text, sizeof text, context.request); result < 0)
        return result;
    return append_text(context.request->socket, page, text);
}
