// Comparisons of long texts that show the first bytes that differ, and not two screenfuls.

#pragma once

#include <gtest/gtest.h>
#include <string>

testing::AssertionResult same_bytes(const char *expected_name, const char *actual_name, const std::string &expected,
                                    const std::string &actual);

#define EXPECT_BYTES(expected, actual) EXPECT_PRED_FORMAT2(same_bytes, expected, actual)

// `header` with every correct date of about now in its Date, Last-Modified and Expires lines replaced by "DATE".
std::string without_dates(std::string header);

// The line that names this server under an error page.
std::string address_line(unsigned port);
