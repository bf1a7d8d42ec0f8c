#include "schema.h"

#include <cstdio>
#include <iostream>
#include <string>

// isam_create DATABASE ADMINISTRATOR: a new database file. The password is the first line of standard input, so that
// no list of processes shows it.
int main(int count, char **arguments)
{
    if (count != 3) {
        std::fprintf(stderr, "Usage: isam_create DATABASE ADMINISTRATOR <PASSWORD_FILE\n");
        return 2;
    }
    std::string password, problem;
    if (!std::getline(std::cin, password)) {
        std::fprintf(stderr, "isam_create: no password on standard input\n");
        return 1;
    }
    if (create_database(arguments[1], arguments[2], password, problem) < 0) {
        std::fprintf(stderr, "isam_create: %s\n", problem.c_str());
        return 1;
    }
    return 0;
}
