"""A PostgreSQL server of the tests' own, and the psql that looks into it past the program."""

import os
import shutil
import subprocess
import tempfile
from pathlib import Path

from support.server import BUILD, ROOT, free_port, uninstrumented

SCRIPT = ROOT / "script" / "private-postgresql"
PSQL = "/usr/lib/postgresql/15/bin/psql"
SUPERUSER = "postgres"

DRIVER = BUILD / "postgresql" / "libtabwarden_postgresql.so"
INSTALL = (ROOT / "postgresql" / "install.sql").read_text()
REMOVE = (ROOT / "postgresql" / "remove.sql").read_text()


def list_sources(folder, port, **sources):
    """Writes the driver manager's files; the sources' own lines outweigh the common ones.

    Gives the environment of a program that is to see exactly these data sources.
    """
    folder.mkdir(parents=True, exist_ok=True)
    (folder / "odbcinst.ini").write_text(f"[NORDVALE_ISAM]\nDriver={DRIVER}\n")
    text = ""
    for name, lines in sources.items():
        settings = {"Driver": "NORDVALE_ISAM", "Servername": "127.0.0.1", "Port": port, "Database": name, **lines}
        text += f"[{name}]\n" + "".join(f"{key}={value}\n" for key, value in settings.items()) + "\n"
    (folder / "odbc.ini").write_text(text)
    return {"ODBCSYSINI": str(folder), "ODBCINI": "/dev/null"}


def roomy_folder():
    """In memory where there is room: to make and drop databases is hard work for a disk."""
    memory = "/dev/shm"
    has_room = os.access(memory, os.W_OK) and shutil.disk_usage(memory).free > 2**30
    return memory if has_room else "/tmp"


class PrivatePostgresql:
    """A running server without other databases and roles than its own."""

    def __init__(self):
        # Its files belong to the user postgres, who cannot reach into every folder, when root runs the tests.
        self.folder = Path(tempfile.mkdtemp(prefix="tabwarden-postgresql-", dir=roomy_folder()))
        self.port = free_port()
        try:
            self.start()
        except BaseException:
            shutil.rmtree(self.folder)
            raise
        self.password = (self.folder / "superuser_password").read_text()

    def start(self):
        """Also after halt(), with everything that was there before."""
        subprocess.run([SCRIPT, "start", self.folder, str(self.port)], env=uninstrumented(), check=True)

    def halt(self):
        """Cuts all sessions off."""
        subprocess.run([SCRIPT, "stop", self.folder], env=uninstrumented(), check=True)

    def stop(self):
        self.halt()
        shutil.rmtree(self.folder)

    def psql(self, script, database=SUPERUSER, user=SUPERUSER, password=None, stop_on_error=True):
        """What psql leaves behind after the script: exit code, output without headings, errors."""
        return subprocess.run(
            [*self._command(database, user), *(["-v", "ON_ERROR_STOP=1"] if stop_on_error else [])],
            input=script,
            capture_output=True,
            text=True,
            env=self._environment(self.password if password is None else password),
        )

    def open_psql(self, database, user, password):
        """A psql that reads its script from a pipe and stops at the first error."""
        return subprocess.Popen(
            [*self._command(database, user), "-v", "ON_ERROR_STOP=1"],
            stdin=subprocess.PIPE,
            stdout=subprocess.PIPE,
            stderr=subprocess.STDOUT,
            text=True,
            env=self._environment(password),
        )

    def _command(self, database, user):
        where = ["-h", "127.0.0.1", "-p", str(self.port), "-d", database, "-U", user]
        return [PSQL, "-XAqtw", *where, "-f", "-"]

    def _environment(self, password):
        """The scripts mean the same whatever the database is set to."""
        options = "-c standard_conforming_strings=on"
        return uninstrumented(PGPASSWORD=password, PGCLIENTENCODING="UTF8", PGOPTIONS=options)

    def execute(self, script, **where):
        """The output's lines of a script that must not fail."""
        result = self.psql(script, **where)
        assert result.returncode == 0, result.stderr
        return result.stdout.splitlines()
