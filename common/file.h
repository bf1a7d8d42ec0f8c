// The owner of an open stdio stream that is read into large buffers, so it has none of its own: closes it at the end of
// its scope.

#pragma once

#include <cstdio>

struct File {
    FILE *stream;

    explicit File(FILE *opened) : stream(opened)
    {
        if (stream)
            setvbuf(stream, nullptr, _IONBF, 0);
    }
    File(const File &) = delete;
    File &operator=(const File &) = delete;
    ~File()
    {
        if (stream)
            fclose(stream);
    }
};
