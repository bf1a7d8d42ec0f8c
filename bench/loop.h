// The least that a server with one process per connection does: what tabwarden adds to it is measured against it.

// Serves connections on the port one after the other: a child process receives the request and calls answer(), which
// sends what there is to send, the parent waits for its end. Without a request there is no answer. Comes back only when
// the port cannot be served, with an exit status; the reason is on standard error then.
//
// The child ends with `end`: exit, or _exit, without the ends of the libraries, which write to memory that the kernel has
// to copy for it.
int serve(const char *port, void (*answer)(int connection), void (*end)(int status));
