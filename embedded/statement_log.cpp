#include "statement_log.h"

#include "handles.h"

#include <cstdio>
#include <ctime>
#include <fcntl.h>
#include <unistd.h>

static void append_escaped(std::string &line, std::string_view text)
{
    for (char letter : text) {
        switch (letter) {
        case '\\': line += "\\\\"; break;
        case '\t': line += "\\t"; break;
        case '\n': line += "\\n"; break;
        case '\r': line += "\\r"; break;
        default:
            if (static_cast<unsigned char>(letter) >= 0x20 && letter != 0x7f) {
                line += letter;
            } else {
                char escape[8];
                std::snprintf(escape, sizeof escape, "\\x%02X", static_cast<unsigned char>(letter));
                line += escape;
            }
        }
    }
}

static std::string time_text()
{
    timespec now{};
    tm parts{};
    char day[32], text[48];
    clock_gettime(CLOCK_REALTIME, &now);
    gmtime_r(&now.tv_sec, &parts);
    std::strftime(day, sizeof day, "%Y-%m-%dT%H:%M:%S", &parts);
    std::snprintf(text, sizeof text, "%s.%03ldZ", day, now.tv_nsec / 1000000);
    return text;
}

int open_log(const std::string &path)
{
    return open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
}

void log_statement(const Connection &connection, std::string_view user, SQLRETURN result,
                   const Diagnostics &diagnostics, std::string_view statement)
{
    if (connection.log < 0)
        return;
    std::string line = time_text() + '\t';
    append_escaped(line, user);
    line += '\t';
    if (SQL_SUCCEEDED(result) || result == SQL_NO_DATA || diagnostics.empty())
        line += "ok";
    else
        append_escaped(line, diagnostics.front().state + " " + diagnostics.front().message);
    line += '\t';
    append_escaped(line, statement);
    line += '\n';
    // A log that cannot be written any more (a full disk) does not stop the database.
    [[maybe_unused]] ssize_t written = write(connection.log, line.data(), line.size());
}
