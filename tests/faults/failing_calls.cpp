// Lets one call of the program fail: preloaded into it (LD_PRELOAD), told through a shared file which call and how.
//
// Only calls from the program's own code count and fail, told by the return address. Those of the libraries go through:
// the driver manager and SQLite answer for themselves, and the embedded driver's documented answer to exhausted memory
// is the end of the process.

#include "tests/support/preloaded.h"

#include <cerrno>
#include <cstdarg>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <poll.h>
#include <sql.h>
#include <sqlext.h>
#include <sys/mman.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <type_traits>
#include <unistd.h>

namespace {

constexpr size_t name_size = 24;
constexpr int calls_at_most = 40;

struct Counter {
    char call[name_size];
    uint32_t reached;
};

// What the test and the program's processes share. The parent and its only child never count at the same time.
struct Control {
    char call[name_size], kind[name_size];      // the fault to come
    uint32_t number;                            // the call that it meets, from 1
    uint32_t injected;
    int32_t child_status;                       // of the child that ended last, as waitpid gives it
    Counter counters[calls_at_most];
};

Control *control;

[[gnu::constructor]] void attach()
{
    const char *path = getenv("FAILING_CALLS");
    int file = path ? open(path, O_RDWR | O_CLOEXEC) : -1;
    if (file < 0)
        return;
    void *shared = mmap(nullptr, sizeof(Control), PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
    close(file);
    if (shared != MAP_FAILED)
        control = static_cast<Control *>(shared);
}

uint32_t count(const char *call)
{
    for (Counter &counter : control->counters) {
        if (!counter.call[0])
            strcpy(counter.call, call);
        if (strcmp(counter.call, call) == 0)
            return ++counter.reached;
    }
    abort();
}

// Counts the call. The kind of fault that meets it, "" for none.
const char *fault_of(const char *call, const void *caller)
{
    if (!control || !is_program(caller))
        return "";
    if (count(call) != control->number || strcmp(control->call, call) != 0)
        return "";
    control->injected++;
    return control->kind;
}

bool is(const char *fault, const char *kind)
{
    return strcmp(fault, kind) == 0;
}

template <typename Result>
Result fail(int error, Result result)
{
    errno = error;
    return result;
}

// "error": the call is not made. "done": it is, and is reported to have failed all the same.
template <typename... Parameters>
SQLRETURN call_odbc(const char *fault, SQLRETURN (*real)(Parameters...), std::type_identity_t<Parameters>... arguments)
{
    if (is(fault, "error"))
        return SQL_ERROR;
    SQLRETURN result = real(arguments...);
    return is(fault, "done") ? SQLRETURN(SQL_ERROR) : result;
}

ssize_t read_file(const char *fault, int file, void *buffer, size_t size)
{
    static auto real = next_of<decltype(::read)>("read");
    if (is(fault, "nothing"))
        return 0;
    if (is(fault, "error"))
        return fail(EIO, ssize_t(-1));
    return real(file, buffer, is(fault, "short") && size > 10 ? 10 : size);
}

ssize_t receive(const char *fault, int socket, void *buffer, size_t size, int flags)
{
    static auto real = next_of<decltype(::recv)>("recv");
    if (is(fault, "error"))
        return fail(ECONNRESET, ssize_t(-1));
    if (is(fault, "zero"))
        return 0;
    return real(socket, buffer, is(fault, "short") ? 1 : size, flags);
}

}

// For what a coverage build writes at the process's end: it is no call of the program's.
extern "C" void let_no_call_fail()
{
    control = nullptr;
}

#define FAULT(call) fault_of(call, __builtin_return_address(0))
#define REAL(call) static auto real = next_of<decltype(::call)>(#call)

#define ODBC_CALL(call, parameters, ...)                                                                              \
    extern "C" SQLRETURN SQL_API call parameters                                                                      \
    {                                                                                                                 \
        REAL(call);                                                                                                   \
        return call_odbc(FAULT(#call), real, __VA_ARGS__);                                                            \
    }

ODBC_CALL(SQLAllocHandle, (SQLSMALLINT type, SQLHANDLE in, SQLHANDLE *out), type, in, out)
ODBC_CALL(SQLCloseCursor, (SQLHSTMT statement), statement)
ODBC_CALL(SQLDataSources,
          (SQLHENV env, SQLUSMALLINT direction, SQLCHAR *name, SQLSMALLINT name_room, SQLSMALLINT *name_length,
           SQLCHAR *description, SQLSMALLINT description_room, SQLSMALLINT *description_length),
          env, direction, name, name_room, name_length, description, description_room, description_length)
ODBC_CALL(SQLDisconnect, (SQLHDBC dbc), dbc)
ODBC_CALL(SQLDriverConnect,
          (SQLHDBC dbc, SQLHWND window, SQLCHAR *in, SQLSMALLINT in_length, SQLCHAR *out, SQLSMALLINT room,
           SQLSMALLINT *length, SQLUSMALLINT completion),
          dbc, window, in, in_length, out, room, length, completion)
ODBC_CALL(SQLExecDirect, (SQLHSTMT statement, SQLCHAR *text, SQLINTEGER length), statement, text, length)
ODBC_CALL(SQLFetch, (SQLHSTMT statement), statement)
ODBC_CALL(SQLFreeHandle, (SQLSMALLINT type, SQLHANDLE handle), type, handle)
ODBC_CALL(SQLGetData,
          (SQLHSTMT statement, SQLUSMALLINT column, SQLSMALLINT type, SQLPOINTER out, SQLLEN room, SQLLEN *length),
          statement, column, type, out, room, length)
ODBC_CALL(SQLGetDiagRec,
          (SQLSMALLINT type, SQLHANDLE handle, SQLSMALLINT record, SQLCHAR *state, SQLINTEGER *native, SQLCHAR *text,
           SQLSMALLINT room, SQLSMALLINT *length),
          type, handle, record, state, native, text, room, length)
ODBC_CALL(SQLSetEnvAttr, (SQLHENV env, SQLINTEGER name, SQLPOINTER value, SQLINTEGER length), env, name, value, length)
ODBC_CALL(SQLTables,
          (SQLHSTMT statement, SQLCHAR *catalog, SQLSMALLINT catalog_length, SQLCHAR *schema,
           SQLSMALLINT schema_length, SQLCHAR *table, SQLSMALLINT table_length, SQLCHAR *type,
           SQLSMALLINT type_length),
          statement, catalog, catalog_length, schema, schema_length, table, table_length, type, type_length)

extern "C" void *malloc(size_t size) noexcept
{
    REAL(malloc);
    return *FAULT("malloc") ? fail(ENOMEM, nullptr) : real(size);
}

extern "C" void *calloc(size_t items, size_t size) noexcept
{
    REAL(calloc);
    return *FAULT("calloc") ? fail(ENOMEM, nullptr) : real(items, size);
}

extern "C" void *realloc(void *memory, size_t size) noexcept
{
    REAL(realloc);
    return *FAULT("realloc") ? fail(ENOMEM, nullptr) : real(memory, size);
}

extern "C" char *strdup(const char *text) noexcept
{
    REAL(strdup);
    return *FAULT("strdup") ? fail(ENOMEM, nullptr) : real(text);
}

extern "C" pid_t fork() noexcept
{
    REAL(fork);
    return *FAULT("fork") ? fail(EAGAIN, -1) : real();
}

// The program's clock stands still: answers can be compared as they are, also when they end within a date.
extern "C" time_t time(time_t *out) noexcept
{
    REAL(time);
    return control && is_program(__builtin_return_address(0)) ? 1'000'000'000 : real(out);
}

// What is called from here on is not the request's: an instrumented program writes its counters at its end.
extern "C" [[noreturn]] void exit(int status) noexcept
{
    static auto real = next_of<void(int)>("exit");
    control = nullptr;
    real(status);
    __builtin_unreachable();
}

extern "C" [[noreturn]] void abort() noexcept
{
    static auto real = next_of<void()>("abort");
    control = nullptr;
    real();
    __builtin_unreachable();
}

// Only looks on: how the child ended tells a crash from an orderly end.
extern "C" pid_t waitpid(pid_t child, int *status, int options)
{
    REAL(waitpid);
    pid_t result = real(child, status, options);
    if (control && result > 0 && status)
        control->child_status = *status;
    return result;
}

// "error": the connection stays in the queue. "aborted": it is gone.
extern "C" int accept(int listener, sockaddr *address, socklen_t *length)
{
    REAL(accept);
    // The test sets the fault while the program waits here, so the call counts when there is something to accept.
    pollfd waiting = {listener, POLLIN, 0};
    poll(&waiting, 1, -1);
    const char *fault = FAULT("accept");
    if (is(fault, "error"))
        return fail(EMFILE, -1);
    int connection = real(listener, address, length);
    if (!is(fault, "aborted"))
        return connection;
    close(connection);
    return fail(ECONNABORTED, -1);
}

// "not yet": comes back before there is anything, which only a wrong wake-up does.
extern "C" int select(int count, fd_set *readable, fd_set *writable, fd_set *exceptional, timeval *limit)
{
    REAL(select);
    const char *fault = FAULT("select");
    if (!*fault)
        return real(count, readable, writable, exceptional, limit);
    FD_ZERO(readable);
    FD_ZERO(exceptional);
    if (is(fault, "error"))
        return fail(EINTR, -1);
    if (is(fault, "exception"))
        FD_SET(count - 1, exceptional);
    return is(fault, "time-out") ? 0 : 1;
}

extern "C" ssize_t recv(int socket, void *buffer, size_t size, int flags)
{
    return receive(FAULT("recv"), socket, buffer, size, flags);
}

extern "C" ssize_t __recv_chk(int socket, void *buffer, size_t size, size_t, int flags)
{
    return receive(FAULT("recv"), socket, buffer, size, flags);
}

extern "C" ssize_t send(int socket, const void *bytes, size_t size, int flags)
{
    REAL(send);
    const char *fault = FAULT("send");
    if (is(fault, "error"))
        return fail(EPIPE, ssize_t(-1));
    return real(socket, bytes, is(fault, "short") ? size / 2 : size, flags);
}

extern "C" int open(const char *path, int flags, ...)
{
    REAL(open);
    va_list arguments;
    va_start(arguments, flags);
    mode_t mode = flags & O_CREAT ? va_arg(arguments, mode_t) : 0;
    va_end(arguments);
    return *FAULT("open") ? fail(EMFILE, -1) : real(path, flags, mode);
}

extern "C" ssize_t read(int file, void *buffer, size_t size)
{
    return read_file(FAULT("read"), file, buffer, size);
}

extern "C" ssize_t __read_chk(int file, void *buffer, size_t size, size_t)
{
    return read_file(FAULT("read"), file, buffer, size);
}

extern "C" int stat(const char *path, struct stat *out) noexcept
{
    static auto real = next_of<int(const char *, struct stat *)>("stat");
    return *FAULT("stat") ? fail(EACCES, -1) : real(path, out);
}

extern "C" int gethostname(char *name, size_t size) noexcept
{
    REAL(gethostname);
    return *FAULT("gethostname") ? fail(ENAMETOOLONG, -1) : real(name, size);
}
