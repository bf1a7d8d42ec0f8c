// Any bytes as the path of a file: whatever is sent is a file of the html folder, whole.

#include "server/static_file.h"

#include "tests/fuzz/html_files.h"
#include "tests/fuzz/target.h"

#include <sys/socket.h>
#include <unistd.h>

namespace {

struct KnownFile {
    const char *name, *content;
};

constexpr KnownFile known_files[] = {
    {"fuzz.html", "<p>a page</p>"}, {"fuzz/style.css", "p { color: red }"}, {"fuzz/%2e", "a dot"}, {"fuzz/e", ""},
};
constexpr char secret[] = "nobody outside may see this";

bool write_files()
{
    for (const KnownFile &file : known_files)
        write_html_file(file.name, file.content);
    write_html_file("../secret", secret);
    return true;
}

std::string received(int socket)
{
    std::string bytes;
    char part[65536];
    for (ssize_t count; (count = recv(socket, part, sizeof part, MSG_DONTWAIT)) > 0;)
        bytes.append(part, size_t(count));
    return bytes;
}

bool is_known(const std::string &content)
{
    for (const KnownFile &file : known_files)
        if (content == file.content)
            return true;
    return false;
}

}

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static const bool written = write_files();
    auto path = exact_copy(text_of(data, size, 32767));
    RequestRecord record;
    init_new_request(&record);
    record.uri = path.get();
    int sockets[2];
    PROMISE(written && socketpair(AF_UNIX, SOCK_STREAM, 0, sockets) == 0);
    int result = uri_file(sockets[0], &record);
    std::string answer = received(sockets[1]);
    close(sockets[0]);
    close(sockets[1]);

    PROMISE(answer.find(secret) == std::string::npos);
    if (result < 0) {
        // A folder opens but cannot be read: its header has gone out then.
        PROMISE(answer.empty() == (record.status != 0));
        PROMISE(record.status == 0 || record.status == 403 || record.status == 404);
        return 0;
    }
    size_t blank_line = answer.find("\r\n\r\n");
    PROMISE(blank_line != std::string::npos && is_known(answer.substr(blank_line + 4)));
    return 0;
}
