#include "tests/unit/failing_call.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/resource.h>

namespace {

// Behind a limit of memory the stack cannot grow either, so it gets its size before. Not inlined: what is called later
// shall find its room within.
[[gnu::noinline]] void grow_stack()
{
    volatile char stack[1 << 18];
    for (size_t i = 0; i < sizeof stack; i += 1024)
        stack[i] = 1;
}

}

bool let_system_call_fail(int number, int error)
{
    sock_filter filter[] = {
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, uint32_t(number), 0, 1),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | uint32_t(error)),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
    };
    sock_fprog program = {4, filter};
    return prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 && prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) == 0;
}

bool use_up_memory(size_t left)
{
    grow_stack();
    void *rest = left > 0 ? malloc(left) : nullptr;
#if defined(__SANITIZE_ADDRESS__)
    // Its allocator ends the process in place of giving null.
    free(rest);
    return false;
#else
    // The hard limit stays: what is to be written at the process's end may raise the other again.
    rlimit nothing_more;
    getrlimit(RLIMIT_AS, &nothing_more);
    nothing_more.rlim_cur = 1;
    if (setrlimit(RLIMIT_AS, &nothing_more) != 0)
        return false;
    // Every size of small pieces in its turn: the allocator keeps lists of them. Volatile, or nothing is allocated.
    for (size_t size = 1 << 20; size > 0; size -= size > 2048 ? size / 2 : 8)
        for (void *volatile piece = malloc(size); piece;)
            piece = malloc(size);
    free(rest);
    return true;
#endif
}
