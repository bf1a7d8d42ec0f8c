// The adapter is a driver module linked with psqlODBC. The driver manager finds the ODBC functions that it defines in it
// and all others in psqlODBC behind it; in the same way psqlODBC finds the libpq functions that it defines in it.
#pragma once

#include <dlfcn.h>

#define EXPORTED extern "C" __attribute__((visibility("default")))

// The function of that name in the library behind this one, for a function of this module that goes on with it.
template <typename Function> Function *next_of(Function *, const char *name)
{
    return reinterpret_cast<Function *>(dlsym(RTLD_NEXT, name));
}
