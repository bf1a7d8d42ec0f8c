// The product configuration file that is compiled in. Tests take turns with it, and its contents are put back.

#pragma once

#include <optional>
#include <string>

class ProductFile {
public:
    // With a log directory as its only value; without a file when there is none.
    explicit ProductFile(const std::optional<std::string> &log_directory);
    ProductFile(const ProductFile &) = delete;
    ProductFile &operator=(const ProductFile &) = delete;
    ~ProductFile();

private:
    int lock;
    std::optional<std::string> former;
};

// A folder of its own under the system's temporary one, removed with what is in it.
class TemporaryFolder {
public:
    TemporaryFolder();
    TemporaryFolder(const TemporaryFolder &) = delete;
    TemporaryFolder &operator=(const TemporaryFolder &) = delete;
    ~TemporaryFolder();

    const std::string &path() const { return folder; }
    std::string write_file(const std::string &name, const std::string &content) const;

private:
    std::string folder;
};

std::optional<std::string> read_file(const std::string &path);
