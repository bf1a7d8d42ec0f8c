// The server's log: plain lines in a file that exists only if an administrator has made it. The lines hold what was
// typed into forms, passwords included, so the file is the administrator's to protect.

#pragma once

#include <cstdio>

// The log's stream; null while logging is off. Opened once, before the first fork: children share its position, so
// their lines land in order.
extern FILE *lfp;

// Reads the log directory ("LogDir" in section "Settings" of the product configuration, "/tmp/" by default) and opens
// "kelvohttp.log" in it, emptied, if that file is already there. Logging stays off when the file is missing, does not
// open, or has a path of 512 or more characters, which is said on standard error.
void start_logging();

// Writes to the log if it is open. Data is never the format: pass it to a "%s".
[[gnu::format(printf, 1, 2)]] void log_printf(const char *format, ...);
