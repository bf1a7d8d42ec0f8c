"""The unit as systemd reads it, and the service as it runs in a machine of its own."""

import re
import shutil
import socket
import subprocess

import pytest

from support.postgresql import INSTALL
from support.sample import Visitor
from support.server import ROOT, read_all, uninstrumented, wait_until
from support.service import EXAMPLES
from support.source import ADMINISTRATOR, PASSWORD

UNIT = ROOT / "packaging" / "tabwarden.service"
MANUAL_PAGE = ROOT / "packaging" / "man" / "tabwarden.8"


def analyse(*arguments, **environment):
    return subprocess.run(
        ["systemd-analyze", *arguments],
        stdout=subprocess.PIPE,
        stderr=subprocess.STDOUT,
        text=True,
        env=uninstrumented(**environment),
    )


# What systemd says without running it


def copy_for_analysis(file, folder):
    """The program is not installed here."""
    folder.mkdir(exist_ok=True)
    copy = folder / file.name
    copy.write_text(file.read_text().replace("/usr/sbin/tabwarden", "/bin/true"))
    return copy


@pytest.mark.parametrize("drop_in", [None, "network.conf", "port.conf"])
def test_systemd_has_no_complaint(tmp_path, drop_in):
    unit = copy_for_analysis(UNIT, tmp_path)
    if drop_in:
        copy_for_analysis(EXAMPLES / drop_in, tmp_path / f"{UNIT.name}.d")
    # Nor is its manual page, which the unit refers to.
    manual = tmp_path / "manual"
    (manual / "man8").mkdir(parents=True)
    shutil.copy(MANUAL_PAGE, manual / "man8")
    result = analyse("verify", unit, MANPATH=manual)
    assert (result.stdout, result.returncode) == ("", 0)


def test_exposure_is_at_most_what_its_document_says():
    result = analyse("security", "--no-pager", "--offline=true", UNIT)
    rated = float(re.search(r"Overall exposure level for tabwarden.service: ([0-9.]+)", result.stdout)[1])
    promised = float(re.search(r"rates it ([0-9.]+) of 10", (ROOT / "docs" / "service.md").read_text())[1])
    assert rated <= promised <= 1.5


# Start and end


def test_it_answers_on_this_machines_address(service):
    assert service.get("/").startswith(b"HTTP/1.1 200 OK\r\n")


def test_it_comes_back_when_it_is_killed(service):
    before = service.pid()
    service.systemctl("kill", "--signal", "KILL")
    wait_until(lambda: service.pid() not in (0, before) and service.answers())


def test_it_comes_when_the_port_becomes_free(stopped_service):
    with stopped_service.machine.socket() as other:
        other.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
        other.bind(("127.0.0.1", stopped_service.port))
        other.listen()
        stopped_service.systemctl("start")
        wait_until(lambda: stopped_service.property("SubState") == "auto-restart")
        assert stopped_service.property("ExecMainStatus") == "0"
    wait_until(stopped_service.answers)


def test_a_bad_option_is_not_tried_again(stopped_service):
    stopped_service.add("option.conf", "[Service]\nExecStart=\nExecStart=/usr/sbin/tabwarden -x\n")
    stopped_service.systemctl("start")
    wait_until(lambda: stopped_service.property("ActiveState") not in ("active", "activating"))
    assert stopped_service.property("ActiveState") == "failed"
    assert stopped_service.property("ExecMainStatus") == "255"


def test_a_stop_ends_a_request_too(service):
    with service.connect() as connection:
        child_of(service)
        service.systemctl("stop")
        assert read_all(connection) == b""


# Addresses and port


@pytest.fixture
def outer_address(running_machine):
    """An address of the machine's other than the loopback's; network.conf names it."""
    address = "192.0.2.1"
    running_machine.run("ip", "address", "add", f"{address}/32", "dev", "lo")
    yield address
    running_machine.run("ip", "address", "delete", f"{address}/32", "dev", "lo")


def test_other_addresses_get_no_answer(service, outer_address):
    with service.machine.socket() as connection:
        connection.settimeout(1)
        with pytest.raises(TimeoutError):
            connection.connect((outer_address, service.port))


def test_a_drop_in_opens_it_to_a_network(stopped_service, outer_address):
    stopped_service.add("network.conf")
    stopped_service.start()
    stopped_service.address = outer_address
    assert stopped_service.answers()


def test_a_drop_in_sets_the_port(stopped_service):
    stopped_service.add("port.conf")
    stopped_service.port = 9000
    stopped_service.start()


def test_a_port_below_1024_takes_a_privilege(stopped_service):
    command = "ExecStart=\nExecStart=/usr/sbin/tabwarden -p 80\n"
    capability = "AmbientCapabilities=CAP_NET_BIND_SERVICE\nCapabilityBoundingSet=CAP_NET_BIND_SERVICE\n"
    stopped_service.add("port.conf", f"[Service]\n{command}{capability}PrivateUsers=no\n")
    stopped_service.port = 80
    stopped_service.start()


# What it may do


def test_it_has_no_privilege(service):
    lines = service.machine.run("cat", f"/proc/{service.pid()}/status").splitlines()
    status = {name: value.split() for name, _, value in (line.partition(":") for line in lines)}
    assert [status[f"Cap{kind}"] for kind in ("Inh", "Prm", "Eff", "Bnd", "Amb")] == 5 * [["0" * 16]]
    assert status["Uid"] == 4 * service.machine.run("id", "-u", "tabwarden").split()
    assert (status["NoNewPrivs"], status["Seccomp"]) == (["1"], ["2"])


def touch(service, folder):
    """What becomes of a new file in a folder as the service sees it. Root tries, so that only the mount can refuse."""
    file = f"/proc/{service.pid()}/root{folder}/new"
    return service.machine.attempt("sh", "-c", f"touch {file} && rm {file}").stdout


@pytest.mark.parametrize(
    "folder", ["", "/etc", "/etc/tabwarden/html", "/run", "/run/lock", "/srv", "/var/lib", "/var/log"]
)
def test_it_cannot_write(service, folder):
    assert "Read-only file system" in touch(service, folder)


@pytest.mark.parametrize("folder", ["/var/lib/tabwarden", "/var/log/tabwarden"])
def test_it_can_write(service, folder):
    assert touch(service, folder) == ""


@pytest.mark.parametrize("folder", ["/home", "/root", "/tmp"])
def test_it_sees_nothing_in(service, folder):
    service.machine.run("touch", f"{folder}/somebodys")
    assert service.machine.run("ls", "-A", f"/proc/{service.pid()}/root{folder}") == ""


def test_no_other_program_can_be_started(service):
    entered = service.machine.attempt("nsenter", "--target", str(service.pid()), "--mount", "/bin/true")
    assert entered.stdout == "nsenter: failed to execute /bin/true: Permission denied\n"


@pytest.mark.parametrize("folder", ["/dev/shm", "/run", "/tmp", "/var/lib/tabwarden", "/var/log/tabwarden", "/var/tmp"])
def test_nothing_can_be_executed_where_it_can_write(service, folder):
    task = ["--task", str(service.pid())]
    options = service.machine.run("findmnt", *task, "--noheadings", "--output", "OPTIONS", "--target", folder)
    assert "noexec" in options.strip().split(",")


def child_of(service):
    """The process that reads a request while a connection is open."""
    parent = service.pid()

    def children():
        return service.machine.run("cat", f"/proc/{parent}/task/{parent}/children").split()

    wait_until(children)
    return children()[0]


def test_a_child_can_limit_its_processor_time(service):
    with service.connect() as connection:
        connection.sendall(b"GET / ")
        limits = f"/proc/{child_of(service)}/limits"
        wait_until(lambda: re.search(r"^Max cpu time +30 ", service.machine.run("cat", limits), re.MULTILINE))


def test_a_child_leaves_no_core_file(service):
    """Of a process that leaves none, the kernel gives what it has in /proc to root."""
    with service.connect():
        environment = f"/proc/{child_of(service)}/environ"
        wait_until(lambda: service.machine.run("stat", "--format", "%U", environment) == "root\n")


# Databases


def add_source(service, name, driver, **settings):
    lines = "".join(f"{key}={value}\n" for key, value in settings.items())
    service.machine.write("/etc/odbc.ini", f"[{name}]\nDriver={driver}\n{lines}")


def add_database(service, path):
    service.machine.run("runuser", "-u", "tabwarden", "--", "isam_create", path, ADMINISTRATOR, typed=f"{PASSWORD}\n")
    add_source(service, "accounts", "NORDVALE_ISAM", Database=path)


@pytest.fixture
def visitor(service):
    return Visitor(service, None)


def add_user(visitor, name, **log_in):
    """The users page with a new user submitted."""
    new = [("__newuser", name), ("__newfile", ""), ("__newpass", f"{name}'s")]
    return visitor.post([("users_refresh", ""), *new, ("submit_users", "Submit")], **log_in).decode()


def is_listed(visitor, name, **log_in):
    return f'name="{name}_password"' in visitor.page([("users_refresh", "")], **log_in)


def test_an_embedded_database_is_changed(service, visitor):
    add_database(service, "/var/lib/tabwarden/accounts.db")
    add_user(visitor, "mary")
    assert is_listed(visitor, "mary")


@pytest.fixture
def database_elsewhere(stopped_service):
    stopped_service.machine.run("install", "-d", "-o", "tabwarden", "/srv/tabwarden")
    add_database(stopped_service, "/srv/tabwarden/accounts.db")


def test_a_database_elsewhere_is_not_reached(database_elsewhere, visitor):
    assert "unable to open" in add_user(visitor, "mary")


def test_a_drop_in_opens_a_folder_for_databases(stopped_service, database_elsewhere):
    stopped_service.add("folder.conf", "[Service]\nReadWritePaths=/srv/tabwarden\n")
    stopped_service.start()
    visitor = Visitor(stopped_service, None)
    add_user(visitor, "mary")
    assert is_listed(visitor, "mary")


@pytest.fixture(scope="module")
def postgresql(running_machine):
    """Debian's server with the administrator's database "accounts". It asks him for the password over its socket, too."""
    settings = "/etc/postgresql/15/main/pg_hba.conf"
    asking = f"local accounts {ADMINISTRATOR} scram-sha-256\n"
    running_machine.write(settings, asking + running_machine.read(settings))
    running_machine.run("systemctl", "start", "postgresql")
    superuser = ("runuser", "-u", "postgres", "--", "psql", "-q")
    running_machine.run(*superuser, "-c", f"create role {ADMINISTRATOR} login createrole password '{PASSWORD}'")
    running_machine.run(*superuser, "-c", f"create database accounts owner {ADMINISTRATOR}")
    as_owner = f"set role {ADMINISTRATOR}; {INSTALL}"
    running_machine.run(*superuser, "accounts", typed=as_owner)


@pytest.mark.parametrize(("host", "user"), [("127.0.0.1", "mary"), ("localhost", "paul"), ("/run/postgresql", "bob")])
@pytest.mark.usefixtures("postgresql")
def test_a_postgresql_database_is_changed(service, visitor, host, user):
    add_source(service, "accounts", "Tabrin", Servername=host, Port=5432, Database="accounts")
    add_user(visitor, user)
    assert is_listed(visitor, user)


# The log


LOG_BEGIN = "Logging started\nStarted logging Gantry HTTP Server\nUsing port 8451\n"
LOG = "/var/log/tabwarden/kelvohttp.log"


def switch_on(service):
    service.machine.run("install", "-o", "tabwarden", "-g", "tabwarden", "-m", "600", "/dev/null", LOG)


def test_there_is_no_log_by_itself(service):
    assert service.machine.run("ls", "/var/log/tabwarden") == ""


def test_its_file_switches_the_log_on(stopped_service):
    switch_on(stopped_service)
    stopped_service.start()
    assert stopped_service.machine.read(LOG).startswith(LOG_BEGIN)


def test_a_start_empties_the_log(stopped_service):
    switch_on(stopped_service)
    stopped_service.machine.write(LOG, "before")
    stopped_service.start()
    assert stopped_service.machine.read(LOG).startswith(LOG_BEGIN)


def test_the_log_is_rotated(stopped_service):
    machine = stopped_service.machine
    machine.write("/etc/logrotate.d/tabwarden", (EXAMPLES / "logrotate").read_text())
    switch_on(stopped_service)
    stopped_service.start()
    before = machine.read(LOG)
    machine.run("logrotate", "--force", "/etc/logrotate.d/tabwarden")
    wait_until(stopped_service.answers)
    assert machine.read(f"{LOG}.1") == before
    assert machine.read(LOG).startswith(LOG_BEGIN)
    modes = machine.shell("stat --format '%U %a' /var/log/tabwarden/*")
    assert modes == "tabwarden 600\ntabwarden 600\n"
    machine.run("rm", "/etc/logrotate.d/tabwarden")
