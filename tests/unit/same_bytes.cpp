#include "tests/unit/same_bytes.h"

#include <algorithm>
#include <cstdlib>
#include <ctime>
#include <unistd.h>

namespace {

constexpr size_t shown_before = 16, shown_behind = 48;
constexpr size_t date_length = 29;
constexpr int tolerated_seconds = 60;

std::string around(const std::string &text, size_t position)
{
    size_t begin = position > shown_before ? position - shown_before : 0;
    return testing::PrintToString(text.substr(begin, shown_before + shown_behind));
}

bool is_date_of_now(const std::string &text)
{
    tm date = {};
    const char *end = strptime(text.c_str(), "%a, %d %b %Y %H:%M:%S GMT", &date);
    if (!end || *end)
        return false;
    time_t then = timegm(&date);
    char again[64];
    strftime(again, sizeof again, "%a, %d %b %Y %H:%M:%S GMT", gmtime(&then));
    return text == again && std::abs(time(nullptr) - then) < tolerated_seconds;
}

}

testing::AssertionResult same_bytes(const char *expected_name, const char *actual_name, const std::string &expected,
                                    const std::string &actual)
{
    if (expected == actual)
        return testing::AssertionSuccess();
    auto difference = std::mismatch(expected.begin(), expected.end(), actual.begin(), actual.end());
    auto position = size_t(difference.first - expected.begin());
    return testing::AssertionFailure() << actual_name << " differs from " << expected_name << " at byte " << position
                                       << "\n  expected " << expected.size() << " bytes: ... "
                                       << around(expected, position) << "\n  actual   " << actual.size()
                                       << " bytes: ... " << around(actual, position);
}

std::string without_dates(std::string header)
{
    for (const char *name : {"Date: ", "Last-Modified: ", "Expires: "}) {
        std::string start = std::string("\r\n") + name;
        for (size_t at = 0; (at = header.find(start, at)) != std::string::npos;) {
            at += start.size();
            if (is_date_of_now(header.substr(at, date_length)))
                header.replace(at, date_length, "DATE");
        }
    }
    return header;
}

std::string address_line(unsigned port)
{
    char host[256] = "";
    if (gethostname(host, sizeof host - 1) != 0)
        return "";
    return "<ADDRESS>Skiffhttp 1.0 (unix) Server at " + std::string(host) + " Port " + std::to_string(port)
           + "</ADDRESS>\r\n";
}
