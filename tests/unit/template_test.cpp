#include "server/template.h"

#include "server/server_state.h"
#include "tests/unit/captured_log.h"
#include "tests/unit/guarded_text.h"
#include "tests/unit/html_folder.h"
#include "tests/unit/same_bytes.h"
#include "tests/unit/sockets.h"

#include <cstring>
#include <fcntl.h>
#include <string>
#include <unistd.h>

namespace {

const std::string install_dir = TABWARDEN_INSTALL_DIR;

std::string not_found(const std::string &name)
{
    return "<p>Include file " + install_dir + "/html/" + name + " not found/readable";
}

std::string address_text(const void *address)
{
    char text[32];
    snprintf(text, sizeof text, "%p", address);
    return text;
}

// Loads templates into a buffer that ends right before an unmapped page.
class LoadTemplate : public HtmlFolder {
protected:
    LoadTemplate()
    {
        init_new_request(&request);
        request.status = 200;
        request.socket = sockets.server();
    }

    int load(const std::string &name, int size = template_size)
    {
        GuardedText room(std::string(size_t(size) - 1, '#'));
        output_address = room.text();
        int result = load_template(name.c_str(), room.text(), size, &request);
        output = room.text();
        return result;
    }

    // What comes out of a template with that content.
    std::string loaded(const std::string &content, int size = template_size)
    {
        EXPECT_EQ(0, load(write_file("page.html", content), size));
        return output;
    }

    std::string directive(const std::string &name) { return "<!--#include file=\"" + name + "\"-->"; }

    SocketPair sockets{SOCK_DGRAM};
    RequestRecord request;
    std::string output;
    const void *output_address = nullptr;
};

}

TEST(GetInstallPath, gives_the_installation_directory_with_its_closing_slash)
{
    char path[path_size];
    EXPECT_EQ(0, get_install_path(path, path_size));
    EXPECT_EQ(install_dir, path);
    EXPECT_EQ('/', install_dir.back());
}

TEST(GetInstallPath, does_not_look_at_the_size)
{
    char path[path_size];
    EXPECT_EQ(0, get_install_path(path, 0));
    EXPECT_EQ(install_dir, path);
}

TEST(HtmlPath, joins_directory_folder_and_name)
{
    char path[64];
    EXPECT_TRUE(html_path(path, "/opt/isam/", "header.html"));
    EXPECT_STREQ("/opt/isam//html/header.html", path);
    EXPECT_TRUE(html_path(path, "/opt/isam/", ""));
    EXPECT_STREQ("/opt/isam//html/", path);
}

TEST(HtmlPath, refuses_a_path_that_does_not_fit)
{
    char exact[10], small[9];
    EXPECT_TRUE(html_path(exact, "/a", "b"));
    EXPECT_STREQ("/a/html/b", exact);
    EXPECT_FALSE(html_path(small, "/a", "b"));
    EXPECT_STREQ("", small);
}

TEST_F(LoadTemplate, copies_a_template_without_directives_byte_for_byte)
{
    for (const std::string content : {"a", "\n", "<html>\r\n<body>\t</body>\n</html>\n", "<", "<<<>>>", "<!", "<!--",
                                      "<!-- a comment of some length, longer than a directive -->\n",
                                      "\xff\xfe\x01\x80 100%s%n\n", "--><!--#include"})
        EXPECT_BYTES(content, loaded(content));
}

TEST_F(LoadTemplate, ends_the_template_at_its_first_nul)
{
    EXPECT_EQ("before", loaded(std::string("before\0behind", 13)));
    EXPECT_EQ("", loaded(std::string("\0behind", 7)));
}

TEST_F(LoadTemplate, leaves_status_and_connection_alone)
{
    loaded("a");
    EXPECT_EQ(200, request.status);
    EXPECT_TRUE(sockets.received_pieces().empty());
}

TEST_F(LoadTemplate, replaces_a_directive_by_the_file)
{
    std::string part = write_file("part.html", "<b>part</b>\n");
    EXPECT_EQ("before\n<b>part</b>\nbehind\n", loaded("before\n" + directive(part) + "\nbehind\n"));
}

TEST_F(LoadTemplate, drops_the_one_character_behind_a_directive)
{
    std::string part = write_file("part.html", "part");
    const struct {
        const char *behind, *output;
    } cases[] = {{"\nbehind", "partbehind"}, {"behind", "partehind"}, {"\r\nbehind", "part\nbehind"},
                 {"\n\nbehind", "part\nbehind"}, {" behind", "partbehind"}, {"<b>", "partb>"}};
    for (const auto &sample : cases)
        EXPECT_EQ(sample.output, loaded(directive(part) + sample.behind));
}

TEST_F(LoadTemplate, does_not_see_a_directive_whose_first_character_is_dropped)
{
    std::string part = write_file("part.html", "part");
    EXPECT_EQ("part" + directive(part).substr(1) + "\n", loaded(directive(part) + directive(part) + "\n"));
    EXPECT_EQ("partpart", loaded(directive(part) + " " + directive(part) + " "));
}

TEST_F(LoadTemplate, takes_a_directive_that_ends_the_template)
{
    std::string part = write_file("part.html", "part");
    EXPECT_EQ("part", loaded(directive(part)));
    EXPECT_EQ("a part", loaded("a " + directive(part)));
}

TEST_F(LoadTemplate, takes_a_directive_that_ends_at_a_nul)
{
    std::string part = write_file("part.html", "part");
    EXPECT_EQ("part", loaded(directive(part) + std::string("\0behind", 7)));
}

TEST_F(LoadTemplate, accepts_blanks_between_all_parts)
{
    std::string part = write_file("part.html", "part");
    for (const std::string &text : {"<!--#includefile=\"" + part + "\"-->", "<!-- #include file=\"" + part + "\"-->",
                                    "<!--#include   file=\"" + part + "\"-->", "<!--#include file =\"" + part + "\"-->",
                                    "<!--#include file= \"" + part + "\"-->", "<!--#include file=\"" + part + "\" -->",
                                    "<!--   #include   file   =   \"" + part + "\"   -->"})
        EXPECT_EQ("[part]", loaded("[" + text + "\n]")) << text;
}

TEST_F(LoadTemplate, copies_what_only_resembles_a_directive)
{
    std::string part = write_file("part.html", "part");
    for (const std::string &text : {
             "<! --#include file=\"" + part + "\"-->",
             "<!-#include file=\"" + part + "\"-->",
             "<!--#INCLUDE file=\"" + part + "\"-->",
             "<!--#Include file=\"" + part + "\"-->",
             "<!--#include FILE=\"" + part + "\"-->",
             "<!--#include virtual=\"" + part + "\"-->",
             "<!--include file=\"" + part + "\"-->",
             "<!--# include file=\"" + part + "\"-->",
             "<!--#include\tfile=\"" + part + "\"-->",
             "<!--#include\nfile=\"" + part + "\"-->",
             "<!--\n#include file=\"" + part + "\"-->",
             "<!--#include file:\"" + part + "\"-->",
             "<!--#include file='" + part + "'-->",
             "<!--#include file=" + part + "-->",
             "<!--#include file=\" " + part + "\"-->",      // a blank ends the name
             "<!--#include file=\"" + part + " \"-->",
             "<!--#include file=\"" + part + " b\"-->",
             "<!--#include file=\"" + part + "\r\"-->",
             "<!--#include file=\"" + part + "-->",
             "<!--#include file=\"" + part + "\"\t-->",
             "<!--#include file=\"" + part + "\"-- >",
             "<!--#include file=\"" + part + "\"->",
             "<!--#include file=\"" + part + "\"--",
             "<!--#include file=\"" + part + "\"x-->",
             "<!--#include file=\"" + part + "\"\"-->",
         })
        EXPECT_BYTES("[" + text + "\n]", loaded("[" + text + "\n]"));
}

TEST_F(LoadTemplate, does_not_take_a_name_with_a_hyphen)
{
    std::string hyphenated = write_file("a-b.html", "part");
    EXPECT_EQ("[" + directive(hyphenated) + "\n]", loaded("[" + directive(hyphenated) + "\n]"));
    EXPECT_EQ("[" + directive("-") + "\n]", loaded("[" + directive("-") + "\n]"));
}

TEST_F(LoadTemplate, goes_on_scanning_inside_what_only_resembled_a_directive)
{
    std::string part = write_file("part.html", "part");
    EXPECT_EQ("<!--#include part\n]", loaded("<!--#include " + directive(part) + "\n\n]"));
    for (const std::string before : {"<", "<<", "<!--<", "<!<"})
        EXPECT_EQ(before + "part]", loaded(before + directive(part) + "\n]"));
}

TEST_F(LoadTemplate, includes_several_files_and_one_several_times)
{
    std::string one = write_file("one.html", "1"), two = write_file("two.html", "2");
    EXPECT_EQ("a1b2c1d", loaded("a" + directive(one) + "\nb" + directive(two) + "\nc" + directive(one) + "\nd"));
}

TEST_F(LoadTemplate, does_not_scan_included_text)
{
    std::string inner = write_file("inner.html", "inner");
    std::string outer = write_file("outer.html", "[" + directive(inner) + "\n]");
    EXPECT_EQ("[" + directive(inner) + "\n]!", loaded(directive(outer) + "\n!"));
}

TEST_F(LoadTemplate, does_not_join_included_text_to_a_directive)
{
    std::string inner = write_file("inner.html", "inner"), begin = write_file("begin.html", "<!--#include ");
    EXPECT_EQ("<!--#include file=\"" + inner + "\"-->\n", loaded(directive(begin) + " file=\"" + inner + "\"-->\n"));
}

TEST_F(LoadTemplate, includes_an_empty_file_as_nothing)
{
    std::string empty = write_file("empty.html", "");
    EXPECT_EQ("[]", loaded("[" + directive(empty) + "\n]"));
}

TEST_F(LoadTemplate, includes_nothing_for_an_empty_name)
{
    CapturedLog log;
    EXPECT_EQ("[]", loaded("[" + directive("") + "\n]"));
    EXPECT_EQ(std::string::npos, log.text().find("Failed")) << log.text();
    EXPECT_TRUE(sockets.received_pieces().empty());
}

TEST_F(LoadTemplate, includes_nothing_for_a_folder)
{
    EXPECT_EQ("[]", loaded("[" + directive(make_folder("folder")) + "\n]"));
}

TEST_F(LoadTemplate, copies_a_directive_within_the_last_22_characters)
{
    // 23 is the length of the shortest directive that is written with a blank; without it one more would fit.
    for (const std::string text : {"<!--#includefile=\"\"-->", "a\n<!--#includefile=\"\"-->"})
        EXPECT_EQ(text, loaded(text));
}

TEST_F(LoadTemplate, takes_a_directive_of_23_characters_at_the_end)
{
    EXPECT_EQ("", loaded("<!--#include file=\"\"-->"));
    EXPECT_EQ("", loaded("<!--#includefile=\"\"-->\n"));
    EXPECT_EQ("a", loaded("a<!--#include file=\"\"-->"));
    std::string missing = "~";
    EXPECT_EQ(not_found(missing), loaded("<!--#includefile=\"~\"-->"));
}

TEST_F(LoadTemplate, counts_the_characters_up_to_a_nul)
{
    std::string text = "<!--#includefile=\"\"-->";
    EXPECT_EQ(text, loaded(text + std::string("\0\n\n\n", 4)));
}

TEST_F(LoadTemplate, copies_a_directive_that_is_cut_anywhere)
{
    std::string part = write_file("part.html", "part"), whole = "<!-- #include file = \"" + part + "\" -->";
    for (size_t length = 1; length < whole.size(); length++)
        EXPECT_EQ(whole.substr(0, length), loaded(whole.substr(0, length))) << length;
    EXPECT_EQ("part", loaded(whole));
}

TEST_F(LoadTemplate, takes_a_name_up_to_the_end_of_a_full_template_for_text)
{
    std::string content = "<!--#include file=\"";
    content.resize(32767, 'n');
    EXPECT_BYTES(content, loaded(content));
}

TEST_F(LoadTemplate, notes_a_missing_include_file_and_goes_on)
{
    CapturedLog log;
    EXPECT_EQ("[" + not_found("unit_no_such_file") + "]", loaded("[" + directive("unit_no_such_file") + "\n]"));
    EXPECT_EQ(200, request.status);
    EXPECT_TRUE(sockets.received_pieces().empty());
    std::string lines = log.text();
    EXPECT_EQ("Failed to open include file " + install_dir + "/html/unit_no_such_file\n",
              lines.substr(lines.find('\n') + 1));
}

TEST_F(LoadTemplate, takes_any_other_characters_for_a_file_name)
{
    for (const std::string name : {"a\tb", "a\nb", "%s%n", "a'b", "<b>", "\xc3\xa4", "a/b", "a=b", "a&b", "a>b"})
        EXPECT_EQ("[" + not_found(name) + "]", loaded("[" + directive(name) + "\n]")) << name;
}

TEST_F(LoadTemplate, notes_an_include_file_with_a_path_that_is_too_long)
{
    for (size_t length : {size_t(1024), size_t(20000)}) {
        std::string name(length, 'n');
        std::string expected = "[" + not_found(name) + "]";
        EXPECT_BYTES(expected, loaded("[" + directive(name) + "\n]"));
    }
}

TEST_F(LoadTemplate, cuts_a_template_after_32767_bytes)
{
    for (size_t length : {size_t(32766), size_t(32767), size_t(32768), size_t(40000)}) {
        std::string content(length, 'c');
        EXPECT_BYTES(content.substr(0, 32767), loaded(content));
    }
}

TEST_F(LoadTemplate, does_not_see_a_directive_that_is_cut)
{
    std::string part = write_file("part.html", "part"), content(32767 - 30, 'c');
    content += directive(part);
    ASSERT_GT(content.size(), 32767u);
    EXPECT_BYTES(content.substr(0, 32767), loaded(content));
}

TEST_F(LoadTemplate, drops_the_part_of_an_include_that_does_not_fit)
{
    std::string part = write_file("part.html", std::string(40000, 'p'));
    EXPECT_BYTES("[" + std::string(32766, 'p'), loaded("[" + directive(part)));
}

TEST_F(LoadTemplate, fills_the_output_to_its_last_character)
{
    std::string part = write_file("part.html", std::string(32765, 'p'));
    EXPECT_BYTES("[" + std::string(32765, 'p') + "]", loaded("[" + directive(part) + "\n]"));
}

TEST_F(LoadTemplate, stops_at_the_last_character_that_fits)
{
    std::string part = write_file("part.html", std::string(32760, 'p'));
    EXPECT_BYTES("[" + std::string(32760, 'p') + "behind", loaded("[" + directive(part) + "\nbehind\nand more"));
    EXPECT_BYTES("[" + std::string(32760, 'p') + not_found("x").substr(0, 6),
                 loaded("[" + directive(part) + "\n" + directive("x") + "\n]"));
    EXPECT_BYTES("[" + std::string(32760, 'p') + std::string(6, 'p'),
                 loaded("[" + directive(part) + "\n" + directive(part) + "\n]"));
}

TEST_F(LoadTemplate, stays_within_a_smaller_size)
{
    std::string name = write_file("page.html", std::string(2000, 'c'));
    EXPECT_EQ(0, load(name, 1000));
    EXPECT_BYTES(std::string(999, 'c'), output);
    std::string part = write_file("part.html", std::string(2000, 'p'));
    EXPECT_BYTES("[" + std::string(998, 'p'), loaded("[" + directive(part) + "\n]", 1000));
}

TEST_F(LoadTemplate, refuses_a_path_that_the_size_does_not_hold)
{
    std::string name = write_file("page.html", "a");
    int least = int(install_dir.size() + name.size() + 2);
    EXPECT_EQ(0, load(name, least));
    EXPECT_EQ("a", output);
    EXPECT_EQ(200, request.status);

    CapturedLog log;
    EXPECT_EQ(-1, load(name, least - 1));
    EXPECT_EQ(507, request.status);
    EXPECT_EQ("load_template(" + name + "," + address_text(output_address) + "," + std::to_string(least - 1) + ","
                  + address_text(&request) + ")\nFailed to get create template path - too long\n",
              log.text());
    EXPECT_TRUE(sockets.received_pieces().empty());
}

TEST_F(LoadTemplate, refuses_a_path_that_its_own_buffer_does_not_hold)
{
    for (size_t length : {size_t(1024), size_t(32000), size_t(40000)}) {
        request.status = 200;
        EXPECT_EQ(-1, load(std::string(length, 'n')));
        EXPECT_EQ(507, request.status) << length;
        EXPECT_TRUE(sockets.received_pieces().empty());
    }
}

TEST_F(LoadTemplate, reports_a_template_that_does_not_open)
{
    nport = 8451;
    CapturedLog log;
    std::string message = "Failed to open or read template " + served_path("unit_no_such_template.html") + "\n";
    EXPECT_EQ(-1, load("unit_no_such_template.html"));
    EXPECT_EQ(404, request.status);
    EXPECT_EQ("load_template(unit_no_such_template.html," + address_text(output_address) + ",32768,"
                  + address_text(&request) + ")\n" + message,
              log.text());
    EXPECT_EQ(std::vector<std::string>{"<HTML><HEAD>\r\n<TITLE>Error</TITLE>\r\n</HEAD><BODY>\r\n<H1>Error</H1>\r\n<p>"
                                       + message + "<p>\r\n" + address_line(8451)},
              sockets.received_pieces());
}

TEST_F(LoadTemplate, reports_a_template_that_is_empty_or_a_folder)
{
    nport = 8451;
    for (const std::string &name : {write_file("empty.html", ""), make_folder("folder.html")}) {
        CapturedLog log;
        std::string message = "Failed to read " + served_path(name) + "\n";
        EXPECT_EQ(-1, load(name));
        EXPECT_EQ(200, request.status);
        EXPECT_EQ(message, log.text().substr(log.text().find('\n') + 1));
        EXPECT_EQ(std::vector<std::string>{
                      "<HTML><HEAD>\r\n<TITLE>Error</TITLE>\r\n</HEAD><BODY>\r\n<H1>Error</H1>\r\n<p>" + message
                      + "<p>\r\n" + address_line(8451)},
                  sockets.received_pieces());
    }
}

TEST_F(LoadTemplate, reports_to_the_client_with_logging_off_too)
{
    EXPECT_EQ(-1, load("unit_no_such_template.html"));
    EXPECT_EQ(1u, sockets.received_pieces().size());
}

TEST_F(LoadTemplate, never_takes_a_name_for_a_format)
{
    CapturedLog log;
    EXPECT_EQ(-1, load("unit_%s%n%d"));
    EXPECT_NE(std::string::npos, log.text().find("Failed to open or read template " + served_path("unit_%s%n%d\n")));
    EXPECT_NE(std::string::npos, sockets.received().find(served_path("unit_%s%n%d\n")));
}

TEST_F(LoadTemplate, logs_its_arguments)
{
    CapturedLog log;
    std::string name = write_file("page.html", "a");
    EXPECT_EQ(0, load(name));
    EXPECT_EQ("load_template(" + name + "," + address_text(output_address) + ",32768," + address_text(&request) + ")\n",
              log.text());
}

TEST_F(LoadTemplate, leaves_no_file_open)
{
    int before = open("/dev/null", O_RDONLY);
    close(before);
    std::string part = write_file("part.html", "part");
    loaded(directive(part) + "\n" + directive("unit_no_such_file") + "\n" + directive("") + "\n");
    load(write_file("empty.html", ""));
    load("unit_no_such_template.html");
    int behind = open("/dev/null", O_RDONLY);
    close(behind);
    EXPECT_EQ(before, behind);
}
