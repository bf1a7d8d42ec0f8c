#include "server/auth.h"

#include "common/base64.h"
#include "tests/unit/captured_log.h"
#include "tests/unit/child.h"
#include "tests/unit/failing_call.h"
#include "tests/unit/guarded_text.h"
#include "tests/unit/stand_in_application.h"

#include <csignal>
#include <cstring>
#include <gtest/gtest.h>
#include <string>

namespace {

const char refusal[] =
    "This server could not verify that you are authorized to access the document requested. Either you supplied the "
    "wrong credentials (e.g., bad username/password), or your browser doesn't understand how to supply the credentials "
    "required.";

std::string basic(const std::string &credentials)
{
    std::string text(size_t(base64encode_len(int(credentials.size()))), 0);
    base64encode(text.data(), credentials.data(), int(credentials.size()));
    return " Basic " + std::string(text.c_str());
}

// A request with one authorization header, and the stand-in application in its first state.
class Authorised : public testing::Test {
protected:
    Authorised()
    {
        stand_in = {};
        request.headers[0].name = "host";
        request.headers[1].name = "authorization";
    }

    int authorise(const std::string &value)
    {
        GuardedText text(value);
        request.headers[1].value = text.text();
        int result = authorised(&request, page, &length, fields);
        request.headers[1].value = nullptr;
        return result;
    }

    int signal_of(const std::string &value)
    {
        return run_in_child([&] { return authorise(value); }).signal;
    }

    RequestRecord request = {};
    PageBuffer page = {23, "what stood there before"};
    int length = page_size;
    FormField fields[1] = {};
};

}

TEST_F(Authorised, accepts_what_validate_user_accepts)
{
    EXPECT_EQ(1, authorise(" Basic dXNlcjpwYXNz"));
    EXPECT_EQ(std::vector<std::string>{"validate_user"}, stand_in.calls);
    EXPECT_EQ("user", stand_in.user);
    EXPECT_EQ("pass", stand_in.password);
    EXPECT_EQ(0, request.status);
}

TEST_F(Authorised, passes_page_request_and_form_on)
{
    authorise(" Basic dXNlcjpwYXNz");
    EXPECT_EQ("what stood there before", stand_in.page_on_entry);
    EXPECT_EQ(&request, stand_in.request);
    EXPECT_EQ(fields, stand_in.form_fields);
}

TEST_F(Authorised, takes_credentials_apart_at_the_first_colon)
{
    const struct {
        const char *credentials, *user, *password;
    } cases[] = {
        {"user:pass", "user", "pass"}, {":pass", "", "pass"},     {"user:", "user", ""},
        {":", "", ""},                 {"user:a:b:", "user", "a:b:"}, {"us er:pa ss", "us er", "pa ss"},
        {"\xc3\xa4:\xff", "\xc3\xa4", "\xff"}, {"%41:%s+", "%41", "%s+"},
    };
    for (const auto &sample : cases) {
        EXPECT_EQ(1, authorise(basic(sample.credentials))) << sample.credentials;
        EXPECT_EQ(sample.user, stand_in.user);
        EXPECT_EQ(sample.password, stand_in.password);
    }
}

TEST_F(Authorised, finds_the_credentials_behind_any_scheme_word)
{
    for (const char *value : {"Basic dXNlcjpwYXNz", " Basic dXNlcjpwYXNz", "   Basic   dXNlcjpwYXNz",
                              " Digest dXNlcjpwYXNz", " basic dXNlcjpwYXNz", " x dXNlcjpwYXNz",
                              " Basic: dXNlcjpwYXNz", " dXNlcjpwYXNz dXNlcjpwYXNz", " \t dXNlcjpwYXNz"}) {
        EXPECT_EQ(1, authorise(value)) << value;
        EXPECT_EQ("user", stand_in.user) << value;
        EXPECT_EQ("pass", stand_in.password) << value;
    }
}

TEST_F(Authorised, ignores_padding_and_what_stands_behind_the_credentials)
{
    for (const char *value : {" Basic dTpwYQ", " Basic dTpwYQ==", " Basic dTpwYQ=", " Basic dTpwYQ== more",
                              " Basic dTpwYQ==,Basic dXNlcjpwYXNz", " Basic dTpwYQ dXNl", " Basic dTpwYQ\t"}) {
        EXPECT_EQ(1, authorise(value)) << value;
        EXPECT_EQ("u", stand_in.user) << value;
        EXPECT_EQ("pa", stand_in.password) << value;
    }
}

TEST_F(Authorised, takes_long_credentials)
{
    std::string user(5000, 'u'), password(6000, 'p');
    EXPECT_EQ(1, authorise(basic(user + ":" + password)));
    EXPECT_EQ(user, stand_in.user);
    EXPECT_EQ(password, stand_in.password);
}

TEST_F(Authorised, finds_the_header_in_any_letter_case)
{
    for (const char *name : {"AUTHORIZATION", "Authorization", "aUTHORIZATION"}) {
        request.headers[1].name = name;
        EXPECT_EQ(1, authorise(" Basic dXNlcjpwYXNz")) << name;
    }
}

TEST_F(Authorised, takes_the_first_of_two_headers)
{
    char second[] = " Basic OnBhc3M=";
    request.headers[2] = {"authorization", second};
    EXPECT_EQ(1, authorise(" Basic dXNlcjpwYXNz"));
    EXPECT_EQ("user", stand_in.user);
}

TEST_F(Authorised, does_not_take_a_second_header_for_an_empty_first_one)
{
    char second[] = " Basic dXNlcjpwYXNz";
    request.headers[2] = {"authorization", second};
    EXPECT_EQ(-1, authorise(""));
    EXPECT_TRUE(stand_in.calls.empty());
}

TEST_F(Authorised, looks_no_further_than_the_first_null_name)
{
    char value[] = " Basic dXNlcjpwYXNz";
    request.headers[1].name = nullptr;
    request.headers[2] = {"authorization", value};
    EXPECT_EQ(-1, authorised(&request, page, &length, fields));
}

TEST_F(Authorised, does_not_take_proxy_credentials)
{
    char value[] = " Basic dXNlcjpwYXNz";
    request.headers[1] = {"proxy-authorization", value};
    EXPECT_EQ(-1, authorised(&request, page, &length, fields));
    EXPECT_EQ(401, request.status);
}

TEST_F(Authorised, refuses_a_request_without_the_header_with_nothing_to_send)
{
    request.headers[1].name = nullptr;
    EXPECT_EQ(-1, authorised(&request, page, &length, fields));
    EXPECT_EQ(401, request.status);
    EXPECT_EQ(0, length);
    EXPECT_TRUE(stand_in.calls.empty());
}

TEST_F(Authorised, refuses_a_header_without_a_value_with_nothing_to_send)
{
    EXPECT_EQ(-1, authorised(&request, page, &length, fields));
    EXPECT_EQ(401, request.status);
    EXPECT_EQ(0, length);
    request.status = 200;
    length = page_size;
    EXPECT_EQ(-1, authorise(""));
    EXPECT_EQ(401, request.status);
    EXPECT_EQ(0, length);
    EXPECT_TRUE(stand_in.calls.empty());
}

TEST_F(Authorised, answers_refused_credentials_with_the_refusal_text)
{
    ASSERT_EQ(234u, strlen(refusal));
    request.status = 200;
    stand_in.validate_user_result = -1;
    stand_in.validate_user_message = "SQLDriverConnect failed";
    EXPECT_EQ(-1, authorise(" Basic dXNlcjpwYXNz"));
    EXPECT_EQ(401, request.status);
    EXPECT_STREQ(refusal, page.text);
    EXPECT_EQ(234, length);
}

TEST_F(Authorised, passes_any_other_result_of_validate_user_on_as_a_refusal)
{
    for (int result : {-3, -100, 1, 7}) {
        request.status = 200;
        set_page(page, "");
        length = page_size;
        stand_in.validate_user_result = result;
        EXPECT_EQ(result, authorise(" Basic dXNlcjpwYXNz"));
        EXPECT_EQ(401, request.status) << result;
        EXPECT_STREQ(refusal, page.text) << result;
        EXPECT_EQ(234, length) << result;
    }
}

TEST_F(Authorised, sends_nothing_when_validate_user_has_answered_the_client)
{
    request.status = 200;
    stand_in.validate_user_result = -2;
    stand_in.validate_user_message = "SQLDriverConnect failed";
    EXPECT_EQ(-2, authorise(" Basic dXNlcjpwYXNz"));
    EXPECT_EQ(200, request.status);
    EXPECT_STREQ("", page.text);
    EXPECT_EQ(0, length);
}

TEST_F(Authorised, aborts_for_a_value_of_only_blanks)
{
    EXPECT_EQ(SIGABRT, signal_of(" "));
    EXPECT_EQ(SIGABRT, signal_of("    "));
}

TEST_F(Authorised, aborts_for_a_scheme_word_alone)
{
    for (const char *value : {"Basic", " Basic", " Basic ", "   Basic   ", "dXNlcjpwYXNz", "\t", "Basic\tdXNlcjpwYXNz"})
        EXPECT_EQ(SIGABRT, signal_of(value)) << value;
}

TEST_F(Authorised, aborts_for_credentials_without_a_colon)
{
    for (const char *value : {" Basic dXNlcg==", " Basic =", " Basic !", " Basic Z", " Basic : dXNlcjpwYXNz",
                              " Basic Basic dXNlcjpwYXNz"})
        EXPECT_EQ(SIGABRT, signal_of(value)) << value;
}

TEST_F(Authorised, aborts_for_a_colon_behind_a_nul_byte)
{
    EXPECT_EQ(SIGABRT, signal_of(basic(std::string("user\0:pass", 10))));
}

TEST_F(Authorised, aborts_when_there_is_no_memory)
{
    char value[] = " Basic dXNlcjpwYXNz";
    request.headers[1].value = value;
    ChildEnd end = run_in_child([&] {
        return use_up_memory() ? authorised(&request, page, &length, fields) : 77;
    });
    if (end.exit_status == 77)
        GTEST_SKIP() << "memory cannot be used up here";
    EXPECT_EQ(SIGABRT, end.signal);
}

TEST_F(Authorised, logs_nothing)
{
    CapturedLog log;
    stand_in.validate_user_result = -1;
    authorise(" Basic dXNlcjpwYXNz");
    EXPECT_EQ("", log.text());
}
