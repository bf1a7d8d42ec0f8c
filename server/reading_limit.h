// The processor time that reading a request may cost. Receives that give nothing are repeated for as long as it takes,
// so a client that closes its side too early keeps its child busy, and the server, which serves one child at a time,
// waiting. With the limit the server comes back by itself.

#pragma once

#include <sys/resource.h>

// While it lives, SIGXCPU ends the process once it has used 30 seconds of processor time since it was forked, or what
// the limit before allowed if that was less. Its end brings the limit before back: what a request asks for may take
// any time. Where the system does not allow it, nothing changes. (POSIX, setrlimit, RLIMIT_CPU)
class ReadingLimit {
public:
    ReadingLimit();
    ReadingLimit(const ReadingLimit &) = delete;
    ReadingLimit &operator=(const ReadingLimit &) = delete;
    ~ReadingLimit();

private:
    rlimit before = {RLIM_INFINITY, RLIM_INFINITY};
};
