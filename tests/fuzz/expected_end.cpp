#include "tests/fuzz/expected_end.h"

#include "tests/fuzz/target.h"

#include <csetjmp>
#include <cstdlib>
#include <sanitizer/allocator_interface.h>

extern "C" [[noreturn]] void __real_abort();
extern "C" [[noreturn]] void __wrap_abort();

namespace {

constexpr size_t most_allocations = 1 << 16;

bool runs;
jmp_buf way_back;
const volatile void *allocations[most_allocations];
size_t allocation_count;

void note_allocation(const volatile void *memory, size_t)
{
    if (!runs || !memory)
        return;
    PROMISE(allocation_count < most_allocations);
    allocations[allocation_count++] = memory;
}

// From the end: what is released was allocated recently, as a rule.
void forget_allocation(const volatile void *memory)
{
    if (!runs)
        return;
    for (size_t i = allocation_count; i-- > 0;) {
        if (allocations[i] != memory)
            continue;
        allocations[i] = allocations[--allocation_count];
        return;
    }
}

void release_allocations()
{
    while (allocation_count > 0)
        free(const_cast<void *>(allocations[--allocation_count]));
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
    PROMISE(allocation_count == 0);
    return true;
}
