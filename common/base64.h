// Base64 as in RFC 4648, section 4: the standard alphabet, "=" padding on output. Decoding reads up to the first
// character outside the alphabet, so padding and whatever follows it is ignored.

#pragma once

// Bytes to reserve for decoding `text`, the closing NUL included.
int base64decode_len(const char *text);

// Decodes `text` into `bytes`, which has room for base64decode_len(text), and writes a NUL behind the last byte.
// Returns the number of bytes decoded, the NUL not counted. A single leftover character yields nothing.
int base64decode_binary(unsigned char *bytes, const char *text);

// The same for a destination of characters.
int base64decode(char *bytes, const char *text);

// Size of the encoded text of `count` bytes, its NUL included.
int base64encode_len(int count);

// Encodes `count` bytes into `text`, which has room for base64encode_len(count). Returns the number of characters
// written, the NUL included.
int base64encode_binary(char *text, const unsigned char *bytes, int count);

// The same for a source of characters.
int base64encode(char *text, const char *bytes, int count);
