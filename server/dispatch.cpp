#include "server/dispatch.h"

#include "common/text.h"
#include "server/auth.h"
#include "server/static_file.h"

#include <cstring>
#include <unistd.h>

namespace {

constexpr UriEntry uri_table[] = {
    {"/", uri_isam, "index.html", 0},
    {"/index.html", uri_isam, "index.html", 0},
    {"/isam.cgi", uri_isam, "", URI_AUTH},
    {nullptr, nullptr, nullptr, 0},
};

// The part of the answer that stands in buffers of the request.
struct Answer {
    PageBuffer page;
    int page_length;
    char header[header_size];
    int header_length;
    FormField *form_fields;
};

int serve_file(int socket, RequestRecord *record)
{
    int result = uri_file(socket, record);
    if (result < 0) {
        record->status = 404;
        send_error_response(socket, record->status);
    } else {
        close(socket);
    }
    return result;
}

void read_form(RequestRecord *record, Answer &answer)
{
    PostBuffer post_buffer;
    int post_length = 0;
    load_postdata(record, post_buffer, &post_length);
    split_form_fields(post_buffer, post_length, &answer.form_fields);
}

bool names_datasource(const FormField *form_fields)
{
    return getvalue(form_fields, "initial_datasource") || getvalue(form_fields, "datasource");
}

void build_header(const RequestRecord *record, const UriEntry &row, Answer &answer)
{
    protocol_header(record, answer.header, &answer.header_length, 0, record->status, row.flags, nullptr);
}

int refuse(const RequestRecord *record, const UriEntry &row, Answer &answer, int result)
{
    build_header(record, row, answer);
    if (result == -2)
        return -1;
    ResponsePiece pieces[] = {{answer.header, answer.header_length}, {answer.page.text, answer.page_length}, {nullptr, 0}};
    send_response(record->socket, pieces);
    return -1;
}

int send_page(RequestRecord *record, const UriEntry &row, Answer &answer)
{
    build_header(record, row, answer);
    ResponsePiece header[] = {{answer.header, answer.header_length}, {nullptr, 0}};
    if (send_response(record->socket, header) < 0)
        return -1;
    if (row.handler(&row, record, answer.page, &answer.page_length, answer.form_fields) < 0)
        return -1;
    if (answer.page_length <= 0)
        return 0;
    ResponsePiece page[] = {{answer.page.text, answer.page_length}, {nullptr, 0}};
    return send_response(record->socket, page);
}

int serve_row(int socket, RequestRecord *record, const UriEntry &row, Answer &answer)
{
    answer.page_length = page_size;
    record->status = 200;
    record->socket = socket;
    if (record->method == method_post)
        read_form(record, answer);
    if (row.flags & URI_AUTH) {
        if (!names_datasource(answer.form_fields))
            return refuse_without_datasource(record, answer.form_fields);
        if (int result = authorised(record, answer.page, &answer.page_length, answer.form_fields); result < 0)
            return refuse(record, row, answer, result);
    }
    return send_page(record, row, answer);
}

}

int fn_index_from_uri(const UriEntry *table, const RequestRecord *record)
{
    if (!record || !record->uri || !table)
        return -1;
    for (int index = 0; table[index].uri; index++)
        if (strcmp(table[index].uri, record->uri) == 0)
            return index;
    return -1;
}

int process_request(int socket, char *request_text)
{
    RequestRecord record;
    init_new_request(&record);
    Answer answer;
    answer.form_fields = nullptr;
    set_page(answer.page, request_text);

    int result = -1;
    if (parse_request(request_text, int(strlen(request_text)), &record) < 0)
        send_error_response(socket, record.status);
    else if (int index = fn_index_from_uri(uri_table, &record); index < 0)
        result = serve_file(socket, &record);
    else
        result = serve_row(socket, &record, uri_table[index], answer);
    freeup_request(&record);
    return result;
}
