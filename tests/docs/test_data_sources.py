"""What docs/data-sources.md tells a data source to take is what the pages send."""

import re

from support.server import ROOT

TEXT = (ROOT / "docs" / "data-sources.md").read_text()
SQL = ("select ", "insert ", "update ", "delete ")


def one_line(text):
    return " ".join(text.split())


def code_of_the_pages():
    """Without comments, and with texts of several parts in one."""
    # No page uses this one.
    unused = "output_column.cpp"
    text = "".join(path.read_text() for path in sorted((ROOT / "admin").glob("*.cpp")) if path.name != unused)
    return re.sub(r'"\s*"', "", re.sub(r"^\s*//.*", "", text, flags=re.MULTILINE))


CODE = code_of_the_pages()


def test_each_statement_of_the_pages_is_there():
    texts = (text.replace(r"\"", '"') for text in re.findall(r'"((?:[^"\\\n]|\\.)*)"', CODE))
    sent = [one_line(text) for text in texts if text.startswith(SQL)]
    told = one_line(re.sub(r"<\w+>", "%s", TEXT))
    assert sent and [statement for statement in sent if statement not in told] == []


def test_the_odbc_calls_are_those_of_the_pages():
    called = set(re.findall(r"\b(SQL[A-Z][a-z]\w+)\(", CODE)) - {"SQLGetPrivateProfileString"}
    rows = re.findall(r"^\| (`SQL[^|]*) \|", TEXT, re.MULTILINE)
    assert set(re.findall(r"SQL\w+", " ".join(rows))) == called


def test_the_names_of_the_driver_are_those_that_the_chooser_looks_for():
    names = re.search(r"drivers_of_interest\[\] = \{(.*)\}", CODE)[1]
    assert set(re.findall(r"`Driver=` is `(\w+)` or `(\w+)`", TEXT)[0]) == set(re.findall(r'"(\w+)"', names))


def test_the_message_for_a_wrong_password_is_the_one_that_the_log_in_looks_for():
    looked_for = re.search(r'strstr\(message\.text, "(.+)"\)', CODE)[1]
    assert f"\n    {looked_for}\n" in TEXT
