// What the fuzz targets share: libFuzzer's entry point, and how a broken promise is told.

#pragma once

#include "server/log.h"

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

// Reported like a memory fault, with the input that led to it.
#define PROMISE(condition)                                                                                             \
    do {                                                                                                               \
        if (!(condition)) {                                                                                            \
            fprintf(stderr, "%s:%d: broken promise: %s\n", __FILE__, __LINE__, #condition);                            \
            __builtin_trap();                                                                                          \
        }                                                                                                              \
    } while (false)

// The input as the program gets texts: up to its first NUL and at most `longest` characters.
inline std::string text_of(const uint8_t *data, size_t size, size_t longest)
{
    auto text = reinterpret_cast<const char *>(data);
    return std::string(text, strnlen(text, size < longest ? size : longest));
}

// A copy with nothing behind its NUL, so that one byte read or written too far is a fault.
inline std::unique_ptr<char[]> exact_copy(const std::string &text)
{
    std::unique_ptr<char[]> copy(new char[text.size() + 1]);
    memcpy(copy.get(), text.c_str(), text.size() + 1);
    return copy;
}

// Has the code under test write its log lines, whose arguments are read so.
inline void log_to_nowhere()
{
    if (lfp)
        return;
    lfp = fopen("/dev/null", "w");
    log_printf("The stream takes its buffer now\n");
}
