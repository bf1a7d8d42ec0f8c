#include "tests/unit/told_calls.h"

#include <utility>

namespace {

Select told_select;

bool time_is_told;
time_t next_time, time_step;

time_t real_time()
{
    timespec now;
    clock_gettime(CLOCK_REALTIME, &now);
    return now.tv_sec;
}

int real_select(int count, fd_set *readable, fd_set *writable, fd_set *exceptional, const timeval *limit)
{
    timespec rest = {};
    if (limit)
        rest = {limit->tv_sec, limit->tv_usec * 1000};
    return pselect(count, readable, writable, exceptional, limit ? &rest : nullptr, nullptr);
}

}

// The linker takes these before those of the C library.

int select(int count, fd_set *readable, fd_set *writable, fd_set *exceptional, timeval *limit)
{
    if (told_select)
        return told_select(count, readable, writable, exceptional, limit);
    return real_select(count, readable, writable, exceptional, limit);
}

time_t time(time_t *copy) noexcept
{
    time_t now = time_is_told ? next_time : real_time();
    next_time += time_step;
    if (copy)
        *copy = now;
    return now;
}

ToldSelect::ToldSelect(Select answer)
{
    told_select = std::move(answer);
}

ToldSelect::~ToldSelect()
{
    told_select = nullptr;
}

ToldTime::ToldTime(time_t first, time_t step)
{
    time_is_told = true;
    next_time = first;
    time_step = step;
}

ToldTime::~ToldTime()
{
    time_is_told = false;
}
