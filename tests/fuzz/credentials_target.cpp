// Any bytes as an authorization header: authorised() beside a decoding bit by bit.

#include "server/auth.h"

#include "server/application.h"
#include "tests/fuzz/expected_end.h"
#include "tests/fuzz/target.h"

namespace {

struct Credentials {
    std::string user, password;
};

Credentials checked;

const std::string alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

std::string decoded(const std::string &text)
{
    std::string bytes;
    unsigned bits = 0;
    int count = 0;
    for (char character : text) {
        size_t value = alphabet.find(character);
        if (value == std::string::npos)
            break;
        bits = bits << 6 | unsigned(value);
        count += 6;
        if (count < 8)
            continue;
        count -= 8;
        bytes += char(bits >> count);
        bits &= (1u << count) - 1;
    }
    return bytes.c_str();
}

// False for a header that ends the process.
bool expected(const std::string &header, Credentials &credentials)
{
    size_t scheme = header.find_first_not_of(' ');
    size_t blank = scheme == std::string::npos ? scheme : header.find(' ', scheme);
    size_t begin = blank == std::string::npos ? blank : header.find_first_not_of(' ', blank);
    if (begin == std::string::npos)
        return false;
    std::string bytes = decoded(header.substr(begin));
    size_t colon = bytes.find(':');
    if (colon == std::string::npos)
        return false;
    credentials = {bytes.substr(0, colon), bytes.substr(colon + 1)};
    return true;
}

}

int validate_user(const char *user, const char *password, PageBuffer &, RequestRecord *, FormField *)
{
    checked = {user, password};
    return 0;
}

int uri_isam(const UriEntry *, RequestRecord *, PageBuffer &, int *, FormField *)
{
    return 0;
}

int refuse_without_datasource(RequestRecord *, FormField *)
{
    return -1;
}

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    std::string header = text_of(data, size, 32767);
    auto copy = exact_copy(header);
    RequestRecord record;
    init_new_request(&record);
    for (NameValue *known = record.headers; known->name; known++)
        if (strcmp(known->name, "authorization") == 0)
            known->value = copy.get();

    Credentials credentials;
    bool answered = header.empty() || expected(header, credentials);
    checked = {};
    static PageBuffer page;
    int length = page_size, result = 0;
    bool returned = comes_back([&] { result = authorised(&record, page, &length, nullptr); });
    PROMISE(returned == answered);
    if (!returned)
        return 0;
    PROMISE(result == (header.empty() ? -1 : 1));
    PROMISE(checked.user == credentials.user);
    PROMISE(checked.password == credentials.password);
    return 0;
}
