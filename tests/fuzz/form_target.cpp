// Any bytes as a posted body: split_form_fields beside a splitting that copies.

#include "server/form.h"

#include "tests/fuzz/expected_end.h"
#include "tests/fuzz/target.h"

#include <algorithm>
#include <utility>
#include <vector>

namespace {

// Each reads the list from its start, which takes long for thousands of fields.
constexpr size_t most_look_ups = 50;

using Fields = std::vector<std::pair<std::string, std::string>>;

std::string decoded(const std::string &value)
{
    std::string out;
    for (size_t i = 0; i < value.size(); i++) {
        char character = value[i];
        if (character == '\r' || character == '\n')
            continue;
        if (character == '%') {
            character = char(strtoul(value.substr(i + 1, 2).c_str(), nullptr, 16));
            i += 2;
        } else if (character == '+') {
            character = ' ';
        }
        if (!character)
            break;
        out += character;
    }
    return out;
}

// False for a body that ends the process.
bool expected(const std::string &body, Fields &fields)
{
    for (size_t next = 0; next < body.size();) {
        next = body.find_first_not_of(" \r\n", next);
        if (next == std::string::npos)
            return false;
        size_t equals = body.find('=', next);
        if (equals == std::string::npos || equals + 1 == body.size())
            return false;
        size_t end = std::min(body.find('&', equals + 1), body.size());
        std::string name = body.substr(next, equals - next);
        if (name != "x" && name != "y")
            fields.emplace_back(name, decoded(body.substr(equals + 1, end - equals - 1)));
        next = end + 1;
    }
    return !fields.empty();
}

void check_list(const FormField *list, const Fields &fields)
{
    for (size_t i = 0; i < fields.size(); i++) {
        PROMISE(list[i].name == fields[i].first);
        PROMISE(list[i].value == fields[i].second);
        if (i >= most_look_ups)
            continue;
        const FormField *first = list;
        while (strcmp(first->name, list[i].name) != 0)
            first++;
        PROMISE(getvalue(list, list[i].name) == first->value);
    }
    PROMISE(!list[fields.size()].name && !list[fields.size()].value);
}

}

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    log_to_nowhere();
    std::string body = text_of(data, size, post_size);
    auto copy = exact_copy(body);
    Fields fields;
    bool answered = expected(body, fields);

    FormField *list = nullptr;
    bool returned = comes_back([&] {
        PROMISE(split_form_fields(copy.get(), int(body.size()), &list) == 0);
        check_list(list, fields);
        freeup_attr_pairs(list);
    });
    PROMISE(returned == answered);
    PROMISE(returned || !list);
    return 0;
}
