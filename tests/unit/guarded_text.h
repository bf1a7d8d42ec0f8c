// A text that ends right before an unmapped page: reading or writing one byte behind its closing NUL is a crash and not
// luck.

#pragma once

#include <cstddef>
#include <string_view>

class GuardedText {
public:
    // A copy of `text`, NULs inside it included, and the closing NUL as the last mapped byte.
    explicit GuardedText(std::string_view text);
    GuardedText(const GuardedText &) = delete;
    GuardedText &operator=(const GuardedText &) = delete;
    ~GuardedText();

    char *text() { return start; }
    int length() const { return int(size); }

private:
    char *mapping, *start;
    size_t mapped, size;
};
