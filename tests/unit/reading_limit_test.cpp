#include "server/reading_limit.h"

#include "tests/unit/child.h"

#include <gtest/gtest.h>

namespace {

rlimit processor_time()
{
    rlimit limit;
    getrlimit(RLIMIT_CPU, &limit);
    return limit;
}

bool operator==(const rlimit &a, const rlimit &b)
{
    return a.rlim_cur == b.rlim_cur && a.rlim_max == b.rlim_max;
}

// Whether `holds` while a limit lives that is set on top of `before`, and `before` holds again behind it.
bool limits(rlimit before, rlimit holds)
{
    return run_in_child([=] {
        if (setrlimit(RLIMIT_CPU, &before) != 0)
            return 2;
        {
            ReadingLimit limit;
            if (!(processor_time() == holds))
                return 1;
        }
        return processor_time() == before ? 0 : 1;
    }).exit_status == 0;
}

}

TEST(ReadingLimit, allows_30_seconds_and_then_what_was_allowed_before)
{
    EXPECT_TRUE(limits({RLIM_INFINITY, RLIM_INFINITY}, {30, RLIM_INFINITY}));
    EXPECT_TRUE(limits({100, 200}, {30, 200}));
    EXPECT_TRUE(limits({31, 31}, {30, 31}));
}

TEST(ReadingLimit, keeps_a_lower_limit)
{
    EXPECT_TRUE(limits({29, RLIM_INFINITY}, {29, RLIM_INFINITY}));
    EXPECT_TRUE(limits({5, 10}, {5, 10}));
}
