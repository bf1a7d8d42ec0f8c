"""The landing page: the shipped templates around the choice of a data source."""

import pytest

from support import pages
from support.headers import header_block, undated

OURS = "NORDVALE_ISAM"


@pytest.fixture
def landing_page(running_server, no_data_sources):
    """The page for data sources given as (name, driver) in the order of the file."""

    def page(*sources):
        entries = (f"[{name}]\nDriver = {driver}\n\n" for name, driver in sources)
        (no_data_sources / "odbc.ini").write_text("".join(entries))
        return undated(running_server.get("/")).decode()

    return page


def expected(offered, current):
    page = pages.page(pages.source_chooser(offered, current, "initial_datasource"))
    return header_block().decode() + page


@pytest.mark.parametrize("path", ["/", "/index.html"])
def test_without_data_sources_the_choice_is_empty(running_server, path):
    assert undated(running_server.get(path)).decode() == expected([], "")


def test_without_data_sources_of_our_drivers_too(landing_page):
    assert landing_page(("other", "SQLite3"), ("another", "PostgreSQL")) == expected([], "")


@pytest.mark.parametrize("driver", ["NORDVALE_ISAM", "Tabrin", "nordvale_isam", "TABRIN", "tabrin", "Nordvale_Isam"])
def test_a_data_source_of_our_drivers_is_offered_and_preselected(landing_page, driver):
    assert landing_page(("accounts", driver)) == expected(["accounts"], "accounts")


@pytest.mark.parametrize(
    "driver", ["Tabrin 2", "ATabrin", "Tab", "NORDVALE", "NORDVALE_ISAM_", "NORDVALE ISAM", "/usr/lib/NORDVALE_ISAM"]
)
def test_a_data_source_of_a_driver_that_is_only_similar_is_not_offered(landing_page, driver):
    assert landing_page(("accounts", driver)) == expected([], "")


def test_data_sources_stand_in_their_order_and_the_first_of_our_drivers_is_preselected(landing_page):
    page = landing_page(
        ("foreign", "SQLite3"),
        ("zebra", "Tabrin"),
        ("middle", "PostgreSQL"),
        ("Ant", "NORDVALE_ISAM"),
        ("mole", "tabrin"),
        ("last", "SQLite3"),
    )
    assert page == expected(["zebra", "Ant", "mole"], "zebra")


def test_a_change_of_the_data_sources_shows_at_the_next_visit(landing_page):
    assert landing_page(("accounts", OURS)) == expected(["accounts"], "accounts")
    assert landing_page(("branch", OURS)) == expected(["branch"], "branch")


@pytest.mark.parametrize(
    "name",
    [
        "a&b",
        "&amp;",
        "<b>",
        "</select>",
        'say "x"',
        "it's",
        "a`b",
        "a=b",
        "x onfocus=alert(1)",
        "\"'><script>alert(1)</script>",
        "two words",
        "größe",
        "100%s%n",
    ],
)
def test_a_name_is_never_markup(landing_page, name):
    assert landing_page((name, OURS)) == expected([name], name)
    assert landing_page(("plain", OURS), (name, OURS)) == expected(["plain", name], "plain")


@pytest.mark.parametrize("letter", ["n", "&", '"', "="])
def test_a_name_of_254_characters_is_offered_whole(landing_page, letter):
    name = 254 * letter
    assert landing_page((name, OURS), ("accounts", OURS)) == expected([name, "accounts"], name)


@pytest.mark.parametrize("length", [255, 256, 300])
def test_a_name_that_does_not_fit_is_passed_over_and_not_shortened(landing_page, length):
    long = length * "n"
    assert landing_page((long, OURS), ("accounts", OURS)) == expected(["accounts"], "accounts")
    assert landing_page(("accounts", OURS), (long, OURS), ("branch", OURS)) == expected(
        ["accounts", "branch"], "accounts"
    )


@pytest.mark.parametrize("count, name", [(300, "source"), (30, 100 * "n"), (15, 250 * "&")])
def test_a_long_list_comes_whole(landing_page, count, name):
    names = [f"{number:03}{name}" for number in range(count)]
    assert landing_page(*((name, OURS) for name in names)) == expected(names, names[0])
