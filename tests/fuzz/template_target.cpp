// Any bytes as a template, and behind the first 0xFF as the file "fuzz_included" that it may include.

#include "server/template.h"

#include "tests/fuzz/html_files.h"
#include "tests/fuzz/target.h"

#include <algorithm>
#include <sys/stat.h>

namespace {

constexpr char template_name[] = "fuzz_template", include_name[] = "fuzz_included";

const std::string folder = TABWARDEN_INSTALL_DIR "/html/";

bool skip(const std::string &text, size_t &at, const std::string &word)
{
    if (text.compare(at, word.size(), word) != 0)
        return false;
    at += word.size();
    return true;
}

void skip_blanks(const std::string &text, size_t &at)
{
    at = std::min(text.find_first_not_of(' ', at), text.size());
}

// The name and the end of the directive at `at`.
bool directive(const std::string &text, size_t at, std::string &name, size_t &end)
{
    if (text.size() - at < 23)
        return false;
    for (const char *word : {"<!--", "#include", "file", "="}) {
        if (!skip(text, at, word))
            return false;
        skip_blanks(text, at);
    }
    if (!skip(text, at, "\""))
        return false;
    size_t stop = std::min(text.find_first_of(" \"-\r", at), text.size());
    name = text.substr(at, stop - at);
    if (!skip(text, stop, "\""))
        return false;
    skip_blanks(text, stop);
    end = stop;
    return skip(text, end, "-->");
}

std::string included(const std::string &name, const std::string &content)
{
    if (name == include_name)
        return content;
    struct stat status;
    bool is_folder = stat((folder + name).c_str(), &status) == 0 && S_ISDIR(status.st_mode);
    return is_folder ? "" : "<p>Include file " + folder + name + " not found/readable";
}

std::string expected(const std::string &text, const std::string &content)
{
    std::string out, name;
    for (size_t at = 0, end; at < text.size();) {
        if (text[at] == '<' && directive(text, at, name, end)) {
            out += included(name, content);
            at = end + 1;
        } else {
            out += text[at++];
        }
    }
    // Nothing that an include brought in ends the output early, but a NUL in it does for whoever reads the text.
    out.resize(std::min(out.size(), size_t(template_size - 1)));
    return out.c_str();
}

}

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    std::string input(reinterpret_cast<const char *>(data), size);
    size_t cut = std::min(input.find('\xff'), input.size());
    std::string text = input.substr(0, cut), content = cut < input.size() ? input.substr(cut + 1) : "";
    write_html_file(template_name, text);
    write_html_file(include_name, content);

    RequestRecord record;
    init_new_request(&record);
    record.socket = -1;
    std::unique_ptr<char[]> output(new char[template_size]);
    int result = load_template(template_name, output.get(), template_size, &record);
    PROMISE(result == (text.empty() ? -1 : 0));
    PROMISE(record.status == 0);
    if (result < 0)
        return 0;
    PROMISE(memchr(output.get(), 0, template_size));
    text.resize(strnlen(text.c_str(), std::min(text.size(), size_t(template_size - 1))));
    PROMISE(output.get() == expected(text, content));
    return 0;
}
