"""The limits that docs/security.md lists are those of the code."""

import re

import pytest

from support.guide import GUIDE
from support.server import ROOT

CONSTANTS = {
    "request, header and first part of the body": ("server/reader.h", "request_size", -1),
    "form": ("server/form.h", "post_size", 0),
    "user name, password, data source name in the log-in": ("admin/page_context.h", "column_size", -1),
    "names, passwords, descriptions on the pages": ("admin/page_context.h", "column_size", -1),
    "processor time for reading a request": ("server/reading_limit.cpp", "seconds_to_read", 0),
}


def told(what):
    """The number in the row of the guide's table."""
    (number,) = re.findall(rf"^\| {what} \| ([\d,]+) ", GUIDE.read_text(), re.MULTILINE)
    return int(number.replace(",", ""))


@pytest.mark.parametrize("what", CONSTANTS)
def test_a_limit_is_that_of_the_code(what):
    path, name, difference = CONSTANTS[what]
    value = re.search(rf"^constexpr \w+ {name} = (\d+);", (ROOT / path).read_text(), re.MULTILINE)[1]
    assert told(what) == int(value) + difference


def test_so_many_header_lines_are_known():
    names = re.search(r"header_names\[\] = \{(.*?)\};", (ROOT / "server" / "request.cpp").read_text(), re.DOTALL)[1]
    assert told("header lines") == names.count('"') / 2
