"""The configurations that docs/security.md shows, taken out of it and started."""

import getpass
import os
import re
import shlex
import socket
import ssl
import subprocess
from contextlib import contextmanager, suppress

from support.server import ROOT, free_port, uninstrumented, wait_until

GUIDE = ROOT / "docs" / "security.md"
CERTIFICATE = "/etc/ssl/private/tabwarden.pem"


def shown_file(path):
    """The indented block behind the sentence that begins with, or ends in, the file's path."""
    blocks = re.findall(rf"`{re.escape(path)}`[^\n]*\n\n((?:    [^\n]*\n|\n)+)", GUIDE.read_text())
    assert len(blocks) == 1, f"{path} is shown {len(blocks)} times"
    return re.sub(r"^    ", "", blocks[0], flags=re.MULTILINE)


def replaced(text, old, new):
    """For places that have to be there: each test's ports and files."""
    assert old in text, f"no {old} in {text}"
    return text.replace(old, new)


class Front:
    """A program of the guide between the browser and the server, on a port and with a certificate of its own."""

    def __init__(self, folder, server_port, port=None):
        self.folder = folder
        self.port = port or free_port()
        self.server_port = server_port
        self.address = f"https://localhost:{self.port}/"
        self.certificate = folder / "tabwarden.pem"
        subprocess.run(
            ["openssl", "req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:P-256", "-nodes", "-days", "1"]
            + ["-subj", "/CN=localhost", "-addext", "subjectAltName=DNS:localhost"]
            + ["-keyout", self.certificate, "-out", folder / "certificate.pem"],
            check=True,
            capture_output=True,
            env=uninstrumented(),
        )
        with self.certificate.open("a") as both:
            both.write((folder / "certificate.pem").read_text())

    def configuration(self, path, listening):
        """The file as the guide shows it, with this front's ports and certificate. `listening`: port 443 in its words."""
        text = replaced(shown_file(path), CERTIFICATE, str(self.certificate))
        text = replaced(text, listening, re.sub(":?443", f"127.0.0.1:{self.port}", listening))
        return replaced(text, "127.0.0.1:8451", f"127.0.0.1:{self.server_port}")

    def connect(self):
        """A connection of its own behind which the server's bytes come."""
        connection = socket.create_connection(("127.0.0.1", self.port))
        connection.settimeout(20)
        context = ssl.create_default_context(cafile=self.folder / "certificate.pem")
        return context.wrap_socket(connection, server_hostname="localhost")


@contextmanager
def running(command, port):
    """The command until the end of the block; it listens on the port when the block begins."""
    with subprocess.Popen(command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, env=uninstrumented()) as process:
        try:
            wait_until(lambda: process.poll() is not None or is_listening(port))
            assert process.poll() is None, process.stdout.read().decode()
            yield process
        finally:
            with suppress(ProcessLookupError):
                process.terminate()


def is_listening(port):
    """Looked up, since a connection could hold the server."""
    return any(
        line.split()[1].endswith(f":{port:04X}") and line.split()[3] == "0A"
        for name in ("/proc/net/tcp", "/proc/net/tcp6")
        for line in open(name).read().splitlines()[1:]
    )


@contextmanager
def nginx(front):
    site = front.folder / "site"
    site.write_text(front.configuration("/etc/nginx/sites-available/tabwarden", "listen 443 ssl"))
    paths = "".join(
        f"{kind}_temp_path {front.folder}/{kind};" for kind in ("client_body", "proxy", "fastcgi", "uwsgi", "scgi")
    )
    main = front.folder / "nginx.conf"
    main.write_text(
        f"daemon off; master_process off; pid {front.folder}/nginx.pid; error_log {front.folder}/error.log warn; events {{}}\n"
        f"http {{ access_log {front.folder}/access.log; {paths} include {site}; }}\n"
    )
    with running(["/usr/sbin/nginx", "-e", front.folder / "error.log", "-c", main], front.port):
        yield


@contextmanager
def stunnel(front):
    """Both ends: the browser speaks to the near one."""
    of_the_process = "foreground = yes\npid =\nsyslog = no\n"
    far, near = front.folder / "far.conf", front.folder / "near.conf"
    far.write_text(of_the_process + front.configuration("/etc/stunnel/tabwarden.conf", "accept = 443"))
    shown = replaced(shown_file("/etc/stunnel/to-tabwarden.conf"), "server.example.org:443", f"127.0.0.1:{front.port}")
    shown = replaced(shown, "server.example.org", "localhost")
    shown = replaced(shown, "/etc/ssl/certs/ca-certificates.crt", str(front.folder / "certificate.pem"))
    near_port = free_port()
    near.write_text(of_the_process + replaced(shown, "127.0.0.1:8451", f"127.0.0.1:{near_port}"))
    with running(["/usr/bin/stunnel4", far], front.port), running(["/usr/bin/stunnel4", near], near_port):
        front.address = f"http://localhost:{near_port}/"
        yield


@contextmanager
def ssh(front):
    """The guide's command, to an SSH server of its own that lets in whoever runs this."""
    folder, near_port = front.folder, free_port()
    for key in ("server", "administrator"):
        subprocess.run(["ssh-keygen", "-q", "-t", "ed25519", "-N", "", "-f", folder / key], check=True, env=uninstrumented())
    (folder / "known_hosts").write_text(f"[127.0.0.1]:{front.port} {(folder / 'server.pub').read_text()}")
    if os.geteuid() == 0:
        os.makedirs("/run/sshd", exist_ok=True)
    settings = (f"Port={front.port}", "ListenAddress=127.0.0.1", f"HostKey={folder}/server", "PidFile=none")
    settings += (f"AuthorizedKeysFile={folder}/administrator.pub", "StrictModes=no", "UsePAM=no")
    server = ["/usr/sbin/sshd", "-D", "-e", "-f", "/dev/null", *with_each("-o", settings)]
    (shown,) = re.findall("^    (ssh -N .*)$", GUIDE.read_text(), flags=re.MULTILINE)
    shown = replaced(shown, "8451:127.0.0.1:8451", f"{near_port}:127.0.0.1:{front.server_port}")
    shown = replaced(shown, "admin@server.example.org", f"{getpass.getuser()}@127.0.0.1")
    own = (f"Port={front.port}", f"IdentityFile={folder}/administrator", f"UserKnownHostsFile={folder}/known_hosts")
    client = [*shlex.split(shown), "-F", "/dev/null", *with_each("-o", own)]
    with running(server, front.port), running(client, near_port):
        front.address = f"http://localhost:{near_port}/"
        yield


def with_each(option, values):
    return [word for value in values for word in (option, value)]
