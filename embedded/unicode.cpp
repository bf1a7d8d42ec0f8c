#include "unicode.h"

constexpr char32_t replacement = 0xfffd;

// The character at `at`, which moves behind it.
static char32_t next_character(std::string_view text, size_t &at)
{
    unsigned char first = static_cast<unsigned char>(text[at++]);
    if (first < 0x80)
        return first;
    size_t more = first >= 0xf0 && first < 0xf8 ? 3 : first >= 0xe0 && first < 0xf0 ? 2 : first >= 0xc0 ? 1 : 0;
    if (more == 0 || first >= 0xf8)
        return replacement;
    char32_t character = first & (0x3fU >> more);
    for (size_t i = 0; i < more; ++i) {
        if (at >= text.size() || (static_cast<unsigned char>(text[at]) & 0xc0) != 0x80)
            return replacement;
        character = character << 6 | (static_cast<unsigned char>(text[at++]) & 0x3fU);
    }
    bool surrogate = character >= 0xd800 && character < 0xe000;
    return character > 0x10ffff || surrogate ? replacement : character;
}

std::u16string wide_text(std::string_view text)
{
    std::u16string wide;
    for (size_t at = 0; at < text.size();) {
        char32_t character = next_character(text, at);
        if (character < 0x10000) {
            wide += static_cast<char16_t>(character);
        } else {
            wide += static_cast<char16_t>(0xd800 + ((character - 0x10000) >> 10));
            wide += static_cast<char16_t>(0xdc00 + ((character - 0x10000) & 0x3ff));
        }
    }
    return wide;
}

static void append(std::string &text, char32_t character)
{
    if (character < 0x80) {
        text += static_cast<char>(character);
        return;
    }
    if (character < 0x800) {
        text += static_cast<char>(0xc0 | character >> 6);
    } else if (character < 0x10000) {
        text += static_cast<char>(0xe0 | character >> 12);
        text += static_cast<char>(0x80 | (character >> 6 & 0x3f));
    } else {
        text += static_cast<char>(0xf0 | character >> 18);
        text += static_cast<char>(0x80 | (character >> 12 & 0x3f));
        text += static_cast<char>(0x80 | (character >> 6 & 0x3f));
    }
    text += static_cast<char>(0x80 | (character & 0x3f));
}

std::string narrow_text(std::u16string_view text)
{
    std::string narrow;
    for (size_t at = 0; at < text.size(); ++at) {
        char32_t character = text[at];
        bool high = character >= 0xd800 && character < 0xdc00;
        bool low_follows = at + 1 < text.size() && text[at + 1] >= 0xdc00 && text[at + 1] < 0xe000;
        if (high && low_follows)
            character = 0x10000 + ((character - 0xd800) << 10) + (text[++at] - 0xdc00U);
        else if (character >= 0xd800 && character < 0xe000)
            character = replacement;
        append(narrow, character);
    }
    return narrow;
}
