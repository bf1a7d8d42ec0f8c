#include "server/listener.h"

#include "server/log.h"
#include "server/reader.h"
#include "server/server_state.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

const char default_port[] = "8451";

namespace {

constexpr int backlog = 5;

struct SocketOption {
    int level, name, value;
};

// Connections inherit them from the listener. A peer that has vanished without closing is noticed after 110 seconds:
// one of silence would otherwise hold the server for ever.
constexpr SocketOption listener_options[] = {
    {SOL_SOCKET, SO_REUSEADDR, 1},
    {SOL_SOCKET, SO_KEEPALIVE, 1},
    {IPPROTO_TCP, TCP_KEEPIDLE, 60},
    {IPPROTO_TCP, TCP_KEEPINTVL, 10},
    {IPPROTO_TCP, TCP_KEEPCNT, 5},
};

int fail(const char *log_line)
{
    log_printf("%s", log_line);
    return 1;
}

void set_options(int listener)
{
    for (const SocketOption &option : listener_options)
        setsockopt(listener, option.level, option.name, &option.value, sizeof option.value);
}

bool bind_port(int listener)
{
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(nport);
    return bind(listener, reinterpret_cast<sockaddr *>(&address), sizeof address) == 0;
}

void serve_connection(int listener)
{
    int connection = accept(listener, nullptr, nullptr);
    if (connection < 0)
        return;
    if (start_process() == 0) {
        close(listener);
        handle_request(connection);
        // What exit() would run, the libraries' ends, is the parent's; here it only costs. The log is flushed line by line.
        _exit(0);
    }
    close(connection);
}

}

int http_start(const char *port)
{
    start_logging();
    log_printf("Started logging Gantry HTTP Server\n");
    is_nt = 0;
    int listener = socket(AF_INET, SOCK_STREAM, 0);
    if (listener < 0)
        return fail("Failed to get socket\n");
    set_options(listener);
    nport = uint16_t(strtoul(port ? port : default_port, nullptr, 10));
    log_printf("Using port %d\n", nport);
    if (!bind_port(listener)) {
        fprintf(stderr, "Failed to bind port %d\n", nport);
        return fail("Failed to bind socket\n");
    }
    // At once: a pipe or file would otherwise get the line late, and once more from every child that exits.
    printf("html server accepting requests on port %d\n", nport);
    fflush(stdout);
    if (listen(listener, backlog) != 0)
        return fail("Failed to listen\n");
    // A client that has gone away is a failed send, not the end of the process.
    signal(SIGPIPE, SIG_IGN);
    for (;;)
        serve_connection(listener);
}

int start_process()
{
    pid_t child = fork();
    if (child < 0)
        return -1;
    if (child == 0) {
        // RLIMIT_CORE would not do: it does not stop a kernel that pipes core files to a program.
        prctl(PR_SET_DUMPABLE, 0);
        return 0;
    }
    int status;
    if (waitpid(child, &status, 0) < 0)
        return -1;
    if (status & 0x7f) {
        errno = EINTR;
        return -1;
    }
    int exit_status = status >> 8 & 0xff;
    if (exit_status == 0)
        return 1;
    errno = exit_status;
    return -1;
}
