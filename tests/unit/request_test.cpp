#include "server/request.h"

#include "tests/unit/captured_log.h"
#include "tests/unit/child.h"
#include "tests/unit/failing_call.h"
#include "tests/unit/guarded_text.h"

#include <cstring>
#include <functional>
#include <gtest/gtest.h>
#include <iterator>
#include <string>
#include <strings.h>

namespace {

const char *const header_names[] = {
    "cache-control", "connection", "content-length", "content-type", "date", "forwarded", "keep-alive", "mime-version",
    "pragma", "upgrade", "accept", "accept-charset", "accept-encoding", "accept-language", "authorization", "from",
    "host", "if-modified-since", "proxy-authorization", "range", "referer", "unless", "user-agent", "via",
    "x-forwarded-for",
};

std::string shown(const char *text)
{
    return text ? std::string(text) : "(null)";
}

const char *header(const RequestRecord &record, const char *name)
{
    for (const NameValue &pair : record.headers) {
        if (!pair.name)
            break;
        if (strcasecmp(pair.name, name) == 0)
            return pair.value;
    }
    return nullptr;
}

// A record as the server starts with it, released at the end.
struct Record : RequestRecord {
    Record() { init_new_request(this); }
    Record(const Record &) = delete;
    Record &operator=(const Record &) = delete;
    ~Record() { freeup_request(this); }
};

// A request parsed from a text that ends right before an unmapped page.
struct Parsed : Record {
    GuardedText text;
    int result;

    explicit Parsed(std::string_view request) : text(request)
    {
        result = parse_request(text.text(), int(strlen(text.text())), this);
    }
};

// How a child ends that parses the request with no more than `left` bytes of memory: 0 when what comes of it is as
// expected, 77 where memory cannot be used up.
int exit_status_with_memory(size_t left, const std::string &request,
                            const std::function<bool(int result, const RequestRecord &)> &is_expected)
{
    return run_in_child([&] {
        RequestRecord record;
        init_new_request(&record);
        GuardedText text(request);
        if (!use_up_memory(left))
            return 77;
        return is_expected(parse_request(text.text(), text.length(), &record), record) ? 0 : 1;
    }).exit_status;
}

// One call of store_hd_field.
struct StoredLine : Record {
    GuardedText text;
    char *cursor;
    int remaining;
    int result;

    explicit StoredLine(std::string_view lines) : text(lines), cursor(text.text()), remaining(text.length())
    {
        result = store_hd_field(&cursor, &remaining, this);
    }

    int consumed() { return int(cursor - text.text()); }
    int store_next() { return result = store_hd_field(&cursor, &remaining, this); }
};

}

TEST(InitNewRequest, gives_the_25_header_names_in_order_without_values)
{
    RequestRecord record;
    memset(static_cast<void *>(&record), 0xff, sizeof record);
    init_new_request(&record);
    for (size_t i = 0; i < std::size(header_names); i++) {
        EXPECT_STREQ(header_names[i], record.headers[i].name);
        EXPECT_EQ(nullptr, record.headers[i].value);
    }
    for (size_t i = std::size(header_names); i < max_headers; i++) {
        EXPECT_EQ(nullptr, record.headers[i].name);
        EXPECT_EQ(nullptr, record.headers[i].value);
    }
}

TEST(InitNewRequest, zeroes_everything_else)
{
    RequestRecord record;
    memset(static_cast<void *>(&record), 0xff, sizeof record);
    init_new_request(&record);
    EXPECT_EQ(0u, record.content_length);
    EXPECT_EQ(0, record.method);
    EXPECT_EQ(nullptr, record.uri);
    EXPECT_EQ(nullptr, record.path_override);
    EXPECT_EQ(nullptr, record.query);
    EXPECT_EQ(nullptr, record.protocol);
    EXPECT_EQ(0, record.status);
    EXPECT_EQ(nullptr, record.remaining_data);
    EXPECT_EQ(0, record.socket);
}

TEST(InitNewRequest, does_nothing_for_a_null_record)
{
    init_new_request(nullptr);
}

TEST(ParseRequest, refuses_a_null_text_and_leaves_the_status)
{
    Record record;
    record.status = 7;
    EXPECT_EQ(-1, parse_request(nullptr, 10, &record));
    EXPECT_EQ(7, record.status);
}

TEST(ParseRequest, refuses_a_length_below_1_and_leaves_the_status)
{
    GuardedText text("GET / HTTP/1.1\r\n\r\n");
    for (int length : {0, -1}) {
        Record record;
        record.status = 7;
        EXPECT_EQ(-1, parse_request(text.text(), length, &record));
        EXPECT_EQ(7, record.status);
    }
}

TEST(ParseRequest, takes_the_request_line_apart)
{
    const struct {
        const char *text, *uri, *query, *protocol;
    } cases[] = {
        {"GET / HTTP/1.1\r\n\r\n", "/", "(null)", "HTTP/1.1"},
        {"GET /a?x=1 HTTP/1.1\r\n\r\n", "/a", "x=1", "HTTP/1.1"},
        {"GET /a? HTTP/1.1\r\n\r\n", "/a", "(null)", "HTTP/1.1"},
        {"GET /a?x?y=/&z HTTP/1.1\r\n\r\n", "/a", "x?y=/&z", "HTTP/1.1"},
        {"GET ?x HTTP/1.0\r\n\r\n", "", "x", "HTTP/1.0"},
        {"GET  HTTP/1.1\r\n\r\n", "", "(null)", "HTTP/1.1"},
        {"GET /a%20b+c HTTP/1.1\r\n\r\n", "/a%20b+c", "(null)", "HTTP/1.1"},
        {"GET /a HTTP/1.1 and more\r\n\r\n", "/a", "(null)", "HTTP/1.1 and more"},
        {"GET /a  HTTP/1.1\r\n\r\n", "/a", "(null)", " HTTP/1.1"},
        {"GET /a HTTP/1.0\n\n", "/a", "(null)", "HTTP/1.0"},
        {"GET /a HTTP/1.0", "/a", "(null)", "HTTP/1.0"},
        {"GET /a?x HTTP/1.0", "/a", "x", "HTTP/1.0"},
        {"GET /\xc3\xa4\xff HTTP/1.1\r\n\r\n", "/\xc3\xa4\xff", "(null)", "HTTP/1.1"},
        {"GET no/slash HTTP/1.1\r\n\r\n", "no/slash", "(null)", "HTTP/1.1"},
        {"GET http://host/a HTTP/1.1\r\n\r\n", "http://host/a", "(null)", "HTTP/1.1"},
        {"GET /a\tb HTTP/1.1\r\n\r\n", "/a\tb", "(null)", "HTTP/1.1"},
    };
    for (const auto &sample : cases) {
        Parsed request(sample.text);
        EXPECT_EQ(0, request.result) << sample.text;
        EXPECT_EQ(0, request.status) << sample.text;
        EXPECT_EQ(sample.uri, shown(request.uri)) << sample.text;
        EXPECT_EQ(sample.query, shown(request.query)) << sample.text;
        EXPECT_EQ(sample.protocol, shown(request.protocol)) << sample.text;
        EXPECT_EQ(nullptr, request.path_override) << sample.text;
        EXPECT_EQ(nullptr, request.remaining_data) << sample.text;
    }
}

TEST(ParseRequest, gives_no_protocol_when_a_carriage_return_comes_first)
{
    for (const char *text : {"GET /a\r\n\r\n", "GET /a \r\n\r\n", "GET /a?x\r\n\r\n", "GET /a?x \r\n\r\n",
                             "GET /a?\r\n\r\n", "GET /a? \r\n\r\n"}) {
        Parsed request(text);
        EXPECT_EQ(0, request.result) << text;
        EXPECT_EQ("/a", shown(request.uri)) << text;
        EXPECT_EQ(nullptr, request.protocol) << text << request.protocol;
    }
}

TEST(ParseRequest, gives_an_empty_protocol_when_a_line_feed_comes_first)
{
    for (const char *text : {"GET /a\n\n", "GET /a \n\n", "GET /a\n\r\n\r\n", "GET /a?x \n\n"}) {
        Parsed request(text);
        EXPECT_EQ(0, request.result) << text;
        EXPECT_EQ("/a", shown(request.uri)) << text;
        EXPECT_EQ("", shown(request.protocol)) << text;
    }
}

TEST(ParseRequest, reads_header_lines_behind_a_line_without_protocol)
{
    for (const char *text : {"GET /a\r\nHost: h\r\n\r\n", "GET /a \r\nHost: h\r\n\r\n", "GET /a\nHost: h\r\n\r\n",
                             "GET /a \nHost: h\r\n\r\n", "GET /a?x\r\nHost: h\r\n\r\n"}) {
        Parsed request(text);
        EXPECT_EQ(0, request.result) << text;
        EXPECT_EQ(" h", shown(header(request, "host"))) << text;
    }
}

TEST(ParseRequest, stores_the_index_of_a_served_method)
{
    EXPECT_EQ(1, Parsed("GET / HTTP/1.1\r\n\r\n").method);
    EXPECT_EQ(3, Parsed("POST / HTTP/1.1\r\n\r\n").method);
}

TEST(ParseRequest, method_is_matched_in_any_letter_case)
{
    const struct {
        const char *text;
        int method;
    } cases[] = {{"get / HTTP/1.1\r\n\r\n", 1}, {"Get / HTTP/1.1\r\n\r\n", 1}, {"pOsT / HTTP/1.1\r\n\r\n", 3}};
    for (const auto &sample : cases) {
        Parsed request(sample.text);
        EXPECT_EQ(0, request.result) << sample.text;
        EXPECT_EQ(sample.method, request.method) << sample.text;
    }
}

TEST(ParseRequest, a_known_method_that_is_not_served_sets_status_501)
{
    const struct {
        const char *name;
        int method;
    } cases[] = {{"OPTIONS", 0}, {"HEAD", 2}, {"PUT", 4},  {"PATCH", 5},   {"COPY", 6},   {"MOVE", 7},
                 {"DELETE", 8},  {"LINK", 9}, {"UNLINK", 10}, {"TRACE", 11}, {"WRAPPED", 12}, {"head", 2}};
    for (const auto &sample : cases) {
        Parsed request(std::string(sample.name) + " / HTTP/1.1\r\n\r\n");
        EXPECT_EQ(-1, request.result) << sample.name;
        EXPECT_EQ(501, request.status) << sample.name;
        EXPECT_EQ(sample.method, request.method) << sample.name;
    }
}

TEST(ParseRequest, an_unknown_method_sets_status_405)
{
    for (const char *text : {"FOO / HTTP/1.1\r\n\r\n", " / HTTP/1.1\r\n\r\n", "GE / HTTP/1.1\r\n\r\n",
                             "GETS / HTTP/1.1\r\n\r\n", "\tGET / HTTP/1.1\r\n\r\n", "GET\r\n\r\n / HTTP/1.1",
                             "CONNECT / HTTP/1.1\r\n\r\n", " ", "FOO "}) {
        Parsed request(text);
        EXPECT_EQ(-1, request.result) << text;
        EXPECT_EQ(405, request.status) << text;
        EXPECT_EQ(nullptr, request.uri) << text;
    }
}

TEST(ParseRequest, a_request_line_that_ends_too_early_sets_status_400)
{
    for (const char *text : {
             "G", "GET", "GET\r\n\r\n", "GET/HTTP/1.1\r\n\r\n",     // no blank behind the method
             "GET ", "POST ",                                       // nothing behind the method's blank
             "GET /", "GET /index.html", "POST a",                  // no end of the path
         }) {
        Parsed request(text);
        EXPECT_EQ(-1, request.result) << text;
        EXPECT_EQ(400, request.status) << text;
    }
}

TEST(ParseRequest, reads_no_further_than_its_length)
{
    const struct {
        const char *text;
        int length, result, status;
        const char *uri, *protocol;
    } cases[] = {
        {"GET / HTTP/1.1\r\nHost: h\r\n\r\n", 3, -1, 400, "(null)", "(null)"},
        {"GET / HTTP/1.1\r\nHost: h\r\n\r\n", 4, -1, 400, "(null)", "(null)"},
        {"GET / HTTP/1.1\r\nHost: h\r\n\r\n", 5, -1, 400, "(null)", "(null)"},
        {"GET / HTTP/1.1\r\nHost: h\r\n\r\n", 10, 0, 0, "/", "HTTP"},
        {"GET / HTTP/1.1\r\nHost: h\r\n\r\n", 16, 0, 0, "/", "HTTP/1.1"},
    };
    for (const auto &sample : cases) {
        Record record;
        GuardedText text(sample.text);
        EXPECT_EQ(sample.result, parse_request(text.text(), sample.length, &record)) << sample.length;
        EXPECT_EQ(sample.status, record.status) << sample.length;
        EXPECT_EQ(sample.uri, shown(record.uri)) << sample.length;
        EXPECT_EQ(sample.protocol, shown(record.protocol)) << sample.length;
        EXPECT_EQ(nullptr, header(record, "host")) << sample.length;
    }
}

TEST(ParseRequest, never_reads_behind_a_request_that_is_cut_anywhere)
{
    const std::string whole = "POST /isam.cgi?a=b HTTP/1.1\r\nHost: h\r\nContent-Length: 3\r\n folded\r\nAccept: a\x12"
                              "Accept: b\n c\r\n\r\na=1";
    for (size_t length = 0; length <= whole.size(); length++) {
        Parsed request(whole.substr(0, length));
        EXPECT_EQ(length < 15 ? -1 : 0, request.result) << length;
    }
}

TEST(ParseRequest, keeps_copies_only)
{
    Parsed request("POST /a?q HTTP/1.1\r\nHost: h\r\n\r\nbody");
    memset(request.text.text(), '#', size_t(request.text.length()));
    EXPECT_STREQ("/a", request.uri);
    EXPECT_STREQ("q", request.query);
    EXPECT_STREQ("HTTP/1.1", request.protocol);
    EXPECT_STREQ(" h", header(request, "host"));
    EXPECT_STREQ("body", request.remaining_data);
}

TEST(ParseRequest, stores_each_known_header_in_any_letter_case)
{
    for (const char *name : header_names) {
        std::string upper = name;
        for (char &character : upper)
            character = char(toupper(character));
        Parsed request("GET / HTTP/1.1\r\n" + upper + ": v\r\n\r\n");
        EXPECT_EQ(0, request.result) << name;
        EXPECT_EQ(" v", shown(header(request, name))) << name;
    }
}

TEST(ParseRequest, drops_unknown_header_names)
{
    Parsed request("GET / HTTP/1.1\r\nCookie: a\r\nHost: h\r\nHosts: b\r\nHos: c\r\n Host: d\r\n\r\n");
    EXPECT_EQ(0, request.result);
    for (const char *name : header_names)
        EXPECT_EQ(strcmp(name, "host") == 0 ? " h" : "(null)", shown(header(request, name))) << name;
    EXPECT_EQ(nullptr, request.headers[std::size(header_names)].name);
}

TEST(ParseRequest, keeps_leading_blanks_of_a_value)
{
    Parsed request("GET / HTTP/1.1\r\nHost:   h  \r\nVia:v\r\nFrom:\r\n\r\n");
    EXPECT_STREQ("   h  ", header(request, "host"));
    EXPECT_STREQ("v", header(request, "via"));
    EXPECT_STREQ("", header(request, "from"));
}

TEST(ParseRequest, joins_a_repeated_header_with_a_comma)
{
    EXPECT_STREQ(" a, b", header(Parsed("GET / HTTP/1.1\r\nAccept: a\r\nAccept: b\r\n\r\n"), "accept"));
    EXPECT_STREQ(" a, b,c", header(Parsed("GET / HTTP/1.1\r\nAccept: a\r\nHost: h\r\naccept: b\r\nACCEPT:c\r\n\r\n"),
                                   "accept"));
    EXPECT_STREQ(",", header(Parsed("GET / HTTP/1.1\r\nAccept:\r\nAccept:\r\n\r\n"), "accept"));
}

TEST(ParseRequest, converts_the_content_length)
{
    const struct {
        const char *value;
        uint32_t content_length;
        const char *log;
    } cases[] = {
        {" 12", 12, "Converted content-length: 12\n"},
        {"12", 12, "Converted content-length: 12\n"},
        {"  \t12", 12, "Converted content-length: 12\n"},
        {" +12", 12, "Converted content-length: 12\n"},
        {" 012", 12, "Converted content-length: 12\n"},
        {" 0", 0, "Converted content-length: 0\n"},
        {" 32768", 32768, "Converted content-length: 32768\n"},
        {" 4294967294", 4294967294u, "Converted content-length: 4294967294\n"},
        {" 4294967295", 0, ""},
        {" 4294967296", 0, ""},
        {" 99999999999999999999999", 0, ""},
        {" -1", 0, ""},
        {" 12x", 0, ""},
        {" 12 ", 0, ""},
        {" 1 2", 0, ""},
        {" 0x10", 0, ""},
        {" twelve", 0, ""},
        {" 12, 12", 0, ""},
    };
    for (const auto &sample : cases) {
        CapturedLog log;
        Parsed request(std::string("POST / HTTP/1.1\r\nContent-Length:") + sample.value + "\r\n\r\n");
        EXPECT_EQ(0, request.result) << sample.value;
        EXPECT_EQ(sample.content_length, request.content_length) << sample.value;
        EXPECT_EQ(sample.log, log.text()) << sample.value;
        EXPECT_EQ(sample.value, shown(header(request, "content-length")));
    }
}

TEST(ParseRequest, converts_the_value_that_was_read_last_and_not_the_joined_one)
{
    CapturedLog log;
    Parsed request("POST / HTTP/1.1\r\nContent-Length: 12\r\ncontent-length: 34\r\n\r\n");
    EXPECT_EQ(34u, request.content_length);
    EXPECT_STREQ(" 12, 34", header(request, "content-length"));
    EXPECT_EQ("Converted content-length: 12\nConverted content-length: 34\n", log.text());
}

TEST(ParseRequest, forgets_a_good_content_length_for_a_later_bad_one)
{
    EXPECT_EQ(0u, Parsed("POST / HTTP/1.1\r\nContent-Length: 12\r\nContent-Length: x\r\n\r\n").content_length);
}

TEST(ParseRequest, logs_nothing_else)
{
    CapturedLog log;
    Parsed request("GET /a?b HTTP/1.1\r\nHost: h\r\nContent-Type: 12\r\n\r\nbody");
    EXPECT_EQ("", log.text());
}

TEST(ParseRequest, does_not_split_header_lines_at_a_bare_line_feed)
{
    Parsed request("GET / HTTP/1.1\nHost: h\nAccept: a\nVia: v\r\nFrom: f\r\n\r\n");
    EXPECT_EQ(0, request.result);
    EXPECT_STREQ(" h\nAccept: a\nVia: v", header(request, "host"));
    EXPECT_EQ(nullptr, header(request, "accept"));
    EXPECT_EQ(nullptr, header(request, "via"));
    EXPECT_STREQ(" f", header(request, "from"));
}

TEST(ParseRequest, keeps_body_bytes_without_a_colon_as_remaining_data)
{
    for (const char *body : {"a", "a=1&b=2", "a=1\r\nb=2", "a=1\r\n\r\n", " a", "\ta=1", "aa b", "=", "&"}) {
        Parsed request(std::string("POST / HTTP/1.1\r\nHost: h\r\n\r\n") + body);
        EXPECT_EQ(0, request.result) << body;
        EXPECT_EQ(" h", shown(header(request, "host"))) << body;
        EXPECT_EQ(body, shown(request.remaining_data)) << body;
    }
}

TEST(ParseRequest, skips_line_ends_that_begin_the_body)
{
    EXPECT_STREQ("a=1", Parsed("POST / HTTP/1.1\r\nHost: h\r\n\r\n\r\n\n\ra=1").remaining_data);
}

TEST(ParseRequest, reads_a_body_with_a_colon_as_one_more_header_line)
{
    Parsed request("POST / HTTP/1.1\r\nHost: h\r\n\r\na=1&b=x:y");
    EXPECT_EQ(0, request.result);
    EXPECT_EQ(nullptr, request.remaining_data);
    EXPECT_STREQ(" h", header(request, "host"));
}

TEST(ParseRequest, keeps_what_stands_behind_the_line_that_a_body_with_a_colon_makes)
{
    EXPECT_STREQ("c=2", Parsed("POST / HTTP/1.1\r\nHost: h\r\n\r\na=x:y\r\nc=2").remaining_data);
}

TEST(ParseRequest, reads_a_header_name_in_the_body_as_a_header)
{
    Parsed request("POST / HTTP/1.1\r\nHost: h\r\n\r\nVia: body");
    EXPECT_STREQ(" body", header(request, "via"));
    EXPECT_EQ(nullptr, request.remaining_data);
}

TEST(ParseRequest, ends_at_a_colon_that_is_the_last_byte)
{
    Parsed request("POST / HTTP/1.1\r\nHost: h\r\n\r\na=b:");
    EXPECT_EQ(0, request.result);
    EXPECT_EQ(nullptr, request.remaining_data);
}

TEST(ParseRequest, leaves_no_remaining_data_without_a_body)
{
    for (const char *text : {"POST / HTTP/1.1\r\n\r\n", "POST / HTTP/1.1\r\nHost: h\r\n\r\n", "POST / HTTP/1.1\r\n",
                             "POST / HTTP/1.1", "POST / HTTP/1.1\r\nHost: h"})
        EXPECT_EQ(nullptr, Parsed(text).remaining_data) << text;
}

TEST(ParseRequest, keeps_a_body_behind_a_request_line_without_header_lines)
{
    EXPECT_STREQ("a=1", Parsed("POST / HTTP/1.1\r\n\r\na=1").remaining_data);
}

TEST(ParseRequest, takes_the_longest_request)
{
    std::string path(32767 - strlen("GET / HTTP/1.1\r\n\r\n"), 'p');
    Parsed request("GET /" + path + " HTTP/1.1\r\n\r\n");
    EXPECT_EQ(0, request.result);
    EXPECT_EQ("/" + path, shown(request.uri));
}

TEST(ParseRequest, sets_status_500_when_there_is_no_memory_for_a_part_of_the_request_line_or_the_body)
{
    const std::string part(5000, 'p');
    for (const std::string &request :
         {"GET /" + part + " HTTP/1.1\r\n\r\n", "GET /?" + part + " HTTP/1.1\r\n\r\n", "GET / " + part + "\r\n\r\n",
          "POST / HTTP/1.1\r\n\r\n" + part}) {
        int exit_status = exit_status_with_memory(4096, request, [](int result, const RequestRecord &record) {
            return result == -1 && record.status == 500;
        });
        if (exit_status == 77)
            GTEST_SKIP() << "memory cannot be used up here";
        EXPECT_EQ(0, exit_status) << request;
    }
}

TEST(ParseRequest, leaves_out_a_value_that_finds_no_memory)
{
    const std::string value(2500, 'v');
    const struct {
        std::string lines, stored;
    } cases[] = {
        {"Accept:" + value + value + "\r\n", "(null)"},
        {"Accept:" + value + "\r\nAccept:" + value + "\r\n", value},
    };
    for (const auto &sample : cases) {
        std::string request = "GET / HTTP/1.1\r\n" + sample.lines + "Host:h\r\n\r\n";
        int exit_status = exit_status_with_memory(4096, request, [&](int result, const RequestRecord &record) {
            const char *accept = header(record, "accept"), *host = header(record, "host");
            return result == 0 && sample.stored == (accept ? accept : "(null)") && host && strcmp(host, "h") == 0;
        });
        if (exit_status == 77)
            GTEST_SKIP() << "memory cannot be used up here";
        EXPECT_EQ(0, exit_status) << sample.lines;
    }
}

TEST(StoreHdField, gives_0_and_advances_nothing_without_bytes)
{
    StoredLine line("");
    EXPECT_EQ(0, line.result);
    EXPECT_EQ(0, line.consumed());
    EXPECT_EQ(0, line.remaining);
}

TEST(StoreHdField, treats_an_exhausted_count_like_no_bytes)
{
    GuardedText text("Host: h");
    Record record;
    char *cursor = text.text() + text.length();
    int remaining = -1;
    EXPECT_EQ(0, store_hd_field(&cursor, &remaining, &record));
    EXPECT_EQ(text.text() + text.length(), cursor);
}

TEST(StoreHdField, gives_0_and_advances_nothing_without_a_colon)
{
    for (const char *text : {"a", "body without", "a=1\r\nb=2\r\n"}) {
        StoredLine line(text);
        EXPECT_EQ(0, line.result) << text;
        EXPECT_EQ(0, line.consumed()) << text;
        EXPECT_EQ(line.text.length(), line.remaining) << text;
        EXPECT_STREQ(text, line.text.text());
    }
}

TEST(StoreHdField, gives_minus_1_when_the_colon_is_the_last_byte)
{
    for (const char *text : {":", "Host:"}) {
        StoredLine line(text);
        EXPECT_EQ(-1, line.result) << text;
        EXPECT_EQ(nullptr, header(line, "host"));
    }
}

TEST(StoreHdField, steps_over_a_line_with_its_line_end)
{
    StoredLine line("Host: h\r\nVia: v\r\n");
    EXPECT_EQ(1, line.result);
    EXPECT_EQ(9, line.consumed());
    EXPECT_EQ(8, line.remaining);
    EXPECT_STREQ(" h", header(line, "host"));
    EXPECT_EQ(1, line.store_next());
    EXPECT_EQ(17, line.consumed());
    EXPECT_EQ(0, line.remaining);
    EXPECT_STREQ(" v", header(line, "via"));
}

TEST(StoreHdField, skips_the_whole_run_of_line_ends)
{
    StoredLine line("Host: h\r\n\r\n\n\rbody");
    EXPECT_EQ(1, line.result);
    EXPECT_EQ(13, line.consumed());
    EXPECT_EQ(4, line.remaining);
}

TEST(StoreHdField, ends_a_value_at_the_byte_0x12)
{
    StoredLine line("Host: h\x12Via: v\r\n");
    EXPECT_EQ(1, line.result);
    EXPECT_STREQ(" h", header(line, "host"));
    EXPECT_EQ(8, line.consumed());
    EXPECT_EQ(1, line.store_next());
    EXPECT_STREQ(" v", header(line, "via"));
}

TEST(StoreHdField, skips_only_carriage_returns_and_line_feeds_behind_a_value)
{
    StoredLine line("Host: h\x12\x12" "Via: v\r\n");
    EXPECT_EQ(8, line.consumed());
}

TEST(StoreHdField, takes_a_value_that_runs_to_the_end_of_the_text)
{
    StoredLine line("Host: h");
    EXPECT_EQ(1, line.result);
    EXPECT_EQ(-1, line.remaining);
    EXPECT_STREQ(" h", header(line, "host"));
    EXPECT_EQ(0, line.store_next());
}

TEST(StoreHdField, lets_a_name_run_over_line_ends)
{
    StoredLine line("no colon here\r\nHost: h\r\n");
    EXPECT_EQ(1, line.result);
    EXPECT_EQ(nullptr, header(line, "host"));
    EXPECT_EQ(line.text.length(), line.consumed());
}

TEST(StoreHdField, reads_no_further_than_its_count)
{
    GuardedText text("Host: abc\r\nVia: v\r\n");
    Record record;
    char *cursor = text.text();
    int remaining = 7;
    EXPECT_EQ(1, store_hd_field(&cursor, &remaining, &record));
    EXPECT_STREQ(" a", header(record, "host"));
    EXPECT_EQ(-1, remaining);
}

TEST(StoreHdField, continues_a_value_when_the_second_byte_of_the_next_line_is_a_blank_or_tab)
{
    const struct {
        const char *text, *value;
        int consumed;
    } cases[] = {
        {"Host: h\r\n  more\r\nVia: v\r\n", " h, more", 17},
        {"Host: h\r\nx more\r\nVia: v\r\n", " h, more", 17},
        {"Host: h\r\n\t\tmore\r\nVia: v\r\n", " h,\tmore", 17},
        {"Host: h\r\nx\tmore\r\nVia: v\r\n", " h,\tmore", 17},
        {"Host: h\r\nx a\r\ny b\r\nVia: v\r\n", " h, a, b", 19},
        {"Host: h\r\nx a\x12Via: v\r\n", " h, a", 13},
        {"Host: h\x12x a\r\nVia: v\r\n", " h, a", 13},
        {"Host: h\r\nx a\nb\r\nVia: v\r\n", " h, a\nb", 16},
    };
    for (const auto &sample : cases) {
        StoredLine line(sample.text);
        EXPECT_EQ(1, line.result) << sample.text;
        EXPECT_EQ(sample.value, shown(header(line, "host"))) << sample.text;
        EXPECT_EQ(sample.consumed, line.consumed()) << sample.text;
        EXPECT_EQ(1, line.store_next()) << sample.text;
        EXPECT_STREQ(" v", header(line, "via")) << sample.text;
    }
}

TEST(StoreHdField, does_not_continue_a_value_for_a_blank_that_is_the_first_byte_only)
{
    StoredLine line("Host: h\r\n more\r\nVia: v\r\n");
    EXPECT_STREQ(" h", header(line, "host"));
    EXPECT_EQ(9, line.consumed());
}

TEST(StoreHdField, drops_the_continuation_of_an_unknown_header_with_it)
{
    StoredLine line("Cookie: c\r\nx Via: a\r\nVia: v\r\n");
    EXPECT_EQ(1, line.result);
    EXPECT_EQ(21, line.consumed());
    EXPECT_EQ(nullptr, header(line, "via"));
    EXPECT_EQ(1, line.store_next());
    EXPECT_STREQ(" v", header(line, "via"));
}

TEST(StoreHdField, continues_with_a_line_that_is_a_blank_at_the_end_of_the_text)
{
    StoredLine line("Host: h\r\nx ");
    EXPECT_EQ(1, line.result);
    EXPECT_STREQ(" h, ", header(line, "host"));
    EXPECT_EQ(-1, line.remaining);
}

TEST(StoreHdField, reads_no_second_byte_behind_the_end)
{
    StoredLine line("Host: h\r\nx");
    EXPECT_EQ(1, line.result);
    EXPECT_STREQ(" h", header(line, "host"));
    EXPECT_EQ(1, line.remaining);
}

TEST(StoreHdField, reads_no_second_byte_behind_its_count)
{
    GuardedText text("Host: h\r\nx more\r\n");
    Record record;
    char *cursor = text.text();
    int remaining = 10;
    EXPECT_EQ(1, store_hd_field(&cursor, &remaining, &record));
    EXPECT_STREQ(" h", header(record, "host"));
    EXPECT_EQ(1, remaining);
}

TEST(StoreHdField, converts_a_continued_content_length_too)
{
    CapturedLog log;
    StoredLine line("Content-Length: 12\r\nx 34\r\n");
    EXPECT_EQ(34u, line.content_length);
    EXPECT_STREQ(" 12, 34", header(line, "content-length"));
    EXPECT_EQ("Converted content-length: 12\nConverted content-length: 34\n", log.text());
}

TEST(StoreHdField, looks_names_up_to_the_first_null_one)
{
    RequestRecord record = {};
    record.headers[0].name = "HOST";
    record.headers[2].name = "via";
    GuardedText text("host: h\r\nvia: v\r\n");
    char *cursor = text.text();
    int remaining = text.length();
    EXPECT_EQ(1, store_hd_field(&cursor, &remaining, &record));
    EXPECT_EQ(1, store_hd_field(&cursor, &remaining, &record));
    EXPECT_STREQ(" h", record.headers[0].value);
    EXPECT_EQ(nullptr, record.headers[2].value);
    freeup_request(&record);
}

TEST(FreeupRequest, sets_every_text_null)
{
    RequestRecord record;
    init_new_request(&record);
    GuardedText text("POST /a?q HTTP/1.1\r\nHost: h\r\nX-Forwarded-For: x\r\n\r\nbody");
    ASSERT_EQ(0, parse_request(text.text(), text.length(), &record));
    freeup_request(&record);
    EXPECT_EQ(nullptr, record.uri);
    EXPECT_EQ(nullptr, record.query);
    EXPECT_EQ(nullptr, record.protocol);
    EXPECT_EQ(nullptr, record.remaining_data);
    for (const NameValue &pair : record.headers)
        EXPECT_EQ(nullptr, pair.value);
    EXPECT_STREQ("cache-control", record.headers[0].name);
}

TEST(FreeupRequest, accepts_a_record_that_holds_nothing_and_a_second_call)
{
    RequestRecord record;
    init_new_request(&record);
    freeup_request(&record);
    freeup_request(&record);
    EXPECT_EQ(nullptr, record.uri);
}

TEST(FreeupRequest, leaves_a_borrowed_path_alone)
{
    char path[] = "/borrowed";
    RequestRecord record;
    init_new_request(&record);
    record.path_override = path;
    freeup_request(&record);
    EXPECT_EQ(path, record.path_override);
}
