// One HTTP request while it is served: the record, and the parser that fills it from the text of the request header
// (RFC 9112 request line and header fields, with this server's own line rules, see store_hd_field).

#pragma once

#include <cstdint>

struct NameValue {
    const char *name;   // borrowed
    char *value;        // heap text owned by the record; null until the header is seen
};

constexpr int max_headers = 100;

enum Method { method_get = 1, method_post = 3 };

// All texts are heap copies owned by the record, released by freeup_request.
struct RequestRecord {
    NameValue headers[max_headers]; // the fixed header names first; the first null name ends the table
    uint32_t content_length;        // 0 when absent or malformed
    int32_t method;                 // index in the table of methods
    char *uri;                      // the path, up to but not including "?", undecoded
    char *path_override;            // a file path to serve in place of `uri`; borrowed, null unless somebody sets it
    char *query;                    // behind "?"; null when there is none or it is empty
    char *protocol;                 // the rest of the request line, for example "HTTP/1.1"; see parse_request
    int32_t status;                 // the HTTP status to answer with; 0 until it is known
    char *remaining_data;           // body bytes that arrived with the header; null when none
    int32_t socket;
};

// Zeroes the record and gives it the table of header names. Does nothing for a null record.
void init_new_request(RequestRecord *record);

// Parses `text` of `length` characters, writing NULs into it, and fills the record.
//
// `protocol` is null when a carriage return follows the path (or query, or their blank) directly, and empty when a
// line feed does. Body bytes behind the blank line become `remaining_data` unless they hold a ":", which makes them
// one more header line.
//
// Returns 0, or -1 with `status` 400 (malformed request line), 405 (unknown method), 501 (a method that is not
// served), 500 (out of memory), or unchanged (null text, or no text).
int parse_request(char *text, int length, RequestRecord *record);

// Parses one header line with its continuation lines at `*cursor`, of which `*remaining` bytes are left, and advances
// both. A value keeps its leading blanks and ends at a carriage return or the byte 0x12; a bare line feed does not end
// it. A line whose second byte is a blank or a tab continues the value. Repeated and continued values are joined with
// a comma. Unknown names are dropped.
//
// Returns 1 when a line was consumed (`*remaining` is -1 when its value ran to the end of the text), 0 when there is
// no ":" any more (nothing is advanced), -1 when the ":" is the last byte.
int store_hd_field(char **cursor, int *remaining, RequestRecord *record);

// Releases all texts of the record and sets them null; the record itself stays its owner's.
void freeup_request(RequestRecord *record);
