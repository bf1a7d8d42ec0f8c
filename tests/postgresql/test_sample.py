"""The sample in a PostgreSQL server of its own, made as script/server makes it and looked at through the pages."""

import os
import subprocess
import tempfile
from configparser import ConfigParser
from pathlib import Path

import pytest

from support import pages
from support.sample import Visitor
from support.server import BUILD, ROOT, RunningServer, install_html, uninstrumented, write_product_ini

USERS = (
    ("anna", "Anna Berger, accounts"),
    ("bernd", "Bernd Falk, warehouse"),
    ("carla", "Carla Winter, sales"),
    ("david", "David Moor, sales"),
    ("elena", "Elena Roth, head of sales"),
    ("felix", "Felix Brandt, dispatch"),
    ("greta", "Greta Lind, personnel"),
    ("henry", "Henry Stone, audit"),
    ("irene", "Irene Vogel, purchasing"),
    ("jonas", "Jonas Keller, trainee"),
    ("karin", "Karin Holm, reports"),
    ("leo", "Leo Marsh, night shift"),
)

TABLES = (
    ("archive", ("orders_2019", "orders_2020")),
    ("audit", ("event",)),
    ("crm", ("complaint", "contact", "customer", "visit")),
    ("orders", ("delivery", "header", "invoice", "line")),
    ("payroll", ("bonus", "salary")),
    ("personnel", ("absence", "department", "employee")),
    ("pricing", ("discount", "list")),
    ("public", ("country", "currency", "holiday", "notice")),
    ("purchase", ("order", "receipt", "supplier")),
    ("reports", ("backlog", "stock_value", "turnover")),
    ("stock", ("article", "location", "movement", "quantity")),
)

HELD_BY_LEO = {
    ("public", "notice"): ("delete",),
    ("stock", "movement"): ("insert",),
    ("stock", "quantity"): ("update",),
}

HELD_BY_BERND = {
    **{("purchase", table): ("select",) for table in ("order", "receipt", "supplier")},
    **{("stock", table): pages.PRIVILEGES for table in ("article", "location", "movement", "quantity")},
}


class Sample:
    def __init__(self, folder):
        self.folder = folder

    def start(self):
        command = [ROOT / "script" / "sample-postgresql", self.folder, BUILD]
        subprocess.run(command, env=uninstrumented(), stdout=subprocess.DEVNULL, check=True)

    def stop(self):
        command = [ROOT / "script" / "private-postgresql", "stop", self.folder / "server"]
        subprocess.run(command, env=uninstrumented(), check=True)

    def psql(self, user, password, *statements):
        """The outcome of statements that a program of the user's executes."""
        source = ConfigParser()
        source.read(self.folder / "odbc.ini")
        name = f"host=127.0.0.1 port={source['sample']['Port']} dbname=warehouse user={user} password={password}"
        command = ["psql", "-X", "-q", "-A", "-t", "-c", "; ".join(statements), name]
        return subprocess.run(command, env=uninstrumented(), capture_output=True, text=True)


@pytest.fixture(scope="module")
def sample():
    # PostgreSQL, which may run as another user, has to reach it; pytest's own folders are closed.
    with tempfile.TemporaryDirectory() as folder:
        os.chmod(folder, 0o755)
        sample = Sample(Path(folder) / "sample")
        sample.start()
        yield sample
        sample.stop()


@pytest.fixture
def visitor(sample):
    install_html()
    write_product_ini()
    server = RunningServer(environment={"ODBCSYSINI": str(sample.folder), "ODBCINI": "/dev/null"})
    yield Visitor(server, sample.folder)
    server.stop()


def page(visitor, *fields):
    return visitor.page(fields, source="sample", user="admin", password="sample_admin")


def users_page():
    rows = [pages.administrator_row("admin", ""), *(pages.user_row(*user, "") for user in USERS)]
    chooser = pages.source_chooser(["sample"], "sample", "datasource")
    return pages.page(chooser, pages.users_body(rows), pages.USERS_REFRESH)


def rights_page(user, held):
    rows = []
    for schema, tables in TABLES:
        for table in tables:
            privileges = held.get((schema, table), ())
            names = ("admin", user) if "select" in privileges else ("", "")
            rows.append(pages.rights_row(("warehouse", schema, table), privileges, *names))
    offered = [name for name, _ in USERS] + ["public"]
    choosers = pages.source_chooser(["sample"], "sample", "datasource") + pages.user_chooser(offered, user)
    return pages.page(choosers, pages.rights_body(user, rows), pages.RIGHTS_REFRESH)


def test_the_administrator_sees_the_users(visitor):
    assert page(visitor, ("users.x", "1")) == users_page()


@pytest.mark.parametrize("user, held", [("leo", HELD_BY_LEO), ("bernd", HELD_BY_BERND)])
def test_the_administrator_sees_the_rights_of_a_user(visitor, user, held):
    assert page(visitor, ("rights_refresh", ""), ("isamuser", user)) == rights_page(user, held)


def test_a_user_logs_in_and_reads_what_was_granted(sample):
    assert sample.psql("karin", "karin_pw", "select total from archive.orders_2019").stdout == "810\n"


def test_a_user_does_not_read_what_was_not_granted(sample):
    refusal = "ERROR:  permission denied for table movement\n"
    assert sample.psql("leo", "leo_pw", "select * from stock.movement").stderr == refusal


def test_the_next_start_finds_what_was_stored(sample):
    sample.psql("admin", "sample_admin", "insert into holiday values ('2025-01-01', 'New Year')")
    sample.stop()
    sample.start()
    count = "select count(*) from holiday"
    assert sample.psql("admin", "sample_admin", count).stdout == "2\n"


def test_a_deleted_user_who_owns_something_loses_what_was_granted_and_the_log_in(sample):
    result = sample.psql(
        "admin",
        "sample_admin",
        "begin",
        "grant leo to admin",
        "create schema attic authorization leo",
        "delete from tabwarden.\"user\" where username = 'leo'",
        "select rolcanlogin from pg_roles where rolname = 'leo'",
        "select has_table_privilege('leo', 'stock.movement', 'insert'), has_schema_privilege('leo', 'stock', 'usage')",
        "rollback",
    )
    assert (result.stdout, result.stderr) == ("f\nf|f\n", "")


def test_a_deleted_user_loses_all_but_what_was_handed_on(sample):
    result = sample.psql(
        "admin",
        "sample_admin",
        "begin",
        "grant leo to admin",
        "grant insert on stock.movement to leo with grant option",
        "set role leo",
        "grant insert on stock.movement to anna",
        "reset role",
        "delete from tabwarden.\"user\" where username = 'leo'",
        "select has_table_privilege('leo', 'stock.movement', 'insert'), has_table_privilege('leo', 'notice', 'delete')",
        "rollback",
    )
    assert (result.stdout, result.stderr) == ("t|f\n", "")
