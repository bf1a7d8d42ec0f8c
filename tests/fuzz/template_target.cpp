// Templates: load_template against a model of the include directive. The input's first line is the size of the output;
// behind it, separated by form feeds, stand the template and the files that it may include: a.html and b.html.

#include "common/file.h"
#include "server/template.h"
#include "tests/fuzz/html_files.h"
#include "tests/fuzz/target.h"
#include "tests/unit/sockets.h"

#include <algorithm>
#include <cstdlib>
#include <iterator>
#include <optional>
#include <string>
#include <string_view>
#include <unistd.h>

namespace {

constexpr const char *names[] = {"page.html", "a.html", "b.html"};

struct Input {
    int size = 0;
    std::optional<std::string> files[std::size(names)];
};

Input read_input(const uint8_t *data, size_t size)
{
    std::string text(reinterpret_cast<const char *>(data), size);
    Input input;
    input.size = std::clamp(atoi(text.c_str()), -1, template_size + 8);
    size_t end = text.find('\n');
    for (std::optional<std::string> &file : input.files) {
        if (end == text.npos)
            break;
        size_t begin = end + 1;
        end = text.find('\f', begin);
        file = text.substr(begin, end == text.npos ? end : end - begin);
    }
    return input;
}

// Files stay from one input to the next where they are the same: most inputs change one.
void write_files(const Input &input)
{
    static Input written;
    for (size_t i = 0; i < std::size(names); i++) {
        if (input.files[i] == written.files[i])
            continue;
        if (input.files[i])
            write_html_file(names[i], *input.files[i]);
        else
            remove_html_file(names[i]);
    }
    written = input;
}

bool take(std::string_view &text, std::string_view expected)
{
    if (!text.starts_with(expected))
        return false;
    text.remove_prefix(expected.size());
    return true;
}

bool take_then_blanks(std::string_view &text, std::string_view expected)
{
    bool taken = take(text, expected);
    text.remove_prefix(std::min(text.find_first_not_of(' '), text.size()));
    return taken;
}

// Takes a directive, with the character behind it, off the text.
bool take_directive(std::string_view &text, std::string &name)
{
    std::string_view rest = text;
    if (rest.size() < strlen("<!--#include file=\"\"-->") || !take_then_blanks(rest, "<!--") ||
        !take_then_blanks(rest, "#include") || !take_then_blanks(rest, "file") || !take_then_blanks(rest, "=") ||
        !take(rest, "\""))
        return false;
    name = rest.substr(0, rest.find_first_of(" \"-\r"));
    rest.remove_prefix(name.size());
    if (!take_then_blanks(rest, "\"") || !take(rest, "-->"))
        return false;
    rest.remove_prefix(std::min(rest.size(), size_t{1}));
    text = rest;
    return true;
}

std::string included(const std::string &name)
{
    std::string path = std::string(TABWARDEN_INSTALL_DIR) + "/html/" + name, content(template_size, 0);
    File file{path.c_str()};
    if (file.descriptor < 0)
        return "<p>Include file " + path + " not found/readable";
    content.resize(size_t(std::max<ssize_t>(0, read_file(file, content.data(), content.size()))));
    return content;
}

std::string expected_output(const std::string &content, size_t limit)
{
    std::string read(content, 0, limit - 1), output, name;
    for (std::string_view text = read.c_str(); !text.empty() && output.size() < limit;) {
        if (take_directive(text, name)) {
            output += included(name);
        } else {
            output += text[0];
            text.remove_prefix(1);
        }
    }
    return output.substr(0, limit - 1);
}

// Sees that a failure leaves the output alone, and which of the failures it was.
void check_failure(const Input &input, const RequestRecord &request, const std::string &sent, std::string_view output)
{
    bool too_small = input.size < int(strlen(TABWARDEN_INSTALL_DIR) + strlen(names[0]) + 2);
    bool missing = !input.files[0];
    PROMISE(request.status == (too_small ? 507 : missing ? 404 : 200));
    PROMISE(too_small || missing || input.files[0]->empty());
    PROMISE(sent.empty() == too_small);
    PROMISE(output.find_first_not_of('#') == output.npos);
}

void try_template(const Input &input)
{
    static SocketPair sockets(SOCK_STREAM);
    RequestRecord request;
    init_new_request(&request);
    request.status = 200;
    request.socket = sockets.server();
    size_t room = size_t(std::max(input.size, 1));
    std::unique_ptr<char[]> output(new char[room]);
    memset(output.get(), '#', room);

    int result = load_template(names[0], output.get(), input.size, &request);
    std::string sent = sockets.received();
    if (result != 0) {
        PROMISE(result == -1);
        check_failure(input, request, sent, {output.get(), room});
        return;
    }
    PROMISE(sent.empty() && request.status == 200);
    std::string expected = expected_output(*input.files[0], std::min(room, size_t{template_size}));
    PROMISE(memcmp(output.get(), expected.c_str(), expected.size() + 1) == 0);
}

}

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    log_to_nowhere();
    // Templates belong to the administrator: they may include what lies outside of the folder, but not in here.
    if (memmem(data, size, "..", 2))
        return 0;
    Input input = read_input(data, size);
    write_files(input);
    try_template(input);
    return 0;
}
