#include "bench/loop.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

constexpr int backlog = 5;

bool listen_on(int listener, const char *port)
{
    int yes = 1;
    setsockopt(listener, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(uint16_t(atoi(port)));
    return bind(listener, reinterpret_cast<sockaddr *>(&address), sizeof address) == 0 && listen(listener, backlog) == 0;
}

}

int serve(const char *port, void (*answer)(int connection), void (*end)(int status))
{
    int listener = socket(AF_INET, SOCK_STREAM, 0);
    if (!listen_on(listener, port)) {
        perror(port);
        return 1;
    }
    for (;;) {
        int connection = accept(listener, nullptr, nullptr);
        pid_t child = fork();
        if (child == 0) {
            char request[32768];
            if (recv(connection, request, sizeof request, 0) > 0)
                answer(connection);
            end(0);
        }
        waitpid(child, nullptr, 0);
        close(connection);
    }
}
