"""What the documents name is there: files, procedures, and the folders that include from one another."""

import re

import pytest

from support.server import ROOT

ARCHITECTURE = (ROOT / "docs" / "architecture.md").read_text()
FOLDERS = ("common", "server", "admin", "embedded", "postgresql")
NAME = r"[A-Za-z_]\w*"

DOCUMENTS = [ROOT / "README.md", ROOT / "embedded" / "README.md", *sorted((ROOT / "docs").glob("*.md"))]


def in_code(text):
    """What stands between backquotes."""
    return re.findall(r"`([^`\n]+)`", text)


def is_path(text):
    return "/" in text or text.endswith(".json")


def sources(folder):
    return [path for path in (ROOT / folder).iterdir() if path.suffix in (".h", ".cpp", ".js")]


def defines(path, name):
    """Definitions begin at the line's begin; of what looks like one, calls do not."""
    return re.search(rf"^[^\s/].*\b{name}\b *(?:[(\[={{]|$)", path.read_text(), re.MULTILINE) is not None


def named_with_file():
    """`name` in `file`, `name` and `name` in `file`, and rows of a table: file, names."""
    names = rf"`{NAME}`(?:(?:, | and |,\n)`{NAME}`)*"
    for listed, path in re.findall(rf"({names})\s+in\s+`([^`]+)`", ARCHITECTURE):
        yield from ((path, name) for name in in_code(listed))
    for path, listed in re.findall(rf"^\| `([^`]+)` \| ({names}) \|", ARCHITECTURE, re.MULTILINE):
        yield from ((path, name) for name in in_code(listed))


@pytest.mark.parametrize("path", sorted(set(filter(is_path, in_code(ARCHITECTURE)))))
def test_each_path_is_there(path):
    assert (ROOT / path).exists()


@pytest.mark.parametrize("path, name", sorted(set(named_with_file())))
def test_each_name_is_defined_in_its_file(path, name):
    assert defines(ROOT / path, name)


def test_each_name_without_a_file_is_defined_somewhere():
    presets = re.findall(r'"name": "(\w+)"', (ROOT / "CMakePresets.json").read_text())
    with_file = {name for _, name in named_with_file()}
    names = {name for name in in_code(ARCHITECTURE) if re.fullmatch(NAME, name)} - with_file - set(presets)
    files = [path for folder in (*FOLDERS, "html") for path in sources(folder)]
    assert [name for name in sorted(names) if not any(defines(path, name) for path in files)] == []


@pytest.mark.parametrize("folder", FOLDERS)
def test_a_folder_includes_only_from_those_that_it_is_said_to(folder):
    row = re.search(rf"^\| `{folder}/` \|[^|]*\|([^|]*)\|$", ARCHITECTURE, re.MULTILINE)
    allowed = {folder, *(name.rstrip("/") for name in in_code(row[1]))}
    included = {name for path in sources(folder) for name in re.findall(r'#include "([^"]+)"', path.read_text())}
    homes = [ROOT] + [ROOT / name for name in allowed if name in ("embedded", "postgresql")]
    found = {name: next((home / name for home in homes if (home / name).exists()), None) for name in included}
    assert {name: path for name, path in found.items() if path is None or path.parent.name not in allowed} == {}


@pytest.mark.parametrize("document", DOCUMENTS, ids=lambda path: str(path.relative_to(ROOT)))
def test_each_link_to_a_file_leads_somewhere(document):
    targets = re.findall(r"\]\(([^)#:]+)(?:#[^)]*)?\)", document.read_text())
    assert [target for target in targets if not (document.parent / target).exists()] == []
