"""tabwarden as its packages install it."""

from support.server import ROOT, Client, wait_until

EXAMPLES = ROOT / "packaging" / "examples"
DROP_INS = "/run/systemd/system/tabwarden.service.d"


def install(machine, *packages):
    machine.bring("/root", *packages)
    return machine.run("dpkg", "-i", *(f"/root/{package.name}" for package in packages))


class Service(Client):
    """What systemd runs in a machine of its own."""

    def __init__(self, machine):
        self.machine = machine
        self.address, self.port = "127.0.0.1", 8451

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
        text = text or (EXAMPLES / name).read_text()
        self.machine.run("mkdir", "-p", DROP_INS)
        self.machine.write(f"{DROP_INS}/{name}", text)
        self.machine.run("systemctl", "daemon-reload")

    def reset(self):
        """Not running, as it was installed, without databases and log."""
        self.systemctl("stop")
        left = f"{DROP_INS} /var/lib/tabwarden/* /var/log/tabwarden/* /srv/tabwarden /etc/odbc.ini"
        self.machine.shell(f"rm -rf {left}")
        self.machine.run("systemctl", "daemon-reload")
