#include "server/static_file.h"

#include "tests/unit/captured_log.h"
#include "tests/unit/html_folder.h"
#include "tests/unit/same_bytes.h"
#include "tests/unit/sockets.h"

#include <cstring>
#include <fcntl.h>
#include <string>
#include <unistd.h>
#include <vector>

namespace {

// Serves paths and keeps what was sent, piece by piece.
class UriFile : public HtmlFolder {
protected:
    UriFile() { init_new_request(&record); }
    ~UriFile() override { freeup_request(&record); }

    int serve(const std::string &path)
    {
        freeup_request(&record);
        record.status = 0;
        record.uri = strdup(path.c_str());
        int result = uri_file(sockets.server(), &record);
        pieces = sockets.received_pieces();
        return result;
    }

    static std::string header(const std::string &length_line, const char *type)
    {
        return "HTTP/1.1 500 Internal Server Error\r\n"
               "Date: DATE\r\n"
               "Server: Skiffhttp 1.0 (unix)\r\n"
               "Last-Modified: DATE\r\n"
               "Accept-Ranges: bytes\r\n"
               + length_line + "Cache-Control: public\r\nContent-Type: " + type + "\r\n\r\n";
    }

    SocketPair sockets{SOCK_DGRAM};
    RequestRecord record;
    std::vector<std::string> pieces;
};

}

TEST_F(UriFile, sends_a_header_and_the_file)
{
    std::string name = write_file("style.css", "body { color: black }\n");
    EXPECT_EQ(0, serve("/" + name));
    ASSERT_EQ(2u, pieces.size());
    EXPECT_BYTES(header("Content-Length: 22\r\n", "text/css"), without_dates(pieces[0]));
    EXPECT_EQ("body { color: black }\n", pieces[1]);
}

TEST_F(UriFile, leaves_the_status_of_a_served_file)
{
    serve("/" + write_file("a.css", "a"));
    EXPECT_EQ(0, record.status);
}

TEST_F(UriFile, sends_an_empty_file_without_length_and_body)
{
    EXPECT_EQ(0, serve("/" + write_file("empty.html", "")));
    ASSERT_EQ(1u, pieces.size());
    EXPECT_BYTES(header("", "text/html"), without_dates(pieces[0]));
}

TEST_F(UriFile, sends_chunks_of_at_most_32767_bytes)
{
    for (const std::vector<size_t> &chunks : std::vector<std::vector<size_t>>{
             {1}, {32766}, {32767}, {32767, 1}, {32767, 32767}, {32767, 32767, 4466}}) {
        std::string content;
        for (size_t chunk : chunks)
            while (chunk--)
                content += char(content.size() * 7 + content.size() / 256);
        EXPECT_EQ(0, serve("/" + write_file("chunks.png", content)));
        ASSERT_EQ(chunks.size() + 1, pieces.size()) << content.size();
        EXPECT_BYTES(header("Content-Length: " + std::to_string(content.size()) + "\r\n", "image/png"),
                     without_dates(pieces[0]));
        std::string sent;
        for (size_t i = 0; i < chunks.size(); i++) {
            EXPECT_EQ(chunks[i], pieces[i + 1].size());
            sent += pieces[i + 1];
        }
        EXPECT_BYTES(content, sent);
    }
}

TEST_F(UriFile, tells_the_type_by_the_extension)
{
    const struct {
        const char *extension, *type;
    } cases[] = {
        {".html", "text/html"}, {".htm", "text/html"}, {".jpg", "image/jpeg"}, {".jpeg", "image/jpeg"},
        {".gif", "image/gif"}, {".png", "image/png"}, {".css", "text/css"}, {".au", "audio/basic"},
        {".wav", "audio/wav"}, {".avi", "video/x-msvideo"}, {".mov", "video/quicktime"}, {".qt", "video/quicktime"},
        {".mpeg", "video/mpeg"}, {".mpe", "video/mpeg"}, {".vrml", "model/vrml"}, {".wrl", "model/vrml"},
        {".midi", "audio/midi"}, {".mid", "audio/midi"}, {".mp3", "audio/mpeg"},
        {".pac", "application/x-ns-proxy-autoconfig"},
        {".js", "text/plain"}, {".ico", "text/plain"}, {".mpg", "text/plain"}, {".HTML", "text/plain"},
        {".Css", "text/plain"}, {".txt", "text/plain"}, {"", "text/plain"}, {".", "text/plain"},
        {".htmlx", "text/plain"}, {".ht", "text/plain"}, {".css.bak", "text/plain"}, {".bak.css", "text/css"},
        {".gif ", "text/plain"}, {"css", "text/plain"},
    };
    for (const auto &sample : cases) {
        EXPECT_EQ(0, serve("/" + write_file(std::string("type") + sample.extension, "x"))) << sample.extension;
        ASSERT_EQ(2u, pieces.size()) << sample.extension;
        EXPECT_BYTES(header("Content-Length: 1\r\n", sample.type), without_dates(pieces[0]));
    }
}

TEST_F(UriFile, refuses_two_adjacent_dots_anywhere)
{
    write_file("a..b.html", "secret");
    for (const std::string &path : {std::string("/../etc/passwd"), std::string(".."), std::string("/.."),
                                    std::string("/a/.."), "/" + own_name("a..b.html"), std::string("/..."),
                                    std::string("/no_such_file.."), std::string("../../../../etc/passwd")}) {
        EXPECT_EQ(-1, serve(path)) << path;
        EXPECT_EQ(403, record.status) << path;
        EXPECT_TRUE(pieces.empty()) << path;
    }
}

TEST_F(UriFile, serves_names_with_single_dots)
{
    std::string name = write_file(".a.b.", "x");
    EXPECT_EQ(0, serve("/./" + name));
    EXPECT_EQ(2u, pieces.size());
}

TEST_F(UriFile, sets_status_404_for_a_file_that_does_not_open)
{
    for (const std::string &path : {std::string("/unit_no_such_file.html"), std::string("/unit_no_such_folder/a.html"),
                                    "/" + write_file("a.html", "x") + "/"}) {
        EXPECT_EQ(-1, serve(path)) << path;
        EXPECT_EQ(404, record.status) << path;
        EXPECT_TRUE(pieces.empty()) << path;
    }
}

TEST_F(UriFile, sets_status_404_for_a_path_that_is_too_long)
{
    for (size_t length : {size_t(1024), size_t(30000)}) {
        EXPECT_EQ(-1, serve("/" + std::string(length, 'a')));
        EXPECT_EQ(404, record.status);
        EXPECT_TRUE(pieces.empty());
    }
}

TEST_F(UriFile, refuses_two_adjacent_dots_in_a_path_that_is_too_long)
{
    EXPECT_EQ(-1, serve("/" + std::string(2000, 'a') + "/../b"));
    EXPECT_EQ(403, record.status);
}

TEST_F(UriFile, opens_the_longest_path_that_fits)
{
    std::string name = write_file("a.css", "x");
    // Slashes are ignored where they repeat, so the path can be as long as it takes.
    size_t slashes = 1023 - served_path(name).size();
    EXPECT_EQ(0, serve(std::string(slashes, '/') + name));
    EXPECT_EQ(-1, serve(std::string(slashes + 1, '/') + name));
    EXPECT_EQ(404, record.status);
}

TEST_F(UriFile, takes_the_path_as_sent)
{
    std::string name = write_file("a%20b+c.css", "encoded");
    EXPECT_EQ(0, serve("/" + name));
    ASSERT_EQ(2u, pieces.size());
    EXPECT_EQ("encoded", pieces[1]);
}

TEST_F(UriFile, accepts_a_path_without_a_slash)
{
    EXPECT_EQ(0, serve(write_file("a.css", "x")));
}

TEST_F(UriFile, serves_a_file_in_a_folder)
{
    std::string folder = make_folder("folder");
    std::string name = write_file("folder/inside.css", "x");
    EXPECT_EQ(own_name("folder/inside.css"), name);
    EXPECT_EQ(0, serve("/" + folder + "/inside.css"));
}

TEST_F(UriFile, takes_the_overriding_path_where_there_is_one)
{
    std::string overriding = "/" + write_file("override.css", "overriding");
    record.path_override = overriding.data();
    EXPECT_EQ(0, serve("/" + write_file("asked.html", "asked")));
    ASSERT_EQ(2u, pieces.size());
    EXPECT_EQ("overriding", pieces[1]);
    EXPECT_NE(std::string::npos, pieces[0].find("Content-Type: text/css\r\n"));
}

TEST_F(UriFile, gives_minus_1_behind_the_header_for_a_folder)
{
    std::string folder = make_folder("folder.css");
    EXPECT_EQ(-1, serve("/" + folder));
    EXPECT_EQ(0, record.status);
    ASSERT_EQ(1u, pieces.size());
    EXPECT_EQ(0u, pieces[0].find("HTTP/1.1 500 Internal Server Error\r\n"));
}

TEST_F(UriFile, gives_minus_1_when_the_header_cannot_be_sent)
{
    for (const char *content : {"x", ""}) {
        freeup_request(&record);
        record.uri = strdup(("/" + write_file("a.css", content)).c_str());
        EXPECT_EQ(-1, uri_file(-1, &record)) << content;
        EXPECT_EQ(0, record.status);
    }
}

TEST_F(UriFile, gives_minus_1_when_a_chunk_cannot_be_sent)
{
    // The header fits into the socket's room, a chunk does not: a failure at once where sends do not wait.
    const int little = 1;
    setsockopt(sockets.server(), SOL_SOCKET, SO_SNDBUF, &little, sizeof little);
    EXPECT_EQ(-1, serve("/" + write_file("a.css", std::string(70000, 'x'))));
    EXPECT_EQ(1u, pieces.size());
}

TEST_F(UriFile, tells_a_length_of_up_to_31_bits)
{
    // Nothing but the header fits into the socket's room, so that the file does not go out.
    const int little = 1;
    setsockopt(sockets.server(), SOL_SOCKET, SO_SNDBUF, &little, sizeof little);
    std::string name = write_file("huge.css", "");
    const struct {
        off_t size;
        const char *line;
    } cases[] = {
        {2147483647, "Content-Length: 2147483647\r\n"}, {2147483648, ""}, {4294967296, ""}, {4294967301, ""},
    };
    for (const auto &sample : cases) {
        ASSERT_EQ(0, truncate(served_path(name).c_str(), sample.size)) << sample.size;
        EXPECT_EQ(-1, serve("/" + name)) << sample.size;
        ASSERT_EQ(1u, pieces.size()) << sample.size;
        EXPECT_BYTES(header(sample.line, "text/css"), without_dates(pieces[0]));
    }
}

TEST_F(UriFile, leaves_no_file_open)
{
    int before = open("/dev/null", O_RDONLY);
    close(before);
    serve("/" + write_file("a.css", "x"));
    serve("/" + make_folder("folder.css"));
    serve("/unit_no_such_file");
    int behind = open("/dev/null", O_RDONLY);
    close(behind);
    EXPECT_EQ(before, behind);
}

TEST_F(UriFile, does_not_look_at_the_protocol)
{
    for (const char *protocol : {"", "HTTP/1.0", "HTTP/1.1"}) {
        std::string name = write_file("a.css", "x");
        freeup_request(&record);
        record.uri = strdup(("/" + name).c_str());
        record.protocol = strdup(protocol);
        EXPECT_EQ(0, uri_file(sockets.server(), &record));
        EXPECT_BYTES(header("Content-Length: 1\r\n", "text/css"), without_dates(sockets.received_pieces()[0]));
    }
}

TEST_F(UriFile, logs_nothing)
{
    CapturedLog log;
    serve("/" + write_file("a.css", "x"));
    serve("/..");
    serve("/unit_no_such_file");
    EXPECT_EQ("", log.text());
}
