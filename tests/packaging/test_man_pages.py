"""The manual pages: well-formed, and in agreement with the programs that they describe."""

import re
import subprocess

import pytest

from support.packaged_commands import MANUAL_PAGES
from support.server import BUILD, PROGRAM, ROOT, uninstrumented

PAGES = {page.name: page for page in sorted((ROOT / "packaging" / "man").iterdir())}
ISAM_CREATE = BUILD / "embedded" / "isam_create"


def run(*command):
    return subprocess.run(command, capture_output=True, text=True, env=uninstrumented(LC_ALL="C.UTF-8"))


def shown(page):
    """The page as it is read, in one line."""
    text = run("mandoc", "-T", "ascii", PAGES[page]).stdout
    return " ".join(re.sub(".\b", "", text).split())


def usage(program):
    return subprocess.run([program, "-x"], stdin=subprocess.DEVNULL, capture_output=True, text=True).stderr


def source(name):
    return (ROOT / name).read_text()


def pieces(format_text):
    """What a format text says between its conversions."""
    return [piece for piece in re.split(r"%\w|\\n", format_text) if piece]


every_page = pytest.mark.parametrize("page", PAGES)


@every_page
def test_mandoc_has_no_complaint(page):
    lint = run("mandoc", "-T", "lint", "-W", "warning", PAGES[page])
    assert (lint.returncode, lint.stdout + lint.stderr) == (0, "")


@every_page
def test_man_has_no_complaint(page):
    man = run("man", "--warnings", "-l", PAGES[page])
    assert (man.returncode, man.stderr) == (0, "")


@every_page
def test_each_page_of_ours_that_is_referred_to_is_there(page):
    referred = re.findall(r"^\.Xr (tabwarden\w*|isam_\w+) (\d)", PAGES[page].read_text(), re.MULTILINE)
    assert [f"{name}.{section}" for name, section in referred if f"{name}.{section}" not in PAGES] == []


@every_page
def test_each_line_that_a_page_shows_is_run_by_a_test(page):
    blocks = re.findall(r"^\.Bd [^\n]*\n(.*?)^\.Ed$|^\.Dl ([^\n]*)", PAGES[page].read_text(), re.MULTILINE | re.DOTALL)
    lines = [line for block in blocks for line in "\n".join(block).splitlines() if line]
    # tests/security runs one like it.
    not_run = {"ssh -N -L 8451:127.0.0.1:8451 server.example.com"}
    assert lines and [line for line in lines if line not in {*MANUAL_PAGES.splitlines(), *not_run}] == []


def test_the_options_are_those_of_the_usage():
    described = re.findall(r"^\.It Fl (\w)", PAGES["tabwarden.8"].read_text(), re.MULTILINE)
    assert described == re.findall(r"^  -(\w) ", usage(PROGRAM), re.MULTILINE)


def test_the_synopsis_of_tabwarden_is_that_of_the_usage():
    synopsis = usage(PROGRAM).split("\n")[1].removeprefix("usage : ").replace('"', "")
    assert f"SYNOPSIS {synopsis} DESCRIPTION" in shown("tabwarden.8")


def test_the_synopsis_of_isam_create_is_that_of_the_usage():
    synopsis = usage(ISAM_CREATE).strip().removeprefix("Usage: ").removesuffix(" <PASSWORD_FILE")
    assert f"SYNOPSIS {synopsis} DESCRIPTION" in shown("isam_create.1")


def test_what_the_server_says_is_among_the_diagnostics():
    page = shown("tabwarden.8")
    code = source("server/listener.cpp") + source("server/log.cpp")
    said = re.findall(r'(?<!_)(?:printf\(|fprintf\(stderr, |fputs\()"(.+)"', code)
    assert len(said) == 3
    assert [piece for text in said for piece in pieces(text) if piece not in page] == []


def test_what_ends_the_start_is_among_the_diagnostics():
    failures = re.findall(r'return fail\("(.+)\\n"\)', source("server/listener.cpp"))
    assert len(failures) == 3
    # This one stands on standard error in other words.
    failures.remove("Failed to bind socket")
    assert [failure for failure in failures if failure not in shown("tabwarden.8")] == []


def test_what_isam_create_says_is_among_its_diagnostics():
    page = shown("isam_create.1")
    said = re.findall(r'fprintf\(stderr, "(.+)"', source("embedded/isam_create.cpp"))
    assert len(said) == 3
    assert [piece for text in said for piece in pieces(text) if piece not in page] == []


def test_every_keyword_that_the_driver_reads_is_described():
    read = re.findall(r'(?:profile_value|value_or)\([\w.]+, "(\w+)"', source("embedded/connect.cpp"))
    assert set(read) == {"DSN", "Database", "StatementLog", "UID", "PWD"}
    described = re.findall(r"^\.It Li (.+)", PAGES["tabwarden_isam.5"].read_text(), re.MULTILINE)
    assert set(", ".join(described).replace(" ,", ",").split(", ")) == set(read)


def test_each_failure_of_connecting_is_among_the_diagnostics():
    page = shown("tabwarden_isam.5")
    code = source("embedded/connect.cpp")
    failures = re.findall(r'connection\.diagnostics, "08001", "([^"]+)"', code)
    assert len(failures) == 4
    assert [failure for failure in failures if failure.strip() not in page] == []
    assert re.search(r'wrong_log_in\[\] = "(.+)"', code)[1] in page


@pytest.mark.parametrize(
    "file, limit",
    [
        ("embedded/sql_translate.h", "longest_statement"),
        ("embedded/sql_translate.h", "most_table_names"),
        ("embedded/connect.cpp", "largest_value"),
    ],
)
def test_the_limits_are_those_of_the_driver(file, limit):
    value = int(re.search(rf"{limit} = (\d+);", source(file))[1])
    assert f" {value:,} " in shown("tabwarden_isam.5")
