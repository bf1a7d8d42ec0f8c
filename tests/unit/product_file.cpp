#include "tests/unit/product_file.h"

#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sys/file.h>
#include <unistd.h>

namespace {

void write_whole(const std::string &path, const std::string &content)
{
    std::ofstream file(path, std::ios::binary);
    file << content;
    file.close();
    if (!file.good())
        abort();
}

}

ProductFile::ProductFile(const std::optional<std::string> &log_directory)
{
    std::filesystem::path folder = std::filesystem::path(TABWARDEN_CONFIG_FILE).parent_path();
    std::error_code ignored;
    std::filesystem::create_directories(folder, ignored);
    lock = open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (lock < 0 || flock(lock, LOCK_EX) != 0)
        abort();
    former = read_file(TABWARDEN_CONFIG_FILE);
    if (log_directory)
        write_whole(TABWARDEN_CONFIG_FILE, "[Settings]\nLogDir = " + *log_directory + "\n");
    else
        remove(TABWARDEN_CONFIG_FILE);
}

ProductFile::~ProductFile()
{
    if (former)
        write_whole(TABWARDEN_CONFIG_FILE, *former);
    else
        remove(TABWARDEN_CONFIG_FILE);
    close(lock);
}

TemporaryFolder::TemporaryFolder()
{
    char path[] = "/tmp/tabwarden_unit_XXXXXX";
    if (!mkdtemp(path))
        abort();
    folder = path;
}

TemporaryFolder::~TemporaryFolder()
{
    std::error_code ignored;
    std::filesystem::remove_all(folder, ignored);
}

std::string TemporaryFolder::write_file(const std::string &name, const std::string &content) const
{
    std::string path = folder + "/" + name;
    write_whole(path, content);
    return path;
}

std::optional<std::string> read_file(const std::string &path)
{
    std::ifstream file(path, std::ios::binary);
    if (!file)
        return std::nullopt;
    return std::string(std::istreambuf_iterator<char>(file), {});
}
