#include "server/log.h"

#include "tests/unit/captured_log.h"
#include "tests/unit/child.h"
#include "tests/unit/product_file.h"

#include <filesystem>
#include <gtest/gtest.h>

namespace {

// The end of a child that starts logging, with exit status 1 when the log is open then.
ChildEnd start_logging_in_child(const std::string &logged_behind = "")
{
    return run_in_child([&] {
        start_logging();
        log_printf("%s", logged_behind.c_str());
        return lfp != nullptr;
    });
}

// A directory text of exactly `length` characters that names `directory`.
std::string padded(std::string directory, size_t length)
{
    directory.append(length - directory.size(), '/');
    return directory;
}

constexpr size_t longest_directory = 511 - sizeof "/kelvohttp.log" + 1;

}

TEST(LogPrintf, writes_nothing_while_logging_is_off)
{
    ASSERT_EQ(nullptr, lfp);
    log_printf("into the %s", "void");
    EXPECT_EQ(nullptr, lfp);
}

TEST(LogPrintf, writes_plain_lines_without_time_or_level)
{
    CapturedLog log;
    log_printf("Using port %d\n", 8451);
    log_printf("%s", "100%s\n");
    EXPECT_EQ("Using port 8451\n100%s\n", log.text());
}

TEST(StartLogging, stays_off_without_a_log_file)
{
    TemporaryFolder folder;
    ProductFile config(folder.path());
    ChildEnd end = start_logging_in_child();
    EXPECT_EQ(0, end.exit_status);
    EXPECT_EQ("", end.errors);
    EXPECT_TRUE(std::filesystem::is_empty(folder.path()));
}

TEST(StartLogging, empties_the_log_file_and_says_that_it_started)
{
    TemporaryFolder folder;
    std::string log = folder.write_file("kelvohttp.log", "lines of an earlier start\n");
    ProductFile config(folder.path());
    EXPECT_EQ(1, start_logging_in_child().exit_status);
    EXPECT_EQ("Logging started\n", read_file(log));
}

TEST(StartLogging, writes_each_line_at_its_end)
{
    TemporaryFolder folder;
    std::string log = folder.write_file("kelvohttp.log", "");
    ProductFile config(folder.path());
    // A child ended by a signal flushes nothing.
    ChildEnd end = run_in_child([] {
        start_logging();
        log_printf("whole line\nbegin of a line");
        return raise(SIGKILL);
    });
    EXPECT_EQ(SIGKILL, end.signal);
    EXPECT_EQ("Logging started\nwhole line\n", read_file(log));
}

TEST(StartLogging, takes_a_directory_with_a_closing_slash)
{
    TemporaryFolder folder;
    std::string log = folder.write_file("kelvohttp.log", "");
    ProductFile config(folder.path() + "/");
    EXPECT_EQ(1, start_logging_in_child("more\n").exit_status);
    EXPECT_EQ("Logging started\nmore\n", read_file(log));
}

TEST(StartLogging, stays_off_when_the_log_does_not_open)
{
    TemporaryFolder folder;
    std::filesystem::create_directory(folder.path() + "/kelvohttp.log");
    ProductFile config(folder.path());
    ChildEnd end = start_logging_in_child();
    EXPECT_EQ(0, end.exit_status);
    EXPECT_EQ("", end.errors);
}

TEST(StartLogging, takes_the_longest_path_that_fits)
{
    TemporaryFolder folder;
    std::string log = folder.write_file("kelvohttp.log", "");
    ProductFile config(padded(folder.path(), longest_directory));
    EXPECT_EQ(1, start_logging_in_child().exit_status);
    EXPECT_EQ("Logging started\n", read_file(log));
}

TEST(StartLogging, says_on_standard_error_that_a_longer_path_leaves_logging_off)
{
    TemporaryFolder folder;
    std::string log = folder.write_file("kelvohttp.log", "untouched");
    for (size_t length : {longest_directory + 1, size_t(511), size_t(512), size_t(600)}) {
        ProductFile config(padded(folder.path(), length));
        ChildEnd end = start_logging_in_child();
        EXPECT_EQ(0, end.exit_status) << length;
        EXPECT_FALSE(end.errors.empty()) << length;
        EXPECT_EQ(end.errors.size() - 1, end.errors.find('\n')) << end.errors;
        EXPECT_EQ("untouched", read_file(log)) << length;
    }
}

TEST(StartLogging, uses_tmp_without_a_product_file)
{
    // Whoever has a log there keeps it: only that this start behaves accordingly is looked at.
    if (read_file("/tmp/kelvohttp.log"))
        GTEST_SKIP() << "/tmp/kelvohttp.log is somebody's";
    TemporaryFolder folder;
    folder.write_file("kelvohttp.log", "untouched");
    ProductFile config(std::nullopt);
    EXPECT_EQ(0, start_logging_in_child().exit_status);
    // Another test may be the one that has the file for a moment, so it is made here only if it is not there.
    FILE *made = fopen("/tmp/kelvohttp.log", "wx");
    ASSERT_NE(nullptr, made);
    fclose(made);
    EXPECT_EQ(1, start_logging_in_child().exit_status);
    EXPECT_EQ("Logging started\n", read_file("/tmp/kelvohttp.log"));
    remove("/tmp/kelvohttp.log");
}
