// Any bytes as an authorization header: authorised() beside a decoding bit by bit. And as what Base64 encodes.

#include "server/auth.h"

#include "common/base64.h"
#include "tests/fuzz/expected_end.h"
#include "tests/fuzz/target.h"
#include "tests/unit/stand_in_application.h"

#include <algorithm>
#include <iterator>
#include <string_view>

namespace {

struct Credentials {
    std::string user, password;
};

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
    return bytes;
}

// False for a header that ends the process.
bool expected(const std::string &header, Credentials &credentials)
{
    size_t scheme = header.find_first_not_of(' ');
    size_t blank = scheme == std::string::npos ? scheme : header.find(' ', scheme);
    size_t begin = blank == std::string::npos ? blank : header.find_first_not_of(' ', blank);
    if (begin == std::string::npos)
        return false;
    std::string bytes = decoded(header.substr(begin)).c_str();
    size_t colon = bytes.find(':');
    if (colon == std::string::npos)
        return false;
    credentials = {bytes.substr(0, colon), bytes.substr(colon + 1)};
    return true;
}

std::string encoded(std::string_view bytes)
{
    std::string text;
    for (; !bytes.empty(); bytes.remove_prefix(std::min(bytes.size(), size_t{3}))) {
        unsigned bits = 0;
        for (size_t i = 0; i < 3; i++)
            bits = bits << 8 | (i < bytes.size() ? static_cast<unsigned char>(bytes[i]) : 0U);
        for (size_t i = 0; i < 4; i++)
            text += i <= bytes.size() ? alphabet[bits >> (18 - 6 * i) & 63] : '=';
    }
    return text;
}

void check_decoding(const std::string &text)
{
    std::string bytes = decoded(text);
    auto copy = exact_copy(text);
    auto room = size_t(base64decode_len(copy.get()));
    PROMISE(room > bytes.size() && room <= bytes.size() + 4);
    std::unique_ptr<char[]> out(new char[room]);
    PROMISE(base64decode(out.get(), copy.get()) == int(bytes.size()));
    PROMISE(memcmp(out.get(), bytes.c_str(), bytes.size() + 1) == 0);
}

void check_encoding(const uint8_t *data, size_t size)
{
    std::string text = encoded({reinterpret_cast<const char *>(data), size});
    auto room = size_t(base64encode_len(int(size)));
    PROMISE(room == text.size() + 1);
    std::unique_ptr<unsigned char[]> bytes(new unsigned char[size]);
    memcpy(bytes.get(), data, size);
    std::unique_ptr<char[]> out(new char[room]);
    PROMISE(base64encode_binary(out.get(), bytes.get(), int(size)) == int(room));
    PROMISE(out.get() == text);
}

// `answer` is what validate_user gave.
void check_answer(int answer, int result, const RequestRecord &record, const PageBuffer &page, int length)
{
    PROMISE(result == (answer == 0 ? 1 : answer));
    PROMISE(record.status == (result == 1 || result == -2 ? 0 : 401));
    if (result != 1)
        PROMISE(page.length == size_t(length) && strlen(page.text) == page.length && length == (result == -2 ? 0 : 234));
}

void check_authorised(const std::string &header)
{
    auto copy = exact_copy(header);
    RequestRecord record;
    init_new_request(&record);
    for (NameValue *known = record.headers; known->name; known++)
        if (strcmp(known->name, "authorization") == 0)
            known->value = copy.get();

    Credentials credentials;
    bool answered = header.empty() || expected(header, credentials);
    static PageBuffer page;
    set_page(page, "");
    int length = page_size;
    constexpr int answers[] = {0, -1, -2, -7};
    int answer = answers[header.size() % std::size(answers)];
    bool returned = comes_back([&] {
        stand_in.validate_user_result = answer;
        int result = authorised(&record, page, &length, nullptr);
        StandInApplication asked = std::move(stand_in);
        if (header.empty()) {
            PROMISE(result == -1 && record.status == 401 && length == 0 && asked.calls.empty());
            return;
        }
        PROMISE(asked.calls.size() == 1 && asked.request == &record);
        PROMISE(asked.user == credentials.user);
        PROMISE(asked.password == credentials.password);
        check_answer(answer, result, record, page, length);
    });
    PROMISE(returned == answered);
}

}

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    std::string header = text_of(data, size, 32767);
    check_authorised(header);
    check_decoding(header);
    check_encoding(data, size);
    return 0;
}
