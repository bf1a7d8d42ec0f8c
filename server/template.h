// Page templates: files of the html folder under the installation directory, with include directives resolved. The
// directive is an HTML comment of the form
//
//     <!--#include file="logo.html"-->
//
// with blanks (not tabs or line ends) allowed before and behind each of its parts. The file name holds no blank,
// double quote, "-" or carriage return. The one character behind the directive, as a rule its line end, is dropped.
// Included text is not searched for directives.

#pragma once

#include "server/request.h"

#include <span>

// The room that callers give to get_install_path.
constexpr int path_size = 1024;

constexpr int template_size = 32768;

// Copies the installation directory, with its trailing slash, into `buffer`. `size` is not looked at: callers pass
// path_size. Returns 0; callers take a negative result as failure.
int get_install_path(char *buffer, int size);

// Writes the path of the html folder's file `name`, "%s/%s/%s" of installation directory, "html" and name, into `path`.
// The doubled slash that this gives is harmless. False when it does not fit.
bool html_path(std::span<char> path, const char *install_path, const char *name);

// Fills `output` with the processed template, NUL-terminated, at most `size` - 1 (and template_size - 1) characters;
// output that does not fit stops at the last character that does. An include file that does not open leaves a note in
// its place. Opens the template as <installation directory>/html/<name>.
//
// Returns 0, or -1 when
// - the path is too long: the request's status is 507, the client is told nothing;
// - the template does not open: status 404, the client gets send_internal_error;
// - nothing can be read from it: the client gets send_internal_error.
// `output` is untouched then.
int load_template(const char *name, char *output, int size, RequestRecord *request);
