// Everything the server sends that is not application content: status line and header block (RFC 9110 field names),
// pages as lists of pieces, and the two error pages.
//
// A request that cannot be served at all (malformed, unknown path, too long) is answered by a closed connection: see
// send_error_response.

#pragma once

#include "common/text.h"
#include "server/request.h"

#include <cstdint>

// The page that a handler fills: `length` characters and a NUL. The length is kept because a page is appended to some
// hundred thousand times, and looking for its end would take longer than all else that the program does for a row.
constexpr int page_size = 32768;
struct PageBuffer {
    size_t length;
    char text[page_size];
};

// A page longer than this is sent before anything is appended, so half of the buffer is always free for a piece.
constexpr int page_flush_length = 16384;

constexpr int header_size = 2048;

// Bit of the header flags: the answer may be kept by public caches.
constexpr uint32_t public_caching = 1;

struct ResponsePiece {
    const char *data;   // null ends a list
    int32_t length;
};

extern const char server_token[];
extern const char basic_realm[];

// Appends the line that names this server under an error page: server token, host name ("unknown" when the system
// gives none), port.
void put_address(TextWriter &page);

// Appends an error page's message. One that leaves no room for put_address behind it (512 bytes) is left out whole.
void put_error_paragraph(TextWriter &page, const char *message);

// Writes the status line and header block into `buffer`, which has header_size bytes, and its length into
// `*length_out`. A content length of 0 or less means unknown, a null content type text/html. Status codes without a
// line of their own are answered as 500. A 401 block ends in the line end of its WWW-Authenticate line, without the
// blank line. Returns 0.
//
// Ends the process with abort() when public_caching is clear and the request, or its protocol, is missing: the cache
// lines depend on it.
int protocol_header(const RequestRecord *request, char *buffer, int *length_out, int32_t content_length, int status,
                    uint32_t flags, const char *content_type);

// Sends each piece with one send(). Returns 0 at the list's end, -1 as soon as a send fails; what follows is not sent.
// A short count is not noticed: on a blocking socket send() takes everything.
int send_response(int socket, const ResponsePiece *pieces);

// Makes `text` the whole page. False when it does not fit: the page is empty then.
bool set_page(PageBuffer &page, std::string_view text);

// Appends the formatted text to the page, after sending and emptying a page longer than page_flush_length. Returns
// the page's text; (char *)-1 when that send fails or when the text does not fit into the page's room of at least
// page_size - page_flush_length - 1 characters: nothing is appended then.
[[gnu::format(printf, 3, 4)]] char *http_printf(int socket, PageBuffer &page, const char *format, ...);

// Appends a text of less than page_size characters to the page, after sending and emptying the page when both do not
// fit together. Returns 0, or -1 when that send fails or the text is too long: nothing is appended then.
int append_text(int socket, PageBuffer &page, std::string_view text);

// Appends a text of less than page_size characters, after sending and emptying a page longer than page_flush_length, or
// one with which the text does not fit. Results as of append_text.
int append_row(int socket, PageBuffer &page, const TextWriter &row);

// Builds an error page for the status. Never returns in practice: the header is built without a request, which ends
// the process before anything is sent, and the client sees its connection close. Would return what send_response
// returns.
int send_error_response(int socket, int status);

// Sends a bare HTML error page, without status line and header, for failures behind a header that has gone out.
// The page takes 4096 bytes, its message about 3400: see put_error_paragraph. Returns the result of send().
int send_internal_error(int socket, const char *message);
