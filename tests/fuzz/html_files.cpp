#include "tests/fuzz/html_files.h"

#include "tests/fuzz/target.h"

#include <fcntl.h>
#include <filesystem>
#include <unistd.h>

void write_html_file(const std::string &name, const std::string &content)
{
    std::filesystem::path path = std::filesystem::path(TABWARDEN_INSTALL_DIR "html/" + name).lexically_normal();
    std::error_code ignored;
    std::filesystem::create_directories(path.parent_path(), ignored);
    // Not emptied first: some file systems write an emptied file through to the disk when it is closed.
    int file = open(path.c_str(), O_WRONLY | O_CREAT, 0600);
    PROMISE(file >= 0);
    PROMISE(write(file, content.data(), content.size()) == ssize_t(content.size()));
    PROMISE(ftruncate(file, off_t(content.size())) == 0);
    close(file);
}
