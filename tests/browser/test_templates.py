"""What the html folder holds, before a browser and in one: valid, whole, small enough, and sufficient in itself."""

import json
import re
import subprocess

import html5lib
import pytest
import tinycss2

from support import pages
from support.browser import box, field, next_page, press, press_and_agree, show_rights, visit
from support.kinds import ON_EMBEDDED, STOCK
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
    found = subprocess.run(
        ["node", VALIDATOR, "--config", FOLDER / "htmlvalidate.cjs", *sorted(tmp_path.iterdir())],
        capture_output=True,
        text=True,
        env=uninstrumented(),
    )
    assert found.returncode == 0, found.stdout + found.stderr


@pytest.mark.parametrize("name", TEMPLATES)
def test_each_include_directive_is_replaced_together_with_the_line_end_behind_it(name):
    # The character behind a directive is dropped, whatever it is. A file name with "-" makes none of it.
    directives = re.findall(r'<!--#include file="([a-z_]+\.[a-z]+)"-->\n', pages.read(name))
    assert pages.read(name).count("#include") == len(directives)
    assert [included for included in directives if not (HTML_DIR / included).is_file()] == []
    assert "#include" not in pages.template(name)


def test_each_file_is_used_by_another_one():
    texts = {path: path.read_text() for path in files(".html", ".css", ".js")}
    used = {path.name for path in files(".css", ".js", ".png") for user in texts if path != user and path.name in texts[user]}
    assert {path.name for path in files(".css", ".js", ".png")} - used == set()


@pytest.mark.parametrize("names", SIZES, ids="+".join)
def test_a_template_leaves_room_to_the_next_limit(names):
    assert sum(len(pages.template(name).encode()) for name in names) < SIZES[names]


def test_no_script_or_style_ends_the_element_that_it_is_included_in():
    ends = {".js": ("</script", "<script", "<!--"), ".css": ("</style",)}
    for path in files(".js", ".css"):
        assert [end for end in ends[path.suffix] if end in path.read_text().lower()] == [], path


def test_no_two_scripts_give_the_same_name_to_something():
    # They share one scope: the later one would take the other's place, or not run at all.
    pattern = r"^(?:async )?(?:function|const|let|var) (\w+)"
    names = [name for path in files(".js") for name in re.findall(pattern, path.read_text(), re.MULTILINE)]
    assert [name for name in set(names) if names.count(name) > 1] == []


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


def visit_everything(driver, site):
    visit(driver, site, "users")
    field(driver, "bob_file").send_keys("changed")
    press_and_agree(driver, "submit_users")
    press(driver, "rights")
    show_rights(driver, "mary")
    box(driver, STOCK, "delete").click()
    press_and_agree(driver, "submit_selection")
    press(driver, "reports")
    with next_page(driver):
        driver.back()


@ON_EMBEDDED
def test_a_whole_visit_asks_only_the_server_and_gets_everything_without_a_complaint(browser, site):
    visit_everything(browser, site)
    noted = [json.loads(entry["message"])["message"] for entry in browser.get_log("performance")]
    asked = {note["params"]["request"]["url"] for note in noted if note["method"] == "Network.requestWillBeSent"}
    pages_of_server = {site, f"{site}isam.cgi"}
    assert pages_of_server <= asked
    # What is written into the page itself has no host.
    others = {address for address in asked - pages_of_server if not address.startswith(("data:", "blob:"))}
    assert {address for address in others if not is_file_of(site, address)} == set()
    assert [note["params"] for note in noted if note["method"] == "Network.loadingFailed"] == []
    assert [entry["message"] for entry in browser.get_log("browser") if is_complaint(entry, site)] == []


def is_file_of(site, address):
    return address.startswith(site) and (HTML_DIR / address.removeprefix(site)).is_file()


def is_complaint(entry, site):
    """Files come with status 500 by design, which the browser notes and nobody sees."""
    address, _, rest = entry["message"].partition(" - ")
    is_file = is_file_of(site, address) and "status of 500" in rest
    return entry["level"] in ("WARNING", "SEVERE") and not is_file
