#include "server/response.h"

#include "server/server_state.h"

#include <chrono>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <iterator>
#include <sys/socket.h>
#include <unistd.h>

const char server_token[] = "Skiffhttp 1.0 (unix)";
const char basic_realm[] = "Isam Permissions Administration";

namespace {

constexpr const char *status_lines[] = {
    "100 Continue",
    "101 Switching Protocols",
    "102 Processing",
    "200 OK",
    "201 Created",
    "202 Accepted",
    "203 Non-Authoritative Information",
    "204 No Content",
    "205 Reset Content",
    "206 Partial Content",
    "207 Multi-Status",
    "300 Multiple Choices",
    "301 Moved Permanently",
    "302 Found",
    "303 See Other",
    "304 Not Modified",
    "305 Use Proxy",
    "306 unused",
    "307 Temporary Redirect",
    "400 Bad Request",
    "401 Authorization Required",
    "402 Payment Required",
    "403 Forbidden",
    "404 Not Found",
    "405 Method Not Allowed",
    "406 Not Acceptable",
    "407 Proxy Authentication Required",
    "408 Request Time-out",
    "409 Conflict",
    "410 Gone",
    "411 Length Required",
    "412 Precondition Failed",
    "413 Request Entity Too Large",
    "414 Request-URI Too Large",
    "415 Unsupported Media Type",
    "416 Requested Range Not Satisfiable",
    "417 Expectation Failed",
    "418 unused",
    "419 unused",
    "420 unused",
    "421 unused",
    "422 Unprocessable Entity",
    "423 Locked",
    "424 Failed Dependency",
    "500 Internal Server Error",
    "501 Method Not Implemented",
    "502 Bad Gateway",
    "503 Service Temporarily Unavailable",
    "504 Gateway Time-out",
    "505 HTTP Version Not Supported",
    "506 Variant Also Negotiates",
    "507 Insufficient Storage",
    "508 unused",
    "509 unused",
    "510 Not Extended",
};

// Entry k is the first row of class (k+1)xx, the last entry the end of the table.
constexpr int32_t shortcut[] = {0, 3, 11, 19, 44, 55};
constexpr int classes = int(std::size(shortcut)) - 1;
static_assert(shortcut[classes] == std::size(status_lines));

constexpr int internal_server_error = 44;

constexpr int error_page_size = 4096;

constexpr char ap_day_snames[][4] = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
constexpr char ap_month_snames[][4] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                       "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};

int status_index(int status)
{
    if (status < 100 || status >= 100 * (classes + 1))
        return internal_server_error;
    int status_class = status / 100 - 1;
    int index = shortcut[status_class] + status % 100;
    return index < shortcut[status_class + 1] ? index : internal_server_error;
}

// For the closing tag of an error page's message and for the line that names the server.
constexpr size_t room_behind_message = 512;

void put_line(TextWriter &header, const char *name, const char *value)
{
    for (const char *part : {name, ": ", value, "\r\n"})
        put(header, part);
}

// For example Mon, 16 Nov 2026 06:50:17 GMT. The clock is read for each date that is written, so the dates of one header
// may differ by a second.
void put_date_line(TextWriter &header, const char *name)
{
    using namespace std::chrono;
    sys_seconds now{seconds{time(nullptr)}};
    auto today = floor<days>(now);
    year_month_day date{today};
    hh_mm_ss clock{now - today};
    for (const char *part : {name, ": ", ap_day_snames[weekday{today}.c_encoding()], ", "})
        put(header, part);
    put_number(header, unsigned(date.day()), 2);
    for (const char *part : {" ", ap_month_snames[unsigned(date.month()) - 1], " "})
        put(header, part);
    put_number(header, unsigned(int(date.year())), 4);
    put(header, ' ');
    put_number(header, unsigned(clock.hours().count()), 2);
    put(header, ':');
    put_number(header, unsigned(clock.minutes().count()), 2);
    put(header, ':');
    put_number(header, unsigned(clock.seconds().count()), 2);
    put(header, " GMT\r\n");
}

void put_cache_lines(TextWriter &header, const RequestRecord *request, uint32_t flags)
{
    if (flags & public_caching) {
        put_line(header, "Cache-Control", "public");
        return;
    }
    // Without a request there is no protocol to go by; the connection closes without an answer, on purpose.
    if (!request || !request->protocol)
        abort();
    if (strstr(request->protocol, "1.0")) {
        // Two Expires lines on purpose: some old browsers take the date, others the 0.
        put_date_line(header, "Expires");
        put_line(header, "Expires", "0");
        put_line(header, "Pragma", "no-cache");
        return;
    }
    // Contradictory on purpose: the strictest of the three that a cache understands is the one that it obeys.
    put_line(header, "Cache-Control", "must-revalidate");
    put_line(header, "Cache-Control", "max-age=3600");
    put_line(header, "Cache-Control", "no-cache");
}

struct HostName {
    char text[256];
};

HostName host_name()
{
    HostName host = {};
    if (gethostname(host.text, sizeof host.text - 1) != 0)
        copy_text(host.text, "unknown");
    return host;
}

char *const not_appended = reinterpret_cast<char *>(-1);

int flush_page(int socket, PageBuffer &page)
{
    ResponsePiece pieces[] = {{page.text, int32_t(page.length)}, {nullptr, 0}};
    if (int result = send_response(socket, pieces); result < 0)
        return result;
    set_page(page, "");
    return 0;
}

}

void put_address(TextWriter &page)
{
    char line[512];
    format_text(line, "<ADDRESS>%s Server at %s Port %u</ADDRESS>\r\n", server_token, host_name().text, nport);
    put(page, line);
}

void put_error_paragraph(TextWriter &page, const char *message)
{
    bool fits = page.length + strlen(message) + room_behind_message < page.out.size();
    put(page, "<p>");
    put(page, fits ? message : "");
    put(page, "<p>\r\n");
}

int protocol_header(const RequestRecord *request, char *buffer, int *length_out, int32_t content_length, int status,
                    uint32_t flags, const char *content_type)
{
    TextWriter header{{buffer, header_size}};
    put(header, "HTTP/1.1 ");
    put(header, status_lines[status_index(status)]);
    put(header, "\r\n");
    put_date_line(header, "Date");
    put_line(header, "Server", server_token);
    put_date_line(header, "Last-Modified");
    put_line(header, "Accept-Ranges", "bytes");
    if (content_length > 0) {
        put(header, "Content-Length: ");
        put_number(header, unsigned(content_length), 1);
        put(header, "\r\n");
    }
    put_cache_lines(header, request, flags);
    put_line(header, "Content-Type", content_type ? content_type : "text/html");
    if (status == 401) {
        // No line end of its own, on purpose, so that the block has no blank line: the refusal text follows directly.
        // Browsers raise their log-in dialog on it all the same.
        put(header, "WWW-Authenticate: Basic realm=\"");
        put(header, basic_realm);
        put(header, "\"");
    }
    put(header, "\r\n");
    *length_out = int(header.length);
    return 0;
}

int send_response(int socket, const ResponsePiece *pieces)
{
    for (; pieces->data; pieces++)
        if (send(socket, pieces->data, size_t(pieces->length), 0) < 0)
            return -1;
    return 0;
}

bool set_page(PageBuffer &page, std::string_view text)
{
    TextWriter writer{page.text};
    put(writer, text);
    page.length = writer.length;
    return !writer.overflow;
}

char *http_printf(int socket, PageBuffer &page, const char *format, ...)
{
    if (page.length > page_flush_length && flush_page(socket, page) < 0)
        return not_appended;
    char *end = page.text + page.length;
    size_t room = page_size - page.length;
    va_list arguments;
    va_start(arguments, format);
    int added = vsnprintf(end, room, format, arguments);
    va_end(arguments);
    if (added < 0 || size_t(added) >= room) {
        *end = 0;
        return not_appended;
    }
    page.length += size_t(added);
    return page.text;
}

int append_text(int socket, PageBuffer &page, std::string_view text)
{
    if (text.size() >= page_size)
        return -1;
    if (page.length + text.size() >= page_size)
        if (int result = flush_page(socket, page); result < 0)
            return result;
    TextWriter writer{std::span(page.text).subspan(page.length)};
    put(writer, text);
    page.length += writer.length;
    return 0;
}

int append_row(int socket, PageBuffer &page, const TextWriter &row)
{
    if (page.length > page_flush_length)
        if (int result = flush_page(socket, page); result < 0)
            return result;
    return append_text(socket, page, {row.out.data(), row.length});
}

int send_error_response(int socket, int status)
{
    int index = status_index(status);
    char page[error_page_size], header[header_size];
    TextWriter writer{page};
    put(writer, "<HTML><HEAD>\r\n<TITLE>");
    put(writer, status_lines[index]);
    put(writer, "</TITLE>\r\n</HEAD><BODY>\r\n<H1>");
    put(writer, status_lines[index]);
    put(writer, "</H1>\r\n");
    put_address(writer);

    // The row's index in place of the status, and no request, on purpose: the process ends in here, so that the client
    // sees its connection close without an answer.
    int header_length;
    protocol_header(nullptr, header, &header_length, 0, index, 0, nullptr);
    ResponsePiece pieces[] = {{header, header_length}, {page, int32_t(writer.length)}, {nullptr, 0}};
    return send_response(socket, pieces);
}

int send_internal_error(int socket, const char *message)
{
    char page[error_page_size];
    TextWriter writer{page};
    put(writer, "<HTML><HEAD>\r\n<TITLE>Error</TITLE>\r\n</HEAD><BODY>\r\n<H1>Error</H1>\r\n");
    put_error_paragraph(writer, message);
    put_address(writer);
    return int(send(socket, page, writer.length, 0));
}
