#include "common/base64.h"

#include <array>

namespace {

constexpr char basis_64[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr unsigned char not_in_alphabet = 64;

constexpr std::array<unsigned char, 256> values_of_alphabet()
{
    std::array<unsigned char, 256> values;
    values.fill(not_in_alphabet);
    for (unsigned char value = 0; value < not_in_alphabet; value++)
        values[static_cast<unsigned char>(basis_64[value])] = value;
    return values;
}

constexpr std::array<unsigned char, 256> pr2six = values_of_alphabet();

unsigned char six_bits(char character)
{
    return pr2six[static_cast<unsigned char>(character)];
}

int leading_characters(const char *text)
{
    int count = 0;
    while (six_bits(text[count]) != not_in_alphabet)
        count++;
    return count;
}

int decoded_room(int characters)
{
    return (characters + 3) / 4 * 3;
}

}

int base64decode_len(const char *text)
{
    return decoded_room(leading_characters(text)) + 1;
}

int base64decode_binary(unsigned char *bytes, const char *text)
{
    int characters = leading_characters(text);
    int left = characters;
    for (; left > 4; left -= 4, text += 4) {
        *bytes++ = static_cast<unsigned char>(six_bits(text[0]) << 2 | six_bits(text[1]) >> 4);
        *bytes++ = static_cast<unsigned char>(six_bits(text[1]) << 4 | six_bits(text[2]) >> 2);
        *bytes++ = static_cast<unsigned char>(six_bits(text[2]) << 6 | six_bits(text[3]));
    }
    if (left > 1)
        *bytes++ = static_cast<unsigned char>(six_bits(text[0]) << 2 | six_bits(text[1]) >> 4);
    if (left > 2)
        *bytes++ = static_cast<unsigned char>(six_bits(text[1]) << 4 | six_bits(text[2]) >> 2);
    if (left > 3)
        *bytes++ = static_cast<unsigned char>(six_bits(text[2]) << 6 | six_bits(text[3]));
    *bytes = 0;
    return decoded_room(characters) - ((4 - left) & 3);
}

int base64decode(char *bytes, const char *text)
{
    return base64decode_binary(reinterpret_cast<unsigned char *>(bytes), text);
}

int base64encode_len(int count)
{
    return (count + 2) / 3 * 4 + 1;
}

int base64encode_binary(char *text, const unsigned char *bytes, int count)
{
    char *next = text;
    for (; count > 2; count -= 3, bytes += 3) {
        *next++ = basis_64[bytes[0] >> 2];
        *next++ = basis_64[(bytes[0] & 3) << 4 | bytes[1] >> 4];
        *next++ = basis_64[(bytes[1] & 15) << 2 | bytes[2] >> 6];
        *next++ = basis_64[bytes[2] & 63];
    }
    if (count > 0) {
        unsigned char second = count > 1 ? bytes[1] : 0;
        *next++ = basis_64[bytes[0] >> 2];
        *next++ = basis_64[(bytes[0] & 3) << 4 | second >> 4];
        *next++ = count > 1 ? basis_64[(second & 15) << 2] : '=';
        *next++ = '=';
    }
    *next++ = 0;
    return static_cast<int>(next - text);
}

int base64encode(char *text, const char *bytes, int count)
{
    return base64encode_binary(text, reinterpret_cast<const unsigned char *>(bytes), count);
}
