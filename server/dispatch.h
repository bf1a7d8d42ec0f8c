// The heart of a child process: from the text of one request to its answer.

#pragma once

#include "server/application.h"
#include "server/request.h"

// The index of the first row whose path equals the request's, case-sensitively and without decoding; -1 when no row
// does, or when the record, its path or the table is null.
int fn_index_from_uri(const UriEntry *table, const RequestRecord *record);

// Parses the request (its text is modified), reads a posted form, checks credentials where the row asks for them,
// sends the response header and calls the row's handler; paths of no row are served as files. The socket stays the
// caller's, except that it is closed after a served file.
//
// Returns 0 when the request was answered, -1 on failure, or what the application's refuse_without_datasource returns.
// Ends the process where a request is to be answered by a closed connection: malformed ones, paths of no row and file.
int process_request(int socket, char *request_text);
