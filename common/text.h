// Bounded texts: every write into a fixed buffer of the program goes through here and is bounded by the buffer's own
// size. Nothing in this room allocates, and nothing cuts a text silently.

#pragma once

#include <cstddef>
#include <cstring>
#include <span>
#include <string_view>

// Copies `text` into `out`. False when it does not fit (closing NUL included): `out` is empty then.
bool copy_text(std::span<char> out, const char *text);

// printf into `out`. False when the result does not fit: `out` is empty then. Never returns a cut text.
[[gnu::format(printf, 2, 3)]] bool format_text(std::span<char> out, const char *format, ...);

// Appends to a borrowed buffer that it keeps NUL-terminated. What no longer fits is dropped whole and sets `overflow`,
// which sticks: append freely, ask once at the end.
struct TextWriter {
    std::span<char> out;
    size_t length = 0;
    bool overflow = false;

    explicit TextWriter(std::span<char> buffer);
};

// Inline, so that a literal is moved by a few instructions in place of two calls: pages are made of little else.
inline void put(TextWriter &writer, std::string_view text)
{
    if (writer.overflow || text.size() >= writer.out.size() - writer.length) {
        writer.overflow = true;
        return;
    }
    memcpy(writer.out.data() + writer.length, text.data(), text.size());
    writer.length += text.size();
    writer.out[writer.length] = 0;
}

inline void put(TextWriter &writer, char character)
{
    put(writer, {&character, 1});
}

// Appends the number in decimal, with zeros in front up to so many digits.
void put_number(TextWriter &writer, unsigned number, int digits);

// Appends `name` with its double quotes doubled and between double quotes: an SQL delimited identifier.
void put_sql_name(TextWriter &writer, const char *name);

// Data on its way into a page, spelled so that a browser reads it as text. Only characters that would be markup at
// that place change, so ordinary names come out byte for byte. No character takes more than html_growth of them.
constexpr size_t html_growth = 6;

// Between tags: & < > are replaced.
void put_html(TextWriter &writer, const char *text);

// Inside an attribute's double quotes: & < > " are replaced.
void put_attribute(TextWriter &writer, const char *text);

// As an attribute's value without quotes: & < > " ' ` = are replaced, so that no further attribute can begin with a
// value of its own. A blank stays as it is and ends the value.
void put_unquoted_attribute(TextWriter &writer, const char *text);

// The same as texts of their own. The record is as large as the worst case, so it fits.
template <size_t N> struct HtmlText {
    char text[html_growth * N];
};

template <size_t N> HtmlText<N> html_text(const char (&text)[N])
{
    HtmlText<N> escaped;
    TextWriter writer{escaped.text};
    put_html(writer, text);
    return escaped;
}

template <size_t N> HtmlText<N> html_attribute(const char (&text)[N])
{
    HtmlText<N> escaped;
    TextWriter writer{escaped.text};
    put_attribute(writer, text);
    return escaped;
}

template <size_t N> HtmlText<N> html_unquoted(const char (&text)[N])
{
    HtmlText<N> escaped;
    TextWriter writer{escaped.text};
    put_unquoted_attribute(writer, text);
    return escaped;
}

// Doubles every single quote of the text in the buffer `text`, so that it can stand between single quotes in SQL.
// Returns the buffer's start; null, the text unchanged, when the result does not fit: a buffer of twice the longest
// text's length plus one always suffices.
char *quote_string(std::span<char> text);
