// An html folder of this process's own, in memory where the system has such a file system, so that runs beside each
// other do not meet. TABWARDEN_INSTALL_DIR has to be /proc/self/fd/NUMBER/: the descriptor of that number, opened here
// on a fresh folder, is the installation directory.

#pragma once

#include <string>
#include <string_view>

// The installation directory's real path. Makes it, with an empty html folder in it, at the first call; it is removed
// at the process's orderly end.
const std::string &private_install_path();

// Writes a file of the html folder; `name` may have a folder before it.
void write_html_file(const std::string &name, std::string_view content);

// Removes a file of the html folder, if there is one.
void remove_html_file(const std::string &name);
