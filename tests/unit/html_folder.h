// The html folder of the compiled-in installation directory: made where it is missing, and emptied of what the test
// put there at its end.

#pragma once

#include <gtest/gtest.h>
#include <string>
#include <string_view>
#include <vector>

class HtmlFolder : public testing::Test {
protected:
    HtmlFolder();
    ~HtmlFolder() override;

    // A file name of this test process: unit_<number>_<name>. Tests may run beside each other.
    std::string own_name(std::string_view name) const;
    // Writes a file of an own name and gives that name.
    std::string write_file(std::string_view name, std::string_view content);
    // Makes a folder of an own name and gives that name.
    std::string make_folder(std::string_view name);
    // The full path as the server builds it, with the doubled slash.
    static std::string served_path(std::string_view name);

private:
    std::vector<std::string> made;
};
