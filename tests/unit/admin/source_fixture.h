// A page's surroundings: a real data source of this test, a request with a connection, and a page buffer. The driver
// manager remembers odbc.ini for the life of a process, so each test runs in a process of its own, as ctest does it.

#pragma once

#include "admin/page_context.h"
#include "server/response.h"
#include "sockets.h"

#include <gtest/gtest.h>
#include <string>
#include <utility>
#include <vector>

constexpr char administrator[] = "admin";
constexpr char administrator_password[] = "manager";

// A FormField list of borrowed texts.
class Form {
public:
    Form(std::initializer_list<std::pair<const char *, const char *>> fields);
    operator FormField *() { return fields.data(); }

private:
    std::vector<FormField> fields;
};

class SourceFixture : public testing::Test {
protected:
    SourceFixture();
    ~SourceFixture() override;

    // Connects `context` as that user.
    int connect(const char *user = administrator, const char *password = administrator_password);
    // Executes statements as the administrator, on a connection of their own.
    void run(std::initializer_list<const char *> statements);
    // The statements, without the name of user and outcome, that the data source has received from now on.
    void forget_statements();
    std::vector<std::string> statements() const;

    std::string folder;
    SocketPair connection{SOCK_STREAM};
    RequestRecord request = {};
    PageContext context = {};
    PageBuffer page = {};
};

// The whole text of a file; empty when there is none.
std::string text_of_file(const std::string &path);

// The error page that return_error sends.
std::string error_page(const std::string &message);
