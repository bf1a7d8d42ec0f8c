#include "common/file.h"

#include "tests/unit/product_file.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <string>
#include <sys/stat.h>
#include <thread>

namespace {

std::string contents(const std::string &path, size_t size)
{
    File file(path.c_str());
    std::string bytes(size, '#');
    ssize_t count = read_file(file, bytes.data(), size);
    return count < 0 ? "failed" : bytes.substr(0, size_t(count));
}

}

TEST(File, is_closed_at_the_end_of_its_scope)
{
    int descriptor;
    {
        File file("/dev/null");
        descriptor = file.descriptor;
        EXPECT_EQ(FD_CLOEXEC, fcntl(descriptor, F_GETFD));
    }
    EXPECT_EQ(-1, fcntl(descriptor, F_GETFD));
}

TEST(File, that_is_not_there_has_a_negative_descriptor)
{
    EXPECT_LT(File("/no/such/file").descriptor, 0);
    EXPECT_LT(File("").descriptor, 0);
}

TEST(ReadFile, gives_what_fits_and_what_is_there)
{
    TemporaryFolder folder;
    std::string path = folder.write_file("five", "12345");
    EXPECT_EQ("1234", contents(path, 4));
    EXPECT_EQ("12345", contents(path, 5));
    EXPECT_EQ("12345", contents(path, 6));
    EXPECT_EQ("", contents(path, 0));
    EXPECT_EQ("", contents("/dev/null", 6));
}

TEST(ReadFile, goes_on_where_it_has_ended)
{
    TemporaryFolder folder;
    File file(folder.write_file("five", "12345").c_str());
    char bytes[4];
    EXPECT_EQ(4, read_file(file, bytes, sizeof bytes));
    EXPECT_EQ(1, read_file(file, bytes, sizeof bytes));
    EXPECT_EQ('5', bytes[0]);
    EXPECT_EQ(0, read_file(file, bytes, sizeof bytes));
}

TEST(ReadFile, reads_on_behind_a_piece)
{
    TemporaryFolder folder;
    std::string path = folder.path() + "/pipe";
    ASSERT_EQ(0, mkfifo(path.c_str(), 0600));
    std::thread writer([&] {
        int pipe = open(path.c_str(), O_WRONLY);
        // Each piece takes a read() of its own then, even when all are there before the first.
        EXPECT_EQ(0, fcntl(pipe, F_SETFL, O_DIRECT));
        for (const char *piece : {"12", "345", "6"})
            EXPECT_EQ(ssize_t(strlen(piece)), write(pipe, piece, strlen(piece)));
        close(pipe);
    });
    EXPECT_EQ("123456", contents(path, 100));
    writer.join();
}

TEST(ReadFile, of_a_directory_fails)
{
    EXPECT_EQ("failed", contents("/", 10));
}
