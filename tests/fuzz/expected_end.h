// Inputs that end the process on purpose: in a fuzz target the code's abort() leads back instead, so that the next
// input can follow. The standard library's own assertions call abort() inside its shared library and stay findings.

#pragma once

#include <functional>

// Runs `body`; false when it ended in abort(): what it had taken from the heap is released then. A body that comes back
// must have released what it took. The targets are linked with --wrap=abort for it. An abort() outside of `body` ends
// the process as ever.
bool comes_back(const std::function<void()> &body);
