"""What became of an answer while something failed: a class for every way in which it may differ from the whole one."""

import os
import re

from support import pages
from support.headers import CHALLENGE
from support.server import HTML_DIR, INSTALL_DIR

HEAD = rb"<HTML><HEAD>\r\n<TITLE>Error</TITLE>\r\n</HEAD><BODY>"
HTML_PATH = re.escape(f"{INSTALL_DIR}//html/".encode())
MESSAGE = (
    rb"(?:(?:SQLAllocHandle|SQLDriverConnect|SQLTables) failed with [^<>]*\n|"
    rb"Only the administrator of the data source can work with it\.\n|"
    rb"No datasource specified, re-select<br>|Invalid manager password specified\.\n|"
    rb"Password or description is too long\.\n)"
)
TEMPLATE_PAGE = re.compile(
    HEAD + rb"\r\n<H1>Error</H1>\r\n<p>Failed to (?:open or read template|read) " + HTML_PATH + rb"[a-z]+\.html\n"
    rb"<p>\r\n"
    rb"<ADDRESS>Skiffhttp 1\.0 \(unix\) Server at [^ ]+ Port \d+</ADDRESS>\r\n"
)
MISSING_INCLUDE = re.compile(rb"<p>Include file " + HTML_PATH + rb"([a-z_]+\.[a-z]+) not found/readable")


def error_page_pattern():
    """One error page. Where the page goes on behind it, the message stands once more in place of what was not sent."""
    header, footer = (re.escape(pages.template(name).encode()) for name in ("header.html", "footer.html"))
    page = rb"(?:%b)?\r\n<H1>Error</H1>\r\n<p>%b<p>\r\n(?:%b)?</BODY></HTML>%b?"
    return re.compile(HEAD + page % (header, MESSAGE, footer, MESSAGE))


def without_error_pages(answer):
    """The answer with error pages taken out and missing includes put in, and the names of what was found."""
    found = []
    answer, count = MISSING_INCLUDE.subn(lambda match: (HTML_DIR / match[1].decode()).read_bytes(), answer)
    found += ["missing include"] * count
    for name, pattern in (("template page", TEMPLATE_PAGE), ("error page", error_page_pattern())):
        answer, count = pattern.subn(b"", answer)
        found += [name] * count
    return answer, found


def variants(line):
    """A page's line, and what it is when the data source did not tell what stands in it."""
    yield line
    yield re.sub(rb' value="[^"]*"', b' value=""', line)
    yield re.sub(rb' value=[^">]*>', b" value=>", line)
    yield line.replace(b"value=ON checked", b"value=OFF")
    yield line.replace(b"<option selected ", b"<option ")
    yield line.replace(b"<option ", b"<option selected ")
    if re.fullmatch(rb"(?:[^<]+|<input[^>]*>(?:</input>)?)</font></td>\n", line):
        yield b"</font></td>\n"
        yield b"&nbsp;</font></td>\n"
    # Blank cells are not centred in the users' list.
    yield line.replace(b" align=center nowrap", b" nowrap")


def is_page_with_less(answer, whole):
    """Whether lines, or data in them, are missing and everything else is there in its order."""
    rest = iter(whole.splitlines(keepends=True))
    return all(any(line in variants(other) for other in rest) for line in answer.splitlines(keepends=True))


def has_hole(answer, whole):
    """Whether one piece is missing and nothing else."""
    before = os.path.commonprefix([answer, whole])
    after = os.path.commonprefix([answer[::-1], whole[::-1]])
    return len(before) + len(after) >= len(answer)


def compare(answer, whole):
    if answer == whole:
        return "whole"
    if not answer:
        return "nothing"
    if whole.startswith(answer):
        return "cut"
    if has_hole(answer, whole):
        return "hole"
    return "less" if is_page_with_less(answer, whole) else "strange"


def classify(answer, allowed):
    """`allowed`: whole answers, any of which this one may be a part of; the first is the one without a fault.

    Gives what is left of the allowed answer, "whole", "cut", "hole", "less" or "nothing", behind the names of the pages
    that came in addition; "refused" or "challenge" for a log-in that was refused; "strange" for anything else.
    """
    result = compare(answer, allowed[0])
    if result != "strange":
        return result
    if pages.is_refused(answer):
        return "refused"
    if answer.endswith(f"\r\n{CHALLENGE}\r\n".encode()):
        return "challenge"
    rest, found = without_error_pages(answer)
    results = {compare(rest, whole) for page in allowed for whole in (page, without_error_pages(page)[0])}
    for result in ("whole", "nothing", "cut", "hole", "less"):
        if result in results:
            return " + ".join([*found, result])
    return "strange"
