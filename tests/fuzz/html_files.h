// Files in the html folder of the build's installation directory, and beside it.

#pragma once

#include <string>

// Writes a file into the html folder, `name` below it; its folders are made. "../name" lies beside the folder.
void write_html_file(const std::string &name, const std::string &content);
