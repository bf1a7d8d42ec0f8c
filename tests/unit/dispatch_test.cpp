#include "server/dispatch.h"

#include "server/response.h"
#include "tests/unit/child.h"
#include "tests/unit/guarded_text.h"
#include "tests/unit/html_folder.h"
#include "tests/unit/same_bytes.h"
#include "tests/unit/sockets.h"
#include "tests/unit/stand_in_application.h"

#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <string>
#include <vector>

namespace {

using Calls = std::vector<std::string>;
using Pieces = std::vector<std::string>;

const char credentials[] = "Authorization: Basic dXNlcjpwYXNz\r\n";

std::string post(const std::string &path, const std::string &body, const std::string &header_lines = "")
{
    return "POST " + path + " HTTP/1.1\r\n" + header_lines + "Content-Length: " + std::to_string(body.size())
           + "\r\n\r\n" + body;
}

std::string page_header(const char *status_line = "200 OK", const char *closing_lines = "")
{
    return std::string("HTTP/1.1 ") + status_line
           + "\r\nDate: DATE\r\n"
             "Server: Skiffhttp 1.0 (unix)\r\n"
             "Last-Modified: DATE\r\n"
             "Accept-Ranges: bytes\r\n"
             "Cache-Control: must-revalidate\r\n"
             "Cache-Control: max-age=3600\r\n"
             "Cache-Control: no-cache\r\n"
             "Content-Type: text/html\r\n"
           + closing_lines + "\r\n";
}

std::string refused_header()
{
    return page_header("401 Authorization Required",
                       "WWW-Authenticate: Basic realm=\"Isam Permissions Administration\"");
}

const char refusal[] =
    "This server could not verify that you are authorized to access the document requested. Either you supplied the "
    "wrong credentials (e.g., bad username/password), or your browser doesn't understand how to supply the credentials "
    "required.";

// Answers requests with the stand-in application behind it, and keeps what was sent.
class ProcessRequest : public HtmlFolder {
protected:
    ProcessRequest() { stand_in = {}; }

    int process(const std::string &request)
    {
        GuardedText text(request);
        int result = process_request(sockets.server(), text.text());
        // The list lives until its process ends; this one goes on.
        freeup_attr_pairs(stand_in.form_fields);
        keep_pieces();
        return result;
    }

    // How a child process ends that answers the request.
    ChildEnd process_in_child(const std::string &request)
    {
        ChildEnd end = run_in_child([&] {
            GuardedText text(request);
            return process_request(sockets.server(), text.text()) < 0 ? 1 : 0;
        });
        keep_pieces();
        return end;
    }

    void keep_pieces()
    {
        pieces = sockets.received_pieces();
        for (std::string &piece : pieces)
            piece = without_dates(piece);
    }

    void answer_with(const std::string &page, int result = 0)
    {
        stand_in.build_page = [=](RequestRecord *, PageBuffer &buffer, int *length) {
            set_page(buffer, page);
            *length = int(page.size());
            return result;
        };
    }

    SocketPair sockets{SOCK_DGRAM};
    Pieces pieces;
};

int other_page(const UriEntry *, RequestRecord *, PageBuffer &, int *, FormField *)
{
    return 0;
}

constexpr UriEntry table[] = {
    {"/", other_page, "", 0},
    {"/a", other_page, "", 0},
    {"/a", other_page, "second", URI_AUTH},
    {"", other_page, "", 0},
    {nullptr, nullptr, nullptr, 0},
    {"/behind", other_page, "", 0},
};

int index_of(const UriEntry *rows, const char *uri)
{
    RequestRecord record = {};
    char path[64] = "";
    if (uri)
        record.uri = strcpy(path, uri);
    return fn_index_from_uri(rows, &record);
}

}

TEST(FnIndexFromUri, gives_the_first_row_of_exactly_that_path)
{
    EXPECT_EQ(0, index_of(table, "/"));
    EXPECT_EQ(1, index_of(table, "/a"));
    EXPECT_EQ(3, index_of(table, ""));
}

TEST(FnIndexFromUri, gives_minus_1_for_any_other_path)
{
    for (const char *uri : {"/A", "/a/", "//", "/a?", "/%61", "a", " /a", "/ab", "/behind"})
        EXPECT_EQ(-1, index_of(table, uri)) << uri;
}

TEST(FnIndexFromUri, gives_minus_1_where_something_is_missing)
{
    EXPECT_EQ(-1, fn_index_from_uri(table, nullptr));
    EXPECT_EQ(-1, index_of(table, nullptr));
    EXPECT_EQ(-1, index_of(nullptr, "/"));
    EXPECT_EQ(-1, index_of(&table[4], "/behind"));
}

TEST_F(ProcessRequest, calls_the_application_for_its_landing_pages_without_a_credential_check)
{
    for (const char *path : {"/", "/index.html"}) {
        stand_in = {};
        EXPECT_EQ(0, process(std::string("GET ") + path + " HTTP/1.1\r\n\r\n")) << path;
        EXPECT_EQ(Calls{"uri_isam"}, stand_in.calls);
        EXPECT_EQ(path, stand_in.path);
        EXPECT_EQ("index.html", stand_in.page_name);
        EXPECT_EQ(0u, stand_in.entry->flags);
        EXPECT_EQ(nullptr, stand_in.form_fields);
    }
}

TEST_F(ProcessRequest, hands_the_application_status_socket_and_page_length)
{
    process("GET / HTTP/1.1\r\n\r\n");
    EXPECT_EQ(200, stand_in.status);
    EXPECT_EQ(sockets.server(), stand_in.socket);
    EXPECT_EQ(32768, stand_in.length_on_entry);
}

TEST_F(ProcessRequest, hands_the_application_a_page_that_holds_the_request_as_it_came)
{
    const std::string request = "GET /?q HTTP/1.1\r\nHost: h\r\nCookie: c\r\n\r\n";
    process(request);
    EXPECT_EQ(request, stand_in.page_on_entry);
}

TEST_F(ProcessRequest, takes_the_longest_request)
{
    std::string request = "GET / HTTP/1.1\r\nHost: ";
    request += std::string(32767 - request.size() - 4, 'h') + "\r\n\r\n";
    EXPECT_EQ(0, process(request));
    EXPECT_BYTES(request, stand_in.page_on_entry);
}

TEST_F(ProcessRequest, hands_the_application_the_parsed_request)
{
    stand_in.build_page = [](RequestRecord *request, PageBuffer &, int *length) {
        EXPECT_STREQ("/", request->uri);
        EXPECT_STREQ("q=1", request->query);
        EXPECT_STREQ("HTTP/1.1", request->protocol);
        EXPECT_EQ(method_get, request->method);
        *length = 0;
        return 0;
    };
    EXPECT_EQ(0, process("GET /?q=1 HTTP/1.1\r\n\r\n"));
    EXPECT_EQ(Calls{"uri_isam"}, stand_in.calls);
}

TEST_F(ProcessRequest, sends_the_header_before_the_handler_and_the_page_behind_it)
{
    stand_in.build_page = [](RequestRecord *request, PageBuffer &page, int *length) {
        const ResponsePiece own[] = {{"by the handler", 14}, {nullptr, 0}};
        EXPECT_EQ(0, send_response(request->socket, own));
        set_page(page, "the page");
        *length = 8;
        return 0;
    };
    EXPECT_EQ(0, process("GET / HTTP/1.1\r\n\r\n"));
    EXPECT_EQ((Pieces{page_header(), "by the handler", "the page"}), pieces);
}

TEST_F(ProcessRequest, sends_as_much_of_the_page_as_the_handler_says)
{
    stand_in.build_page = [](RequestRecord *, PageBuffer &page, int *length) {
        set_page(page, "the page");
        *length = 3;
        return 5;
    };
    EXPECT_EQ(0, process("GET / HTTP/1.1\r\n\r\n"));
    EXPECT_EQ((Pieces{page_header(), "the"}), pieces);
}

TEST_F(ProcessRequest, sends_a_page_that_fills_its_buffer)
{
    answer_with(std::string(32767, 'p'));
    EXPECT_EQ(0, process("GET / HTTP/1.1\r\n\r\n"));
    ASSERT_EQ(2u, pieces.size());
    EXPECT_BYTES(std::string(32767, 'p'), pieces[1]);
}

TEST_F(ProcessRequest, sends_the_header_alone_for_a_page_without_length)
{
    for (int length : {0, -1, -32768}) {
        stand_in.build_page = [=](RequestRecord *, PageBuffer &page, int *page_length) {
            set_page(page, "the page");
            *page_length = length;
            return 0;
        };
        EXPECT_EQ(0, process("GET / HTTP/1.1\r\n\r\n")) << length;
        EXPECT_EQ(Pieces{page_header()}, pieces) << length;
    }
}

TEST_F(ProcessRequest, sends_no_page_of_a_handler_that_fails)
{
    for (int result : {-1, -2, -100}) {
        answer_with("the page", result);
        EXPECT_EQ(-1, process("GET / HTTP/1.1\r\n\r\n")) << result;
        EXPECT_EQ(Pieces{page_header()}, pieces) << result;
    }
}

TEST_F(ProcessRequest, does_not_call_the_handler_when_the_header_cannot_be_sent)
{
    sockets.close_client();
    EXPECT_EQ(-1, process("GET / HTTP/1.1\r\n\r\n"));
    EXPECT_EQ(Calls{}, stand_in.calls);
}

TEST_F(ProcessRequest, gives_minus_1_when_the_page_cannot_be_sent)
{
    stand_in.build_page = [this](RequestRecord *, PageBuffer &page, int *length) {
        sockets.close_client();
        set_page(page, "the page");
        *length = 8;
        return 0;
    };
    EXPECT_EQ(-1, process("GET / HTTP/1.1\r\n\r\n"));
    EXPECT_EQ(Calls{"uri_isam"}, stand_in.calls);
}

TEST_F(ProcessRequest, leaves_the_socket_of_a_page_open)
{
    process("GET / HTTP/1.1\r\n\r\n");
    EXPECT_NE(-1, fcntl(sockets.server(), F_GETFD));
}

TEST_F(ProcessRequest, sends_the_cache_lines_of_the_requests_protocol)
{
    EXPECT_EQ(0, process("GET / HTTP/1.0\r\n\r\n"));
    ASSERT_EQ(1u, pieces.size());
    EXPECT_NE(std::string::npos, pieces[0].find("\r\nExpires: DATE\r\nExpires: 0\r\nPragma: no-cache\r\n"));
    EXPECT_EQ(0, process("GET /\n\r\n\r\n"));
    ASSERT_EQ(1u, pieces.size());
    EXPECT_BYTES(page_header(), pieces[0]);
}

TEST_F(ProcessRequest, ends_the_process_for_a_page_without_a_protocol)
{
    EXPECT_EQ(SIGABRT, process_in_child("GET /\r\n\r\n").signal);
    EXPECT_EQ(Pieces{}, pieces);
}

TEST_F(ProcessRequest, hands_the_application_a_posted_form)
{
    EXPECT_EQ(0, process(post("/", "a=1&b=x+y")));
    EXPECT_EQ(Calls{"uri_isam"}, stand_in.calls);
    EXPECT_EQ((std::vector<std::pair<std::string, std::string>>{{"a", "1"}, {"b", "x y"}}), stand_in.fields);
}

TEST_F(ProcessRequest, reads_the_rest_of_a_posted_form_from_the_connection)
{
    sockets.client_sends("&b=2");
    sockets.client_sends("&c=3");
    EXPECT_EQ(0, process("POST / HTTP/1.1\r\nContent-Length: 11\r\n\r\na=1"));
    EXPECT_EQ((std::vector<std::pair<std::string, std::string>>{{"a", "1"}, {"b", "2"}, {"c", "3"}}), stand_in.fields);
}

TEST_F(ProcessRequest, reads_no_form_of_a_get)
{
    sockets.client_sends("a=1");
    EXPECT_EQ(0, process("GET /?b=2 HTTP/1.1\r\nContent-Length: 6\r\n\r\nc=3"));
    EXPECT_EQ(nullptr, stand_in.form_fields);
}

TEST_F(ProcessRequest, ends_the_process_for_a_malformed_form_with_nothing_sent)
{
    for (const char *body : {" ", "a", "a=", "x=1&y=2"}) {
        EXPECT_EQ(SIGABRT, process_in_child(post("/", body)).signal) << body;
        EXPECT_EQ(Pieces{}, pieces) << body;
    }
}

TEST_F(ProcessRequest, refuses_the_administration_page_without_a_data_source)
{
    stand_in.refusal_result = -5;
    for (const std::string &request :
         {std::string("GET /isam.cgi HTTP/1.1\r\n\r\n"), std::string("GET /isam.cgi?datasource=a HTTP/1.1\r\n\r\n"),
          std::string("GET /isam.cgi HTTP/1.1\r\n") + credentials + "\r\n", post("/isam.cgi", "a=1", credentials),
          post("/isam.cgi", "DATASOURCE=a&data=b", credentials)}) {
        stand_in.calls.clear();
        EXPECT_EQ(-5, process(request)) << request;
        EXPECT_EQ(Calls{"refuse_without_datasource"}, stand_in.calls) << request;
        EXPECT_EQ(Pieces{}, pieces) << request;
    }
}

TEST_F(ProcessRequest, hands_the_refusal_request_and_form)
{
    process(post("/isam.cgi", "a=1", credentials));
    EXPECT_EQ((std::vector<std::pair<std::string, std::string>>{{"a", "1"}}), stand_in.fields);
    EXPECT_EQ(sockets.server(), stand_in.socket);
    EXPECT_EQ(200, stand_in.status);
}

TEST_F(ProcessRequest, does_not_need_a_protocol_to_refuse_for_want_of_a_data_source)
{
    EXPECT_EQ(-1, process("GET /isam.cgi\r\n\r\n"));
    EXPECT_EQ(Calls{"refuse_without_datasource"}, stand_in.calls);
}

TEST_F(ProcessRequest, checks_the_credentials_before_the_administration_page)
{
    answer_with("the page");
    for (const char *body : {"datasource=d", "initial_datasource=d", "initial_datasource=d&datasource=e",
                             "a=1&datasource=d", "datasource=&a=1"}) {
        stand_in.calls.clear();
        EXPECT_EQ(0, process(post("/isam.cgi", body, credentials))) << body;
        EXPECT_EQ((Calls{"validate_user", "uri_isam"}), stand_in.calls) << body;
        EXPECT_EQ("user", stand_in.user);
        EXPECT_EQ("pass", stand_in.password);
        EXPECT_EQ("/isam.cgi", stand_in.path);
        EXPECT_EQ("", stand_in.page_name);
        EXPECT_EQ(URI_AUTH, stand_in.entry->flags);
        EXPECT_EQ((Pieces{page_header(), "the page"}), pieces) << body;
    }
}

TEST_F(ProcessRequest, matches_a_path_with_a_query)
{
    EXPECT_EQ(0, process(post("/isam.cgi?a=b", "datasource=d", credentials)));
    EXPECT_EQ((Calls{"validate_user", "uri_isam"}), stand_in.calls);
}

TEST_F(ProcessRequest, answers_missing_credentials_with_the_401_header_and_an_empty_body)
{
    for (const char *lines : {"", "Authorization:\r\n"}) {
        ChildEnd end = process_in_child(post("/isam.cgi", "datasource=d", lines));
        EXPECT_EQ(1, end.exit_status) << lines;
        EXPECT_EQ((Pieces{refused_header(), ""}), pieces) << lines;
    }
}

TEST_F(ProcessRequest, answers_refused_credentials_with_the_401_header_and_the_refusal)
{
    for (int result : {-1, -3}) {
        stand_in = {};
        stand_in.validate_user_result = result;
        EXPECT_EQ(-1, process(post("/isam.cgi", "datasource=d", credentials))) << result;
        EXPECT_EQ(Calls{"validate_user"}, stand_in.calls) << result;
        EXPECT_EQ((Pieces{refused_header(), refusal}), pieces) << result;
    }
}

TEST_F(ProcessRequest, gives_minus_1_for_refused_credentials_whatever_becomes_of_the_answer)
{
    stand_in.validate_user_result = -1;
    sockets.close_client();
    EXPECT_EQ(-1, process(post("/isam.cgi", "datasource=d", credentials)));
}

TEST_F(ProcessRequest, sends_nothing_when_the_credential_check_has_answered)
{
    stand_in.validate_user_result = -2;
    stand_in.validate_user_message = "SQLDriverConnect failed";
    EXPECT_EQ(-1, process(post("/isam.cgi", "datasource=d", credentials)));
    EXPECT_EQ(Calls{"validate_user"}, stand_in.calls);
    EXPECT_EQ(Pieces{}, pieces);
}

TEST_F(ProcessRequest, builds_the_header_of_a_refusal_whoever_has_answered)
{
    // Without a protocol to go by the header ends the process.
    for (int result : {-1, -2}) {
        stand_in.validate_user_result = result;
        EXPECT_EQ(SIGABRT, process_in_child(std::string("POST /isam.cgi\r\n") + credentials
                                            + "Content-Length: 12\r\n\r\ndatasource=d").signal) << result;
        EXPECT_EQ(Pieces{}, pieces) << result;
    }
}

TEST_F(ProcessRequest, ends_the_process_for_malformed_credentials_with_nothing_sent)
{
    for (const char *lines : {"Authorization: Basic\r\n", "Authorization:  \r\n",
                              "Authorization: Basic dXNlcg==\r\n"}) {
        EXPECT_EQ(SIGABRT, process_in_child(post("/isam.cgi", "datasource=d", lines)).signal) << lines;
        EXPECT_EQ(Pieces{}, pieces) << lines;
    }
}

TEST_F(ProcessRequest, ends_the_process_for_a_malformed_request_with_nothing_sent)
{
    for (const char *request : {"GET\r\n\r\n", "GET /", "FOO / HTTP/1.1\r\n\r\n", "HEAD / HTTP/1.1\r\n\r\n",
                                "\r\n\r\n"}) {
        EXPECT_EQ(SIGABRT, process_in_child(request).signal) << request;
        EXPECT_EQ(Pieces{}, pieces) << request;
    }
}

TEST_F(ProcessRequest, serves_a_file_and_closes_the_socket)
{
    int server = sockets.server();
    EXPECT_EQ(0, process("GET /" + write_file("a.css", "style") + " HTTP/1.1\r\n\r\n"));
    ASSERT_EQ(2u, pieces.size());
    EXPECT_EQ(0u, pieces[0].find("HTTP/1.1 500 Internal Server Error\r\n"));
    EXPECT_EQ("style", pieces[1]);
    EXPECT_EQ(-1, fcntl(server, F_GETFD));
    EXPECT_EQ(Calls{}, stand_in.calls);
}

TEST_F(ProcessRequest, serves_a_file_without_its_query_and_without_a_protocol)
{
    EXPECT_EQ(0, process("GET /" + write_file("a.css", "style") + "?v=2\r\n\r\n"));
    ASSERT_EQ(2u, pieces.size());
    EXPECT_EQ("style", pieces[1]);
}

TEST_F(ProcessRequest, serves_a_file_to_a_post_without_reading_its_body)
{
    EXPECT_EQ(0, process(post("/" + write_file("a.css", "style"), "malformed")));
    ASSERT_EQ(2u, pieces.size());
    EXPECT_EQ("style", pieces[1]);
}

TEST_F(ProcessRequest, ends_the_process_for_a_path_of_no_row_and_no_file_with_nothing_sent)
{
    for (const char *path : {"/unit_no_such_file", "/isam.cgi/", "/ISAM.CGI", "/Index.html/", "/../x", "/a..b",
                             "//isam.cgi", "/isam%2ecgi", "isam.cgi"}) {
        EXPECT_EQ(SIGABRT, process_in_child(std::string("GET ") + path + " HTTP/1.1\r\n\r\n").signal) << path;
        EXPECT_EQ(Pieces{}, pieces) << path;
    }
}

TEST_F(ProcessRequest, ends_the_process_behind_the_header_of_a_folder)
{
    EXPECT_EQ(SIGABRT, process_in_child("GET /" + make_folder("folder") + " HTTP/1.1\r\n\r\n").signal);
    EXPECT_EQ(1u, pieces.size());
}
