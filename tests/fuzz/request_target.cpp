// Any bytes as a request: parse_request beside a reading of the same lines that copies where the parser cuts. And as
// header lines alone: where store_hd_field steps to.

#include "server/request.h"

#include "tests/fuzz/target.h"

#include <algorithm>
#include <map>
#include <optional>
#include <strings.h>

namespace {

using Text = std::optional<std::string>;

struct Request {
    int result, status, method;
    Text uri, query, protocol, body;
    std::map<std::string, std::string> headers;
    uint32_t content_length;
};

Text text(const char *given)
{
    return given ? Text(given) : std::nullopt;
}

// The text up to one of `stops`, taken off `rest` with the stop itself, which is NUL at the end.
std::string take(std::string &rest, const char *stops, char &stop)
{
    size_t end = rest.find_first_of(stops);
    std::string taken = rest.substr(0, end);
    stop = end == std::string::npos ? '\0' : rest[end];
    rest = end == std::string::npos ? "" : rest.substr(end + 1);
    return taken;
}

void skip_line_ends(std::string &rest)
{
    size_t first = rest.find_first_not_of("\r\n");
    rest = first == std::string::npos ? "" : rest.substr(first);
}

int method_of(const std::string &name)
{
    const char *names[] = {"OPTIONS", "GET",  "HEAD",   "POST", "PUT",    "PATCH",  "COPY",
                           "MOVE",    "DELETE", "LINK", "UNLINK", "TRACE", "WRAPPED"};
    for (int index = 0; index < 13; index++)
        if (strcasecmp(names[index], name.c_str()) == 0)
            return index;
    return -1;
}

void read_header(Request &request, const std::string &name, const std::string &value, const RequestRecord &known)
{
    for (const NameValue *header = known.headers; header->name; header++) {
        if (strcasecmp(header->name, name.c_str()) != 0)
            continue;
        bool first = !request.headers.contains(header->name);
        request.headers[header->name] += (first ? "" : ",") + value;
        if (strcmp(header->name, "content-length") != 0)
            return;
        char *end;
        unsigned long number = strtoul(value.c_str(), &end, 10);
        request.content_length = *end || number >= UINT32_MAX ? 0 : uint32_t(number);
        return;
    }
}

void read_headers(Request &request, std::string rest, const RequestRecord &known)
{
    char stop;
    while (!rest.empty()) {
        if (rest.find(':') == std::string::npos) {
            request.body = rest;
            return;
        }
        std::string name = take(rest, ":", stop);
        if (rest.empty())
            return;
        do {
            bool last = rest.find_first_of("\r\x12") == std::string::npos;
            read_header(request, name, take(rest, "\r\x12", stop), known);
            skip_line_ends(rest);
            if (last)
                return;
        } while (rest.size() > 1 && (rest[1] == ' ' || rest[1] == '\t') && (rest.erase(0, 1), true));
    }
}

Request failed(int status)
{
    return {-1, status, 0, {}, {}, {}, {}, {}, 0};
}

Request expected(std::string rest, const RequestRecord &known)
{
    if (rest.empty())
        return failed(0);
    if (rest.find(' ') == std::string::npos)
        return failed(400);
    char stop;
    int method = method_of(take(rest, " ", stop));
    if (method != method_get && method != method_post)
        return failed(method < 0 ? 405 : 501);
    if (rest.find_first_of(" \r\n?") == std::string::npos)
        return failed(400);
    Request request = {0, 0, method, take(rest, " \r\n?", stop), {}, {}, {}, {}, 0};
    if (stop == '?') {
        std::string query = take(rest, " \r\n", stop);
        if (!query.empty())
            request.query = query;
    }
    if (stop == '\n')
        request.protocol = "";
    else if (stop != '\r' && !rest.starts_with("\r"))
        request.protocol = take(rest, "\r\n", stop);
    skip_line_ends(rest);
    read_headers(request, rest, known);
    return request;
}

void check_released(const RequestRecord &record)
{
    PROMISE(!record.uri && !record.query && !record.protocol && !record.remaining_data);
    for (const NameValue &header : record.headers)
        PROMISE(!header.value);
}

void check_request(const std::string &input)
{
    auto copy = exact_copy(input);
    RequestRecord record;
    init_new_request(&record);
    Request request = expected(input, record);

    PROMISE(parse_request(copy.get(), int(input.size()), &record) == request.result);
    PROMISE(record.status == request.status);
    if (request.result == 0) {
        PROMISE(record.method == request.method);
        PROMISE(text(record.uri) == request.uri);
        PROMISE(text(record.query) == request.query);
        PROMISE(text(record.protocol) == request.protocol);
        PROMISE(text(record.remaining_data) == request.body);
        PROMISE(record.content_length == request.content_length);
        for (const NameValue *header = record.headers; header->name; header++) {
            auto found = request.headers.find(header->name);
            PROMISE(text(header->value) == (found == request.headers.end() ? Text() : Text(found->second)));
        }
    }
    freeup_request(&record);
    check_released(record);
}

void check_lines(const std::string &input)
{
    auto copy = exact_copy(input);
    RequestRecord record;
    init_new_request(&record);
    char *cursor = copy.get();
    int remaining = int(input.size());
    for (int result = 1; result != 0;) {
        char *line = cursor;
        int before = remaining;
        result = store_hd_field(&cursor, &remaining, &record);
        PROMISE(result == 0 ? cursor == line && remaining == before : cursor > line);
        PROMISE(result == 0 || result == 1 || (result == -1 && remaining == 0));
        PROMISE(remaining >= -1);
        PROMISE(size_t(cursor - copy.get()) + size_t(std::max(remaining, 0)) == input.size());
    }
    freeup_request(&record);
    check_released(record);
}

}

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    log_to_nowhere();
    std::string input = text_of(data, size, 32767);
    check_request(input);
    check_lines(input);
    return 0;
}
