// Stands in for the application behind the server's pages: notes how it was called and answers as told.

#pragma once

#include "server/application.h"

#include <functional>
#include <string>
#include <utility>
#include <vector>

struct StandInApplication {
    // What was asked of it, in order: "uri_isam", "validate_user", "refuse_without_datasource".
    std::vector<std::string> calls;

    // The arguments of the last call.
    const UriEntry *entry = nullptr;
    std::string path, page_name;
    RequestRecord *request = nullptr;
    int status = 0, socket = -1;
    std::string page_on_entry;
    int length_on_entry = 0;
    FormField *form_fields = nullptr;
    std::vector<std::pair<std::string, std::string>> fields;
    std::string user, password;

    // Its answers.
    std::function<int(RequestRecord *, PageBuffer &, int *)> build_page;    // empty: a page of no length, 0
    int validate_user_result = 0;
    std::string validate_user_message;
    int refusal_result = -1;
};

extern StandInApplication stand_in;
