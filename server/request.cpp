#include "server/request.h"

#include "server/log.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <strings.h>

namespace {

constexpr const char *header_names[] = {
    "cache-control",   "connection",    "content-length",    "content-type",  "date",
    "forwarded",       "keep-alive",    "mime-version",      "pragma",        "upgrade",
    "accept",          "accept-charset", "accept-encoding",  "accept-language", "authorization",
    "from",            "host",          "if-modified-since", "proxy-authorization", "range",
    "referer",         "unless",        "user-agent",        "via",           "x-forwarded-for",
};
static_assert(std::size(header_names) < max_headers, "a null name must end the table");

constexpr const char *methods[] = {
    "OPTIONS", "GET", "HEAD", "POST", "PUT", "PATCH", "COPY", "MOVE", "DELETE", "LINK", "UNLINK", "TRACE", "WRAPPED",
};

// The unread text of the request: `remaining` counts the characters before its closing NUL.
struct Cursor {
    char *next;
    int remaining;
};

int fail(RequestRecord *record, int status)
{
    record->status = status;
    return -1;
}

int length_until(const Cursor &cursor, const char *stops)
{
    return std::min(int(strcspn(cursor.next, stops)), cursor.remaining);
}

// Ends the word at the cursor with a NUL, steps over it and gives the byte that stood there: NUL at the text's end.
char end_word(Cursor &cursor, int length)
{
    char stop = cursor.next[length];
    cursor.next[length] = 0;
    int step = length < cursor.remaining ? length + 1 : length;
    cursor.next += step;
    cursor.remaining -= step;
    return stop;
}

void skip_line_ends(Cursor &cursor)
{
    while (cursor.remaining > 0 && (*cursor.next == '\r' || *cursor.next == '\n')) {
        cursor.next++;
        cursor.remaining--;
    }
}

int parse_method(Cursor &cursor, RequestRecord *record)
{
    int length = length_until(cursor, " ");
    if (length == cursor.remaining)
        return fail(record, 400);
    const char *name = cursor.next;
    end_word(cursor, length);
    for (size_t index = 0; index < std::size(methods); index++) {
        if (strcasecmp(name, methods[index]) != 0)
            continue;
        record->method = int32_t(index);
        return index == method_get || index == method_post ? 0 : fail(record, 501);
    }
    return fail(record, 405);
}

// The separator that ended the path or the query decides whether the request line goes on.
int parse_protocol(Cursor &cursor, char separator, RequestRecord *record)
{
    if (separator == '\r' || (separator != '\n' && *cursor.next == '\r'))
        return 0;
    const char *protocol = "";
    if (separator != '\n') {
        protocol = cursor.next;
        end_word(cursor, length_until(cursor, "\r\n"));
    }
    record->protocol = strdup(protocol);
    return record->protocol ? 0 : fail(record, 500);
}

int parse_target(Cursor &cursor, RequestRecord *record)
{
    if (cursor.remaining == 0)
        return fail(record, 400);
    int length = length_until(cursor, " \r\n?");
    if (length == cursor.remaining)
        return fail(record, 400);
    const char *path = cursor.next;
    char separator = end_word(cursor, length);
    record->uri = strdup(path);
    if (!record->uri)
        return fail(record, 500);
    if (separator == '?') {
        const char *query = cursor.next;
        separator = end_word(cursor, length_until(cursor, " \r\n"));
        if (*query && !(record->query = strdup(query)))
            return fail(record, 500);
    }
    return parse_protocol(cursor, separator, record);
}

NameValue *find_header(RequestRecord *record, const char *name)
{
    for (NameValue *header = record->headers; header->name; header++)
        if (strcasecmp(header->name, name) == 0)
            return header;
    return nullptr;
}

// A value that finds no memory is left out, as if the line had not been sent.
void append_value(NameValue *header, const char *value)
{
    if (!header->value) {
        header->value = strdup(value);
        return;
    }
    size_t old_length = strlen(header->value), new_length = strlen(value);
    auto joined = static_cast<char *>(realloc(header->value, old_length + new_length + 2));
    if (!joined)
        return;
    joined[old_length] = ',';
    memcpy(joined + old_length + 1, value, new_length + 1);
    header->value = joined;
}

void store_content_length(RequestRecord *record, const char *value)
{
    char *end;
    unsigned long number = strtoul(value, &end, 10);
    if (*end || number >= UINT32_MAX) {
        record->content_length = 0;
        return;
    }
    record->content_length = uint32_t(number);
    log_printf("Converted content-length: %ld\n", long(number));
}

void store_value(RequestRecord *record, const char *name, const char *value)
{
    NameValue *header = find_header(record, name);
    if (!header)
        return;
    append_value(header, value);
    if (strcasecmp(name, "content-length") == 0)
        store_content_length(record, value);
}

bool is_continuation(const Cursor &cursor)
{
    // The second byte on purpose, not the first: a line that only begins with a blank is a header line of its own.
    return cursor.remaining > 1 && (cursor.next[1] == ' ' || cursor.next[1] == '\t');
}

// Cuts the value at the cursor off the text and steps to the next line.
const char *take_value(Cursor &cursor)
{
    const char *value = cursor.next;
    int length = length_until(cursor, "\r\x12");
    bool is_last = length == cursor.remaining;
    end_word(cursor, length);
    skip_line_ends(cursor);
    if (is_last)
        cursor.remaining = -1;
    return value;
}

void release(char *&text)
{
    free(text);
    text = nullptr;
}

}

void init_new_request(RequestRecord *record)
{
    if (!record)
        return;
    *record = {};
    for (size_t index = 0; index < std::size(header_names); index++)
        record->headers[index].name = header_names[index];
}

int parse_request(char *text, int length, RequestRecord *record)
{
    if (!text || length < 1)
        return -1;
    Cursor cursor = {text, length};
    if (int result = parse_method(cursor, record); result < 0)
        return result;
    if (int result = parse_target(cursor, record); result < 0)
        return result;
    skip_line_ends(cursor);
    for (;;) {
        int result = store_hd_field(&cursor.next, &cursor.remaining, record);
        if (cursor.remaining <= 0)
            return 0;
        if (result == 0)
            break;
    }
    record->remaining_data = strdup(cursor.next);
    return record->remaining_data ? 0 : fail(record, 500);
}

int store_hd_field(char **cursor, int *remaining, RequestRecord *record)
{
    Cursor line = {*cursor, *remaining};
    if (line.remaining < 1)
        return 0;
    int length = length_until(line, ":");
    if (length == line.remaining)
        return 0;
    const char *name = line.next;
    end_word(line, length);
    int result = line.remaining == 0 ? -1 : 1;
    if (result > 0) {
        store_value(record, name, take_value(line));
        while (is_continuation(line)) {
            line.next++;
            line.remaining--;
            store_value(record, name, take_value(line));
        }
    }
    *cursor = line.next;
    *remaining = line.remaining;
    return result;
}

void freeup_request(RequestRecord *record)
{
    release(record->uri);
    release(record->query);
    release(record->protocol);
    release(record->remaining_data);
    for (NameValue *header = record->headers; header->name; header++)
        release(header->value);
}
