#include "server/response.h"

#include "server/server_state.h"
#include "tests/unit/captured_log.h"
#include "tests/unit/child.h"
#include "tests/unit/failing_call.h"
#include "tests/unit/guarded_text.h"
#include "tests/unit/same_bytes.h"
#include "tests/unit/sockets.h"
#include "tests/unit/told_calls.h"

#include <cerrno>
#include <csignal>
#include <cstring>
#include <cwchar>
#include <gtest/gtest.h>
#include <sched.h>
#include <string>
#include <sys/syscall.h>
#include <unistd.h>
#include <vector>

namespace {

const char *const status_lines[] = {
    "100 Continue", "101 Switching Protocols", "102 Processing",
    "200 OK", "201 Created", "202 Accepted", "203 Non-Authoritative Information", "204 No Content",
    "205 Reset Content", "206 Partial Content", "207 Multi-Status",
    "300 Multiple Choices", "301 Moved Permanently", "302 Found", "303 See Other", "304 Not Modified",
    "305 Use Proxy", "306 unused", "307 Temporary Redirect",
    "400 Bad Request", "401 Authorization Required", "402 Payment Required", "403 Forbidden", "404 Not Found",
    "405 Method Not Allowed", "406 Not Acceptable", "407 Proxy Authentication Required", "408 Request Time-out",
    "409 Conflict", "410 Gone", "411 Length Required", "412 Precondition Failed", "413 Request Entity Too Large",
    "414 Request-URI Too Large", "415 Unsupported Media Type", "416 Requested Range Not Satisfiable",
    "417 Expectation Failed", "418 unused", "419 unused", "420 unused", "421 unused", "422 Unprocessable Entity",
    "423 Locked", "424 Failed Dependency",
    "500 Internal Server Error", "501 Method Not Implemented", "502 Bad Gateway", "503 Service Temporarily Unavailable",
    "504 Gateway Time-out", "505 HTTP Version Not Supported", "506 Variant Also Negotiates",
    "507 Insufficient Storage", "508 unused", "509 unused", "510 Not Extended",
};

const char *expected_line(int status)
{
    std::string code = std::to_string(status);
    for (const char *line : status_lines)
        if (code.size() == 3 && strncmp(line, code.c_str(), 3) == 0)
            return line;
    return "500 Internal Server Error";
}

const char *const begin_of_block =
    "Date: DATE\r\n"
    "Server: Skiffhttp 1.0 (unix)\r\n"
    "Last-Modified: DATE\r\n"
    "Accept-Ranges: bytes\r\n";

const char *const no_cache_trio =
    "Cache-Control: must-revalidate\r\n"
    "Cache-Control: max-age=3600\r\n"
    "Cache-Control: no-cache\r\n";

// The header for a request with that protocol, its dates checked and replaced. The buffer ends right before an
// unmapped page.
struct Header {
    GuardedText room{std::string(header_size - 1, '#')};
    int result, length;
    std::string text;

    Header(const char *protocol, int32_t content_length, int status, uint32_t flags, const char *content_type)
    {
        RequestRecord record;
        init_new_request(&record);
        record.protocol = protocol ? strdup(protocol) : nullptr;
        result = protocol_header(&record, room.text(), &length, content_length, status, flags, content_type);
        freeup_request(&record);
        text = without_dates(room.text());
    }
};

std::string status_line(int status)
{
    Header header("HTTP/1.1", 0, status, 0, nullptr);
    return header.text.substr(0, header.text.find('\n') + 1);
}

// The value of the header line of that name, as it was written.
std::string line_of(const char *header, const char *name)
{
    const char *value = strstr(header, (std::string("\r\n") + name + ": ").c_str());
    if (!value)
        return "(none)";
    value += strlen(name) + 4;
    return std::string(value, strcspn(value, "\r"));
}

std::string page_of(size_t length)
{
    return std::string(length, 'p');
}

// A page with a text in it, right before an unmapped page, and the connection that it is sent on.
struct Page {
    SocketPair sockets{SOCK_DGRAM};
    GuardedText room{std::string(sizeof(PageBuffer) - 1, '#')};

    explicit Page(const std::string &text) { set_page(buffer(), text); }

    PageBuffer &buffer() { return *reinterpret_cast<PageBuffer *>(room.text()); }
    std::string text()
    {
        EXPECT_EQ(strlen(buffer().text), buffer().length);
        return buffer().text;
    }
};

char *const failed = reinterpret_cast<char *>(-1);

using Pieces = std::vector<std::string>;

}

TEST(ProtocolHeader, answers_each_status_with_its_line_and_others_with_500)
{
    for (int status = -1; status <= 700; status++)
        EXPECT_EQ(std::string("HTTP/1.1 ") + expected_line(status) + "\r\n", status_line(status)) << status;
    for (int status : {-2147483647 - 1, -100, 1000, 1200, 20000, 2147483647})
        EXPECT_EQ("HTTP/1.1 500 Internal Server Error\r\n", status_line(status)) << status;
}

TEST(ProtocolHeader, of_a_page_for_HTTP_1_1)
{
    Header header("HTTP/1.1", 0, 200, 0, nullptr);
    EXPECT_EQ(0, header.result);
    EXPECT_BYTES(std::string("HTTP/1.1 200 OK\r\n") + begin_of_block + no_cache_trio
                     + "Content-Type: text/html\r\n\r\n",
                 header.text);
}

TEST(ProtocolHeader, of_a_page_for_HTTP_1_0)
{
    EXPECT_BYTES(std::string("HTTP/1.1 200 OK\r\n") + begin_of_block
                     + "Expires: DATE\r\nExpires: 0\r\nPragma: no-cache\r\nContent-Type: text/html\r\n\r\n",
                 Header("HTTP/1.0", 0, 200, 0, nullptr).text);
}

TEST(ProtocolHeader, of_a_page_that_public_caches_may_keep)
{
    EXPECT_BYTES(std::string("HTTP/1.1 500 Internal Server Error\r\n") + begin_of_block
                     + "Content-Length: 70000\r\nCache-Control: public\r\nContent-Type: text/css\r\n\r\n",
                 Header("HTTP/1.1", 70000, 0, 1, "text/css").text);
}

TEST(ProtocolHeader, of_a_refused_log_in_has_no_blank_line)
{
    EXPECT_BYTES(std::string("HTTP/1.1 401 Authorization Required\r\n") + begin_of_block + no_cache_trio
                     + "Content-Type: text/html\r\n"
                       "WWW-Authenticate: Basic realm=\"Isam Permissions Administration\"\r\n",
                 Header("HTTP/1.1", 0, 401, 4, nullptr).text);
}

TEST(ProtocolHeader, names_the_realm_for_401_only)
{
    for (int status : {200, 400, 402, 403, 407, 404, 500, 40, 20})
        EXPECT_EQ(std::string::npos, Header("HTTP/1.1", 0, status, 0, nullptr).text.find("WWW-")) << status;
}

TEST(ProtocolHeader, stores_the_length_without_the_nul)
{
    Header header("HTTP/1.1", 0, 200, 0, nullptr);
    EXPECT_EQ(int(strlen(header.room.text())), header.length);
}

TEST(ProtocolHeader, tells_the_content_length_only_when_it_is_known)
{
    const struct {
        int32_t length;
        const char *line;
    } cases[] = {{-2147483647 - 1, nullptr}, {-1, nullptr}, {0, nullptr}, {1, "Content-Length: 1\r\n"},
                 {32768, "Content-Length: 32768\r\n"}, {2147483647, "Content-Length: 2147483647\r\n"}};
    for (const auto &sample : cases) {
        std::string text = Header("HTTP/1.1", sample.length, 200, 0, nullptr).text;
        if (sample.line)
            EXPECT_NE(std::string::npos, text.find(std::string("bytes\r\n") + sample.line + "Cache-Control"));
        else
            EXPECT_EQ(std::string::npos, text.find("Content-Length"));
    }
}

TEST(ProtocolHeader, chooses_the_cache_lines_by_flag_and_protocol)
{
    const std::string expires = "Expires: DATE\r\nExpires: 0\r\nPragma: no-cache\r\n", trio = no_cache_trio,
                      open = "Cache-Control: public\r\n";
    const struct {
        const char *protocol;
        uint32_t flags;
        std::string lines;
    } cases[] = {
        {"HTTP/1.1", 0, trio},     {"HTTP/1.0", 0, expires},  {"", 0, trio},
        {"1.0", 0, expires},       {"HTTP/1.01", 0, expires}, {"HTTP/11.0", 0, expires},
        {"http/1.0 x", 0, expires}, {"HTTP/0.9", 0, trio},    {"HTTP/2.0", 0, trio},
        {"HTTP/1.1", 1, open},     {"HTTP/1.0", 1, open},     {"", 1, open},
        {nullptr, 1, open},        {"HTTP/1.1", 4, trio},     {"HTTP/1.0", 4, expires},
        {"HTTP/1.1", 5, open},     {"HTTP/1.1", 0xfffffffe, trio}, {"HTTP/1.0", 0xffffffff, open},
    };
    for (const auto &sample : cases)
        EXPECT_BYTES(std::string("HTTP/1.1 200 OK\r\n") + begin_of_block + sample.lines
                         + "Content-Type: text/html\r\n\r\n",
                     Header(sample.protocol, 0, 200, sample.flags, nullptr).text);
}

TEST(ProtocolHeader, needs_no_request_when_public_caches_may_keep_the_answer)
{
    char buffer[header_size];
    int length;
    EXPECT_EQ(0, protocol_header(nullptr, buffer, &length, 0, 200, 1, nullptr));
    EXPECT_NE(nullptr, strstr(buffer, "Cache-Control: public\r\n"));
}

TEST(ProtocolHeader, aborts_without_a_protocol_to_go_by)
{
    EXPECT_EQ(SIGABRT, run_in_child([] { return Header(nullptr, 0, 200, 0, nullptr).result; }).signal);
    EXPECT_EQ(SIGABRT, run_in_child([] { return Header(nullptr, 0, 401, 4, nullptr).result; }).signal);
}

TEST(ProtocolHeader, aborts_without_a_request)
{
    ChildEnd end = run_in_child([] {
        char buffer[header_size];
        int length;
        return protocol_header(nullptr, buffer, &length, 0, 200, 0, nullptr);
    });
    EXPECT_EQ(SIGABRT, end.signal);
}

TEST(ProtocolHeader, writes_dates_with_english_names_and_two_digits)
{
    const struct {
        time_t time;
        const char *date;
    } cases[] = {
        {0, "Thu, 01 Jan 1970 00:00:00 GMT"},
        {951782400, "Tue, 29 Feb 2000 00:00:00 GMT"},
        {1141387384, "Fri, 03 Mar 2006 12:03:04 GMT"},
        {1270339199, "Sat, 03 Apr 2010 23:59:59 GMT"},
        {1304208000, "Sun, 01 May 2011 00:00:00 GMT"},
        {1402833600, "Sun, 15 Jun 2014 12:00:00 GMT"},
        {1435708799, "Tue, 30 Jun 2015 23:59:59 GMT"},
        {1435708800, "Wed, 01 Jul 2015 00:00:00 GMT"},
        {1534852923, "Tue, 21 Aug 2018 12:02:03 GMT"},
        {1599523262, "Tue, 08 Sep 2020 00:01:02 GMT"},
        {1634601600, "Tue, 19 Oct 2021 00:00:00 GMT"},
        {1794811817, "Mon, 16 Nov 2026 06:50:17 GMT"},
        {1893455999, "Mon, 31 Dec 2029 23:59:59 GMT"},
        {4102444800, "Fri, 01 Jan 2100 00:00:00 GMT"},
    };
    for (const auto &sample : cases) {
        ToldTime clock(sample.time);
        EXPECT_EQ(sample.date, line_of(Header("HTTP/1.1", 0, 200, 0, nullptr).room.text(), "Date"));
    }
}

TEST(ProtocolHeader, reads_the_clock_for_each_of_its_dates)
{
    ToldTime clock(0, 1);
    Header header("HTTP/1.0", 0, 200, 0, nullptr);
    EXPECT_EQ("Thu, 01 Jan 1970 00:00:00 GMT", line_of(header.room.text(), "Date"));
    EXPECT_EQ("Thu, 01 Jan 1970 00:00:01 GMT", line_of(header.room.text(), "Last-Modified"));
    EXPECT_EQ("Thu, 01 Jan 1970 00:00:02 GMT", line_of(header.room.text(), "Expires"));
}

TEST(ProtocolHeader, logs_nothing)
{
    CapturedLog log;
    Header header("HTTP/1.1", 1, 401, 0, nullptr);
    EXPECT_EQ("", log.text());
}

TEST(SendResponse, sends_nothing_for_an_empty_list)
{
    SocketPair sockets(SOCK_DGRAM);
    const ResponsePiece pieces[] = {{nullptr, 0}};
    EXPECT_EQ(0, send_response(sockets.server(), pieces));
    EXPECT_EQ(Pieces{}, sockets.received_pieces());
    EXPECT_EQ(0, send_response(-1, pieces));
}

TEST(SendResponse, sends_each_piece_with_one_call_in_order)
{
    SocketPair sockets(SOCK_DGRAM);
    const ResponsePiece pieces[] = {{"header", 6}, {"page and more", 4}, {"c\0d", 3}, {nullptr, 0}, {"behind", 6}};
    EXPECT_EQ(0, send_response(sockets.server(), pieces));
    EXPECT_EQ((Pieces{"header", "page", std::string("c\0d", 3)}), sockets.received_pieces());
}

TEST(SendResponse, ignores_the_length_of_the_end_piece)
{
    SocketPair sockets(SOCK_DGRAM);
    const ResponsePiece pieces[] = {{"a", 1}, {nullptr, 5}};
    EXPECT_EQ(0, send_response(sockets.server(), pieces));
    EXPECT_EQ(Pieces{"a"}, sockets.received_pieces());
}

TEST(SendResponse, ends_the_list_with_the_null_pointer_and_not_with_the_length)
{
    SocketPair sockets(SOCK_DGRAM);
    const ResponsePiece pieces[] = {{"a", 1}, {"", 0}, {"b", 1}, {nullptr, 0}};
    EXPECT_EQ(0, send_response(sockets.server(), pieces));
    EXPECT_EQ((Pieces{"a", "", "b"}), sockets.received_pieces());
}

TEST(SendResponse, gives_minus_1_for_a_failed_send)
{
    const ResponsePiece pieces[] = {{"a", 1}, {nullptr, 0}};
    EXPECT_EQ(-1, send_response(-1, pieces));
    SocketPair sockets(SOCK_DGRAM);
    sockets.close_client();
    EXPECT_EQ(-1, send_response(sockets.server(), pieces));
}

TEST(SendResponse, sends_nothing_behind_a_failure)
{
    SocketPair sockets(SOCK_DGRAM);
    // A datagram larger than the socket's room is a failed send.
    const std::string huge(8 << 20, 'h');
    const ResponsePiece pieces[] = {{"a", 1}, {huge.data(), int32_t(huge.size())}, {"b", 1}, {nullptr, 0}};
    EXPECT_EQ(-1, send_response(sockets.server(), pieces));
    EXPECT_EQ(Pieces{"a"}, sockets.received_pieces());
}

TEST(HttpPrintf, appends_the_formatted_text_and_gives_the_page)
{
    Page page("<p>");
    EXPECT_EQ(page.buffer().text, http_printf(page.sockets.server(), page.buffer(), "%s=%d%%", "a", 7));
    EXPECT_EQ("<p>a=7%", page.text());
    EXPECT_EQ(Pieces{}, page.sockets.received_pieces());
}

TEST(HttpPrintf, begins_an_empty_page)
{
    Page page("");
    EXPECT_EQ(page.buffer().text, http_printf(page.sockets.server(), page.buffer(), "%s", "a"));
    EXPECT_EQ("a", page.text());
}

TEST(HttpPrintf, appends_to_a_page_of_16384_characters_without_sending_it)
{
    Page page(page_of(16384));
    EXPECT_EQ(page.buffer().text, http_printf(page.sockets.server(), page.buffer(), "%s", "more"));
    EXPECT_BYTES(page_of(16384) + "more", page.text());
    EXPECT_EQ(Pieces{}, page.sockets.received_pieces());
}

TEST(HttpPrintf, sends_a_page_of_16385_characters_first)
{
    Page page(page_of(16385));
    EXPECT_EQ(page.buffer().text, http_printf(page.sockets.server(), page.buffer(), "%s", "more"));
    EXPECT_EQ("more", page.text());
    EXPECT_EQ(Pieces{page_of(16385)}, page.sockets.received_pieces());
}

TEST(HttpPrintf, sends_the_page_first_also_for_an_empty_piece)
{
    Page page(page_of(20000));
    EXPECT_EQ(page.buffer().text, http_printf(page.sockets.server(), page.buffer(), "%s", ""));
    EXPECT_EQ("", page.text());
    EXPECT_EQ(Pieces{page_of(20000)}, page.sockets.received_pieces());
}

TEST(HttpPrintf, sends_a_long_page_in_pieces)
{
    Page page("");
    std::string whole, sent;
    for (int i = 0; i < 5000; i++) {
        ASSERT_EQ(page.buffer().text, http_printf(page.sockets.server(), page.buffer(), "row %d\n", i));
        whole += "row " + std::to_string(i) + "\n";
    }
    for (const std::string &piece : page.sockets.received_pieces()) {
        EXPECT_GT(piece.size(), 16384u);
        EXPECT_LE(piece.size(), 16384u + 9u);
        sent += piece;
    }
    EXPECT_BYTES(whole, sent + page.text());
}

TEST(HttpPrintf, gives_minus_1_and_leaves_the_page_when_sending_fails)
{
    Page page(page_of(16385));
    EXPECT_EQ(failed, http_printf(-1, page.buffer(), "%s", "more"));
    EXPECT_BYTES(page_of(16385), page.text());
}

TEST(HttpPrintf, appends_a_piece_over_1023_characters_whole)
{
    for (int length : {1023, 1024, 2000, 16383}) {
        Page page(page_of(16384));
        std::string piece(size_t(length), 'x');
        EXPECT_EQ(page.buffer().text, http_printf(page.sockets.server(), page.buffer(), "%s", piece.c_str())) << length;
        EXPECT_BYTES(page_of(16384) + piece, page.text());
    }
}

TEST(HttpPrintf, drops_a_piece_that_does_not_fit_whole_and_gives_minus_1)
{
    Page page(page_of(16384));
    std::string piece(16384, 'x');
    EXPECT_EQ(failed, http_printf(page.sockets.server(), page.buffer(), "%s", piece.c_str()));
    EXPECT_BYTES(page_of(16384), page.text());
    EXPECT_EQ(Pieces{}, page.sockets.received_pieces());
}

TEST(HttpPrintf, drops_a_piece_that_has_no_form_and_gives_minus_1)
{
    Page page("<p>");
    EXPECT_EQ(failed, http_printf(page.sockets.server(), page.buffer(), "a%lc", wint_t(L'\x20ac')));
    EXPECT_BYTES("<p>", page.text());
}

TEST(SetPage, makes_the_text_the_whole_page)
{
    Page page(page_of(20000));
    EXPECT_TRUE(set_page(page.buffer(), "new"));
    EXPECT_EQ("new", page.text());
    EXPECT_EQ(Pieces{}, page.sockets.received_pieces());
}

TEST(SetPage, takes_a_text_that_fills_it_and_none_longer)
{
    Page page("");
    EXPECT_TRUE(set_page(page.buffer(), page_of(32767)));
    EXPECT_BYTES(page_of(32767), page.text());
    EXPECT_FALSE(set_page(page.buffer(), page_of(32768)));
    EXPECT_EQ("", page.text());
}

TEST(AppendText, appends_a_text_as_it_is)
{
    Page page("<p>");
    EXPECT_EQ(0, append_text(page.sockets.server(), page.buffer(), "100%s\n"));
    EXPECT_EQ("<p>100%s\n", page.text());
    EXPECT_EQ(Pieces{}, page.sockets.received_pieces());
}

TEST(AppendText, fills_the_page_to_its_last_character_without_sending)
{
    Page page(page_of(20000));
    EXPECT_EQ(0, append_text(page.sockets.server(), page.buffer(), std::string(12767, 't')));
    EXPECT_BYTES(page_of(20000) + std::string(12767, 't'), page.text());
    EXPECT_EQ(Pieces{}, page.sockets.received_pieces());
}

TEST(AppendText, sends_the_page_so_far_first_when_the_text_does_not_fit)
{
    Page page(page_of(20000));
    EXPECT_EQ(0, append_text(page.sockets.server(), page.buffer(), std::string(12768, 't')));
    EXPECT_BYTES(std::string(12768, 't'), page.text());
    EXPECT_EQ(Pieces{page_of(20000)}, page.sockets.received_pieces());
}

TEST(AppendText, takes_a_text_that_fills_a_page_of_its_own)
{
    Page page("p");
    EXPECT_EQ(0, append_text(page.sockets.server(), page.buffer(), std::string(32767, 't')));
    EXPECT_BYTES(std::string(32767, 't'), page.text());
    EXPECT_EQ(Pieces{"p"}, page.sockets.received_pieces());
}

TEST(AppendText, refuses_a_text_that_fits_no_page)
{
    Page page("p");
    EXPECT_EQ(-1, append_text(page.sockets.server(), page.buffer(), std::string(32768, 't').c_str()));
    EXPECT_EQ("p", page.text());
    EXPECT_EQ(Pieces{}, page.sockets.received_pieces());
}

// A row of `length` characters.
struct Row {
    std::string room;
    TextWriter writer;

    explicit Row(size_t length) : room(length + 1, 0), writer({room.data(), room.size()})
    {
        put(writer, std::string(length, 'r'));
    }
};

TEST(AppendRow, appends_to_a_page_of_16384_characters_without_sending_it)
{
    Page page(page_of(16384));
    EXPECT_EQ(0, append_row(page.sockets.server(), page.buffer(), Row(16383).writer));
    EXPECT_BYTES(page_of(16384) + std::string(16383, 'r'), page.text());
    EXPECT_EQ(Pieces{}, page.sockets.received_pieces());
}

TEST(AppendRow, sends_a_page_of_16385_characters_first)
{
    Page page(page_of(16385));
    EXPECT_EQ(0, append_row(page.sockets.server(), page.buffer(), Row(1).writer));
    EXPECT_EQ("r", page.text());
    EXPECT_EQ(Pieces{page_of(16385)}, page.sockets.received_pieces());
}

TEST(AppendRow, sends_a_shorter_page_first_when_the_row_does_not_fit_behind_it)
{
    Page page(page_of(16384));
    EXPECT_EQ(0, append_row(page.sockets.server(), page.buffer(), Row(16384).writer));
    EXPECT_BYTES(std::string(16384, 'r'), page.text());
    EXPECT_EQ(Pieces{page_of(16384)}, page.sockets.received_pieces());
}

TEST(AppendRow, gives_minus_1_and_leaves_the_page_when_sending_fails)
{
    Page page(page_of(16385));
    EXPECT_EQ(-1, append_row(-1, page.buffer(), Row(1).writer));
    EXPECT_BYTES(page_of(16385), page.text());
}

TEST(AppendText, gives_minus_1_and_leaves_the_page_when_sending_fails)
{
    Page page(page_of(20000));
    EXPECT_EQ(-1, append_text(-1, page.buffer(), std::string(20000, 't').c_str()));
    EXPECT_BYTES(page_of(20000), page.text());
}

TEST(PutAddress, names_server_host_and_port)
{
    nport = 8451;
    char line[512];
    TextWriter writer{line};
    put_address(writer);
    EXPECT_EQ(address_line(8451), line);
}

TEST(PutErrorParagraph, keeps_512_bytes_for_what_stands_behind_it)
{
    for (size_t room : {size_t(1000), size_t(4096)}) {
        std::string fitting(room - 513, 'm'), too_long(room - 512, 'm');
        for (const std::string &message : {fitting, too_long}) {
            GuardedText page(std::string(room - 1, '#'));
            TextWriter writer{{page.text(), room}};
            put_error_paragraph(writer, message.c_str());
            EXPECT_BYTES("<p>" + (message == fitting ? message : "") + "<p>\r\n", std::string(page.text()));
            EXPECT_FALSE(writer.overflow);
        }
    }
}

TEST(SendErrorResponse, ends_the_process_with_nothing_sent)
{
    for (int status : {400, 401, 404, 405, 413, 501, 200, 0, 999}) {
        SocketPair sockets(SOCK_DGRAM);
        ChildEnd end = run_in_child([&] { return send_error_response(sockets.server(), status); });
        EXPECT_EQ(SIGABRT, end.signal) << status;
        EXPECT_EQ(Pieces{}, sockets.received_pieces()) << status;
    }
}

TEST(SendErrorResponse, logs_nothing)
{
    CapturedLog log;
    SocketPair sockets(SOCK_DGRAM);
    run_in_child([&] { return send_error_response(sockets.server(), 404); });
    EXPECT_EQ("", log.text());
}

TEST(SendInternalError, sends_a_bare_page_in_one_call)
{
    SocketPair sockets(SOCK_DGRAM);
    nport = 65535;
    std::string expected = "<HTML><HEAD>\r\n<TITLE>Error</TITLE>\r\n</HEAD><BODY>\r\n<H1>Error</H1>\r\n"
                           "<p>Failed to read %s /a\n<p>\r\n" + address_line(65535);
    EXPECT_EQ(int(expected.size()), send_internal_error(sockets.server(), "Failed to read %s /a\n"));
    EXPECT_EQ(Pieces{expected}, sockets.received_pieces());
}

TEST(SendInternalError, gives_the_result_of_a_failed_send)
{
    EXPECT_EQ(-1, send_internal_error(-1, "message"));
}

TEST(SendInternalError, sends_a_message_of_several_paths)
{
    nport = 8451;
    const std::string message(3400, 'm');
    SocketPair sockets(SOCK_DGRAM);
    EXPECT_LT(3400, send_internal_error(sockets.server(), message.c_str()));
    EXPECT_BYTES("<HTML><HEAD>\r\n<TITLE>Error</TITLE>\r\n</HEAD><BODY>\r\n<H1>Error</H1>\r\n<p>" + message + "<p>\r\n"
                     + address_line(8451),
                 sockets.received());
}

TEST(SendInternalError, leaves_out_a_message_that_does_not_fit)
{
    nport = 8451;
    std::string expected = "<HTML><HEAD>\r\n<TITLE>Error</TITLE>\r\n</HEAD><BODY>\r\n<H1>Error</H1>\r\n<p><p>\r\n"
                           + address_line(8451);
    for (size_t length : {size_t(4096), size_t(100000)}) {
        SocketPair sockets(SOCK_DGRAM);
        EXPECT_EQ(int(expected.size()), send_internal_error(sockets.server(), std::string(length, 'm').c_str()));
        EXPECT_BYTES(expected, sockets.received());
    }
}

TEST(SendInternalError, asks_for_the_host_name_each_time)
{
    SocketPair sockets(SOCK_DGRAM);
    ChildEnd end = run_in_child([&] {
        if (unshare(CLONE_NEWUTS) != 0 || sethostname("another-host", 12) != 0)
            return 77;
        return send_internal_error(sockets.server(), "m") > 0 ? 0 : 1;
    });
    if (end.exit_status == 77)
        GTEST_SKIP() << "needs the right to a host name of its own";
    EXPECT_EQ(0, end.exit_status);
    EXPECT_NE(std::string::npos, sockets.received().find(" Server at another-host Port "));
}

TEST(SendInternalError, says_unknown_for_a_host_without_a_name)
{
    SocketPair sockets(SOCK_DGRAM);
    ChildEnd end = run_in_child([&] {
        if (!let_system_call_fail(__NR_uname, EFAULT))
            return 77;
        nport = 8451;
        return send_internal_error(sockets.server(), "m") > 0 ? 0 : 1;
    });
    if (end.exit_status == 77)
        GTEST_SKIP() << "the system does not let calls fail";
    EXPECT_EQ(0, end.exit_status);
    EXPECT_EQ("<HTML><HEAD>\r\n<TITLE>Error</TITLE>\r\n</HEAD><BODY>\r\n<H1>Error</H1>\r\n<p>m<p>\r\n"
              "<ADDRESS>Skiffhttp 1.0 (unix) Server at unknown Port 8451</ADDRESS>\r\n",
              sockets.received());
}
