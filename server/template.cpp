#include "server/template.h"

#include "common/file.h"
#include "common/text.h"
#include "server/log.h"
#include "server/response.h"

#include <algorithm>
#include <cstring>

namespace {

constexpr char default_installpath[] = TABWARDEN_INSTALL_DIR;
static_assert(sizeof default_installpath <= path_size);

// What a directive with an empty file name takes with one blank in it. Fewer characters at the end of a template are
// text.
constexpr size_t shortest_directive = 23;

// The file name of a directive, inside the template text, and where the text goes on behind the directive.
struct Directive {
    const char *name;
    size_t name_length;
    const char *end;
};

bool skip(const char *&text, const char *expected)
{
    size_t length = strlen(expected);
    if (strncmp(text, expected, length) != 0)
        return false;
    text += length;
    return true;
}

bool skip_then_blanks(const char *&text, const char *expected)
{
    if (!skip(text, expected))
        return false;
    text += strspn(text, " ");
    return true;
}

bool match_directive(const char *text, Directive &directive)
{
    if (strnlen(text, shortest_directive) < shortest_directive)
        return false;
    for (const char *part : {"<!--", "#include", "file", "="})
        if (!skip_then_blanks(text, part))
            return false;
    if (!skip(text, "\""))
        return false;
    directive.name = text;
    directive.name_length = strcspn(text, " \"-\r");
    text += directive.name_length;
    directive.end = text;
    return skip_then_blanks(directive.end, "\"") && skip(directive.end, "-->");
}

// The template being made: `length` characters of at most `size` - 1 are filled.
struct Output {
    char *text;
    size_t size;
    size_t length;

    size_t room() const { return size - 1 - length; }
};

void append(Output &output, const char *text, size_t length)
{
    length = std::min(length, output.room());
    memcpy(output.text + output.length, text, length);
    output.length += length;
}

void append(Output &output, const char *text)
{
    append(output, text, strlen(text));
}

void include_file(Output &output, const char *install_path, const Directive &directive)
{
    char name[template_size], path[path_size + template_size];
    Output name_copy = {name, sizeof name, 0};
    append(name_copy, directive.name, directive.name_length);
    name[name_copy.length] = 0;

    html_path(path, install_path, name);
    if (File file{path}; file.descriptor >= 0) {
        ssize_t count = read_file(file, output.text + output.length, output.room());
        output.length += size_t(std::max<ssize_t>(count, 0));
        return;
    }
    log_printf("Failed to open include file %s\n", path);
    append(output, "<p>Include file ");
    append(output, path);
    append(output, " not found/readable");
}

void process_directives(Output &output, const char *install_path, const char *text)
{
    while (*text) {
        Directive directive;
        if (*text != '<' || !match_directive(text, directive)) {
            append(output, text++, 1);
            continue;
        }
        include_file(output, install_path, directive);
        text = directive.end;
        if (*text)
            text++;
    }
    output.text[output.length] = 0;
}

int report(RequestRecord *request, const char *message)
{
    log_printf("%s", message);
    send_internal_error(request->socket, message);
    return -1;
}

}

int get_install_path(char *buffer, int)
{
    copy_text({buffer, path_size}, default_installpath);
    return 0;
}

bool html_path(std::span<char> path, const char *install_path, const char *name)
{
    TextWriter writer{path};
    for (const char *part : {install_path, "/html/", name})
        put(writer, part);
    if (writer.overflow)
        path[0] = 0;
    return !writer.overflow;
}

int load_template(const char *name, char *output, int size, RequestRecord *request)
{
    log_printf("load_template(%s,%p,%d,%p)\n", name, static_cast<void *>(output), size, static_cast<void *>(request));
    char install_path[path_size], path[path_size], message[path_size + 64], text[template_size];
    if (int result = get_install_path(install_path, sizeof install_path); result < 0)
        return result;
    bool bounded = size >= int(strlen(install_path) + strlen(name) + 2);
    if (!bounded || !html_path(path, install_path, name)) {
        request->status = 507;
        log_printf("Failed to get create template path - too long\n");
        return -1;
    }
    File file{path};
    if (file.descriptor < 0) {
        request->status = 404;
        format_text(message, "Failed to open or read template %s\n", path);
        return report(request, message);
    }
    size_t limit = size_t(std::min(size, template_size));
    ssize_t count = read_file(file, text, limit - 1);
    if (count <= 0) {
        format_text(message, "Failed to read %s\n", path);
        return report(request, message);
    }
    // Cannot happen while the read above stays below the limit; guards the NUL against a change there.
    if (size_t(count) >= limit)
        return report(request, "Internal buffer too small for template\n");
    text[count] = 0;
    Output result = {output, limit, 0};
    process_directives(result, install_path, text);
    return 0;
}
