// UTF-8, in which everything is kept, and UTF-16, ODBC's wide characters. What is no valid text becomes U+FFFD.
#pragma once

#include <string>
#include <string_view>

std::u16string wide_text(std::string_view text);
std::string narrow_text(std::u16string_view text);
