#include "source_fixture.h"

#include "admin/connection.h"
#include "admin/odbc.h"
#include "common/text.h"
#include "server/template.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sql.h>
#include <sstream>

Form::Form(std::initializer_list<std::pair<const char *, const char *>> list)
{
    for (auto [name, value] : list)
        fields.push_back({const_cast<char *>(name), const_cast<char *>(value)});
    fields.push_back({nullptr, nullptr});
}

std::string text_of_file(const std::string &path)
{
    std::ifstream file(path, std::ios::binary);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

std::string error_page(const std::string &message)
{
    RequestRecord request = {};
    char header[template_size] = "", footer[template_size] = "";
    load_template("header.html", header, sizeof header, &request);
    load_template("footer.html", footer, sizeof footer, &request);
    return "<HTML><HEAD>\r\n<TITLE>Error</TITLE>\r\n</HEAD><BODY>" + std::string(header) +
           "\r\n<H1>Error</H1>\r\n<p>" + message + "<p>\r\n" + footer + "</BODY></HTML>";
}

SourceFixture::SourceFixture()
{
    char pattern[] = "/tmp/tabwarden_source_XXXXXX";
    folder = mkdtemp(pattern);
    std::ofstream(folder + "/odbcinst.ini") << "[NORDVALE_ISAM]\nDriver=" DRIVER "\n";
    std::ofstream(folder + "/odbc.ini") << "[sample]\nDriver=NORDVALE_ISAM\nDatabase=" << folder << "/sample.db\n"
                                        << "StatementLog=" << folder << "/statements.log\n"
                                        << "[missing]\nDriver=NORDVALE_ISAM\nDatabase=" << folder << "/none.db\n";
    setenv("ODBCSYSINI", folder.c_str(), 1);
    setenv("ODBCINI", "/dev/null", 1);
    std::string create = std::string("echo ") + administrator_password + " | " ISAM_CREATE " " + folder +
                         "/sample.db " + administrator;
    EXPECT_EQ(system(create.c_str()), 0);
    init_new_request(&request);
    request.socket = connection.server();
    uri_setup(context, page.text, &request);
}

SourceFixture::~SourceFixture()
{
    uri_disconnect(context, page.text);
    std::filesystem::remove_all(folder);
}

int SourceFixture::connect(const char *user, const char *password)
{
    copy_text(datasource, "sample");
    copy_text(logonuser, user);
    copy_text(logonauth, password);
    return uri_connect(context, page, 0);
}

void SourceFixture::run(std::initializer_list<const char *> texts)
{
    PageContext own = {};
    uri_setup(own, page.text, &request);
    copy_text(datasource, "sample");
    copy_text(logonuser, administrator);
    copy_text(logonauth, administrator_password);
    ASSERT_EQ(uri_connect(own, page, 0), 0) << page.text;
    for (const char *text : texts)
        EXPECT_TRUE(execute(own.stmt, text)) << text << ": " << diagnostic_text(SQL_HANDLE_STMT, own.stmt).text;
    uri_disconnect(own, page.text);
    set_page(page, "");
}

void SourceFixture::forget_statements()
{
    std::ofstream(folder + "/statements.log", std::ios::trunc);
}

std::vector<std::string> SourceFixture::statements() const
{
    std::vector<std::string> texts;
    std::istringstream log(text_of_file(folder + "/statements.log"));
    for (std::string line; std::getline(log, line);)
        texts.push_back(line.substr(line.rfind('\t') + 1));
    return texts;
}
