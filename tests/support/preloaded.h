// What libraries need that are preloaded into the program (LD_PRELOAD) and stand in front of functions that it calls.

#pragma once

#include <cstdint>
#include <dlfcn.h>
#include <link.h>

struct AddressRange {
    uintptr_t begin, end;
};

// The first object that is reported is the program.
inline int take_program_range(dl_phdr_info *object, size_t, void *out)
{
    auto range = static_cast<AddressRange *>(out);
    for (int i = 0; i < object->dlpi_phnum; i++) {
        const ElfW(Phdr) &part = object->dlpi_phdr[i];
        if (part.p_type == PT_LOAD && (part.p_flags & PF_X))
            *range = {object->dlpi_addr + part.p_vaddr, object->dlpi_addr + part.p_vaddr + part.p_memsz};
    }
    return 1;
}

inline AddressRange program_range()
{
    AddressRange range = {};
    dl_iterate_phdr(take_program_range, &range);
    return range;
}

// Whether this return address lies in the program's own code: the libraries that it uses call the same functions for
// themselves.
inline bool is_program(const void *caller)
{
    static const AddressRange program = program_range();
    auto address = reinterpret_cast<uintptr_t>(caller);
    return address >= program.begin && address < program.end;
}

// The function of that name behind this library.
template <typename Function>
Function *next_of(const char *name)
{
    return reinterpret_cast<Function *>(dlsym(RTLD_NEXT, name));
}
