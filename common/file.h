// The owner of an open stdio stream: closes it at the end of its scope.

#pragma once

#include <cstdio>

struct File {
    FILE *stream;

    explicit File(FILE *opened) : stream(opened) {}
    File(const File &) = delete;
    File &operator=(const File &) = delete;
    ~File()
    {
        if (stream)
            fclose(stream);
    }
};
