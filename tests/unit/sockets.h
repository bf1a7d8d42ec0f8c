// The two ends of a connection: the server's, and the client's, which sees what was sent.

#pragma once

#include <string>
#include <string_view>
#include <sys/socket.h>
#include <vector>

class SocketPair {
public:
    // SOCK_STREAM for what arrives, SOCK_DGRAM for how it was cut: each send() is a piece of its own then, an empty one
    // too, and an empty piece is a receive of 0 bytes that is not the end.
    explicit SocketPair(int type);
    SocketPair(const SocketPair &) = delete;
    SocketPair &operator=(const SocketPair &) = delete;
    ~SocketPair();

    int server() const { return ends[0]; }
    int client() const { return ends[1]; }

    // Sends `bytes` from the client in one call.
    void client_sends(std::string_view bytes) const;
    // The client sends no more: the server reads the end behind what is there.
    void client_shuts_down() const;
    void close_client();
    void close_server();

    // Everything that has arrived at the client so far, without waiting.
    std::string received() const;
    // The same, one text for each send() of the server.
    std::vector<std::string> received_pieces() const;

private:
    int ends[2];
};

// Connects to a TCP port of this host, again and again until somebody listens there. -1 after some seconds. Reading
// from the connection ends after some seconds of silence.
int connect_to_port(int port, const char *address = "127.0.0.1");

// A TCP port that nobody else can bind.
class BusyPort {
public:
    // The port of that number, or any free one. A port that somebody has already is busy, too.
    explicit BusyPort(int wanted = 0);
    BusyPort(const BusyPort &) = delete;
    BusyPort &operator=(const BusyPort &) = delete;
    ~BusyPort();

    int number() const { return port; }

private:
    int holder, port;
};

// A TCP port that nobody has.
int free_port();

// Reads until the other side closes. "(silence)" stands behind the text when it does not.
std::string read_to_end(int fd);
