// Collects the header of one request from a connection.

#pragma once

// A request's header, with what arrives of its body in the same receives, stays below this.
constexpr int request_size = 32768;

// Waits up to 30 seconds for the first data on the socket, reads until the text holds a blank line (CR LF CR LF) and
// passes it on to process_request. The socket stays the caller's.
//
// Returns without an answer when nothing comes in time or receiving fails. A client that closes its side before the
// blank line is waited for: a zero-length receive is no end here; the processor time that this costs is limited
// (reading_limit.h). A header that fills the buffer ends the process (send_error_response), so that the client sees its
// connection close.
void handle_request(int socket);
