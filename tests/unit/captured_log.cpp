#include "tests/unit/captured_log.h"

#include "server/log.h"

#include <cstdlib>
#include <unistd.h>

CapturedLog::CapturedLog()
{
    lfp = tmpfile();
    if (!lfp)
        abort();
    setlinebuf(lfp);
}

CapturedLog::~CapturedLog()
{
    fclose(lfp);
    lfp = nullptr;
}

std::string CapturedLog::text() const
{
    fflush(lfp);
    std::string text;
    char part[4096];
    for (ssize_t count; (count = pread(fileno(lfp), part, sizeof part, off_t(text.size()))) > 0;)
        text.append(part, size_t(count));
    return text;
}
