import shutil
import subprocess

import pytest

from support import machine
from support.debian_root import DebianRoot
from support.server import ROOT, Client, uninstrumented, wait_until

PACKAGING = ROOT / "packaging"
DROP_INS = "/run/systemd/system/tabwarden.service.d"


def build():
    """The program as it is shipped, with its own paths; script/test has done so already."""
    for command in (["cmake", "--preset", "default"], ["cmake", "--build", "build/default", "-j2"]):
        subprocess.run(command, cwd=ROOT, env=uninstrumented(), stdout=subprocess.DEVNULL, check=True)


def install(root):
    subprocess.run(
        ["cmake", "--install", ROOT / "build" / "default"],
        env=uninstrumented(DESTDIR=str(root.path)),
        stdout=subprocess.DEVNULL,
        check=True,
    )
    shutil.move(root.path / "usr/local/nordvale/isam/bin/tabwarden", root.path / "usr/sbin")
    shutil.copy(PACKAGING / "tabwarden.service", root.path / "lib/systemd/system")
    root.append("usr/local/nordvale/bare_product/nareproduct.ini", "[Settings]\nLogDir=/var/log/tabwarden\n")
    root.append("etc/hosts", "127.0.0.1 localhost\n")
    for name, driver in (("NORDVALE_ISAM", "isam"), ("Tabrin", "postgresql")):
        root.append("etc/odbcinst.ini", f"[{name}]\nDriver=/usr/local/lib/odbc/libtabwarden_{driver}.so\n\n")
    root.chroot("useradd", "--system", "--user-group", "--home-dir", "/var/lib/tabwarden", "tabwarden")


class Service(Client):
    """tabwarden as systemd runs it in a machine of its own."""

    def __init__(self, machine):
        self.machine = machine
        self.address, self.port = "127.0.0.1", 8451
        self.log_file = machine.root / "var/log/tabwarden/kelvohttp.log"

    def connect(self):
        connection = self.machine.socket()
        connection.settimeout(20)
        try:
            connection.connect((self.address, self.port))
        except OSError:
            connection.close()
            raise
        return connection

    def answers(self):
        try:
            return self.get("/").startswith(b"HTTP/1.1 200 OK\r\n")
        except ConnectionRefusedError:
            return False

    def start(self):
        """For systemd a start is over before the program listens."""
        self.systemctl("start")
        wait_until(self.answers)

    def systemctl(self, *command):
        return self.machine.run("systemctl", *command, "tabwarden.service")

    def property(self, name):
        return self.systemctl("show", "--property", name, "--value").strip()

    def pid(self):
        """The server's, as the machine counts."""
        return int(self.property("MainPID"))

    def add(self, name, text=None):
        """A drop-in: one of the examples, unless its text is given."""
        text = text or (PACKAGING / "examples" / name).read_text()
        self.machine.run("mkdir", "-p", DROP_INS)
        self.machine.run("tee", f"{DROP_INS}/{name}", input=text)
        self.machine.run("systemctl", "daemon-reload")

    def reset(self):
        """Not running, as it was installed, without databases and log."""
        self.systemctl("stop")
        left = f"{DROP_INS} /var/lib/tabwarden/* /var/log/tabwarden/* /srv/tabwarden /etc/odbc.ini"
        self.machine.run("sh", "-c", f"rm -rf {left}")
        self.machine.run("systemctl", "daemon-reload")


@pytest.fixture(scope="session")
def running_machine():
    if missing := machine.what_is_missing():
        pytest.skip(missing)
    build()
    root = DebianRoot()
    try:
        install(root)
        running = machine.Machine(root.path)
        yield running
        running.stop()
    finally:
        root.remove()


@pytest.fixture
def stopped_service(running_machine):
    service = Service(running_machine)
    yield service
    service.reset()


@pytest.fixture
def service(stopped_service):
    stopped_service.start()
    return stopped_service
