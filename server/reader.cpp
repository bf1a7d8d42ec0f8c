#include "server/reader.h"

#include "server/dispatch.h"
#include "server/log.h"
#include "server/reading_limit.h"
#include "server/response.h"

#include <cstring>
#include <optional>
#include <sys/select.h>
#include <sys/socket.h>

namespace {

constexpr int seconds_to_first_data = 30;
constexpr char header_end[] = "\r\n\r\n";

// False when there will be none.
bool wait_for_data(int socket)
{
    for (;;) {
        fd_set readable, exceptional;
        FD_ZERO(&readable);
        FD_ZERO(&exceptional);
        FD_SET(socket, &readable);
        FD_SET(socket, &exceptional);
        timeval limit = {seconds_to_first_data, 0};
        if (select(socket + 1, &readable, nullptr, &exceptional, &limit) < 1)
            return false;
        if (FD_ISSET(socket, &exceptional)) {
            log_printf("Exception on socket\n");
            return false;
        }
        if (FD_ISSET(socket, &readable))
            return true;
    }
}

using RequestText = char[request_size + 1];

// False when there is none to be answered.
bool collect_header(int socket, RequestText &request)
{
    std::optional<ReadingLimit> limit;
    size_t filled = 0;
    for (;;) {
        ssize_t count = recv(socket, request + filled, request_size - filled, 0);
        if (count < 0)
            return false;
        filled += size_t(count);
        request[filled] = 0;
        if (filled >= request_size) {
            send_error_response(socket, 413);
            log_printf("Received request of %d bytes - too big", int(filled));
            return false;
        }
        if (memmem(request, filled, header_end, strlen(header_end)))
            return true;
        // Most headers come in one piece and need none.
        if (!limit)
            limit.emplace();
    }
}

}

void handle_request(int socket)
{
    // Only its first byte is set: clearing all of it costs a fault for each of its pages in every child.
    RequestText request;
    request[0] = 0;
    if (wait_for_data(socket) && collect_header(socket, request))
        process_request(socket, request);
}
