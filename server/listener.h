// The listening socket and the accept loop: one child process per connection, one connection at a time.

#pragma once

// Opens the log, binds the port that `port` names (decimal digits; null: the default port; what is no number is port
// 0, and only the low 16 bits count) on all local IPv4 addresses, says so on standard output and serves connections
// for ever. A peer that vanishes without closing its connection is noticed within two minutes (RFC 9293, 3.8.4), as long
// as nothing is on its way to it.
//
// Returns 1 when the socket cannot be made, bound or listened on, after a line in the log; a port that cannot be bound
// is also named on standard error. In a child it does not return either: the child exits.
int http_start(const char *port);

// Forks. Returns 0 in the child. The parent waits for the child and returns 1 when it exited with status 0; -1 when it
// exited otherwise (errno: its exit status), when a signal ended it (errno: EINTR), or when forking or waiting failed.
// Children leave no core file: it would hold passwords.
int start_process();

// The port that is listened on unless the command line names another.
extern const char default_port[];
