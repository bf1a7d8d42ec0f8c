// Switches the server's log on for the length of a scope and gives back what was written to it.

#pragma once

#include <string>

class CapturedLog {
public:
    CapturedLog();
    CapturedLog(const CapturedLog &) = delete;
    CapturedLog &operator=(const CapturedLog &) = delete;
    ~CapturedLog();

    // Everything logged so far, by child processes too.
    std::string text() const;
};
