// Makes a system call fail in this process and its children, for good: to be used in a child of the test.

#pragma once

// `number` as in <sys/syscall.h>. False when the system does not allow it.
bool let_system_call_fail(int number, int error);
