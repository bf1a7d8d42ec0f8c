#include "server/reader.h"

#include "tests/unit/captured_log.h"
#include "tests/unit/child.h"
#include "tests/unit/failing_call.h"
#include "tests/unit/sockets.h"
#include "tests/unit/stand_in_application.h"
#include "tests/unit/told_calls.h"

#include <cerrno>
#include <csignal>
#include <cstring>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <string>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>
#include <vector>

namespace {

using Calls = std::vector<std::string>;

const std::string landing_page = "GET / HTTP/1.1\r\nHost: h\r\n\r\n";

class HandleRequest : public testing::Test {
protected:
    HandleRequest() { stand_in = {}; }
    ~HandleRequest() override { freeup_attr_pairs(stand_in.form_fields); }

    // Reads a request that the client sends in these pieces.
    void handle(const std::vector<std::string> &pieces)
    {
        SocketPair sockets(SOCK_DGRAM);
        for (const std::string &piece : pieces)
            sockets.client_sends(piece);
        handle_request(sockets.server());
    }

    // How a child ends that reads a request of these bytes, and what the client gets of it.
    ChildEnd handle_in_child(const std::string &bytes)
    {
        SocketPair sockets(SOCK_STREAM);
        sockets.client_sends(bytes);
        ChildEnd end = run_in_child([&] {
            handle_request(sockets.server());
            return stand_in.calls.size() == 1 ? 0 : 1;
        });
        answer = sockets.received();
        char rest[64];
        ssize_t count = recv(sockets.server(), rest, sizeof rest, MSG_DONTWAIT);
        unread = std::string(rest, count > 0 ? size_t(count) : 0);
        return end;
    }

    std::string answer, unread;
};

// How a socket is to be waited for: for data or an exception on it alone, 30 seconds, with no other set.
void expect_wait_for(int socket, int count, const fd_set *readable, const fd_set *writable, const fd_set *exceptional,
                     const timeval *limit)
{
    fd_set alone;
    FD_ZERO(&alone);
    FD_SET(socket, &alone);
    EXPECT_EQ(socket + 1, count);
    EXPECT_EQ(0, memcmp(&alone, readable, sizeof alone));
    EXPECT_EQ(nullptr, writable);
    EXPECT_EQ(0, memcmp(&alone, exceptional, sizeof alone));
    EXPECT_EQ(30, limit->tv_sec);
    EXPECT_EQ(0, limit->tv_usec);
}

// A request of that many bytes, its blank line at the very end.
std::string request_of(size_t size)
{
    std::string begin = "GET / HTTP/1.1\r\nHost: ";
    return begin + std::string(size - begin.size() - 4, 'h') + "\r\n\r\n";
}

// The two ends of a TCP connection on this host.
struct TcpPair {
    int server, client;

    TcpPair()
    {
        int listener = socket(AF_INET, SOCK_STREAM, 0);
        sockaddr_in address = {};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof address;
        bind(listener, reinterpret_cast<sockaddr *>(&address), size);
        listen(listener, 1);
        getsockname(listener, reinterpret_cast<sockaddr *>(&address), &size);
        client = socket(AF_INET, SOCK_STREAM, 0);
        connect(client, reinterpret_cast<sockaddr *>(&address), size);
        server = accept(listener, nullptr, nullptr);
        close(listener);
    }
    TcpPair(const TcpPair &) = delete;
    TcpPair &operator=(const TcpPair &) = delete;
    ~TcpPair()
    {
        close(server);
        close(client);
    }
};

}

TEST_F(HandleRequest, passes_a_whole_request_on)
{
    handle({landing_page});
    EXPECT_EQ(Calls{"uri_isam"}, stand_in.calls);
    EXPECT_EQ(landing_page, stand_in.page_on_entry);
}

TEST_F(HandleRequest, collects_a_request_that_is_cut_anywhere)
{
    for (size_t cut = 1; cut < landing_page.size(); cut++) {
        stand_in = {};
        handle({landing_page.substr(0, cut), landing_page.substr(cut)});
        EXPECT_EQ(Calls{"uri_isam"}, stand_in.calls) << cut;
        EXPECT_EQ(landing_page, stand_in.page_on_entry) << cut;
    }
}

TEST_F(HandleRequest, collects_a_request_from_many_pieces)
{
    handle({"GET", " / HTTP/1.1\r", "\n", "Host: h\r\n", "\r", "\n"});
    EXPECT_EQ(landing_page, stand_in.page_on_entry);
}

TEST_F(HandleRequest, does_not_take_a_receive_of_nothing_for_the_end)
{
    handle({"GET / HTTP/1.1\r\n", "", "", "Host: h\r\n\r\n"});
    EXPECT_EQ(landing_page, stand_in.page_on_entry);
}

TEST_F(HandleRequest, does_not_take_a_first_receive_of_nothing_for_the_end)
{
    handle({"", landing_page});
    EXPECT_EQ(landing_page, stand_in.page_on_entry);
}

TEST_F(HandleRequest, waits_for_a_blank_line_of_two_full_line_ends)
{
    handle({"GET / HTTP/1.1\n\n", "Host: h\r\n\n\r", "Via: v\r\n\r\n"});
    EXPECT_EQ("GET / HTTP/1.1\n\nHost: h\r\n\n\rVia: v\r\n\r\n", stand_in.page_on_entry);
}

TEST_F(HandleRequest, keeps_what_arrived_of_the_body)
{
    handle({"POST / HTTP/1.1\r\nContent-Length: 7\r\n\r\na=1", "&b=2"});
    EXPECT_EQ((std::vector<std::pair<std::string, std::string>>{{"a", "1"}, {"b", "2"}}), stand_in.fields);
    EXPECT_EQ("POST / HTTP/1.1\r\nContent-Length: 7\r\n\r\na=1", stand_in.page_on_entry);
}

TEST_F(HandleRequest, leaves_the_socket_open)
{
    SocketPair sockets(SOCK_STREAM);
    sockets.client_sends(landing_page);
    handle_request(sockets.server());
    EXPECT_EQ(1, send(sockets.server(), "x", 1, 0));
}

TEST_F(HandleRequest, takes_a_request_of_32767_bytes)
{
    ChildEnd end = handle_in_child(request_of(32767));
    EXPECT_EQ(0, end.exit_status);
    EXPECT_EQ(0u, answer.find("HTTP/1.1 200 OK\r\n"));
}

TEST_F(HandleRequest, ends_the_process_for_a_header_that_ends_at_byte_32768_with_nothing_sent)
{
    CapturedLog log;
    EXPECT_EQ(SIGABRT, handle_in_child(request_of(32768)).signal);
    EXPECT_EQ("", answer);
    EXPECT_EQ("", log.text());
}

TEST_F(HandleRequest, ends_the_process_for_a_header_without_end_with_nothing_sent)
{
    EXPECT_EQ(SIGABRT, handle_in_child(std::string(32768, 'h')).signal);
    EXPECT_EQ("", answer);
}

TEST_F(HandleRequest, ends_the_process_for_a_header_with_so_much_of_its_body)
{
    EXPECT_EQ(SIGABRT, handle_in_child(landing_page + std::string(32768 - landing_page.size(), 'b')).signal);
    EXPECT_EQ("", answer);
}

TEST_F(HandleRequest, takes_no_more_than_32768_bytes_off_the_connection)
{
    EXPECT_EQ(SIGABRT, handle_in_child(std::string(32768, 'h') + "left").signal);
    EXPECT_EQ("left", unread);
}

TEST_F(HandleRequest, returns_silently_when_there_is_no_such_socket)
{
    CapturedLog log;
    SocketPair sockets(SOCK_STREAM);
    int number = sockets.server();
    sockets.close_server();
    handle_request(number);
    EXPECT_EQ(Calls{}, stand_in.calls);
    EXPECT_EQ("", log.text());
}

TEST_F(HandleRequest, returns_silently_for_a_receive_error)
{
    // Readable for select, but nothing that can be received from.
    CapturedLog log;
    int unconnected = socket(AF_INET, SOCK_STREAM, 0);
    handle_request(unconnected);
    close(unconnected);
    EXPECT_EQ(Calls{}, stand_in.calls);
    EXPECT_EQ("", log.text());
}

TEST_F(HandleRequest, waits_30_seconds_for_the_first_data)
{
    SocketPair sockets(SOCK_STREAM);
    sockets.client_sends(landing_page);
    int waits = 0;
    ToldSelect select([&](int count, fd_set *readable, fd_set *writable, fd_set *exceptional, timeval *limit) {
        waits++;
        expect_wait_for(sockets.server(), count, readable, writable, exceptional, limit);
        return 0;
    });
    handle_request(sockets.server());
    EXPECT_EQ(1, waits);
    EXPECT_EQ(Calls{}, stand_in.calls);
}

TEST_F(HandleRequest, waits_anew_and_as_long_when_there_is_no_data_after_all)
{
    SocketPair sockets(SOCK_STREAM);
    sockets.client_sends(landing_page);
    int waits = 0;
    ToldSelect select([&](int count, fd_set *readable, fd_set *writable, fd_set *exceptional, timeval *limit) {
        expect_wait_for(sockets.server(), count, readable, writable, exceptional, limit);
        FD_ZERO(exceptional);
        if (++waits == 3)
            return 1;
        FD_ZERO(readable);
        *limit = {1, 2};
        return 1;
    });
    handle_request(sockets.server());
    EXPECT_EQ(3, waits);
    EXPECT_EQ(Calls{"uri_isam"}, stand_in.calls);
}

TEST_F(HandleRequest, waits_only_for_the_first_data)
{
    int waits = 0;
    ToldSelect select([&](int, fd_set *, fd_set *, fd_set *exceptional, timeval *) {
        waits++;
        FD_ZERO(exceptional);
        return 1;
    });
    handle({"GET / ", "HTTP/1.1\r\n", "\r\n"});
    EXPECT_EQ(1, waits);
    EXPECT_EQ(Calls{"uri_isam"}, stand_in.calls);
}

TEST_F(HandleRequest, takes_no_failed_wait_for_an_exception)
{
    // A select that fails leaves the sets as they were, the socket in both.
    CapturedLog log;
    SocketPair sockets(SOCK_STREAM);
    sockets.client_sends(landing_page);
    ToldSelect select([](int, fd_set *, fd_set *, fd_set *, timeval *) {
        errno = EINTR;
        return -1;
    });
    handle_request(sockets.server());
    EXPECT_EQ(Calls{}, stand_in.calls);
    EXPECT_EQ("", log.text());
}

TEST_F(HandleRequest, returns_silently_when_nothing_comes_in_time)
{
    // A wait that gives 0 at once looks like the end of a long one.
    CapturedLog log;
    SocketPair sockets(SOCK_STREAM);
    sockets.client_sends(landing_page);
    ChildEnd end = run_in_child([&] {
        if (!let_system_call_fail(__NR_pselect6, 0))
            return 77;
#ifdef __NR_select
        let_system_call_fail(__NR_select, 0);
#endif
        handle_request(sockets.server());
        return stand_in.calls.empty() ? 0 : 1;
    });
    if (end.exit_status == 77)
        GTEST_SKIP() << "the system does not let calls fail";
    EXPECT_EQ(0, end.exit_status);
    EXPECT_EQ("", sockets.received());
    EXPECT_EQ("", log.text());
}

TEST_F(HandleRequest, logs_an_exception_on_the_socket_and_sends_nothing)
{
    CapturedLog log;
    TcpPair connection;
    ASSERT_EQ(1, send(connection.client, "!", 1, MSG_OOB));
    handle_request(connection.server);
    EXPECT_EQ("Exception on socket\n", log.text());
    EXPECT_EQ(Calls{}, stand_in.calls);
    char byte;
    EXPECT_EQ(-1, recv(connection.client, &byte, 1, MSG_DONTWAIT));
}

TEST_F(HandleRequest, does_not_read_behind_an_exception)
{
    TcpPair connection;
    ASSERT_EQ(ssize_t(landing_page.size()), send(connection.client, landing_page.data(), landing_page.size(), 0));
    ASSERT_EQ(1, send(connection.client, "!", 1, MSG_OOB));
    handle_request(connection.server);
    EXPECT_EQ(Calls{}, stand_in.calls);
}

TEST_F(HandleRequest, limits_the_processor_time_for_reading_only)
{
    static rlimit before, in_handler;
    getrlimit(RLIMIT_CPU, &before);
    stand_in.build_page = [](RequestRecord *, PageBuffer &, int *length) {
        *length = 0;
        return getrlimit(RLIMIT_CPU, &in_handler);
    };
    for (const std::string &request : {landing_page, std::string("POST / HTTP/1.1\r\nContent-Length: 3\r\n\r\na=1")}) {
        in_handler = {};
        handle({request});
        EXPECT_EQ(before.rlim_cur, in_handler.rlim_cur) << request;
        EXPECT_EQ(before.rlim_max, in_handler.rlim_max) << request;
    }
}
