// Files of the html folder, for every path that is not an application page.

#pragma once

#include "server/request.h"

// Sends the file that the request's path names (`path_override` in its place where set) under the installation
// directory's html folder: a header with the file's size and the MIME type of its extension, then the bytes in chunks
// of at most 32767. The path is taken as sent, without decoding.
//
// Returns 0 after the last chunk. Returns -1 with status 403 for a path with two adjacent dots anywhere, 404 for a
// file that does not open (one with a path of path_size or more characters included), and with the status unchanged
// when a send fails or the file cannot be read to its end, as a folder cannot; part of the answer may be out then.
int uri_file(int socket, RequestRecord *request);
