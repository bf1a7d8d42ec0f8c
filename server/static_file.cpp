#include "server/static_file.h"

#include "common/file.h"
#include "server/response.h"
#include "server/template.h"

#include <cstdint>
#include <cstring>
#include <string_view>
#include <sys/stat.h>

namespace {

struct MimeType {
    const char *extension, *type;
};

constexpr MimeType mime_types[] = {
    {".html", "text/html"},
    {".htm", "text/html"},
    {".jpg", "image/jpeg"},
    {".jpeg", "image/jpeg"},
    {".gif", "image/gif"},
    {".png", "image/png"},
    {".css", "text/css"},
    {".au", "audio/basic"},
    {".wav", "audio/wav"},
    {".avi", "video/x-msvideo"},
    {".mov", "video/quicktime"},
    {".qt", "video/quicktime"},
    {".mpeg", "video/mpeg"},
    {".mpe", "video/mpeg"},
    {".vrml", "model/vrml"},
    {".wrl", "model/vrml"},
    {".midi", "audio/midi"},
    {".mid", "audio/midi"},
    {".mp3", "audio/mpeg"},
    {".pac", "application/x-ns-proxy-autoconfig"},
};

using TransferBuffer = char[32768];

const char *mime_type_of(const char *path)
{
    const char *extension = strrchr(path, '.');
    if (extension)
        for (const MimeType &mime : mime_types)
            if (strcmp(extension, mime.extension) == 0)
                return mime.type;
    return "text/plain";
}

int send_piece(int socket, const char *bytes, size_t count)
{
    ResponsePiece pieces[] = {{bytes, int32_t(count)}, {nullptr, 0}};
    return send_response(socket, pieces);
}

// The size as far as the header can tell it; 0, unknown, beyond that.
int32_t content_length_of(const char *path)
{
    struct stat status = {};
    stat(path, &status);
    return status.st_size <= INT32_MAX ? int32_t(status.st_size) : 0;
}

int send_header(int socket, const RequestRecord *request, const char *path, TransferBuffer &buffer)
{
    int length;
    // Status 0 on purpose: every file goes out under the line of status 500, and browsers show images all the same.
    protocol_header(request, buffer, &length, content_length_of(path), 0, public_caching, mime_type_of(path));
    return send_piece(socket, buffer, size_t(length));
}

int send_content(int socket, const File &file, TransferBuffer &buffer)
{
    for (;;) {
        ssize_t count = read_file(file, buffer, sizeof buffer - 1);
        if (count <= 0)
            return int(count);
        if (int result = send_piece(socket, buffer, size_t(count)); result < 0)
            return result;
    }
}

}

int uri_file(int socket, RequestRecord *request)
{
    char install_path[path_size], path[path_size];
    if (int result = get_install_path(install_path, sizeof install_path); result < 0)
        return result;
    const char *name = request->path_override ? request->path_override : request->uri;
    bool fits = html_path(path, install_path, name);
    if (std::string_view(fits ? path : name).find("..") != std::string_view::npos) {
        request->status = 403;
        return -1;
    }
    File file{fits ? path : ""};
    if (file.descriptor < 0) {
        request->status = 404;
        return -1;
    }
    TransferBuffer buffer;
    if (int result = send_header(socket, request, path, buffer); result < 0)
        return result;
    return send_content(socket, file, buffer);
}
