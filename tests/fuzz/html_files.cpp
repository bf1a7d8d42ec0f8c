#include "tests/fuzz/html_files.h"

#include "tests/fuzz/target.h"

#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <unistd.h>

namespace {

std::string install_path;

void remove_folder()
{
    std::error_code ignored;
    std::filesystem::remove_all(install_path, ignored);
}

std::string html_path_of(const std::string &name)
{
    return private_install_path() + "/html/" + name;
}

}

const std::string &private_install_path()
{
    if (!install_path.empty())
        return install_path;
    const char *parent = getenv("TMPDIR");
    std::string folder = std::string(parent ? parent : access("/dev/shm", W_OK) == 0 ? "/dev/shm" : "/tmp");
    folder += "/tabwarden_fuzz_XXXXXX";
    PROMISE(mkdtemp(folder.data()));
    install_path = std::filesystem::canonical(folder);
    atexit(remove_folder);

    int number, opened = open(install_path.c_str(), O_PATH | O_DIRECTORY);
    PROMISE(sscanf(TABWARDEN_INSTALL_DIR, "/proc/self/fd/%d/", &number) == 1);
    PROMISE(opened >= 0 && dup2(opened, number) == number);
    close(opened);
    std::filesystem::create_directory(install_path + "/html");
    return install_path;
}

void write_html_file(const std::string &name, std::string_view content)
{
    std::filesystem::path path = html_path_of(name);
    std::filesystem::create_directories(path.parent_path());
    FILE *file = fopen(path.c_str(), "wb");
    PROMISE(file && fwrite(content.data(), 1, content.size(), file) == content.size());
    fclose(file);
}

void remove_html_file(const std::string &name)
{
    unlink(html_path_of(name).c_str());
}
