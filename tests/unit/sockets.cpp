#include "tests/unit/sockets.h"

#include <arpa/inet.h>
#include <cerrno>
#include <cstdlib>
#include <ctime>
#include <netinet/in.h>
#include <sched.h>
#include <unistd.h>

namespace {

// Holds a whole answer, so that the server's sends do not block while nobody reads.
constexpr int send_room = 1 << 20;

// A server that says nothing for so long hangs.
constexpr timeval patience = {5, 0};

constexpr size_t longest_piece = 1 << 17;

void close_end(int &fd)
{
    if (fd >= 0)
        close(fd);
    fd = -1;
}

sockaddr_in local_address(int port)
{
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(uint16_t(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

}

SocketPair::SocketPair(int type)
{
    if (socketpair(AF_UNIX, type, 0, ends) != 0)
        abort();
    for (int fd : ends)
        setsockopt(fd, SOL_SOCKET, SO_SNDBUF, &send_room, sizeof send_room);
}

SocketPair::~SocketPair()
{
    close_server();
    close_client();
}

void SocketPair::client_sends(std::string_view bytes) const
{
    if (send(client(), bytes.data(), bytes.size(), 0) != ssize_t(bytes.size()))
        abort();
}

void SocketPair::client_shuts_down() const
{
    shutdown(client(), SHUT_WR);
}

void SocketPair::close_client()
{
    close_end(ends[1]);
}

void SocketPair::close_server()
{
    close_end(ends[0]);
}

std::string SocketPair::received() const
{
    std::string text;
    char part[4096];
    for (ssize_t count; (count = recv(client(), part, sizeof part, MSG_DONTWAIT)) > 0;)
        text.append(part, size_t(count));
    return text;
}

std::vector<std::string> SocketPair::received_pieces() const
{
    std::vector<std::string> pieces;
    std::string part(longest_piece, 0);
    for (ssize_t count; (count = recv(client(), part.data(), part.size(), MSG_DONTWAIT)) >= 0;)
        pieces.emplace_back(part, 0, size_t(count));
    return pieces;
}

int connect_to_port(int port, const char *host)
{
    sockaddr_in address = local_address(port);
    address.sin_addr.s_addr = inet_addr(host);
    for (time_t limit = time(nullptr) + 10; time(nullptr) < limit; sched_yield()) {
        int fd = socket(AF_INET, SOCK_STREAM, 0);
        setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
        if (connect(fd, reinterpret_cast<sockaddr *>(&address), sizeof address) == 0)
            return fd;
        close(fd);
    }
    return -1;
}

BusyPort::BusyPort(int wanted) : holder(socket(AF_INET, SOCK_STREAM, 0)), port(wanted)
{
    sockaddr_in address = local_address(wanted);
    address.sin_addr.s_addr = htonl(INADDR_ANY);
    socklen_t size = sizeof address;
    // Connections that linger do not keep the port free of a listener.
    const int on = 1;
    setsockopt(holder, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    bool listening = bind(holder, reinterpret_cast<sockaddr *>(&address), size) == 0 && listen(holder, 1) == 0;
    if (wanted != 0)
        return;
    if (!listening || getsockname(holder, reinterpret_cast<sockaddr *>(&address), &size) != 0)
        abort();
    port = ntohs(address.sin_port);
}

BusyPort::~BusyPort()
{
    close(holder);
}

int free_port()
{
    return BusyPort().number();
}

std::string read_to_end(int fd)
{
    std::string text;
    char part[4096];
    ssize_t count;
    while ((count = read(fd, part, sizeof part)) > 0)
        text.append(part, size_t(count));
    if (count < 0 && errno == EAGAIN)
        text += "(silence)";
    return text;
}
