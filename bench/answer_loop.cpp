// answer_loop PORT ANSWERFILE PIECE END: a bare loop that sends the file's bytes to whoever asks. It sends them as
// tabwarden does: the header block by itself, then pieces of that many bytes. Its children end with END, exit or _exit.

#include "bench/loop.h"
#include "bench/walks.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sys/socket.h>
#include <unistd.h>

namespace {

constexpr char header_end[] = "\r\n\r\n";

char *bytes;
size_t length, header_length, piece;

bool read_answer(const char *path)
{
    FILE *file = fopen(path, "rb");
    if (!file)
        return false;
    fseek(file, 0, SEEK_END);
    length = size_t(ftell(file));
    rewind(file);
    bytes = static_cast<char *>(malloc(length));
    bool complete = bytes && fread(bytes, 1, length, file) == length;
    fclose(file);
    return complete;
}

void answer(int connection)
{
    walk_data_sources();
    size_t sent = 0;
    for (size_t end = header_length; sent < length; end = std::min(sent + piece, length)) {
        if (send(connection, bytes + sent, end - sent, 0) < 0)
            return;
        sent = end;
    }
}

}

int main(int argc, char **argv)
{
    if (argc != 5 || !read_answer(argv[2])) {
        fputs("Usage: answer_loop PORT ANSWERFILE PIECE END\n", stderr);
        return 2;
    }
    auto end = static_cast<const char *>(memmem(bytes, length, header_end, strlen(header_end)));
    header_length = end ? size_t(end - bytes) + strlen(header_end) : 0;
    piece = size_t(atol(argv[3]));
    return serve(argv[1], answer, strcmp(argv[4], "exit") == 0 ? exit : _exit);
}
