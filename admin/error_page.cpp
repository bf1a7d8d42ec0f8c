#include "admin/error_page.h"

#include "admin/odbc.h"
#include "common/text.h"
#include "server/template.h"

#include <cstring>
#include <sys/socket.h>

namespace {

void put_template(TextWriter &piece, const char *name, RequestRecord *request)
{
    char text[template_size];
    text[0] = 0;
    load_template(name, text, sizeof text, request);
    put(piece, text);
}

void send_text(const PageContext &context, const TextWriter &piece)
{
    send(context.request->socket, piece.out.data(), piece.length, 0);
}

}

int return_error(PageContext &context, const char *message)
{
    // Room for the longest message and a template; the fixed texts take much less than the rest.
    char buffer[page_size + template_size + 1024];
    TextWriter head{buffer};
    put(head, "<HTML><HEAD>\r\n<TITLE>Error</TITLE>\r\n</HEAD><BODY>");
    put_template(head, "header.html", context.request);
    send_text(context, head);

    TextWriter body{buffer};
    put(body, "\r\n<H1>Error</H1>\r\n");
    put_error_paragraph(body, message);
    put_template(body, "footer.html", context.request);
    send_text(context, body);

    TextWriter end{buffer};
    put(end, "</BODY></HTML>");
    send_text(context, end);
    return -1;
}

int report_failure(PageContext &context, PageBuffer &message, const char *call, SQLSMALLINT handle_type,
                   SQLHANDLE handle)
{
    describe_failure(message, call, handle_type, handle);
    return return_error(context, message.text);
}

int add_html_error(const char *message, PageBuffer &out, int *length)
{
    TextWriter page{out.text};
    put(page, "<HTML><HEAD>\r\n<TITLE>Error</TITLE>\r\n</HEAD>");
    put(page, "<BODY bgcolor=\"white\">\r\n<H1>");
    put(page, "Error</H1>\r\n");
    put_error_paragraph(page, message);
    put_address(page);
    out.length = page.length;
    *length = int(page.length);
    return *length;
}
