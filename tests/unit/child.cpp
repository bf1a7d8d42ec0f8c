#include "tests/unit/child.h"

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

// A child that says and ends nothing for so long hangs.
constexpr int patience = 5000;

// False at the end of the stream.
bool read_some(int from, std::string &to)
{
    char part[4096];
    ssize_t count = read(from, part, sizeof part);
    if (count > 0)
        to.append(part, size_t(count));
    return count > 0;
}

void read_all(const RunningChild &child, ChildEnd &end)
{
    pollfd streams[] = {{child.output, POLLIN, 0}, {child.errors, POLLIN, 0}};
    std::string *texts[] = {&end.output, &end.errors};
    for (int open = 2; open > 0;) {
        if (poll(streams, 2, patience) == 0)
            kill(-child.pid, SIGKILL);
        for (int i = 0; i < 2; i++) {
            if (!streams[i].revents || read_some(streams[i].fd, *texts[i]))
                continue;
            streams[i].fd = -1;
            open--;
        }
    }
}

// The report of an instrumented build: a child that is expected to fail must not hide it.
bool holds_sanitizer_report(const std::string &errors)
{
    return errors.find("Sanitizer") != errors.npos || errors.find("runtime error:") != errors.npos;
}

}

RunningChild start_child(const std::function<int()> &body)
{
    int output[2], errors[2];
    if (pipe(output) != 0 || pipe(errors) != 0)
        abort();
    fflush(nullptr);
    pid_t pid = fork();
    if (pid < 0)
        abort();
    if (pid == 0) {
        dup2(output[1], STDOUT_FILENO);
        dup2(errors[1], STDERR_FILENO);
        for (int fd : {output[0], output[1], errors[0], errors[1]})
            close(fd);
        setpgid(0, 0);
        // The child shall not outlive a test that is stopped, nor leave a core file.
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        rlimit none = {0, 0};
        setrlimit(RLIMIT_CORE, &none);
        int result = body();
        fflush(nullptr);
        _exit(result);
    }
    setpgid(pid, pid);
    close(output[1]);
    close(errors[1]);
    return {pid, output[0], errors[0]};
}

ChildEnd wait_for_child(RunningChild &child)
{
    ChildEnd end = {-1, 0, "", ""};
    read_all(child, end);
    close(child.output);
    close(child.errors);
    EXPECT_FALSE(holds_sanitizer_report(end.errors)) << end.errors;
    int status;
    if (waitpid(child.pid, &status, 0) != child.pid)
        abort();
    if (WIFEXITED(status))
        end.exit_status = WEXITSTATUS(status);
    else
        end.signal = WTERMSIG(status);
    return end;
}

void stop_child(RunningChild &child)
{
    kill(-child.pid, SIGKILL);
    wait_for_child(child);
}

ChildEnd run_in_child(const std::function<int()> &body)
{
    RunningChild child = start_child(body);
    return wait_for_child(child);
}
