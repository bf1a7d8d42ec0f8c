"""What the html folder holds, before a browser and in one: valid, whole, small enough, and sufficient in itself."""

import json
import re
import subprocess
from urllib.parse import urlsplit

import html5lib
import pytest
import tinycss2

from support import pages
from support.browser import find, press, press_and_agree, visit, wait_until
from support.server import HTML_DIR, ROOT, uninstrumented

FOLDER = ROOT / "tests" / "browser"
VALIDATOR = FOLDER / "node_modules" / "html-validate" / "bin" / "html-validate.mjs"

TEMPLATES = ("header.html", "menu.html", "footer.html", "userhelp.html", "rightshelp.html")

# Where what is longer than this begins to do harm, in bytes. The server cuts a template, its includes in it, at 32767.
# Of an error page the header comes in one piece; a page that has begun before is sent from 16384 bytes on, and an error
# that comes behind that can no longer take its place.
SIZES = {
    ("header.html", "menu.html"): 15000,
    ("footer.html",): 30000,
    ("userhelp.html",): 26000,
    ("rightshelp.html",): 26000,
}


@pytest.fixture(autouse=True)
def html_folder(installed_html):
    pass


def whole_page(body=""):
    """A page as the server puts it together, with none of the server's own markup in it, which is not valid."""
    head = pages.template("header.html") + '<form method="post" action="/isam.cgi">' + pages.template("menu.html")
    return head + body + "</form>" + pages.template("footer.html")


def files(*suffixes):
    return sorted(path for path in HTML_DIR.rglob("*") if path.suffix in suffixes)


def test_the_templates_make_valid_pages(tmp_path):
    for name, body in (
        ("landing", ""),
        ("users", pages.template("userhelp.html")),
        ("rights", pages.template("rightshelp.html")),
    ):
        (tmp_path / f"{name}.html").write_text(whole_page(body))
    result = subprocess.run(
        ["node", VALIDATOR, "--config", FOLDER / "htmlvalidate.cjs", *sorted(tmp_path.iterdir())],
        capture_output=True,
        text=True,
        env=uninstrumented(),
    )
    assert (result.returncode, result.stdout + result.stderr) == (0, "")


@pytest.mark.parametrize("name", TEMPLATES)
def test_each_include_directive_is_replaced_together_with_the_line_end_behind_it(name):
    # The character behind a directive is dropped, whatever it is. A file name with "-" makes none of it.
    directives = re.findall(r'<!--#include file="([a-z_]+\.[a-z]+)"-->\n', pages.read(name))
    assert pages.read(name).count("#include") == len(directives)
    assert [included for included in directives if not (HTML_DIR / included).is_file()] == []
    assert "#include" not in pages.template(name)


def test_each_style_and_script_file_is_included():
    included = "".join(pages.template(name) for name in TEMPLATES)
    assert [path.name for path in files(".css", ".js") if path.read_text() not in included] == []


@pytest.mark.parametrize("names", SIZES, ids="+".join)
def test_a_template_leaves_room_to_the_next_limit(names):
    assert sum(len(pages.template(name).encode()) for name in names) < SIZES[names]


def test_no_script_or_style_ends_the_element_that_it_is_included_in():
    ends = {".js": ("</script", "<script", "<!--"), ".css": ("</style",)}
    for path in files(".js", ".css"):
        assert [end for end in ends[path.suffix] if end in path.read_text().lower()] == [], path


def references(document):
    """Every address that an element of the document names."""
    for element in document.iter():
        for name in ("src", "href", "action", "formaction", "srcset", "poster", "data", "background"):
            if name in element.attrib:
                yield element.attrib[name]


def test_nothing_in_the_folder_refers_to_another_host():
    for body in ("", pages.template("userhelp.html"), pages.template("rightshelp.html")):
        for address in references(html5lib.parse(whole_page(body), namespaceHTMLElements=False)):
            assert re.match(r"/(?!/)|#|data:", address), address
    for path in files(".css"):
        assert "@import" not in path.read_text()
        assert re.findall(r"url\(\s*[\"']?(?!data:|/[^/])", path.read_text()) == [], path
    for path in files(".html", ".js", ".css"):
        assert set(re.findall(r"\bhttps?://[^\s\"'`)]+", path.read_text())) <= {"http://www.w3.org/2000/svg"}, path


def style_parts(rules):
    """(declarations, selectors, media queries) of the rules, one in another included; fails where one cannot be read."""
    declarations, selectors, queries = [], [], []
    for rule in rules:
        assert rule.type != "error", rule.message
        if rule.type == "at-rule" and rule.at_keyword == "media":
            queries.append(tinycss2.serialize(rule.prelude).strip())
            inner = style_parts(tinycss2.parse_rule_list(rule.content, skip_comments=True, skip_whitespace=True))
            for whole, part in zip((declarations, selectors, queries), inner):
                whole += part
            continue
        if rule.type == "qualified-rule":
            selectors.append(tinycss2.serialize(rule.prelude).strip())
        for declaration in tinycss2.parse_declaration_list(rule.content, skip_comments=True, skip_whitespace=True):
            assert declaration.type == "declaration", f"line {declaration.source_line}: {declaration.serialize()}"
            declarations.append([declaration.name, tinycss2.serialize(declaration.value).strip()])
    return declarations, selectors, queries


def test_a_browser_understands_every_rule_of_the_styles(browser):
    for path in files(".css"):
        rules = tinycss2.parse_stylesheet(path.read_text(), skip_comments=True, skip_whitespace=True)
        not_understood = browser.execute_script(
            """const [declarations, selectors, queries] = arguments;
            return [declarations.filter(([name, value]) => !CSS.supports(name, value)),
                selectors.filter((selector) => {
                    try { document.querySelector(selector); return false; } catch (error) { return true; }
                }),
                queries.filter((query) => matchMedia(query).media.includes("not all"))];""",
            *style_parts(rules),
        )
        assert not_understood == [[], [], []], path
