#include "tests/unit/child.h"
#include "tests/unit/product_file.h"
#include "tests/unit/sockets.h"

#include <gtest/gtest.h>
#include <string>
#include <unistd.h>
#include <vector>

namespace {

const char usage[] =
    "\nusage : tabwarden [-p \"port\"]\n"
    "  -p  Specify port for http server to listen on.\n\n"
    "  example : tabwarden -p 8451\n\n";

// The command line of the program, with the stand-in application behind it.
class Program : public testing::Test {
protected:
    Program() : config(folder.path()) {}

    static RunningChild start(const std::vector<std::string> &arguments)
    {
        return start_child([&] {
            std::vector<char *> argv = {const_cast<char *>("program")};
            for (const std::string &argument : arguments)
                argv.push_back(const_cast<char *>(argument.c_str()));
            argv.push_back(nullptr);
            execv(STAND_IN_SERVER, argv.data());
            return 126;
        });
    }

    static ChildEnd run(const std::vector<std::string> &arguments)
    {
        RunningChild program = start(arguments);
        return wait_for_child(program);
    }

    TemporaryFolder folder;
    ProductFile config;
};

// The program came as far as this port, which is somebody else's.
void expect_failed_start(int port, const ChildEnd &end)
{
    EXPECT_EQ(0, end.exit_status);
    EXPECT_EQ("", end.output);
    EXPECT_EQ("Failed to bind port " + std::to_string(port) + "\n", end.errors);
}

}

TEST_F(Program, prints_its_usage_for_a_bad_command_line)
{
    const std::vector<std::vector<std::string>> cases = {
        {"-p"}, {"-x"}, {"-?"}, {"-?", "a"}, {"-?a"}, {"-:"}, {"-P", "1"}, {"-p", "1", "-x"}, {"-xp", "1"}, {"--help"},
        {"file", "-p"},
    };
    for (const std::vector<std::string> &arguments : cases) {
        ChildEnd end = run(arguments);
        EXPECT_EQ(255, end.exit_status) << testing::PrintToString(arguments);
        EXPECT_EQ("", end.output) << testing::PrintToString(arguments);
        EXPECT_EQ(usage, end.errors) << testing::PrintToString(arguments);
    }
}

TEST_F(Program, serves_the_port_of_its_option)
{
    int port = free_port();
    RunningChild program = start({"-p", std::to_string(port)});
    int connection = connect_to_port(port);
    ASSERT_NE(-1, connection);
    const char request[] = "GET / HTTP/1.1\r\n\r\n";
    EXPECT_EQ(ssize_t(sizeof request - 1), send(connection, request, sizeof request - 1, 0));
    EXPECT_EQ(0u, read_to_end(connection).find("HTTP/1.1 200 OK\r\n"));
    close(connection);
    stop_child(program);
}

TEST_F(Program, serves_port_8451_without_an_option)
{
    BusyPort busy(8451);
    expect_failed_start(8451, run({}));
}

TEST_F(Program, exits_with_0_also_after_a_failed_start)
{
    BusyPort busy;
    expect_failed_start(busy.number(), run({"-p", std::to_string(busy.number())}));
}

TEST_F(Program, takes_the_option_in_one_word_and_the_last_one_of_several)
{
    BusyPort busy;
    std::string port = std::to_string(busy.number());
    for (const std::vector<std::string> &arguments : std::vector<std::vector<std::string>>{
             {"-p" + port}, {"-p", "1", "-p", port}, {"file", "-p", port, "more"}, {"-p", port, "--", "-x"}})
        expect_failed_start(busy.number(), run(arguments));
}

TEST_F(Program, takes_a_port_text_of_254_characters)
{
    BusyPort busy;
    std::string port = std::to_string(busy.number());
    expect_failed_start(busy.number(), run({"-p", std::string(254 - port.size(), '0') + port}));
}

TEST_F(Program, prints_its_usage_for_a_longer_port_text)
{
    BusyPort busy;
    std::string port = std::to_string(busy.number());
    for (size_t length : {size_t(255), size_t(256), size_t(1000)}) {
        ChildEnd end = run({"-p", std::string(length - port.size(), '0') + port});
        EXPECT_EQ(255, end.exit_status) << length;
        EXPECT_EQ(usage, end.errors) << length;
    }
}
