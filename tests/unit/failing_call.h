// System calls and memory that fail in this process and its children, for good: to be used in a child of the test.

#pragma once

#include <cstddef>

// `number` as in <sys/syscall.h>; an error of 0 makes the call do nothing and give 0. False when the system does not
// allow it.
bool let_system_call_fail(int number, int error);

// Takes all memory there is but one piece, so that every further allocation fails that finds no room in it. A piece
// below 2048 bytes is of no use to others than its own size. False where that cannot be done.
bool use_up_memory(size_t left = 0);
