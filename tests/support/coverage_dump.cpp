// For the coverage build: a process that is ended by a signal, or leaves by _exit(), writes its counters all the same.
// Linked into each program and into the driver, each of which has counters of its own.

#include <csignal>
#include <dlfcn.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

// <gcov.h> declares it without extern "C".
extern "C" void __gcov_dump();

namespace {

// Ends nothing by itself: _exit() sends it, so that the drivers write theirs, too.
constexpr int leaving_signal = SIGURG;

constexpr int ending_signals[] = {SIGABRT, SIGSEGV, SIGTERM, SIGXCPU, leaving_signal};

struct sigaction before[NSIG];

void dump_counters()
{
    // Writing takes memory and files from where a test lets calls fail.
    if (void *no_more = dlsym(RTLD_DEFAULT, "let_no_call_fail"))
        reinterpret_cast<void (*)()>(no_more)();
    // A test may have used up the memory that writing takes.
    rlimit memory;
    getrlimit(RLIMIT_AS, &memory);
    memory.rlim_cur = memory.rlim_max;
    setrlimit(RLIMIT_AS, &memory);
    __gcov_dump();
}

// Also the driver's destructor: it is unloaded while its program goes on.
[[gnu::destructor]] void give_signals_back()
{
    for (int number : ending_signals)
        sigaction(number, &before[number], nullptr);
}

// Each signal goes on to whoever had it before, which may be the program behind the driver; in the end to the kernel.
// Given back first: a fault while writing must not come here again.
void dump_at_signal(int number)
{
    give_signals_back();
    dump_counters();
    raise(number);
}

[[gnu::constructor]] void catch_ending_signals()
{
    struct sigaction action = {};
    action.sa_handler = dump_at_signal;
    for (int number : ending_signals)
        sigaction(number, &action, &before[number]);
}

}

extern "C" [[noreturn]] void _exit(int status)
{
    raise(leaving_signal);
    syscall(SYS_exit_group, status);
    __builtin_unreachable();
}
