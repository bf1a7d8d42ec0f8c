#include "common/text.h"

#include <algorithm>
#include <charconv>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <iterator>

namespace {

struct Entity {
    char character;
    const char *spelling;
};

constexpr Entity entities[] = {
    {'&', "&amp;"}, {'<', "&lt;"}, {'>', "&gt;"}, {'"', "&quot;"}, {'\'', "&#39;"}, {'`', "&#96;"}, {'=', "&#61;"},
};

const char *entity_of(char character)
{
    const Entity *entity = entities;
    while (entity->character != character)
        entity++;
    return entity->spelling;
}

// Puts the characters before the next of `stops` and steps to it. False at the text's end.
bool put_until(TextWriter &writer, const char *&text, const char *stops)
{
    size_t length = strcspn(text, stops);
    put(writer, {text, length});
    text += length;
    return *text;
}

// Each of `special` has an entity.
void put_escaped(TextWriter &writer, const char *text, const char *special)
{
    while (put_until(writer, text, special))
        put(writer, entity_of(*text++));
}

}

TextWriter::TextWriter(std::span<char> buffer) : out(buffer)
{
    out[0] = 0;
}

bool copy_text(std::span<char> out, const char *text)
{
    TextWriter writer{out};
    put(writer, text);
    return !writer.overflow;
}

bool format_text(std::span<char> out, const char *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    int length = vsnprintf(out.data(), out.size(), format, arguments);
    va_end(arguments);
    if (length >= 0 && size_t(length) < out.size())
        return true;
    out[0] = 0;
    return false;
}

void put_number(TextWriter &writer, unsigned number, int digits)
{
    char text[16];
    const char *end = std::to_chars(std::begin(text), std::end(text), number).ptr;
    for (auto length = end - text; length < digits; length++)
        put(writer, '0');
    put(writer, {text, end});
}

void put_sql_name(TextWriter &writer, const char *name)
{
    put(writer, '"');
    while (put_until(writer, name, "\"")) {
        put(writer, "\"\"");
        name++;
    }
    put(writer, '"');
}

void put_html(TextWriter &writer, const char *text)
{
    put_escaped(writer, text, "&<>");
}

void put_attribute(TextWriter &writer, const char *text)
{
    put_escaped(writer, text, "&<>\"");
}

void put_unquoted_attribute(TextWriter &writer, const char *text)
{
    put_escaped(writer, text, "&<>\"'`=");
}

char *quote_string(std::span<char> text)
{
    size_t length = strlen(text.data());
    auto quotes = size_t(std::count(text.begin(), text.begin() + ptrdiff_t(length), '\''));
    if (length + quotes >= text.size())
        return nullptr;
    // From the end, so that no character is overwritten before it has been moved.
    char *in = text.data() + length, *out = in + quotes;
    for (*out = 0; in != out;) {
        *--out = *--in;
        if (*in == '\'')
            *--out = '\'';
    }
    return text.data();
}
