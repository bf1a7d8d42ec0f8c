// bench_client PORT REQUESTFILE COUNT [CLIENTS [ANSWERFILE]]: asks the server on 127.0.0.1 that many times, each time on
// a connection of its own, with so many clients at once (1). Prints the seconds that all of it took and the bytes that
// came back. The last answer goes to the file.

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <netinet/in.h>
#include <string>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

sockaddr_in server = {};
std::string request;

struct Client {
    int requests;
    bool keeps_answer;
    size_t received = 0;
    std::string last_answer = {};
};

[[noreturn]] void fail(const char *what)
{
    perror(what);
    exit(1);
}

std::string contents_of(const char *path)
{
    FILE *file = fopen(path, "rb");
    if (!file)
        fail(path);
    char buffer[65536];
    std::string text(buffer, fread(buffer, 1, sizeof buffer, file));
    fclose(file);
    return text;
}

// Once the server has closed, the client resets the connection: nothing is left of it in the kernel, neither a port that
// is taken for a minute nor an entry that slows down the look-up of later ones.
void reset_at_close(int connection)
{
    linger at_once = {1, 0};
    setsockopt(connection, SOL_SOCKET, SO_LINGER, &at_once, sizeof at_once);
}

void send_request(int connection)
{
    for (size_t sent = 0; sent < request.size();) {
        ssize_t count = send(connection, request.data() + sent, request.size() - sent, MSG_NOSIGNAL);
        if (count < 0)
            fail("send");
        sent += size_t(count);
    }
}

void receive_answer(int connection, Client &client)
{
    static thread_local char buffer[1 << 18];
    client.last_answer.clear();
    for (;;) {
        ssize_t count = recv(connection, buffer, sizeof buffer, 0);
        if (count < 0)
            fail("recv");
        if (count == 0)
            return;
        client.received += size_t(count);
        if (client.keeps_answer)
            client.last_answer.append(buffer, size_t(count));
    }
}

void ask(Client &client)
{
    for (int i = 0; i < client.requests; i++) {
        int connection = socket(AF_INET, SOCK_STREAM, 0);
        reset_at_close(connection);
        if (connect(connection, reinterpret_cast<const sockaddr *>(&server), sizeof server) != 0)
            fail("connect");
        send_request(connection);
        receive_answer(connection, client);
        close(connection);
    }
}

double run(std::vector<Client> &clients)
{
    auto start = std::chrono::steady_clock::now();
    std::vector<std::thread> threads;
    for (Client &client : clients)
        threads.emplace_back(ask, std::ref(client));
    for (std::thread &thread : threads)
        thread.join();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

void write_file(const char *path, const std::string &text)
{
    FILE *file = fopen(path, "wb");
    if (!file || fwrite(text.data(), 1, text.size(), file) != text.size() || fclose(file) != 0)
        fail(path);
}

}

int main(int argc, char **argv)
{
    if (argc < 4 || argc > 6) {
        fputs("Usage: bench_client PORT REQUESTFILE COUNT [CLIENTS [ANSWERFILE]]\n", stderr);
        return 2;
    }
    server.sin_family = AF_INET;
    server.sin_port = htons(uint16_t(atoi(argv[1])));
    server.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    request = contents_of(argv[2]);
    int count = atoi(argv[3]), at_once = argc > 4 ? atoi(argv[4]) : 1;

    std::vector<Client> clients;
    for (int i = 0; i < at_once; i++)
        clients.push_back({count / at_once + (i < count % at_once), argc > 5});
    double seconds = run(clients);
    size_t received = 0;
    for (const Client &client : clients)
        received += client.received;
    printf("%.9f %zu\n", seconds, received);
    if (argc > 5)
        write_file(argv[5], clients.front().last_answer);
    return 0;
}
