"""The Debian packages: what they do to a machine, whether their documents are enough, and that they leave nothing."""

import os
import re
import subprocess

import pytest

from support.packaged_commands import INSTALLATION, MANUAL_PAGES, SERVICE
from support.sample import Visitor
from support.server import ROOT, wait_until
from support.service import Service, install

ODBCINST = "/etc/odbcinst.ini"
OWN_ENTRY = "[Mine]\nDriver=/opt/mine.so\n\n"

# What systemd and the tools that make packages and users note for themselves.
NOTES = re.compile(r"/var/(lib/dpkg|log/dpkg|log/journal|cache/ldconfig)|/etc/(passwd|shadow|group|gshadow)-")


@pytest.fixture
def tabwarden(machine, packages):
    """A machine with the package tabwarden."""
    install(machine, packages[0])
    return machine


@pytest.fixture
def service(booted, packages):
    """What the package tabwarden runs from its installation on."""
    install(booted, packages[0])
    service = Service(booted)
    wait_until(service.answers)
    return service


def contents(machine):
    """Each path with its kind, mode, owner and, for a file, checksum."""
    listed = machine.shell(
        "find / /tmp -xdev \\( -path /root -o -path /proc -o -path /dev -o -path /sys \\) -prune -o"
        " -printf '%p %y %m %u:%g %l\\n'; find / /tmp -xdev -path /root -prune -o -type f -exec md5sum {} +"
    )
    return {line for line in listed.splitlines() if not NOTES.search(line)}


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


def test_the_service_runs_as_its_own_user_and_the_start_page_says_how_to_add_a_data_source(service):
    page = service.get("/").decode()
    assert '<p class="start no_source">' in page and "/etc/odbc.ini" in page
    assert service.machine.run("stat", "-c", "%U:%G", f"/proc/{service.pid()}") == "tabwarden:tabwarden\n"


def test_the_service_is_started_with_the_machine(tabwarden):
    assert tabwarden.run("readlink", "/etc/systemd/system/multi-user.target.wants/tabwarden.service")


def test_the_service_ends_with_a_removal(service):
    service.machine.run("dpkg", "--remove", "tabwarden")
    assert service.machine.attempt("systemctl", "is-active", "tabwarden").stdout == "inactive\n"


def test_nobody_else_reads_the_databases_and_the_log(tabwarden):
    folders = tabwarden.run("stat", "-c", "%U:%G %a", "/var/lib/tabwarden", "/var/log/tabwarden")
    assert folders == "tabwarden:tabwarden 750\n" * 2


def test_with_the_documents_of_the_package_a_user_is_made_who_may_what_the_pages_granted(service):
    machine = service.machine
    make, name, create = documented(machine, "An embedded database")
    machine.shell(make, typed="over the moon\n")
    machine.shell(name)
    machine.shell(create.replace("PASSWORD", "'over the moon'"))
    assert b"<option" in service.get("/")
    visitor = Visitor(service, None)
    log_in = {"user": "admin", "password": "over the moon"}
    make_anna(visitor, **log_in)
    assert "does not have the select privilege" in isql(machine, "anna", "new", "select * from customer")
    grant_anna(visitor, "customer_select", **log_in)
    assert "SQLRowCount returns" in isql(machine, "anna", "new", "select * from customer")


def make_anna(visitor, **log_in):
    new = [("__newuser", "anna"), ("__newpass", "new"), ("__newfile", "")]
    assert "anna_password" in visitor.page([("users_refresh", ""), *new, ("submit_users", "Submit")], **log_in)


def grant_anna(visitor, box, **log_in):
    chosen = [("rights_refresh", ""), ("isamuser", "anna"), (box, "OFF")]
    assert "checked" in visitor.page([*chosen, ("submit_selection", "Submit")], **log_in).lower()


def test_with_the_documents_of_the_package_the_log_is_switched_on(service):
    for command in documented(service.machine, "Templates and log"):
        service.machine.shell(command)
    wait_until(service.answers)
    assert "load_template(header.html" in service.machine.read("/var/log/tabwarden/kelvohttp.log")


def test_what_the_service_document_says_works_as_it_stands(service):
    service.machine.shell(SERVICE, seconds=100)


def test_what_the_manual_pages_say_works_as_it_stands_and_the_service_can_open_their_database(service):
    service.machine.shell(MANUAL_PAGES, seconds=100)
    assert "__newuser" in Visitor(service, None).page([("users_refresh", "")], user="admin", password="PASSWORD")


def test_with_the_packages_a_postgresql_database_is_set_up_as_the_documents_say(booted, packages):
    booted.bring("/srv/build/package", *packages)
    booted.shell(f"cd /srv\n{INSTALLATION}", seconds=100)
    visitor = Visitor(Service(booted), None)
    log_in = {"user": "accounts_admin", "password": "a secret"}
    make_anna(visitor, **log_in)
    connection = "host=127.0.0.1 dbname=accounts user=anna password=new"
    as_anna = ("psql", "-c", "select * from orders", connection)
    assert "permission denied" in booted.attempt(*as_anna).stdout
    grant_anna(visitor, "accounts.public.orders_select", **log_in)
    assert "(0 rows)" in booted.run(*as_anna)


def test_the_document_of_the_package_sets_a_postgresql_database_up_in_the_same_way(tabwarden):
    commands = documented(tabwarden, "A PostgreSQL database")
    assert commands and [command for command in commands if command not in INSTALLATION.splitlines()] == []


def test_the_links_of_the_installed_documents_lead_somewhere(tabwarden, packages):
    install(tabwarden, packages[1])
    folder = "/usr/share/doc/tabwarden"
    documents = tabwarden.run("find", folder, "-name", "*.md").split()
    links = [(name, link) for name in documents for link in re.findall(r"\]\(([^)#:]+)", tabwarden.read(name))]
    targets = {f"{os.path.dirname(name)}/{link}" for name, link in links}
    assert f"{folder}/docs/../packaging/examples/network.conf" in targets
    assert [target for target in sorted(targets) if tabwarden.attempt("test", "-e", target).returncode] == []


def test_an_upgrade_keeps_changed_templates_and_brings_the_others_anew(service, packages, tmp_path_factory):
    machine = service.machine
    machine.shell("echo '<p>Call Anna</p>' >>/etc/tabwarden/html/footer.html")
    files = [("etc/tabwarden/html/footer.html", "<p>New</p>"), ("etc/tabwarden/html/menu.html", "<p>Newer</p>")]
    newer = changed_package(packages[0], tmp_path_factory.mktemp("newer"), "9.0", files)
    machine.bring("/root", newer)
    machine.run("dpkg", "-i", "--force-confdef", "--force-confold", f"/root/{newer.name}")
    wait_until(service.answers)
    page = service.get("/")
    assert [part in page for part in (b"<p>Call Anna</p>", b"<p>New</p>", b"<p>Newer</p>")] == [True, False, True]


def test_an_upgrade_leaves_the_registration_as_it_is(tabwarden, packages, tmp_path_factory):
    before = tabwarden.read(ODBCINST) + OWN_ENTRY
    tabwarden.write(ODBCINST, before)
    install(tabwarden, changed_package(packages[0], tmp_path_factory.mktemp("newer"), "9.0"))
    assert tabwarden.read(ODBCINST) == before


def test_a_purge_leaves_the_machine_as_it_was(booted, packages):
    before = contents(booted)
    install(booted, *packages)
    wait_until(Service(booted).answers)
    booted.run("dpkg", "--purge", "tabwarden-postgresql", "tabwarden")
    assert contents(booted) ^ before == set()


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


def test_what_isql_leaves_in_the_folder_of_databases_does_not_keep_it(tabwarden):
    for command in documented(tabwarden, "An embedded database"):
        tabwarden.shell(command.replace("PASSWORD", "secret"), typed="secret\n")
    assert ".isql_history" in tabwarden.run("ls", "-A", "/var/lib/tabwarden")
    tabwarden.shell("rm /var/lib/tabwarden/accounts.db*; truncate -s 0 /etc/odbc.ini; dpkg --purge tabwarden")
    assert tabwarden.attempt("id", "tabwarden").returncode == 1


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


@pytest.mark.parametrize("name, driver", [("tabwarden", "NORDVALE_ISAM"), ("tabwarden-postgresql", "Tabrin")])
def test_a_removal_that_fails_leaves_the_driver_registered(machine, packages, name, driver):
    install(machine, *packages)
    machine.shell(f"echo 'exit 1' >>/var/lib/dpkg/info/{name}.prerm")
    removal = machine.attempt("dpkg", "--force-depends", "--remove", name)
    assert removal.returncode and f"[{driver}]" in machine.read(ODBCINST)


def test_an_account_that_is_in_the_way_is_named_and_outlives_the_purge(machine, packages):
    machine.run("useradd", "tabwarden")
    with pytest.raises(AssertionError, match="`tabwarden' already exists, but is not a system user"):
        install(machine, packages[0])
    machine.run("dpkg", "--purge", "tabwarden")
    assert machine.run("id", "-un", "tabwarden") == "tabwarden\n"


def test_a_system_user_without_a_group_of_its_own_is_taken(machine, packages):
    machine.run("useradd", "--system", "--no-user-group", "tabwarden")
    install(machine, packages[0])
    assert machine.run("stat", "-c", "%U:%G", "/var/lib/tabwarden") == "tabwarden:tabwarden\n"


def test_a_program_that_the_user_still_runs_does_not_stop_the_purge(tabwarden):
    program = "runuser -u tabwarden -- sh -c 'echo; exec sleep infinity' 2>/dev/null"
    purge = tabwarden.shell(f"read -r < <({program}); dpkg --purge tabwarden", seconds=60)
    assert "the user tabwarden is kept" in purge


@pytest.mark.parametrize("path", ["isam/html", "bare_product/nareproduct.ini"])
def test_a_link_of_the_administrators_stays(machine, packages, path):
    path = f"/usr/local/nordvale/{path}"
    machine.shell(f"mkdir -p $(dirname {path}) && ln -s /srv/own {path}")
    with pytest.raises(AssertionError, match="move it away, then install again"):
        install(machine, packages[0])
    assert machine.run("readlink", path) == "/srv/own\n"


@pytest.mark.parametrize("path", ["isam/html/header.html", "bare_product/nareproduct.ini"])
def test_what_stands_in_the_way_of_the_package_is_not_touched(machine, packages, path):
    path = f"/usr/local/nordvale/{path}"
    machine.shell(f"mkdir -p $(dirname {path}) && echo own >{path}")
    with pytest.raises(AssertionError, match="move it away, then install again"):
        install(machine, packages[0])
    assert machine.read(path) == "own\n"
