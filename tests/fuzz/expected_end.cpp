#include "tests/fuzz/expected_end.h"

#include "tests/fuzz/target.h"

#include <csetjmp>
#include <cstdlib>
#include <sanitizer/allocator_interface.h>
#include <unordered_set>

extern "C" [[noreturn]] void __real_abort();
extern "C" [[noreturn]] void __wrap_abort();

namespace {

// Of the thread that runs the body: libFuzzer has another one, which allocates when it likes.
thread_local bool runs;
jmp_buf way_back;
std::unordered_set<const volatile void *> allocations;

// The set's own memory is none of the body's.
void note_allocation(const volatile void *memory, size_t)
{
    if (!runs || !memory)
        return;
    runs = false;
    allocations.insert(memory);
    runs = true;
}

void forget_allocation(const volatile void *memory)
{
    if (!runs)
        return;
    runs = false;
    allocations.erase(memory);
    runs = true;
}

void release_allocations()
{
    for (const volatile void *memory : allocations)
        free(const_cast<void *>(memory));
    allocations.clear();
}

}

void __wrap_abort()
{
    if (!runs)
        __real_abort();
    runs = false;
    longjmp(way_back, 1);
}

bool comes_back(const std::function<void()> &body)
{
    static const int installed = __sanitizer_install_malloc_and_free_hooks(note_allocation, forget_allocation);
    PROMISE(installed);
    if (setjmp(way_back) != 0) {
        release_allocations();
        return false;
    }
    runs = true;
    body();
    runs = false;
    PROMISE(allocations.empty());
    return true;
}
