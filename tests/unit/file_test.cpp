#include "common/file.h"

#include <fcntl.h>
#include <gtest/gtest.h>

TEST(File, closes_its_stream_at_the_end_of_its_scope)
{
    int fd;
    {
        File file{tmpfile()};
        ASSERT_NE(nullptr, file.stream);
        fd = fileno(file.stream);
        EXPECT_NE(-1, fcntl(fd, F_GETFD));
    }
    EXPECT_EQ(-1, fcntl(fd, F_GETFD));
}

TEST(File, accepts_a_stream_that_did_not_open)
{
    File file{nullptr};
    EXPECT_EQ(nullptr, file.stream);
}
