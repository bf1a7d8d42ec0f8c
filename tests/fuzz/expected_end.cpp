#include "tests/fuzz/expected_end.h"

#include <csetjmp>

extern "C" [[noreturn]] void __real_abort();

namespace {

jmp_buf way_back;
bool runs;

}

extern "C" [[noreturn]] void __wrap_abort()
{
    if (!runs)
        __real_abort();
    runs = false;
    longjmp(way_back, 1);
}

bool comes_back(const std::function<void()> &body)
{
    if (setjmp(way_back) != 0)
        return false;
    runs = true;
    body();
    runs = false;
    return true;
}
