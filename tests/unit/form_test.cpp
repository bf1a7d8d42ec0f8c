#include "server/form.h"

#include "server/log.h"
#include "tests/unit/captured_log.h"
#include "tests/unit/child.h"
#include "tests/unit/failing_call.h"
#include "tests/unit/guarded_text.h"
#include "tests/unit/same_bytes.h"
#include "tests/unit/sockets.h"

#include <csignal>
#include <cstring>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <string>
#include <unistd.h>
#include <utility>
#include <vector>

namespace {

using Fields = std::vector<std::pair<std::string, std::string>>;

// A body split into its list, which is released at the end.
struct SplitForm {
    GuardedText text;
    FormField *list = nullptr;
    int result;

    explicit SplitForm(std::string_view body) : text(body)
    {
        result = split_form_fields(text.text(), text.length(), &list);
    }
    SplitForm(const SplitForm &) = delete;
    SplitForm &operator=(const SplitForm &) = delete;
    ~SplitForm() { freeup_attr_pairs(list); }

    Fields fields() const
    {
        Fields fields;
        for (const FormField *field = list; field->name; field++)
            fields.emplace_back(field->name, field->value);
        return fields;
    }
};

std::string decoded(const std::string &value)
{
    SplitForm form("v=" + value);
    return form.list[0].value;
}

struct SplitEnd {
    int signal;
    std::string log;
};

// Splits a body that is to end the process; the log as it was then, without the first two lines.
SplitEnd end_of_split(std::string_view body)
{
    CapturedLog log;
    ChildEnd end = run_in_child([&] { return SplitForm(body).result; });
    std::string text = log.text();
    // The line that shows the body ends behind it, however many line ends the body has.
    size_t body_line = text.find('\n') + 1;
    return {end.signal, text.substr(body_line + body.size() + 1)};
}

// A record with its body source and the buffer that receives the body, which has an unmapped page behind it.
struct PostedBody {
    SocketPair sockets;
    RequestRecord record;
    GuardedText room{std::string(post_size, '#')};
    int length = 0;

    explicit PostedBody(uint32_t content_length, const char *remaining_data = nullptr, int type = SOCK_STREAM)
        : sockets(type)
    {
        init_new_request(&record);
        record.content_length = content_length;
        record.socket = sockets.server();
        if (remaining_data)
            record.remaining_data = strdup(remaining_data);
    }
    PostedBody(const PostedBody &) = delete;
    PostedBody &operator=(const PostedBody &) = delete;
    ~PostedBody() { freeup_request(&record); }

    PostBuffer &buffer() { return *reinterpret_cast<PostBuffer *>(room.text()); }
    int load() { return load_postdata(&record, buffer(), &length); }
    std::string body() { return room.text(); }

    // What is still in the socket.
    std::string unread()
    {
        char rest[256];
        ssize_t count = recv(sockets.server(), rest, sizeof rest, MSG_DONTWAIT);
        return std::string(rest, count > 0 ? size_t(count) : 0);
    }
};

const char *value_of(const RequestRecord &record, const char *name)
{
    const NameValue *header = record.headers;
    while (strcmp(header->name, name) != 0)
        header++;
    return header->value;
}

std::string address_text(const void *address)
{
    char text[32];
    snprintf(text, sizeof text, "%p", address);
    return text;
}

}

TEST(SplitFormFields, gives_the_fields_in_posted_order)
{
    const struct {
        const char *body;
        Fields fields;
    } cases[] = {
        {"a=1", {{"a", "1"}}},
        {"a=1&b=hello+world%21", {{"a", "1"}, {"b", "hello world!"}}},
        {"b=2&a=1&c=3", {{"b", "2"}, {"a", "1"}, {"c", "3"}}},
        {"a=1&a=2&A=3&a=1", {{"a", "1"}, {"a", "2"}, {"A", "3"}, {"a", "1"}}},
        {"a=&b=2", {{"a", ""}, {"b", "2"}}},
        {"a=1&b=2&", {{"a", "1"}, {"b", "2"}}},
        {"a=&", {{"a", ""}}},
        {"a=b=c&d==", {{"a", "b=c"}, {"d", "="}}},
        {"=1", {{"", "1"}}},
        {"a==", {{"a", "="}}},
        {"a&b=1", {{"a&b", "1"}}},
        {"a=1&&b=2", {{"a", "1"}, {"&b", "2"}}},
        {"a;b=1;c=2", {{"a;b", "1;c=2"}}},
    };
    for (const auto &sample : cases) {
        SplitForm form(sample.body);
        EXPECT_EQ(0, form.result) << sample.body;
        EXPECT_EQ(sample.fields, form.fields()) << sample.body;
    }
}

TEST(SplitFormFields, ends_the_list_with_a_pair_of_two_nulls)
{
    SplitForm form("a=1&b=2");
    EXPECT_EQ(nullptr, form.list[2].name);
    EXPECT_EQ(nullptr, form.list[2].value);
}

TEST(SplitFormFields, does_not_decode_names)
{
    EXPECT_EQ((Fields{{"a%20b", "1"}, {"c+d", "2"}, {"e\r\nf", "3"}}), SplitForm("a%20b=1&c+d=2&e\r\nf=3").fields());
}

TEST(SplitFormFields, drops_the_click_coordinates_of_an_image_button)
{
    EXPECT_EQ((Fields{{"go", "1"}}), SplitForm("x=3&y=4&go=1").fields());
    EXPECT_EQ((Fields{{"go", "1"}}), SplitForm("go=1&x=3&y=4").fields());
    EXPECT_EQ((Fields{{"a", "1"}, {"b", "2"}}), SplitForm("a=1&x=3&y=&b=2").fields());
}

TEST(SplitFormFields, keeps_names_that_only_resemble_click_coordinates)
{
    const Fields fields = {{"X", "1"}, {"Y", "2"}, {"xx", "3"}, {"go.x", "4"}, {"%78", "5"}, {"", "6"}};
    EXPECT_EQ(fields, SplitForm("X=1&Y=2&xx=3&go.x=4&%78=5&=6").fields());
}

TEST(SplitFormFields, skips_blanks_and_line_ends_before_a_name)
{
    EXPECT_EQ((Fields{{"a", "1"}, {"b", "2"}}), SplitForm(" \r\n a=1&\r\n b=2").fields());
    EXPECT_EQ((Fields{{"a ", "1"}, {"\tb", "2"}}), SplitForm(" a =1&\tb=2").fields());
}

TEST(SplitFormFields, skips_click_coordinates_behind_blanks)
{
    EXPECT_EQ((Fields{{"a", "1"}}), SplitForm(" x=1& y=2&a=1").fields());
}

TEST(SplitFormFields, decodes_values)
{
    const struct {
        const char *value;
        std::string decoded;
    } cases[] = {
        {"plain", "plain"},
        {"a+b++c", "a b  c"},
        {"%41%42", "AB"},
        {"%2b%2B", "++"},
        {"%25", "%"},
        {"%2541", "%41"},
        {"%c3%A4", "\xc3\xa4"},
        {"%ff%FE", "\xff\xfe"},
        {"\xc3\xa4", "\xc3\xa4"},
        {"a\rb\nc\r\nd", "abcd"},
        {"%0d%0a", "\r\n"},
        {"%26%3d", "&="},
        {"%7x", "\x07"},        // as far as it is a number
        {"a%00b", "a"},         // the byte 0 ends the value
        {"a%zzb", "a"},         // no number at all gives 0
        {"a%%41b", "a"},
        {"a%+1b", "a\x01" "b"}, // a sign and a blank belong to a number
        {"a% 1b", "a\x01" "b"},
        {"a%-1b", "a\xff" "b"},
        {"a%0xb", "a"},
        {"a%\r\nb", "a"},       // the next two characters, whatever they are
        {"a%4", "a\x04"},       // the NUL is the second digit
        {"a%", "a"},
    };
    for (const auto &sample : cases)
        EXPECT_EQ(sample.decoded, decoded(sample.value)) << sample.value;
}

TEST(SplitFormFields, decodes_no_further_than_the_field)
{
    EXPECT_EQ((Fields{{"a", "x\x04"}, {"b", "y"}}), SplitForm("a=x%4&b=y").fields());
    EXPECT_EQ((Fields{{"a", "x"}, {"b", "y"}}), SplitForm("a=x%&b=y").fields());
}

TEST(SplitFormFields, reads_no_further_than_its_length)
{
    // With and without the separator at its end.
    for (int length : {7, 8}) {
        GuardedText text("a=1&b=2&c=3");
        FormField *list;
        ASSERT_EQ(0, split_form_fields(text.text(), length, &list));
        EXPECT_STREQ("b", list[1].name);
        EXPECT_STREQ("2", list[1].value);
        EXPECT_EQ(nullptr, list[2].name);
        freeup_attr_pairs(list);
    }
}

TEST(SplitFormFields, ends_at_a_nul_behind_a_separator)
{
    EXPECT_EQ((Fields{{"a", "1"}}), SplitForm(std::string_view("a=1&\0b=2", 8)).fields());
}

TEST(SplitFormFields, takes_a_body_of_the_greatest_size)
{
    std::string value(size_t(post_size) - 2, 'v');
    EXPECT_EQ((Fields{{"a", value}}), SplitForm("a=" + value).fields());
}

TEST(SplitFormFields, takes_many_fields)
{
    std::string body;
    Fields expected;
    for (int i = 0; i < 3000; i++) {
        std::string name = "n" + std::to_string(i);
        body += (i ? "&" : "") + name + "=" + std::to_string(i);
        expected.emplace_back(name, std::to_string(i));
    }
    EXPECT_EQ(expected, SplitForm(body).fields());
}

TEST(SplitFormFields, keeps_copies_only)
{
    SplitForm form("a=1");
    memset(form.text.text(), '#', size_t(form.text.length()));
    EXPECT_EQ((Fields{{"a", "1"}}), form.fields());
}

TEST(SplitFormFields, logs_the_body_and_each_field)
{
    CapturedLog log;
    SplitForm form("a=x%20y&b=2+3");
    std::string expected = "split_form_fields(" + address_text(form.text.text()) + ",13,..)\na=x%20y&b=2+3\n"
                           + "urlunencode(" + address_text(form.list[0].value) + ")\nx%20y\na = x y\n"
                           + "urlunencode(" + address_text(form.list[1].value) + ")\n2+3\nb = 2 3\n";
    EXPECT_EQ(expected, log.text());
}

TEST(SplitFormFields, logs_the_body_in_a_field_as_wide_as_its_length)
{
    CapturedLog log;
    SplitForm form(std::string_view("a=1&\0b=2", 8));
    std::string lines = log.text();
    EXPECT_EQ(",8,..)\n    a=1&\n", lines.substr(lines.find(','), 16)) << lines;
}

TEST(SplitFormFields, logs_no_line_for_a_dropped_field)
{
    CapturedLog log;
    SplitForm form("x=3&a=1");
    std::string expected = "split_form_fields(" + address_text(form.text.text()) + ",7,..)\nx=3&a=1\nurlunencode("
                           + address_text(form.list[0].value) + ")\n1\na = 1\n";
    EXPECT_EQ(expected, log.text());
}

TEST(SplitFormFields, never_takes_data_for_a_format)
{
    CapturedLog log;
    SplitForm form("%n=%25s%25n");
    EXPECT_EQ((Fields{{"%n", "%s%n"}}), form.fields());
    EXPECT_NE(std::string::npos, log.text().find("%n = %s%n\n")) << log.text();
}

TEST(SplitFormFields, aborts_for_a_body_of_only_blanks_and_line_ends)
{
    for (const char *body : {" ", "\r", "\n", "\r\n", " \r\n  "}) {
        SplitEnd end = end_of_split(body);
        EXPECT_EQ(SIGABRT, end.signal) << body;
        EXPECT_EQ("buflen <= 0 [1]\n", end.log) << body;
    }
}

TEST(SplitFormFields, aborts_for_blanks_behind_the_last_separator)
{
    SplitEnd end = end_of_split("x=1& \r\n");
    EXPECT_EQ(SIGABRT, end.signal);
    EXPECT_EQ("buflen <= 0 [1]\n", end.log);
}

TEST(SplitFormFields, aborts_for_a_last_field_without_an_equals_sign)
{
    for (const char *body : {"a", "abc", " a", "x=1&a", "x=1&&", "\t", "&"}) {
        SplitEnd end = end_of_split(body);
        EXPECT_EQ(SIGABRT, end.signal) << body;
        EXPECT_EQ("buflen <= 0 [2]\n", end.log) << body;
    }
}

TEST(SplitFormFields, aborts_for_an_equals_sign_that_is_the_last_byte)
{
    for (const char *body : {"=", "a=", "x=1&a=", " a="}) {
        SplitEnd end = end_of_split(body);
        EXPECT_EQ(SIGABRT, end.signal) << body;
        EXPECT_EQ("buflen <= 0 [2]\n", end.log) << body;
    }
}

TEST(SplitFormFields, aborts_without_a_log_line_when_no_field_is_left)
{
    for (const char *body : {"", "x=3&y=4", "x=1", "y=1&", "x=&y=1"}) {
        SplitEnd end = end_of_split(body);
        EXPECT_EQ(SIGABRT, end.signal) << body;
        EXPECT_EQ("", end.log) << body;
    }
}

TEST(SplitFormFields, aborts_for_a_length_below_1)
{
    for (int length : {0, -1, -100}) {
        ChildEnd end = run_in_child([&] {
            GuardedText text("a=1");
            FormField *list;
            return split_form_fields(text.text(), length, &list);
        });
        EXPECT_EQ(SIGABRT, end.signal) << length;
    }
}

TEST(SplitFormFields, aborts_for_a_text_that_begins_with_a_nul)
{
    EXPECT_EQ(SIGABRT, run_in_child([] { return SplitForm(std::string_view("\0a=1", 4)).result; }).signal);
}

TEST(SplitFormFields, aborts_when_there_is_no_memory)
{
    // Not for the list, and not for a value.
    const struct {
        size_t left;
        std::string body;
    } cases[] = {{0, "a=1"}, {4096, "a=" + std::string(5000, 'v')}};
    for (const auto &sample : cases) {
        CapturedLog log;
        log_printf("the stream has its buffer then\n");
        ChildEnd end = run_in_child([&] {
            GuardedText text(sample.body);
            FormField *list;
            return use_up_memory(sample.left) ? split_form_fields(text.text(), text.length(), &list) : 77;
        });
        if (end.exit_status == 77)
            GTEST_SKIP() << "memory cannot be used up here";
        EXPECT_EQ(SIGABRT, end.signal) << sample.left;
        std::string lines = log.text();
        EXPECT_EQ("\n" + sample.body + "\nmalloc/realloc failed\n", lines.substr(lines.find("..)") + 3)) << lines;
    }
}

TEST(Getvalue, gives_the_first_of_equal_names)
{
    SplitForm form("a=1&b=2&a=3");
    EXPECT_EQ(form.list[0].value, getvalue(form.list, "a"));
    EXPECT_EQ(form.list[1].value, getvalue(form.list, "b"));
}

TEST(Getvalue, compares_names_case_sensitively_and_whole)
{
    SplitForm form("name=1");
    for (const char *name : {"Name", "NAME", "nam", "name2", "", " name"})
        EXPECT_EQ(nullptr, getvalue(form.list, name)) << name;
}

TEST(Getvalue, gives_an_empty_value)
{
    SplitForm form("a=&b=2");
    EXPECT_STREQ("", getvalue(form.list, "a"));
}

TEST(Getvalue, gives_null_for_a_null_and_an_empty_list)
{
    const FormField empty[] = {{nullptr, nullptr}};
    EXPECT_EQ(nullptr, getvalue(nullptr, "a"));
    EXPECT_EQ(nullptr, getvalue(empty, "a"));
}

TEST(FreeupAttrPairs, accepts_a_null_list)
{
    freeup_attr_pairs(nullptr);
}

TEST(FreeupAttrPairs, accepts_a_list_without_fields)
{
    auto list = static_cast<FormField *>(calloc(1, sizeof(FormField)));
    freeup_attr_pairs(list);
}

TEST(FreeupAttrPairs, accepts_a_field_without_a_value)
{
    auto list = static_cast<FormField *>(calloc(2, sizeof(FormField)));
    list[0].name = strdup("a");
    freeup_attr_pairs(list);
}

TEST(LoadPostdata, takes_what_arrived_with_the_header)
{
    PostedBody posted(3, "a=1");
    EXPECT_EQ(0, posted.load());
    EXPECT_EQ("a=1", posted.body());
    EXPECT_EQ(3, posted.length);
}

TEST(LoadPostdata, reads_nothing_when_the_content_length_is_there)
{
    PostedBody posted(3, "a=1");
    posted.sockets.client_sends("&b=2");
    posted.load();
    EXPECT_EQ("a=1", posted.body());
    EXPECT_EQ("&b=2", posted.unread());
}

TEST(LoadPostdata, takes_more_than_the_content_length_when_it_is_there_already)
{
    PostedBody posted(2, "a=1&b=2");
    EXPECT_EQ(0, posted.load());
    EXPECT_EQ("a=1&b=2", posted.body());
    EXPECT_EQ(7, posted.length);
}

TEST(LoadPostdata, reads_up_to_the_content_length_and_leaves_the_connection_open)
{
    PostedBody posted(10, "a=12");
    posted.sockets.client_sends("345678");
    EXPECT_EQ(0, posted.load());
    EXPECT_EQ("a=12345678", posted.body());
    EXPECT_EQ(10, posted.length);
}

TEST(LoadPostdata, takes_more_than_the_content_length_when_it_arrives_in_the_same_read)
{
    PostedBody posted(10, "a=12");
    posted.sockets.client_sends("345678\r\n");
    EXPECT_EQ(0, posted.load());
    EXPECT_EQ("a=12345678\r\n", posted.body());
    EXPECT_EQ(12, posted.length);
}

TEST(LoadPostdata, goes_on_reading_until_the_content_length_is_reached)
{
    PostedBody posted(10, "a=12", SOCK_DGRAM);
    for (const char *piece : {"3", "45", "678", "left"})
        posted.sockets.client_sends(piece);
    EXPECT_EQ(0, posted.load());
    EXPECT_EQ("a=12345678", posted.body());
    EXPECT_EQ("left", posted.unread());
}

TEST(LoadPostdata, reads_the_whole_body_from_the_connection)
{
    PostedBody posted(7);
    posted.sockets.client_sends("a=1&b=2");
    EXPECT_EQ(0, posted.load());
    EXPECT_EQ("a=1&b=2", posted.body());
    EXPECT_EQ(7, posted.length);
}

TEST(LoadPostdata, reads_to_the_end_without_a_content_length)
{
    PostedBody posted(0, "a=1");
    posted.sockets.client_sends("&b=2");
    posted.sockets.client_sends("&c=3");
    posted.sockets.client_shuts_down();
    EXPECT_EQ(0, posted.load());
    EXPECT_EQ("a=1&b=2&c=3", posted.body());
    EXPECT_EQ(11, posted.length);
}

TEST(LoadPostdata, gives_an_empty_body_when_the_client_sends_none)
{
    for (uint32_t content_length : {0u, 5u}) {
        PostedBody posted(content_length);
        posted.sockets.client_shuts_down();
        EXPECT_EQ(0, posted.load());
        EXPECT_EQ("", posted.body());
        EXPECT_EQ(0, posted.length);
    }
}

TEST(LoadPostdata, gives_what_there_is_when_the_client_closes_too_early)
{
    PostedBody posted(100, "a=1");
    posted.sockets.client_sends("&b=");
    posted.sockets.close_client();
    EXPECT_EQ(0, posted.load());
    EXPECT_EQ("a=1&b=", posted.body());
    EXPECT_EQ(6, posted.length);
}

TEST(LoadPostdata, is_cut_short_by_a_nul_in_the_body)
{
    PostedBody posted(0, nullptr, SOCK_DGRAM);
    posted.sockets.client_sends(std::string_view("a=1\0&b=2", 8));
    posted.sockets.client_sends("&c=3");
    posted.sockets.client_sends("");
    EXPECT_EQ(0, posted.load());
    EXPECT_EQ("a=1&c=3", posted.body());
    EXPECT_EQ(7, posted.length);
}

TEST(LoadPostdata, does_not_count_what_stands_behind_a_nul)
{
    PostedBody posted(8, nullptr, SOCK_DGRAM);
    posted.sockets.client_sends(std::string_view("a=1\0&b=2", 8));
    posted.sockets.client_sends("&c=34");
    EXPECT_EQ(0, posted.load());
    EXPECT_EQ("a=1&c=34", posted.body());
    EXPECT_EQ(8, posted.length);
}

TEST(LoadPostdata, stops_when_the_buffer_is_full)
{
    for (uint32_t content_length : {0u, 32767u, 32768u, 32769u, 100000u}) {
        PostedBody posted(content_length);
        posted.sockets.client_sends(std::string(40000, 'b'));
        EXPECT_EQ(0, posted.load()) << content_length;
        EXPECT_EQ(32768, posted.length) << content_length;
        EXPECT_BYTES(std::string(32768, 'b'), posted.body());
    }
}

TEST(LoadPostdata, asks_for_no_more_than_there_is_room)
{
    PostedBody posted(0, nullptr, SOCK_DGRAM);
    posted.sockets.client_sends(std::string(32760, 'a'));
    posted.sockets.client_sends("123456789");
    EXPECT_EQ(0, posted.load());
    EXPECT_EQ(32768, posted.length);
    EXPECT_BYTES(std::string(32760, 'a') + "12345678", posted.body());
}

TEST(LoadPostdata, tries_again_after_a_receive_error)
{
    // A datagram that nobody takes leaves an error at the socket that sent it.
    sockaddr_in here = {}, there = {};
    here.sin_family = there.sin_family = AF_INET;
    here.sin_addr.s_addr = there.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof here;
    int reader = socket(AF_INET, SOCK_DGRAM, 0), nobody = socket(AF_INET, SOCK_DGRAM, 0);
    ASSERT_EQ(0, bind(reader, reinterpret_cast<sockaddr *>(&here), size));
    ASSERT_EQ(0, bind(nobody, reinterpret_cast<sockaddr *>(&there), size));
    ASSERT_EQ(0, getsockname(reader, reinterpret_cast<sockaddr *>(&here), &size));
    ASSERT_EQ(0, getsockname(nobody, reinterpret_cast<sockaddr *>(&there), &size));
    ASSERT_EQ(0, connect(reader, reinterpret_cast<sockaddr *>(&there), size));
    close(nobody);
    ASSERT_EQ(4, send(reader, "none", 4, 0));
    int writer = socket(AF_INET, SOCK_DGRAM, 0);
    ASSERT_EQ(0, bind(writer, reinterpret_cast<sockaddr *>(&there), size));
    ASSERT_EQ(3, sendto(writer, "a=1", 3, 0, reinterpret_cast<sockaddr *>(&here), size));

    PostedBody posted(3);
    posted.record.socket = reader;
    EXPECT_EQ(0, posted.load());
    EXPECT_EQ("a=1", posted.body());
    close(reader);
    close(writer);
}

TEST(LoadPostdata, logs_that_nothing_is_counted_yet)
{
    CapturedLog log;
    PostedBody posted(3, "a=1");
    posted.load();
    EXPECT_EQ("0 bytes of remaining posted data\n", log.text());
}

TEST(LoadPostdata, takes_one_header_line_from_as_much_of_the_buffer_as_is_counted)
{
    CapturedLog log;
    PostedBody posted(3, "a=1");
    strcpy(posted.buffer(), "Host: h\r\nVia: v\r\n");
    posted.length = 17;
    EXPECT_EQ(0, posted.load());
    EXPECT_STREQ(" h", value_of(posted.record, "host"));
    EXPECT_EQ(nullptr, value_of(posted.record, "via"));
    EXPECT_EQ("8 bytes of remaining posted data\n", log.text());
    EXPECT_EQ("a=1", posted.body());
    EXPECT_EQ(3, posted.length);
}

TEST(LoadPostdata, leaves_the_record_as_it_is)
{
    PostedBody posted(3, "a=1");
    posted.load();
    EXPECT_STREQ("a=1", posted.record.remaining_data);
    EXPECT_EQ(3u, posted.record.content_length);
    for (const NameValue &header : posted.record.headers)
        EXPECT_EQ(nullptr, header.value);
}
