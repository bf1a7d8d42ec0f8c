#include "tests/unit/guarded_text.h"

#include <cstdlib>
#include <cstring>
#include <sys/mman.h>
#include <unistd.h>

GuardedText::GuardedText(std::string_view text) : size(text.size())
{
    auto page = size_t(sysconf(_SC_PAGESIZE));
    size_t accessible = (size + 1 + page - 1) / page * page;
    mapped = accessible + page;
    void *pages = mmap(nullptr, mapped, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (pages == MAP_FAILED)
        abort();
    mapping = static_cast<char *>(pages);
    if (mprotect(mapping + accessible, page, PROT_NONE) != 0)
        abort();
    start = mapping + accessible - size - 1;
    memcpy(start, text.data(), size);
    start[size] = 0;
}

GuardedText::~GuardedText()
{
    munmap(mapping, mapped);
}
