"""A Debian system to install packages in: a layer over a folder, in namespaces of its own, gone with its last process."""

import re
import subprocess

from support.server import start_line_of

ENVIRONMENT = {
    "PATH": "/usr/sbin:/usr/bin:/sbin:/bin",
    "HOME": "/root",
    "LC_ALL": "C.UTF-8",
    "DEBIAN_FRONTEND": "noninteractive",
}

# What is mounted goes away with the last process.
START = """
set -e
mount -t tmpfs tmpfs "$2"
mkdir "$2/upper" "$2/work" "$2/root"
mount -t overlay overlay -o "lowerdir=$1,upperdir=$2/upper,workdir=$2/work" "$2/root"
mount --rbind /dev "$2/root/dev"
mount -t proc proc "$2/root/proc"
ip link set lo up
echo ready
exec cat
"""

# The start line comes just before the port is open.
REQUEST = """
import contextlib, socket, sys
connection = None
while not connection:
    with contextlib.suppress(ConnectionRefusedError):
        connection = socket.create_connection(("127.0.0.1", 8451))
with connection:
    connection.settimeout(20)
    connection.sendall(sys.stdin.buffer.read())
    while piece := connection.recv(65536):
        sys.stdout.buffer.write(piece)
"""


class Chroot:
    """`base` is the folder of the system, which stays as it is; `folder` an empty one to work in."""

    def __init__(self, base, folder):
        self.folder = folder
        self.services = []
        self.process = subprocess.Popen(
            ["unshare", "--mount", "--net", "--pid", "--fork", "sh", "-c", START, "sh", base, folder],
            stdin=subprocess.PIPE,
            stdout=subprocess.PIPE,
            env=ENVIRONMENT,
        )
        assert start_line_of(self.process) == b"ready\n"

    def stop(self):
        """Ends all its processes."""
        self.process.communicate()
        for service in self.services:
            service.communicate()

    def _into(self):
        number = self.process.pid
        return ["nsenter", f"--target={number}", "--mount", "--net", f"--pid=/proc/{number}/ns/pid_for_children"]

    def _inside(self, *command):
        return [*self._into(), "chroot", self.folder / "root", *command]

    def attempt(self, *command, typed=""):
        """What came of the command: returncode and, with what it said on standard error, stdout."""
        return subprocess.run(
            self._inside(*command),
            input=typed,
            stdout=subprocess.PIPE,
            stderr=subprocess.STDOUT,
            text=True,
            env=ENVIRONMENT,
        )

    def run(self, *command, typed=""):
        done = self.attempt(*command, typed=typed)
        assert done.returncode == 0, done.stdout
        return done.stdout

    def shell(self, line, typed=""):
        return self.run("sh", "-c", line, typed=typed)

    def read(self, path):
        return self.run("cat", path)

    def write(self, path, text):
        self.run("tee", path, typed=text)

    def bring(self, file):
        """Copies the file of the host; gives its path here."""
        path = f"/root/{file.name}"
        subprocess.run(self._inside("tee", path), input=file.read_bytes(), stdout=subprocess.DEVNULL, check=True)
        return path

    def start_service(self):
        """As the unit says, as far as that can be done without systemd; gives the number of the process."""
        unit = dict(re.findall(r"^(\w+)=(.*)$", self.read("/lib/systemd/system/tabwarden.service"), re.MULTILINE))
        sandbox = ["setpriv", f"--reuid={unit['User']}", f"--regid={unit['Group']}", "--init-groups", "--no-new-privs"]
        command = " ".join([*sandbox, "env", "-i", unit["Environment"], unit["ExecStart"]])
        started = self._inside("sh", "-c", f"umask {unit['UMask']}; echo $$; exec {command}")
        # One line is read, then the next one awaited: nothing may be read ahead.
        service = subprocess.Popen(started, bufsize=0, stdout=subprocess.PIPE, env=ENVIRONMENT)
        self.services.append(service)
        number = start_line_of(service).decode().strip()
        start_line_of(service)
        return number

    def request(self, data):
        """What the server answers."""
        command = [*self._into(), "/usr/bin/python3", "-c", REQUEST]
        return subprocess.run(command, input=data, capture_output=True, check=True, env=ENVIRONMENT).stdout
