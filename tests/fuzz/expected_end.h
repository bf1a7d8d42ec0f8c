// Inputs that end the process on purpose: in a fuzz target the code's abort() leads back instead, so that the next
// input can follow. What the code had taken from the heap stays taken.

#pragma once

#include <functional>

// Runs `body`; false when it ended in abort(). The targets are linked with --wrap=abort for it. An abort() outside of
// `body` ends the process as ever.
bool comes_back(const std::function<void()> &body);
