// The product's configuration file: named values in sections, read through the ODBC installer library's profile
// reader, which knows the file format. A handle is made by open_registry and given back by close_registry; a null
// handle (out of memory) is accepted everywhere and reads only defaults.

#pragma once

struct Registry;

// The shape of SQLGetPrivateProfileString (ODBC installer API): section, key, default, buffer, buffer size, file.
// Gives the number of characters written, or -1 when the file cannot be read.
using ProfileReader = int (*)(const char *, const char *, const char *, char *, int, const char *);

// A new handle that has no file yet and reads with SQLGetPrivateProfileString. Null when there is no memory.
Registry *open_registry();

// Names the file that values are read from, by its absolute path. The text is borrowed: it must outlive the handle.
void set_config(Registry *registry, const char *file);

// Reads the value of `key` in `section` into `buffer` of `size` bytes, or `default_value` where the file, the section
// or the key is missing. `reserved` is null. Returns the value's length; -1 and an empty buffer when the value does
// not fit: a cut path would name something else.
int get_profile_string(Registry *registry, const void *reserved, const char *section, const char *key,
                       const char *default_value, char *buffer, int size);

// Replaces the reader that the handle uses.
void set_ini_function(Registry *registry, ProfileReader reader);

void close_registry(Registry *registry);
