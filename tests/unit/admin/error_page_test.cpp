#include "admin/error_page.h"

#include "same_bytes.h"
#include "server/server_state.h"
#include "source_fixture.h"

#include <cstring>

namespace {

using ErrorPage = SourceFixture;

TEST_F(ErrorPage, is_sent_whole_between_the_templates_and_the_result_is_minus_one)
{
    EXPECT_EQ(return_error(context, "It went wrong.<br>"), -1);
    EXPECT_BYTES(error_page("It went wrong.<br>"), connection.received());
}

TEST_F(ErrorPage, leaves_the_page_buffer_alone)
{
    set_page(page, "begun");
    return_error(context, page.text);
    EXPECT_STREQ(page.text, "begun");
}

TEST_F(ErrorPage, goes_out_in_three_pieces)
{
    SocketPair datagrams(SOCK_DGRAM);
    request.socket = datagrams.server();
    return_error(context, "m");
    std::vector<std::string> pieces = datagrams.received_pieces();
    ASSERT_EQ(pieces.size(), 3u);
    EXPECT_EQ(pieces[0].rfind("<HTML><HEAD>\r\n<TITLE>Error</TITLE>\r\n</HEAD><BODY>", 0), 0u);
    EXPECT_EQ(pieces[1].rfind("\r\n<H1>Error</H1>\r\n<p>m<p>\r\n", 0), 0u);
    EXPECT_EQ(pieces[2], "</BODY></HTML>");
}

TEST_F(ErrorPage, takes_a_message_as_long_as_the_page_buffer)
{
    set_page(page, std::string(page_size - 1, 'm'));
    return_error(context, page.text);
    EXPECT_BYTES(error_page(page.text), connection.received());
}

TEST_F(ErrorPage, of_a_failed_call_tells_its_diagnostic)
{
    EXPECT_EQ(report_failure(context, page, "SQLAllocHandle", SQL_HANDLE_DBC, nullptr), -1);
    EXPECT_STREQ(page.text, "SQLAllocHandle failed with no diagnostic available\n");
    EXPECT_BYTES(error_page(page.text), connection.received());
}

TEST_F(ErrorPage, in_memory_is_written_without_closing_tags)
{
    nport = 4711;
    int length = 0;
    int result = add_html_error("gone", page, &length);
    EXPECT_EQ(result, int(strlen(page.text)));
    EXPECT_EQ(length, int(strlen(page.text)));
    EXPECT_BYTES("<HTML><HEAD>\r\n<TITLE>Error</TITLE>\r\n</HEAD><BODY bgcolor=\"white\">\r\n<H1>Error</H1>\r\n"
                 "<p>gone<p>\r\n" + address_line(4711),
                 page.text);
    EXPECT_EQ(connection.received(), "");
}

TEST_F(ErrorPage, in_memory_leaves_out_a_message_that_does_not_fit)
{
    std::string message(page_size, 'm');
    int length;
    add_html_error(message.c_str(), page, &length);
    EXPECT_NE(std::string(page.text).find("<p><p>\r\n<ADDRESS>"), std::string::npos);
}

}
