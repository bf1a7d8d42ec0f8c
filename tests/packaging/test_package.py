"""The Debian packages: what they do to a machine, whether their documents are enough, and that they leave nothing."""

import os
import re
import shutil
import subprocess
from base64 import b64encode

import pytest

from support.chroot import Chroot
from support.debian_root import DebianRoot
from support.machine import Machine, what_is_missing
from support.server import ROOT, uninstrumented

BUILT = ROOT / "build" / "package"

ODBCINST = "/etc/odbcinst.ini"
OWN_ENTRY = "[Mine]\nDriver=/opt/mine.so\n\n"

# What the tools that make packages and users note for themselves.
NOTES = re.compile(r"/var/(lib/dpkg|log/dpkg|cache/ldconfig)|/etc/(passwd|shadow|group|gshadow)-|/run/adduser")


@pytest.fixture(scope="session")
def packages():
    """The files of tabwarden and tabwarden-postgresql."""
    subprocess.run([ROOT / "script" / "package"], check=True, env=uninstrumented(), stdout=subprocess.DEVNULL)
    return tuple(next(BUILT.glob(f"{name}_*.deb")) for name in ("tabwarden", "tabwarden-postgresql"))


@pytest.fixture(scope="session")
def debian():
    """The folder of a Debian that has what the packages depend on, and not them."""
    if os.geteuid() != 0:
        pytest.skip("to install packages takes root")
    root = DebianRoot()
    yield root.path
    root.remove()


@pytest.fixture
def machine(debian, tmp_path):
    """Without the packages."""
    machine = Chroot(debian, tmp_path)
    yield machine
    machine.stop()


@pytest.fixture
def tabwarden(machine, packages):
    """A machine with the package tabwarden."""
    install(machine, packages[0])
    return machine


@pytest.fixture
def booted(packages):
    """A machine that runs systemd, with the package tabwarden in /root and not installed."""
    if missing := what_is_missing():
        pytest.skip(missing)
    root = DebianRoot()
    try:
        shutil.copy(packages[0], root.path / "root/tabwarden.deb")
        machine = Machine(root.path)
        yield machine
        machine.stop()
    finally:
        root.remove()


def contents(machine):
    """Each path with its kind, mode, owner and, for a file, checksum."""
    listed = machine.shell(
        "find / -xdev \\( -path /root -o -path /proc -o -path /dev -o -path /sys \\) -prune -o"
        " -printf '%p %y %m %u:%g %l\\n'; find / -xdev -path /root -prune -o -type f -exec md5sum {} +"
    )
    return {line for line in listed.splitlines() if not NOTES.search(line)}


def install(machine, *packages):
    return machine.run("dpkg", "-i", *map(machine.bring, packages))


def changed_package(package, folder, version, files=()):
    """The package under another version, with texts added to some of its files."""
    unpacked = folder / "unpacked"
    subprocess.run(["dpkg-deb", "-R", package, unpacked], check=True)
    control = unpacked / "DEBIAN" / "control"
    control.write_text(re.sub(r"^Version: .*", f"Version: {version}", control.read_text(), flags=re.MULTILINE))
    for path, text in files:
        with open(unpacked / path, "a") as file:
            file.write(text)
    changed = folder / f"tabwarden_{version}.deb"
    subprocess.run(["dpkg-deb", "-b", unpacked, changed], check=True, stdout=subprocess.DEVNULL)
    return changed


def get(machine, path="/"):
    return machine.request(f"GET {path} HTTP/1.1\r\nHost: localhost\r\n\r\n".encode()).decode()


def post(machine, password, **fields):
    """What the pages answer to the administrator."""
    body = "&".join(f"{name}={value}" for name, value in {"datasource": "accounts", **fields, "form_end": 1}.items())
    log_in = b64encode(f"admin:{password}".encode()).decode()
    lines = ["POST /isam.cgi HTTP/1.1", "Host: localhost", f"Authorization: Basic {log_in}", f"Content-Length: {len(body)}"]
    return machine.request("\r\n".join([*lines, "", body]).encode()).decode()


def documented(machine, heading):
    """The commands under a heading of the package's own document."""
    text = machine.read("/usr/share/doc/tabwarden/README.Debian")
    chapter = re.search(rf"^{heading}\n-+\n(.*?)(?=^[^\n]*\n---|\Z)", text, re.MULTILINE | re.DOTALL)[1]
    return re.findall(r"^    (.*)", chapter, re.MULTILINE)


def isql(machine, user, password, statement):
    """What it says of the statement."""
    command = ["runuser", "-u", "tabwarden", "--", "isql", "-b", "-v", "accounts", user, password]
    return machine.attempt(*command, typed=f"{statement}\n").stdout


def test_lintian_finds_nothing(packages):
    command = ["lintian", "--allow-root", "--fail-on", "none", *packages]
    assert subprocess.run(command, capture_output=True, text=True).stdout == ""


def test_the_packages_have_the_version_of_the_program(packages):
    version = re.search(r"project\(tabwarden VERSION ([0-9.]+)", (ROOT / "CMakeLists.txt").read_text())[1]
    assert all(f"_{version}_" in package.name for package in packages)


def test_the_service_runs_as_its_own_user_and_the_start_page_says_how_to_add_a_data_source(tabwarden):
    number = tabwarden.start_service()
    page = get(tabwarden)
    assert '<p class="start no_source">' in page and "/etc/odbc.ini" in page
    assert tabwarden.run("stat", "-c", "%U:%G", f"/proc/{number}") == "tabwarden:tabwarden\n"


def test_the_service_is_started_with_the_machine(tabwarden):
    assert tabwarden.run("readlink", "/etc/systemd/system/multi-user.target.wants/tabwarden.service")


def test_with_systemd_the_service_runs_from_the_installation_to_the_removal(booted):
    booted.run("dpkg", "-i", "/root/tabwarden.deb")
    assert booted.run("systemctl", "is-active", "tabwarden") == "active\n"
    booted.run("dpkg", "--remove", "tabwarden")
    assert booted.run("systemctl", "is-active", "tabwarden", check=False) == "inactive\n"


def test_nobody_else_reads_the_databases_and_the_log(tabwarden):
    folders = tabwarden.run("stat", "-c", "%U:%G %a", "/var/lib/tabwarden", "/var/log/tabwarden")
    assert folders == "tabwarden:tabwarden 750\n" * 2


def test_with_the_documents_of_the_package_a_user_is_made_who_may_what_the_pages_granted(tabwarden):
    make, name, create = documented(tabwarden, "An embedded database")
    tabwarden.shell(make, typed="over the moon\n")
    tabwarden.shell(name)
    tabwarden.shell(create.replace("PASSWORD", "'over the moon'"))
    tabwarden.start_service()
    assert "<option" in get(tabwarden)
    users = post(tabwarden, "over the moon", users_refresh="", __newuser="anna", __newpass="new", submit_users="Submit")
    assert "anna_password" in users
    assert "does not have the select privilege" in isql(tabwarden, "anna", "new", "select * from customer")
    rights = {"rights_refresh": "", "isamuser": "anna", "customer_select": "OFF", "submit_selection": "Submit"}
    assert "checked" in post(tabwarden, "over the moon", **rights).lower()
    assert "SQLRowCount returns" in isql(tabwarden, "anna", "new", "select * from customer")


def test_with_the_documents_of_the_package_the_log_is_switched_on(tabwarden):
    make, restart = documented(tabwarden, "Templates and log")
    assert restart == "systemctl restart tabwarden"
    tabwarden.shell(make)
    tabwarden.start_service()
    get(tabwarden)
    assert "load_template(header.html" in tabwarden.read("/var/log/tabwarden/kelvohttp.log")


def test_an_upgrade_keeps_changed_templates_and_brings_the_others_anew(tabwarden, packages, tmp_path_factory):
    tabwarden.shell("echo '<p>Call Anna</p>' >>/etc/tabwarden/html/footer.html")
    files = [("etc/tabwarden/html/footer.html", "<p>New</p>"), ("etc/tabwarden/html/menu.html", "<p>Newer</p>")]
    newer = changed_package(packages[0], tmp_path_factory.mktemp("newer"), "9.0", files)
    tabwarden.run("dpkg", "-i", "--force-confdef", "--force-confold", tabwarden.bring(newer))
    tabwarden.start_service()
    page = get(tabwarden)
    assert [part in page for part in ("<p>Call Anna</p>", "<p>New</p>", "<p>Newer</p>")] == [True, False, True]


def test_an_upgrade_leaves_the_registration_as_it_is(tabwarden, packages, tmp_path_factory):
    before = tabwarden.read(ODBCINST) + OWN_ENTRY
    tabwarden.write(ODBCINST, before)
    install(tabwarden, changed_package(packages[0], tmp_path_factory.mktemp("newer"), "9.0"))
    assert tabwarden.read(ODBCINST) == before


def test_a_purge_leaves_the_machine_as_it_was(machine, packages):
    before = contents(machine)
    install(machine, *packages)
    machine.shell(f"kill {machine.start_service()}")
    machine.run("dpkg", "--purge", "tabwarden-postgresql", "tabwarden")
    assert contents(machine) ^ before == set()


def test_where_the_driver_manager_knew_no_driver_it_knows_none_after_a_removal(machine, packages):
    machine.run("rm", ODBCINST)
    install(machine, packages[0])
    machine.run("dpkg", "--remove", "tabwarden")
    assert machine.attempt("test", "-e", ODBCINST).returncode == 1


def test_a_removal_keeps_what_the_administrator_has_changed(tabwarden):
    tabwarden.shell("echo '<p>Call Anna</p>' >>/etc/tabwarden/html/footer.html")
    tabwarden.run("dpkg", "--remove", "tabwarden")
    assert "Call Anna" in tabwarden.read("/etc/tabwarden/html/footer.html")
    assert "NORDVALE_ISAM" not in tabwarden.read(ODBCINST)


def test_databases_outlive_a_purge_together_with_the_user_who_owns_them(tabwarden):
    tabwarden.shell(documented(tabwarden, "An embedded database")[0], typed="over the moon\n")
    assert "kept" in tabwarden.run("dpkg", "--purge", "tabwarden")
    assert tabwarden.run("stat", "-c", "%U", "/var/lib/tabwarden/accounts.db") == "tabwarden\n"
    assert tabwarden.attempt("test", "-e", "/var/log/tabwarden").returncode == 1


@pytest.mark.parametrize("name, driver", [("NORDVALE_ISAM", "isam"), ("Tabrin", "postgresql")])
def test_the_drivers_are_registered_beside_the_administrators_own(machine, packages, name, driver):
    machine.write(ODBCINST, OWN_ENTRY)
    install(machine, *packages)
    assert machine.read(ODBCINST).startswith(OWN_ENTRY)
    assert f"/odbc/libtabwarden_{driver}.so\n" in machine.run("odbcinst", "-q", "-d", "-n", name)
    machine.run("dpkg", "--purge", "tabwarden-postgresql", "tabwarden")
    assert machine.read(ODBCINST) == OWN_ENTRY


@pytest.mark.parametrize("name", ["NORDVALE_ISAM", "nordvale_isam", "Tabrin"])
def test_an_entry_of_the_administrators_under_the_name_of_a_driver_stays(machine, packages, name):
    entries = OWN_ENTRY + f"[{name}]\nDriver=/usr/local/lib/odbc/own.so\n\n"
    machine.write(ODBCINST, entries)
    install(machine, *packages)
    assert machine.read(ODBCINST).startswith(entries)
    machine.run("dpkg", "--purge", "tabwarden-postgresql", "tabwarden")
    assert machine.read(ODBCINST) == entries


def test_a_driver_that_was_registered_once_more_goes_with_the_package(tabwarden):
    tabwarden.shell("odbcinst -q -d -n NORDVALE_ISAM | odbcinst -i -d -r")
    tabwarden.run("dpkg", "--remove", "tabwarden")
    assert "NORDVALE_ISAM" not in tabwarden.read(ODBCINST)


@pytest.mark.parametrize("path", ["isam/html/header.html", "bare_product/nareproduct.ini"])
def test_what_stands_in_the_way_of_the_package_is_not_touched(machine, packages, path):
    path = f"/usr/local/nordvale/{path}"
    machine.shell(f"mkdir -p $(dirname {path}) && echo own >{path}")
    done = machine.attempt("dpkg", "-i", machine.bring(packages[0]))
    assert done.returncode and "move it away, then install again" in done.stdout
    assert machine.read(path) == "own\n"


def test_the_driver_for_postgresql_is_loaded(tabwarden, packages):
    install(tabwarden, packages[1])
    tabwarden.write("/etc/odbc.ini", "[accounts]\nDriver=Tabrin\nServername=127.0.0.1\nPort=1\nDatabase=accounts\n")
    assert 'connection to server at "127.0.0.1", port 1 failed' in isql(tabwarden, "admin", "secret", "select 1")
