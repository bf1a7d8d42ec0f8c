// Preloaded into a program that speaks ODBC (LD_PRELOAD): whenever it ends a list, with the whole result still held, the
// memory that the process has to itself becomes a line of the file that CHILD_MEMORY names, in KiB.

#include "tests/support/preloaded.h"

#include <cstdio>
#include <cstdlib>
#include <sql.h>

// What has been written to, the stack included, and nothing that the system has mapped from files.
static long anonymous_memory()
{
    char line[256];
    long kib = 0;
    FILE *file = fopen("/proc/self/smaps_rollup", "re");
    if (!file)
        abort();
    while (fgets(line, sizeof line, file))
        sscanf(line, "Anonymous: %ld", &kib);
    fclose(file);
    return kib;
}

SQLRETURN SQL_API SQLCloseCursor(SQLHSTMT stmt)
{
    FILE *file = fopen(getenv("CHILD_MEMORY"), "ae");
    if (!file)
        abort();
    fprintf(file, "%ld\n", anonymous_memory());
    fclose(file);
    return next_of<decltype(::SQLCloseCursor)>("SQLCloseCursor")(stmt);
}
