#include "server/reading_limit.h"

#include <algorithm>

namespace {

constexpr rlim_t seconds_to_read = 30;

}

ReadingLimit::ReadingLimit()
{
    getrlimit(RLIMIT_CPU, &before);
    rlimit reading = {std::min(before.rlim_cur, seconds_to_read), before.rlim_max};
    setrlimit(RLIMIT_CPU, &reading);
}

ReadingLimit::~ReadingLimit()
{
    setrlimit(RLIMIT_CPU, &before);
}
