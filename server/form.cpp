#include "server/form.h"

#include "common/text.h"
#include "server/log.h"
#include "server/reading_limit.h"

#include <cstdlib>
#include <cstring>
#include <sys/socket.h>

namespace {

[[noreturn]] void die(const char *reason)
{
    log_printf("%s", reason);
    abort();
}

// The list while it grows: room for the fields so far, the next one and the null pair.
struct FormList {
    FormField *fields;
    int count;
};

struct Body {
    char *next;
    int remaining;
};

void skip_blanks(Body &body)
{
    while (*body.next == ' ' || *body.next == '\r' || *body.next == '\n') {
        body.next++;
        if (--body.remaining == 0)
            die("buflen <= 0 [1]\n");
    }
}

char *take_name(Body &body)
{
    char *name = body.next;
    auto end = static_cast<char *>(memchr(name, '=', size_t(body.remaining)));
    if (!end || end == name + body.remaining - 1)
        die("buflen <= 0 [2]\n");
    *end = 0;
    body.remaining -= int(end + 1 - name);
    body.next = end + 1;
    return name;
}

char *take_value(Body &body)
{
    char *value = body.next;
    auto end = static_cast<char *>(memchr(value, '&', size_t(body.remaining)));
    if (!end)
        end = value + body.remaining;
    *end = 0;
    body.remaining -= int(end - value);
    body.next = end;
    return value;
}

// Steps over the separator. False at the end of the body.
bool next_field(Body &body)
{
    if (--body.remaining <= 0)
        return false;
    body.next++;
    return *body.next != 0;
}

char hex_byte(const char *&in)
{
    char digits[3] = "";
    for (int i = 0; i < 2 && *in; i++)
        digits[i] = *in++;
    return char(strtoul(digits, nullptr, 16));
}

void decode_value(char *value)
{
    const char *in = value;
    char *out = value;
    while (*in) {
        char character = *in++;
        if (character == '\r' || character == '\n')
            continue;
        if (character == '+')
            character = ' ';
        else if (character == '%')
            character = hex_byte(in);
        *out++ = character;
    }
    *out = 0;
}

char *copy_or_die(const char *text)
{
    char *copy = strdup(text);
    if (!copy)
        die("malloc/realloc failed\n");
    return copy;
}

void append_field(FormList &list, const char *name, const char *value)
{
    auto grown = static_cast<FormField *>(realloc(list.fields, (size_t(list.count) + 2) * sizeof(FormField)));
    if (!grown)
        die("malloc/realloc failed\n");
    list.fields = grown;
    FormField &field = list.fields[list.count++];
    field = {copy_or_die(name), copy_or_die(value)};
    log_printf("urlunencode(%p)\n", static_cast<void *>(field.value));
    log_printf("%s\n", field.value);
    decode_value(field.value);
    log_printf("%s = %s\n", field.name, field.value);
}

bool is_click_coordinate(const char *name)
{
    return strcmp(name, "x") == 0 || strcmp(name, "y") == 0;
}

}

int load_postdata(RequestRecord *record, PostBuffer &post_buffer, int *length_out)
{
    ReadingLimit limit;
    // Consumes nothing while the count is 0, as it is here; kept so that a caller may count header lines into the buffer.
    char *start = post_buffer;
    store_hd_field(&start, length_out, record);
    log_printf("%d bytes of remaining posted data\n", *length_out);

    copy_text(post_buffer, record->remaining_data ? record->remaining_data : "");
    for (;;) {
        size_t length = strlen(post_buffer);
        *length_out = int(length);
        if (record->content_length != 0 && length >= record->content_length)
            return 0;
        size_t room = post_size - length;
        ssize_t count = room > 0 ? recv(record->socket, post_buffer + length, room, 0) : 0;
        if (count == 0)
            return 0;
        if (count > 0)
            post_buffer[length + size_t(count)] = 0;
    }
}

int split_form_fields(char *text, int length, FormField **list_out)
{
    log_printf("split_form_fields(%p,%d,..)\n%*s\n", static_cast<void *>(text), length, length, text);
    *list_out = nullptr;
    FormList list = {nullptr, 0};
    Body body = {text, length};
    bool more = length > 0 && *text;
    while (more) {
        skip_blanks(body);
        const char *name = take_name(body);
        const char *value = take_value(body);
        if (!is_click_coordinate(name))
            append_field(list, name, value);
        more = next_field(body);
    }
    // A form without a single field is answered by a closed connection, on purpose.
    if (!list.fields)
        abort();
    list.fields[list.count] = {nullptr, nullptr};
    *list_out = list.fields;
    return 0;
}

const char *getvalue(const FormField *list, const char *name)
{
    if (!list)
        return nullptr;
    for (; list->name; list++)
        if (strcmp(list->name, name) == 0)
            return list->value;
    return nullptr;
}

void freeup_attr_pairs(FormField *list)
{
    for (FormField *field = list; field && field->name; field++) {
        free(field->name);
        free(field->value);
        *field = {nullptr, nullptr};
    }
    free(list);
}
