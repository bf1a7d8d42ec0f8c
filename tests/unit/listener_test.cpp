#include "server/listener.h"

#include "server/log.h"
#include "server/response.h"
#include "server/server_state.h"
#include "tests/unit/child.h"
#include "tests/unit/failing_call.h"
#include "tests/unit/product_file.h"
#include "tests/unit/sockets.h"
#include "tests/unit/stand_in_application.h"

#include <cerrno>
#include <csignal>
#include <cstring>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <string>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

// What start_process gave a parent whose child did as told. Runs in a child of the test, so that the test has no
// children that it does not know of.
struct ParentResult {
    int result, error;
};

ParentResult result_for_parent(const std::function<int()> &body, const std::function<bool()> &prepare = nullptr)
{
    ChildEnd end = run_in_child([&] {
        if (prepare && !prepare())
            return 77;
        errno = 0;
        int result = start_process();
        if (result == 0)
            _exit(body());
        printf("%d %d", result, errno);
        return 0;
    });
    ParentResult parent = {-77, 0};
    if (end.exit_status == 0)
        sscanf(end.output.c_str(), "%d %d", &parent.result, &parent.error);
    return parent;
}

// A folder with an empty log, named in the product configuration.
class HttpStart : public testing::Test {
protected:
    HttpStart() : log(folder.write_file("kelvohttp.log", "")), config(folder.path()) { stand_in = {}; }

    std::string logged() const { return read_file(log).value_or("(no log)"); }

    // Starts the server; its first line of standard output, or all of it when it ends before.
    RunningChild start(const std::string &port)
    {
        RunningChild server = start_child([&] { return http_start(port.c_str()); });
        first_line.clear();
        for (char byte; read(server.output, &byte, 1) == 1 && byte != '\n';)
            first_line += byte;
        return server;
    }

    static std::string answer_to(int connection, const std::string &request)
    {
        send(connection, request.data(), request.size(), 0);
        std::string answer = read_to_end(connection);
        close(connection);
        return answer;
    }

    static std::string start_lines(const std::string &port)
    {
        return "Logging started\nStarted logging Gantry HTTP Server\nUsing port " + port + "\n";
    }

    TemporaryFolder folder;
    std::string log;
    ProductFile config;
    std::string first_line;
};

const char landing_page[] = "GET / HTTP/1.1\r\n\r\n";

// The answer to it, up to the end of the connection: the stand-in application's page is empty.
bool is_page(const std::string &answer)
{
    return answer.starts_with("HTTP/1.1 200 OK\r\n") && answer.ends_with("\r\n\r\n");
}

int option_of(int socket, int level, int name)
{
    int value = -1;
    socklen_t size = sizeof value;
    getsockopt(socket, level, name, &value, &size);
    return value;
}

}

TEST(DefaultPort, is_8451)
{
    EXPECT_STREQ("8451", default_port);
}

TEST(StartProcess, gives_the_parent_1_for_a_child_that_exits_with_0)
{
    EXPECT_EQ(1, result_for_parent([] { return 0; }).result);
}

TEST(StartProcess, gives_the_parent_minus_1_and_the_exit_status_in_errno)
{
    for (int status : {1, 2, 7, 128, 255}) {
        ParentResult parent = result_for_parent([=] { return status; });
        EXPECT_EQ(-1, parent.result) << status;
        EXPECT_EQ(status, parent.error);
    }
}

TEST(StartProcess, gives_the_parent_minus_1_and_EINTR_for_a_child_that_a_signal_ended)
{
    for (int number : {SIGKILL, SIGABRT, SIGSEGV, SIGTERM, SIGRTMAX}) {
        ParentResult parent = result_for_parent([=] {
            signal(number, SIG_DFL);
            return raise(number);
        });
        EXPECT_EQ(-1, parent.result) << number;
        EXPECT_EQ(EINTR, parent.error) << number;
    }
}

TEST(StartProcess, gives_minus_1_when_forking_fails)
{
#ifdef __NR_clone
    ParentResult parent = result_for_parent([] { return 0; }, [] { return let_system_call_fail(__NR_clone, EAGAIN); });
    if (parent.result == -77)
        GTEST_SKIP() << "the system does not let calls fail";
    EXPECT_EQ(-1, parent.result);
    EXPECT_EQ(EAGAIN, parent.error);
#endif
}

TEST(StartProcess, gives_minus_1_when_waiting_fails)
{
    // Nobody is left to wait for where the system reaps children by itself.
    ParentResult parent = result_for_parent([] { return 0; }, [] { return signal(SIGCHLD, SIG_IGN) != SIG_ERR; });
    EXPECT_EQ(-1, parent.result);
    EXPECT_EQ(ECHILD, parent.error);
}

TEST(StartProcess, waits_for_exactly_its_own_child)
{
    ChildEnd end = run_in_child([] {
        pid_t other = fork();
        if (other == 0)
            _exit(3);
        siginfo_t info;
        waitid(P_PID, id_t(other), &info, WEXITED | WNOWAIT);
        int result = start_process();
        if (result == 0)
            _exit(0);
        int status;
        return result == 1 && waitpid(other, &status, 0) == other && WEXITSTATUS(status) == 3 ? 0 : 1;
    });
    EXPECT_EQ(0, end.exit_status);
}

TEST(StartProcess, runs_the_child_in_memory_of_its_own)
{
    static int number;
    ChildEnd end = run_in_child([] {
        number = 1;
        if (start_process() == 0) {
            number = 2;
            _exit(0);
        }
        return number;
    });
    EXPECT_EQ(1, end.exit_status);
}

TEST(StartProcess, keeps_children_from_leaving_a_core_file)
{
    EXPECT_EQ(-1, result_for_parent([] { return prctl(PR_GET_DUMPABLE) == 0 ? 5 : 6; }).result);
    EXPECT_EQ(5, result_for_parent([] { return prctl(PR_GET_DUMPABLE) == 0 ? 5 : 6; }).error);
}

TEST_F(HttpStart, says_which_port_it_serves_and_logs_it)
{
    std::string port = std::to_string(free_port());
    RunningChild server = start(port);
    EXPECT_EQ("html server accepting requests on port " + port, first_line);
    EXPECT_EQ(start_lines(port), logged());
    stop_child(server);
}

TEST_F(HttpStart, serves_one_connection_after_the_other)
{
    int port = free_port();
    RunningChild server = start(std::to_string(port));
    for (int i = 0; i < 3; i++)
        EXPECT_TRUE(is_page(answer_to(connect_to_port(port), landing_page))) << i;
    stop_child(server);
}

TEST_F(HttpStart, listens_on_all_local_addresses)
{
    int port = free_port();
    RunningChild server = start(std::to_string(port));
    EXPECT_TRUE(is_page(answer_to(connect_to_port(port, "127.0.0.2"), landing_page)));
    stop_child(server);
}

TEST_F(HttpStart, goes_on_after_a_child_that_died)
{
    int port = free_port();
    RunningChild server = start(std::to_string(port));
    for (const std::string &request : {std::string("GET /unit_no_such_file HTTP/1.1\r\n\r\n"),
                                       std::string("FOO / HTTP/1.1\r\n\r\n"), std::string(32768, 'h'),
                                       std::string("POST / HTTP/1.1\r\nContent-Length: 1\r\n\r\na")})
        EXPECT_EQ("", answer_to(connect_to_port(port), request));
    EXPECT_TRUE(is_page(answer_to(connect_to_port(port), landing_page)));
    stop_child(server);
}

TEST_F(HttpStart, serves_the_second_client_only_behind_the_first)
{
    int port = free_port();
    RunningChild server = start(std::to_string(port));
    int first = connect_to_port(port), second = connect_to_port(port);
    ASSERT_EQ(4, send(first, "GET ", 4, 0));
    ASSERT_EQ(ssize_t(strlen(landing_page)), send(second, landing_page, strlen(landing_page), 0));
    // An answer would take no time; a server that answers late passes, none that serves one by one fails.
    pollfd answered = {second, POLLIN, 0};
    EXPECT_EQ(0, poll(&answered, 1, 50));
    EXPECT_TRUE(is_page(answer_to(first, "/ HTTP/1.1\r\n\r\n")));
    EXPECT_TRUE(is_page(read_to_end(second)));
    close(second);
    stop_child(server);
}

TEST_F(HttpStart, notices_within_two_minutes_that_a_silent_client_has_vanished)
{
    stand_in.build_page = [](RequestRecord *request, PageBuffer &page, int *length) {
        int enabled = option_of(request->socket, SOL_SOCKET, SO_KEEPALIVE);
        int first_question = option_of(request->socket, IPPROTO_TCP, TCP_KEEPIDLE);
        int pause = option_of(request->socket, IPPROTO_TCP, TCP_KEEPINTVL);
        int questions = option_of(request->socket, IPPROTO_TCP, TCP_KEEPCNT);
        *length = snprintf(page.text, sizeof page.text, "%d %d", enabled, first_question + questions * pause);
        return 0;
    };
    int port = free_port();
    RunningChild server = start(std::to_string(port));
    std::string answer = answer_to(connect_to_port(port), landing_page);
    stop_child(server);
    int enabled = 0, seconds = 0;
    EXPECT_EQ(2, sscanf(answer.substr(answer.find("\r\n\r\n") + 4).c_str(), "%d %d", &enabled, &seconds)) << answer;
    EXPECT_EQ(1, enabled);
    EXPECT_LE(seconds, 120);
}

TEST_F(HttpStart, gives_a_page_whose_client_has_gone_a_failed_send)
{
    stand_in.build_page = [](RequestRecord *request, PageBuffer &, int *length) {
        char byte;
        while (recv(request->socket, &byte, 1, 0) > 0)
            ;
        const ResponsePiece piece[] = {{"p", 1}, {nullptr, 0}};
        log_printf("send_response gives %d\n", send_response(request->socket, piece));
        *length = 0;
        return 0;
    };
    int port = free_port();
    RunningChild server = start(std::to_string(port));
    int connection = connect_to_port(port);
    ASSERT_EQ(ssize_t(strlen(landing_page)), send(connection, landing_page, strlen(landing_page), 0));
    char header[header_size];
    ASSERT_LT(0, recv(connection, header, sizeof header, 0));
    const linger no_farewell = {1, 0};
    setsockopt(connection, SOL_SOCKET, SO_LINGER, &no_farewell, sizeof no_farewell);
    close(connection);
    // The next client is served when that is over.
    EXPECT_EQ("", answer_to(connect_to_port(port), "FOO / HTTP/1.1\r\n\r\n"));
    stop_child(server);
    EXPECT_EQ(start_lines(std::to_string(port)) + "send_response gives -1\n", logged());
}

TEST_F(HttpStart, keeps_the_lines_of_all_children_in_one_log)
{
    int port = free_port();
    RunningChild server = start(std::to_string(port));
    for (const char *length : {"3", "4"})
        answer_to(connect_to_port(port), std::string("POST / HTTP/1.1\r\nContent-Length: ") + length + "\r\n\r\na=12");
    stop_child(server);
    std::string lines = logged();
    size_t first = lines.find("Converted content-length: 3\n"), second = lines.find("Converted content-length: 4\n");
    EXPECT_EQ(start_lines(std::to_string(port)).size(), first) << lines;
    EXPECT_NE(std::string::npos, second) << lines;
    EXPECT_LT(first, second);
}

TEST_F(HttpStart, binds_a_port_again_whose_connections_are_not_forgotten_yet)
{
    int port = free_port();
    for (int i = 0; i < 2; i++) {
        RunningChild server = start(std::to_string(port));
        // The server closes first, so that its side of the connection lingers.
        EXPECT_TRUE(is_page(answer_to(connect_to_port(port), landing_page))) << i;
        stop_child(server);
    }
}

TEST_F(HttpStart, takes_what_is_no_number_for_port_0)
{
    for (const char *port : {"", "abc", "-", "x8451"}) {
        RunningChild server = start(port);
        EXPECT_EQ("html server accepting requests on port 0", first_line) << port;
        EXPECT_EQ(start_lines("0"), logged()) << port;
        stop_child(server);
    }
}

TEST_F(HttpStart, reports_a_port_that_cannot_be_bound)
{
    BusyPort busy;
    std::string port = std::to_string(busy.number());
    ChildEnd end = run_in_child([&] { return http_start(port.c_str()); });
    EXPECT_EQ(1, end.exit_status);
    EXPECT_EQ("", end.output);
    EXPECT_EQ("Failed to bind port " + port + "\n", end.errors);
    EXPECT_EQ(start_lines(port) + "Failed to bind socket\n", logged());
}

TEST_F(HttpStart, reads_the_port_as_a_decimal_number_of_16_bits)
{
    BusyPort busy;
    std::string port = std::to_string(busy.number());
    for (const std::string &text : {port, std::to_string(busy.number() + 65536), std::to_string(busy.number() + 655360),
                                    port + "x", port + " 9", "00" + port, " " + port, "+" + port}) {
        ChildEnd end = run_in_child([&] { return http_start(text.c_str()); });
        EXPECT_EQ("Failed to bind port " + port + "\n", end.errors) << text;
    }
}

TEST_F(HttpStart, takes_the_greatest_port_for_a_number_beyond_all_bounds)
{
    BusyPort busy(65535);
    ChildEnd end = run_in_child([] { return http_start("99999999999999999999"); });
    EXPECT_EQ("Failed to bind port 65535\n", end.errors);
}

TEST_F(HttpStart, takes_the_default_port_for_a_null_text)
{
    BusyPort busy(8451);
    ChildEnd end = run_in_child([&] { return http_start(nullptr); });
    EXPECT_EQ(1, end.exit_status);
    EXPECT_EQ("Failed to bind port 8451\n", end.errors);
    EXPECT_EQ(start_lines("8451") + "Failed to bind socket\n", logged());
}

TEST_F(HttpStart, settles_what_every_child_reads)
{
    BusyPort busy;
    ChildEnd end = run_in_child([&] {
        is_nt = 1;
        http_start(std::to_string(busy.number()).c_str());
        return nport == busy.number() && is_nt == 0 ? 0 : 1;
    });
    EXPECT_EQ(0, end.exit_status);
}

TEST_F(HttpStart, logs_that_there_is_no_socket)
{
    ChildEnd end = run_in_child([] {
        return let_system_call_fail(__NR_socket, EMFILE) ? http_start("0") : 77;
    });
    if (end.exit_status == 77)
        GTEST_SKIP() << "the system does not let calls fail";
    EXPECT_EQ(1, end.exit_status);
    EXPECT_EQ("", end.output);
    EXPECT_EQ("", end.errors);
    EXPECT_EQ("Logging started\nStarted logging Gantry HTTP Server\nFailed to get socket\n", logged());
}

TEST_F(HttpStart, logs_that_it_cannot_listen)
{
    ChildEnd end = run_in_child([] {
        return let_system_call_fail(__NR_listen, EADDRINUSE) ? http_start("0") : 77;
    });
    if (end.exit_status == 77)
        GTEST_SKIP() << "the system does not let calls fail";
    EXPECT_EQ(1, end.exit_status);
    EXPECT_EQ("html server accepting requests on port 0\n", end.output);
    EXPECT_EQ("", end.errors);
    EXPECT_EQ(start_lines("0") + "Failed to listen\n", logged());
}

TEST_F(HttpStart, closes_the_connection_that_it_cannot_fork_for)
{
#ifdef __NR_clone
    int port = free_port();
    RunningChild server = start_child([&] {
        return let_system_call_fail(__NR_clone, EAGAIN) ? http_start(std::to_string(port).c_str()) : 77;
    });
    char byte;
    bool started = read(server.output, &byte, 1) == 1;
    for (int i = 0; started && i < 2; i++) {
        int connection = connect_to_port(port);
        ASSERT_NE(-1, connection);
        EXPECT_EQ("", read_to_end(connection));
        close(connection);
    }
    stop_child(server);
    if (!started)
        GTEST_SKIP() << "the system does not let calls fail";
    EXPECT_EQ(start_lines(std::to_string(port)), logged());
#endif
}

TEST(HttpStartWithoutLog, logs_nothing_without_a_log_file)
{
    TemporaryFolder folder;
    ProductFile config(folder.path());
    BusyPort busy;
    std::string port = std::to_string(busy.number());
    ChildEnd end = run_in_child([&] { return http_start(port.c_str()) == 1 && !lfp ? 0 : 1; });
    EXPECT_EQ(0, end.exit_status);
    EXPECT_EQ(std::nullopt, read_file(folder.path() + "/kelvohttp.log"));
}
