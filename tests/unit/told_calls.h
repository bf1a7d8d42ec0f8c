// Calls of the C library that a test answers itself, for the length of a scope.

#pragma once

#include <ctime>
#include <functional>
#include <sys/select.h>

using Select = std::function<int(int count, fd_set *readable, fd_set *writable, fd_set *exceptional, timeval *limit)>;

class ToldSelect {
public:
    explicit ToldSelect(Select answer);
    ToldSelect(const ToldSelect &) = delete;
    ToldSelect &operator=(const ToldSelect &) = delete;
    ~ToldSelect();
};

// time() gives `first`, and each time `step` seconds more.
class ToldTime {
public:
    explicit ToldTime(time_t first, time_t step = 0);
    ToldTime(const ToldTime &) = delete;
    ToldTime &operator=(const ToldTime &) = delete;
    ~ToldTime();
};
