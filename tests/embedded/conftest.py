import os
import subprocess
import sys
from pathlib import Path

import pytest

sys.path.insert(0, str(Path(__file__).parent))

from support.source import CREATE, DRIVER  # noqa: E402


class Source:
    """A new database with the administrator "admin" (password "secret") behind the data source `name`."""

    name = "embedded"

    def __init__(self, folder):
        self.folder = folder
        self.database = folder / "test.db"
        self.log = folder / "statements.log"
        self.environment = {**os.environ, "ODBCSYSINI": str(folder), "ODBCINI": "/dev/null"}
        for left in folder.iterdir():
            left.unlink()
        (folder / "odbcinst.ini").write_text(f"[NORDVALE_ISAM]\nDriver={DRIVER}\n")
        (folder / "odbc.ini").write_text(f"[{self.name}]\nDriver=NORDVALE_ISAM\nDatabase={self.database}\n"
                                         f"StatementLog={self.log}\n"
                                         f"[nofile]\nDriver=NORDVALE_ISAM\nDatabase={folder}/missing.db\n"
                                         f"[nodatabase]\nDriver=NORDVALE_ISAM\n")
        subprocess.run([CREATE, self.database, "admin"], input=b"secret\n", check=True)

    def connect(self, user="admin", password="secret", autocommit=True):
        import pyodbc

        pyodbc.pooling = False
        return pyodbc.connect(f"DSN={self.name};UID={user};PWD={password}", autocommit=autocommit)

    def execute(self, *statements, user="admin", password="secret"):
        connection = self.connect(user, password)
        for statement in statements:
            connection.execute(statement)
        connection.close()

    def rows(self, statement, *parameters, user="admin", password="secret"):
        connection = self.connect(user, password)
        rows = [tuple(row) for row in connection.execute(statement, *parameters).fetchall()]
        connection.close()
        return rows

    def failure(self, statement, user="admin", password="secret"):
        """SQLSTATE and message of a statement that must fail."""
        import pyodbc

        connection = self.connect(user, password)
        with pytest.raises(pyodbc.Error) as raised:
            connection.execute(statement)
        connection.close()
        return raised.value.args[0], raised.value.args[1]

    def log_in_failure(self, connection_string):
        import pyodbc

        with pytest.raises(pyodbc.Error) as raised:
            pyodbc.connect(connection_string)
        return raised.value.args[0], raised.value.args[1]

    def add_user(self, name, password="pw"):
        self.execute(f"insert into nordvale.system.user (username, password) values ('{name}', '{password}')")

    def logged(self):
        return [tuple(line.split("\t")) for line in self.log.read_text().splitlines()]

    def isql(self, *lines, user="admin", password="secret"):
        result = subprocess.run(["isql", self.name, user, password, "-b", "-v"], env=self.environment, text=True,
                                input="".join(line + "\n" for line in lines), capture_output=True)
        return result.stdout


@pytest.fixture(scope="session")
def odbc_folder(tmp_path_factory):
    """One folder for all tests: the driver manager remembers for the process's life what it has read from it."""
    return tmp_path_factory.mktemp("odbc")


@pytest.fixture
def source(odbc_folder, monkeypatch):
    """A new data source, known to this process and its children."""
    monkeypatch.setenv("ODBCSYSINI", str(odbc_folder))
    monkeypatch.setenv("ODBCINI", "/dev/null")
    return Source(odbc_folder)


@pytest.fixture
def staffed(source):
    """The users anna, bernd and "Public", and the table shop.stock.item with two rows."""
    for user in ("anna", "bernd", "Public"):
        source.add_user(user)
    source.execute("create table shop.stock.item (id integer primary key, name varchar(20))",
                   "insert into shop.stock.item values (1, 'nail')", "insert into shop.stock.item values (2, 'screw')")
    return source


@pytest.fixture
def driver(source):
    from direct_driver import Driver

    driver = Driver(source)
    yield driver
    driver.close()
