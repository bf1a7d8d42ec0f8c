#include "server/auth.h"

#include "common/base64.h"
#include "common/text.h"
#include "server/application.h"

#include <cstdlib>
#include <cstring>
#include <strings.h>

namespace {

constexpr char refusal[] =
    "This server could not verify that you are authorized to access the document requested. Either you supplied the "
    "wrong credentials (e.g., bad username/password), or your browser doesn't understand how to supply the "
    "credentials required.";

const char *authorization_of(const RequestRecord *request)
{
    for (const NameValue *header = request->headers; header->name; header++)
        if (strcasecmp(header->name, "authorization") == 0)
            return header->value;
    return nullptr;
}

// The text behind the scheme word. A value without scheme or credentials ends the process: the client sees its
// connection close.
const char *credentials_of(const char *authorization)
{
    const char *scheme = authorization + strspn(authorization, " ");
    const char *behind_scheme = scheme + strcspn(scheme, " ");
    const char *credentials = behind_scheme + strspn(behind_scheme, " ");
    if (!*credentials)
        abort();
    return credentials;
}

char *decode(const char *credentials)
{
    auto decoded = static_cast<char *>(malloc(size_t(base64decode_len(credentials)) + 1));
    if (!decoded)
        abort();
    base64decode(decoded, credentials);
    return decoded;
}

// Cuts the password off the user name.
char *split_password(char *decoded)
{
    char *colon = strchr(decoded, ':');
    if (!colon)
        abort();
    *colon = 0;
    return colon + 1;
}

int refuse(RequestRecord *request, PageBuffer &page, int *length_out, const char *text)
{
    set_page(page, text);
    *length_out = int(page.length);
    request->status = 401;
    return -1;
}

}

int authorised(RequestRecord *request, PageBuffer &page, int *length_out, FormField *form_fields)
{
    const char *authorization = authorization_of(request);
    if (!authorization || !*authorization)
        return refuse(request, page, length_out, "");

    char *user = decode(credentials_of(authorization));
    const char *password = split_password(user);
    int result = validate_user(user, password, page, request, form_fields);
    free(user);
    if (result == 0)
        return 1;
    if (result != -2) {
        refuse(request, page, length_out, refusal);
        return result;
    }
    set_page(page, "");
    *length_out = 0;
    return result;
}
