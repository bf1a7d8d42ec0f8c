// The form that a POST request carries (application/x-www-form-urlencoded): reading the body, splitting it into
// fields, looking fields up. Malformed bodies end the process with abort(): each request has a process of its own, and
// the client sees its connection close.

#pragma once

#include "server/request.h"

// Heap texts owned by the list. Names stand exactly as sent, values are decoded.
struct FormField {
    char *name;
    char *value;
};

constexpr int post_size = 32768;

// The longest body, and one byte for the NUL that goes just past it.
using PostBuffer = char[post_size + 1];

// Reads the body as text into `post_buffer`: the record's remaining data, then bytes from its socket until
// content_length is reached, the client has closed its side or the buffer is full. Errors while receiving are retried;
// the processor time that this costs is limited (reading_limit.h). `*length_out` is 0 on entry and receives the body's
// length. A NUL byte in the body cuts it short. Returns 0.
int load_postdata(RequestRecord *record, PostBuffer &post_buffer, int *length_out);

// Splits `length` bytes of `text` (NUL behind them, modified in place) into a new list, stored in `*list_out`: fields
// in posted order, duplicates kept, ended by a null pair. Fields named "x" and "y", the click coordinates of an image
// button without a name, are dropped.
//
// Returns 0. Ends the process when the text, or what follows its last "&", is only blanks and line ends, when the last
// field has no "=" or nothing behind it, when no field is left, and when there is no memory.
int split_form_fields(char *text, int length, FormField **list_out);

// The value of the first field of that name (case-sensitive), owned by the list; null when there is none or the list
// is null.
const char *getvalue(const FormField *list, const char *name);

// Releases a list with all its texts; accepts null.
void freeup_attr_pairs(FormField *list);
