// What ends a process, or changes it for good, runs in a child process of the test.

#pragma once

#include <functional>
#include <string>
#include <sys/types.h>

struct ChildEnd {
    int exit_status;    // -1 when a signal ended the child
    int signal;         // 0 when it exited
    std::string output; // what it wrote to standard output
    std::string errors; // and to standard error
};

// Runs `body` in a child, which exits with its result, and waits for the end. The child leaves no core file. A sanitizer
// report of the child fails the test.
ChildEnd run_in_child(const std::function<int()> &body);

// Reading ends of the pipes that a started child has for standard output and standard error.
struct RunningChild {
    pid_t pid;
    int output, errors;
};

// Starts `body` in a child and goes on. The child is the first of its process group.
RunningChild start_child(const std::function<int()> &body);

// Waits for the end of a started child. One that hangs is ended by SIGKILL.
ChildEnd wait_for_child(RunningChild &child);

// Ends a started child, with its own children, and reaps it.
void stop_child(RunningChild &child);
