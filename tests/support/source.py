"""Embedded data sources for the tests: made anew, looked into, read back."""

import multiprocessing
import subprocess
from concurrent.futures import ProcessPoolExecutor
from dataclasses import dataclass
from pathlib import Path

from support.server import BUILD

ODBC_DIR = BUILD / "odbc"
DRIVER = BUILD / "embedded" / "libtabwarden_isam.so"
CREATE = BUILD / "embedded" / "isam_create"

ADMINISTRATOR = "admin"
PASSWORD = "manager"


def list_sources(names, folder=ODBC_DIR, other_drivers=(), logged=True):
    """Writes the driver manager's files; other_drivers adds (source, driver) pairs that are only listed, and
    without `logged` there is no statement log.

    Gives the environment of a program that is to see exactly these data sources.
    """
    folder.mkdir(parents=True, exist_ok=True)
    drivers = ["NORDVALE_ISAM", *{driver for _, driver in other_drivers}]
    (folder / "odbcinst.ini").write_text("".join(f"[{name}]\nDriver={DRIVER}\n\n" for name in drivers))
    sources = [(name, "NORDVALE_ISAM") for name in names] + list(other_drivers)
    text = ""
    for name, driver in sources:
        text += f"[{name}]\nDriver={driver}\nDatabase={folder}/{name}.db\n"
        text += f"StatementLog={folder}/{name}.log\n\n" if logged else "\n"
    (folder / "odbc.ini").write_text(text)
    return {"ODBCSYSINI": str(folder), "ODBCINI": "/dev/null"}


# A driver manager stays with the folder that it first read data sources from, for the life of its process. So the
# tests' own statements run in a process of their own and leave pytest's to the tests of the driver.
other_process = ProcessPoolExecutor(1, mp_context=multiprocessing.get_context("spawn"))


def run(connection_string, statements, query=None):
    """Executes the statements and gives the rows of the query, if there is one."""
    import pyodbc

    pyodbc.pooling = False
    connection = pyodbc.connect(connection_string, autocommit=True)
    try:
        for statement in statements:
            connection.execute(statement)
        return [tuple(row) for row in connection.execute(query).fetchall()] if query else []
    finally:
        connection.close()


def outcomes(connection_string, statements):
    """What became of each statement: None, or the message of its error."""
    import pyodbc

    pyodbc.pooling = False
    connection = pyodbc.connect(connection_string, autocommit=True)
    errors = []
    try:
        for statement in statements:
            try:
                connection.execute(statement)
                errors.append(None)
            except pyodbc.Error as error:
                errors.append(error.args[1])
    finally:
        connection.close()
    return errors


@dataclass
class Source:
    """One data source. Statements run as the administrator unless another user is named."""

    name: str
    folder: Path = ODBC_DIR

    @property
    def database(self):
        return self.folder / f"{self.name}.db"

    @property
    def log(self):
        return self.folder / f"{self.name}.log"

    def create(self):
        self.remove()
        subprocess.run([CREATE, self.database, ADMINISTRATOR], input=PASSWORD.encode() + b"\n", check=True)

    def remove(self):
        for suffix in ("", "-wal", "-shm"):
            Path(f"{self.database}{suffix}").unlink(missing_ok=True)
        self.log.unlink(missing_ok=True)

    def connection_string(self, user, password):
        return f"DRIVER={DRIVER};Database={self.database};StatementLog={self.log};UID={user};PWD={password}"

    def execute(self, *statements, user=ADMINISTRATOR, password=PASSWORD):
        """No statements at all are a log-in."""
        other_process.submit(run, self.connection_string(user, password), statements).result()

    def rows(self, query, user=ADMINISTRATOR, password=PASSWORD):
        return other_process.submit(run, self.connection_string(user, password), (), query).result()

    def forget_statements(self):
        self.log.write_bytes(b"")

    def statements(self):
        """(user, outcome, statement) of what was executed since the log was last emptied."""
        lines = self.log.read_text(errors="surrogateescape").split("\n")[:-1]
        return [tuple(line.split("\t")[1:4]) for line in lines]
