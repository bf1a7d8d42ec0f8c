// A file that is read, in pieces of the caller's: it has no buffer and no memory of its own (POSIX open and read).

#pragma once

#include <fcntl.h>
#include <sys/types.h>
#include <unistd.h>

// The owner of the descriptor, which is negative when the file does not open: closes it at the end of its scope.
struct File {
    int descriptor;

    explicit File(const char *path) : descriptor(open(path, O_RDONLY | O_CLOEXEC)) {}
    File(const File &) = delete;
    File &operator=(const File &) = delete;
    ~File()
    {
        if (descriptor >= 0)
            close(descriptor);
    }
};

// Reads on until `size` bytes are there or the file ends. Returns the number of bytes, fewer than `size` only at the
// file's end or before a failure; negative when nothing could be read for a failure, which a directory always is.
inline ssize_t read_file(const File &file, char *buffer, size_t size)
{
    size_t filled = 0;
    while (filled < size) {
        ssize_t count = read(file.descriptor, buffer + filled, size - filled);
        if (count < 0 && filled == 0)
            return count;
        if (count <= 0)
            break;
        filled += size_t(count);
    }
    return ssize_t(filled);
}
