#include "tests/unit/html_folder.h"

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <unistd.h>

namespace {

const std::filesystem::path folder = TABWARDEN_INSTALL_DIR "html";

}

HtmlFolder::HtmlFolder()
{
    std::error_code ignored;
    std::filesystem::create_directories(folder, ignored);
}

HtmlFolder::~HtmlFolder()
{
    // In reverse: a folder is empty when its turn comes.
    for (auto name = made.rbegin(); name != made.rend(); ++name)
        remove((folder / *name).c_str());
}

std::string HtmlFolder::own_name(std::string_view name) const
{
    return "unit_" + std::to_string(getpid()) + "_" + std::string(name);
}

std::string HtmlFolder::write_file(std::string_view name, std::string_view content)
{
    std::string own = own_name(name);
    made.push_back(own);
    std::ofstream file(folder / own, std::ios::binary);
    file << content;
    file.close();
    EXPECT_TRUE(file.good()) << own;
    return own;
}

std::string HtmlFolder::make_folder(std::string_view name)
{
    std::string own = own_name(name);
    made.push_back(own);
    std::error_code failure;
    std::filesystem::create_directory(folder / own, failure);
    EXPECT_FALSE(failure) << own;
    return own;
}

std::string HtmlFolder::served_path(std::string_view name)
{
    return std::string(TABWARDEN_INSTALL_DIR) + "/html/" + std::string(name);
}
