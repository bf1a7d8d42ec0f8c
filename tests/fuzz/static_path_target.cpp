// Files of the html folder: whatever the path of the request, nothing else is opened or sent. The input is the path.

#include "server/static_file.h"
#include "server/template.h"
#include "tests/fuzz/target.h"
#include "tests/fuzz/html_files.h"
#include "tests/unit/sockets.h"

#include <algorithm>
#include <fcntl.h>
#include <filesystem>
#include <iterator>
#include <string>
#include <string_view>

extern "C" int __real_open(const char *path, int flags, ...);
extern "C" int __wrap_open(const char *path, int flags, ...);

namespace {

struct KnownFile {
    std::string_view name, content, type;
};

constexpr KnownFile known_files[] = {
    {"a.html", "<p>page", "text/html"},
    {"style.css", "body { color: black }\n", "text/css"},
    {"empty.txt", "", "text/plain"},
    {"images/b.png", "\x89PNG", "image/png"},
    {"images/more.jpg/Makefile", "all:\n", "text/plain"},
    {"images/x.y/proxy.pac", "function", "application/x-ns-proxy-autoconfig"},
};
constexpr std::string_view known_folders[] = {"", "images", "images/more.jpg", "images/x.y"};

int files_opened;

// The path without doubled slashes and single dots: what it means inside the html folder.
std::string plain_path(std::string_view path)
{
    std::string plain;
    while (!path.empty()) {
        std::string_view part = path.substr(0, path.find('/'));
        path.remove_prefix(std::min(part.size() + 1, path.size()));
        if (part.empty() || part == ".")
            continue;
        plain += plain.empty() ? "" : "/";
        plain += part;
    }
    return plain;
}

const KnownFile *file_of(std::string_view path)
{
    // What ends like a folder is none of the files.
    if (path.ends_with('/') || path.ends_with("/."))
        return nullptr;
    std::string plain = plain_path(path);
    for (const KnownFile &file : known_files)
        if (file.name == plain)
            return &file;
    return nullptr;
}

bool is_folder(std::string_view path)
{
    return std::find(std::begin(known_folders), std::end(known_folders), plain_path(path)) != std::end(known_folders);
}

void check_sent(const KnownFile &file, const std::string &sent)
{
    size_t header_end = sent.find("\r\n\r\n");
    PROMISE(sent.starts_with("HTTP/1.1 500 Internal Server Error\r\n"));
    PROMISE(header_end != sent.npos && sent.substr(header_end + 4) == file.content);
    std::string header = sent.substr(0, header_end + 2);
    PROMISE(header.ends_with("\r\nContent-Type: " + std::string(file.type) + "\r\n"));
    std::string length_line = "\r\nContent-Length: " + std::to_string(file.content.size()) + "\r\n";
    PROMISE((header.find(length_line) != header.npos) == !file.content.empty());
}

void make_folder()
{
    for (const KnownFile &file : known_files)
        write_html_file(std::string(file.name), file.content);
    write_html_file("../outside.html", "nobody's business");
}

}

// Sees every file that the code under test opens.
int __wrap_open(const char *path, int flags, ...)
{
    int opened = __real_open(path, flags);
    if (opened < 0 || !strstr(path, TABWARDEN_INSTALL_DIR))
        return opened;
    std::string real_path = std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(opened));
    std::string html = private_install_path() + "/html";
    PROMISE(real_path == html || real_path.starts_with(html + "/"));
    PROMISE(flags == (O_RDONLY | O_CLOEXEC));
    files_opened++;
    return opened;
}

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static const bool made = (make_folder(), true);
    static SocketPair sockets(SOCK_STREAM);
    (void)made;
    std::string path = text_of(data, size, 32767);
    auto copy = exact_copy(path);
    RequestRecord request;
    init_new_request(&request);
    request.uri = copy.get();
    files_opened = 0;

    int result = uri_file(sockets.server(), &request);
    std::string sent = sockets.received();

    bool climbs = path.find("..") != path.npos;
    bool fits = strlen(TABWARDEN_INSTALL_DIR "/html/") + path.size() < path_size;
    const KnownFile *file = climbs || !fits ? nullptr : file_of(path);
    bool folder = !climbs && fits && is_folder(path);
    PROMISE(files_opened == (file || folder ? 1 : 0));
    PROMISE(result == (file ? 0 : -1));
    PROMISE(request.status == (climbs ? 403 : file || folder ? 0 : 404));
    if (file)
        check_sent(*file, sent);
    else if (folder)
        PROMISE(sent.ends_with("\r\n\r\n"));
    else
        PROMISE(sent.empty());
    return 0;
}
