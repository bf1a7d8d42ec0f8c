"""Templates and their include directives, looked at through the pages that are made of them."""

import pytest

from support import pages
from support.headers import header_block, undated
from support.server import HTML_DIR, INSTALL_DIR

LIMIT = 32767
NO_SOURCES = pages.TABLE_BEGIN_CENTER + pages.source_chooser([], "", "initial_datasource") + pages.TABLE_END + "<br>\n"


def put(name, content):
    (HTML_DIR / name).parent.mkdir(exist_ok=True)
    (HTML_DIR / name).write_bytes(content)


def landing_page(header, menu, footer):
    form = b"<form method=POST action=/isam.cgi>"
    return header_block() + header + form + menu + NO_SOURCES.encode() + b"</form>" + footer


@pytest.fixture
def made_of(running_server):
    """What the page makes of a template, which here is its footer; `files` are for the template to include."""

    def footer_of(template, files=None):
        put("header.html", b"header\n")
        put("menu.html", b"menu\n")
        put("footer.html", template)
        for name, content in (files or {}).items():
            put(name, content)
        page = undated(running_server.get("/"))
        before = landing_page(b"header\n", b"menu\n", b"")
        assert page.startswith(before)
        return page[len(before) :]

    return footer_of


def filled(begin, length, end=b""):
    """A text of so many bytes."""
    return begin + (length - len(begin) - len(end)) * b"." + end


# Plain text


@pytest.mark.parametrize(
    "text",
    [
        b"x",
        b"<",
        b"no line end",
        b"line\nline\r\nline\r",
        bytes(range(1, 256)),
        filled(b"<<!--", 20000, b"<!--#include"),
    ],
    ids=lambda text: repr(text[:20]),
)
def test_a_template_without_directives_comes_out_as_it_is(made_of, text):
    assert made_of(text) == text


@pytest.mark.parametrize("text", [b"before\0behind", b"before\0\0", b"\0", b"\0behind"])
def test_a_template_ends_at_its_first_nul(made_of, text):
    assert made_of(text) == text.partition(b"\0")[0]


@pytest.mark.parametrize(
    "text",
    [
        b"<!-- a comment -->",
        b"<!---->",
        b'<!--#include file="no-file.html"-->',
        b'<!--#include file="no file.html"-->',
        b'<!--#include file=" it"-->',
        b'<!--#include file="it "-->',
        b'<!--#include file="i\rt"-->',
        b'<!--#INCLUDE file="it"-->',
        b'<!--#Include file="it"-->',
        b'<!--#include FILE="it"-->',
        b'<!--#include virtual="it"-->',
        b'<!-- # include file="it"-->',
        b"<!--#include file='it'-->",
        b"<!--#include file=it-->......",
        b'<!--#include file"it"-->....',
        b'<!--#include file="it" -- >',
        b'<!--#include file="it"->....',
        b'<!--#include file="it" x-->',
        b'<!-#include file="it"-->...',
        b'< !--#include file="it"-->',
        b'<!--\t#include file="it"-->',
        b'<!--#include\tfile="it"-->',
        b'<!--#include\nfile="it"-->',
        b'<!--#include file=\n"it"-->',
        b'<!--#include file="it"\n-->',
        b'<!--#include file="it',
        b'<!--#include file="it"',
        b'<!--#include file="it"--',
        b'<!--#include file="it.............................',
    ],
    ids=repr,
)
def test_what_is_not_quite_a_directive_comes_out_as_it_is(made_of, text):
    page = text + b"\nand enough text behind it\n"
    assert made_of(page, {"it": b"INCLUDED"}) == page
    assert made_of(text) == text


# Directives


@pytest.mark.parametrize(
    "directive",
    [
        b'<!--#include file="it"-->',
        b'<!--#includefile="it"-->',
        b'<!-- #include file="it" -->',
        b'<!--   #include   file   =   "it"   -->',
        b'<!--#include file= "it"-->',
        b'<!--#include file ="it"-->',
    ],
)
def test_a_directive_may_have_blanks_between_its_parts(made_of, directive):
    page = b"before\n" + directive + b"\nand enough text behind it\n"
    assert made_of(page, {"it": b"INCLUDED\n"}) == b"before\nINCLUDED\nand enough text behind it\n"


@pytest.mark.parametrize("name", ["a", "a.html", "a.b.c", "folder/a", "/a", "'a'", "a<b>", "größe", "a=b", "a\nb"])
def test_the_file_may_have_any_name_without_blanks_quotes_and_hyphens(made_of, name):
    files = {name.lstrip("/"): b"INCLUDED"}
    page = f'<!--#include file="{name}"-->\nand enough text behind it\n'.encode()
    assert made_of(page, files) == b"INCLUDEDand enough text behind it\n"


@pytest.mark.parametrize(
    "behind, left",
    [(b"\n", b""), (b"text", b"ext"), (b"\r\n", b"\n"), (b" <b>", b"<b>"), (b"\n\n", b"\n"), (b"<!-- -->", b"!-- -->")],
)
def test_the_character_behind_a_directive_is_dropped(made_of, behind, left):
    page = b'<!--#include file="it"-->' + behind
    assert made_of(page, {"it": b"INCLUDED"}) == b"INCLUDED" + left


def test_of_two_directives_in_a_row_the_second_loses_its_first_character(made_of):
    directive = b'<!--#include file="it"-->'
    assert made_of(directive + directive, {"it": b"INCLUDED"}) == b"INCLUDED" + directive[1:]
    assert made_of(directive + b"\n" + directive) == b"INCLUDEDINCLUDED"


def test_a_directive_behind_other_less_than_signs_is_found(made_of):
    assert made_of(b'<<<!--<!--#include file="it"-->\n', {"it": b"INCLUDED"}) == b"<<<!--INCLUDED"


@pytest.mark.parametrize("length", [1, 100, 20000])
def test_an_included_file_comes_out_as_it_is(made_of, length):
    content = bytes(1 + number % 255 for number in range(length))
    assert made_of(b'<!--#include file="it"-->\n', {"it": content}) == content


def test_an_empty_file_includes_nothing(made_of):
    assert made_of(b'before <!--#include file="it"-->\nbehind', {"it": b""}) == b"before behind"


def test_directives_in_an_included_file_are_not_followed(made_of):
    nested = b'<!--#include file="inner"-->\nand enough text behind it\n'
    assert made_of(b'<!--#include file="it"-->\n', {"it": nested, "inner": b"INNER"}) == nested


def test_a_template_may_include_itself_once(made_of):
    page = b'<!--#include file="footer.html"-->\nand enough text behind it\n'
    assert made_of(page) == page + page.partition(b"\n")[2]


def test_the_same_file_may_be_included_again_and_again(made_of):
    assert made_of(500 * b'<!--#include file="it"-->\n', {"it": b"INCLUDED\n"}) == 500 * b"INCLUDED\n"


@pytest.mark.parametrize("name", ["missing", "missing.html", "folder/missing", 150 * "missing", 2000 * "m"])
def test_a_file_that_is_missing_leaves_a_note_with_its_path_and_the_page_goes_on(made_of, name):
    page = f'before\n<!--#include file="{name}"-->\nbehind\n'.encode()
    note = f"<p>Include file {INSTALL_DIR}//html/{name} not found/readable"
    assert made_of(page) == f"before\n{note}behind\n".encode()


@pytest.mark.parametrize("name", ["", "images", ".", "/"])
def test_a_folder_or_no_name_includes_nothing_without_a_note(made_of, name):
    page = f'before\n<!--#include file="{name}"-->\nand enough text behind it\n'.encode()
    assert made_of(page) == b"before\nand enough text behind it\n"


@pytest.mark.parametrize(
    "end, made",
    [
        (b'<!--#include file="i"-->', b"INCLUDED"),
        (b'<!--#includefile="i"-->', b"INCLUDED"),
        (b'<!--#include file=""-->', b""),
        (b'<!--#includefile=""-->', b'<!--#includefile=""-->'),
        (b'<!--#includefile=""-->.', b""),
    ],
)
def test_at_the_end_of_a_template_a_directive_needs_23_characters(made_of, end, made):
    assert made_of(b"before\n" + end, {"i": b"INCLUDED"}) == b"before\n" + made
    assert made_of(end + b"\0" + 30 * b".") == made


# Sizes


@pytest.mark.parametrize("name", ["header.html", "menu.html", "footer.html"])
@pytest.mark.parametrize("length", [LIMIT - 1, LIMIT, LIMIT + 1, 100_000])
def test_a_template_counts_up_to_its_limit_and_the_page_comes_whole(running_server, name, length):
    templates = {"header.html": b"header\n", "menu.html": b"menu\n", "footer.html": b"footer\n"}
    templates[name] = filled(b"begin\n", length, b"\nend\n")
    for file, content in templates.items():
        put(file, content)
    expected = landing_page(*(content[:LIMIT] for content in templates.values()))
    assert undated(running_server.get("/")) == expected


@pytest.mark.parametrize("length", [10000, 16000, 16383, 16384, 16385, 20000, LIMIT])
def test_a_page_that_is_larger_than_its_buffer_comes_whole(running_server, length):
    header, menu, footer = (filled(name, length, b"end\n") for name in (b"header\n", b"menu\n", b"footer\n"))
    put("header.html", header)
    put("menu.html", menu)
    put("footer.html", footer)
    assert undated(running_server.get("/")) == landing_page(header, menu, footer)


@pytest.mark.parametrize("length", [LIMIT - 101, LIMIT - 100, LIMIT - 99, 2 * LIMIT])
def test_an_included_file_fills_the_room_that_is_left(made_of, length):
    begin = filled(b"begin\n", 100)
    content = filled(b"INCLUDED\n", length, b"END\n")
    assert made_of(begin + b'<!--#include file="it"-->\n', {"it": content}) == (begin + content)[:LIMIT]


def test_of_the_text_behind_included_files_there_is_what_fits(made_of):
    content = filled(b"INCLUDED\n", 20000, b"END\n")
    behind = filled(b"behind\n", 20000, b"end\n")
    page = b'<!--#include file="it"-->\n' + behind
    assert made_of(page, {"it": content}) == (content + behind)[:LIMIT]
    assert made_of(3 * b'<!--#include file="it"-->\n' + b"behind") == (2 * content)[:LIMIT]


def test_of_a_note_about_a_missing_file_there_is_what_fits(made_of):
    begin = filled(b"begin\n", LIMIT - 100)
    page = b'<!--#include file="it"-->\n<!--#include file="missing"-->\nbehind'
    note = f"<p>Include file {INSTALL_DIR}//html/missing not found/readable".encode()
    made = made_of(page, {"it": begin})
    assert made == (begin + note + b"behind")[:LIMIT]
    assert len(made) == min(LIMIT, len(begin + note + b"behind"))


# Templates that are not there


def failure_page(server, message):
    missing = pages.missing_template_page("MISSING", server.port)
    return missing.replace(f"Failed to open or read template {INSTALL_DIR}//html/MISSING\n", message).encode()


@pytest.fixture(params=["header.html", "menu.html", "footer.html"])
def name(request):
    return request.param


def test_a_page_without_a_template_is_its_header_block_and_a_bare_error_page(running_server, name):
    (HTML_DIR / name).unlink()
    expected = failure_page(running_server, f"Failed to open or read template {INSTALL_DIR}//html/{name}\n")
    assert undated(running_server.get("/")) == header_block() + expected


def test_so_is_a_page_with_an_empty_template(running_server, name):
    put(name, b"")
    expected = failure_page(running_server, f"Failed to read {INSTALL_DIR}//html/{name}\n")
    assert undated(running_server.get("/")) == header_block() + expected


def test_so_is_a_page_with_a_folder_for_a_template(running_server, name):
    (HTML_DIR / name).unlink()
    (HTML_DIR / name).mkdir()
    expected = failure_page(running_server, f"Failed to read {INSTALL_DIR}//html/{name}\n")
    assert undated(running_server.get("/")) == header_block() + expected


def test_the_page_about_the_missing_data_source_resolves_includes_too(running_server):
    put("header.html", b'<!--#include file="it"-->\nheader\n')
    put("it", b"INCLUDED\n")
    page = pages.error_page("No datasource specified, re-select<br>")
    assert running_server.get("/isam.cgi") == page.encode()
    assert b"<BODY>INCLUDED\nheader\n\r\n<H1>" in page.encode()


def test_the_page_about_the_missing_data_source_goes_on_without_its_templates(running_server):
    (HTML_DIR / "header.html").unlink()
    put("footer.html", b"")
    assert running_server.get("/isam.cgi") == (
        failure_page(running_server, f"Failed to open or read template {INSTALL_DIR}//html/header.html\n")
        + b"<HTML><HEAD>\r\n<TITLE>Error</TITLE>\r\n</HEAD><BODY>"
        + failure_page(running_server, f"Failed to read {INSTALL_DIR}//html/footer.html\n")
        + b"\r\n<H1>Error</H1>\r\n<p>No datasource specified, re-select<br><p>\r\n"
        + b"</BODY></HTML>"
    )


def test_the_page_about_the_missing_data_source_comes_whole_with_large_templates(running_server):
    put("header.html", filled(b"header\n", LIMIT, b"end\n"))
    put("footer.html", filled(b"footer\n", LIMIT, b"end\n"))
    page = pages.error_page("No datasource specified, re-select<br>")
    assert running_server.get("/isam.cgi") == page.encode()
