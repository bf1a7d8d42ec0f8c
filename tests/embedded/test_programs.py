"""isql, isam_create and script/sample as programs."""
import os
import subprocess
from pathlib import Path

import pytest

from support.server import BUILD
from support.source import CREATE

SAMPLE = Path(__file__).resolve().parents[2] / "script" / "sample"


def create(file, administrator="boss", password=b"pw\n"):
    return subprocess.run([CREATE, file, administrator], input=password, capture_output=True)


def test_isql_queries_and_counts(staffed):
    output = staffed.isql("select * from shop.stock.item", "update shop.stock.item set name = 'x'")
    assert "| 1                   | nail" in output
    assert "2 rows fetched" in output and "SQLRowCount returns 2" in output


def test_isql_shows_why_a_statement_failed(source):
    assert "There is no table nothing1" in source.isql("select * from nothing1")


def test_isql_lists_tables_and_columns(staffed):
    output = staffed.isql("help", "help item")
    assert "stock" in output and "name" in output and "varchar" in output


def test_isql_lines_stay_narrow(source):
    lines = source.isql("select 'x' as a, 1 as b, null as c").splitlines()
    assert max(len(line) for line in lines) < 80


def test_isam_create_makes_a_database_for_its_owner_alone(tmp_path):
    assert create(tmp_path / "new.db").returncode == 0
    assert os.stat(tmp_path / "new.db").st_mode & 0o777 == 0o600


def test_isam_create_makes_the_administrator_and_public(source):
    assert source.rows("select username from nordvale.system.user order by 1") == [("admin",), ("public",)]
    assert source.rows("select * from nordvale.system.sysinfo") == [("dbo_user", "admin")]


def test_isam_create_leaves_an_existing_file_alone(tmp_path):
    (tmp_path / "old.db").write_text("precious")
    result = create(tmp_path / "old.db")
    assert result.returncode == 1 and b"old.db" in result.stderr
    assert (tmp_path / "old.db").read_text() == "precious"


def test_isam_create_refuses_a_name_that_is_too_long_for_the_files_beside_it(tmp_path):
    result = create(tmp_path / ("x" * 250))
    assert result.returncode == 1 and b"unable to open database file" in result.stderr
    assert list(tmp_path.iterdir()) == []


@pytest.mark.parametrize("administrator, password", [("public", b"x\n"), ("", b"x\n"), ("boss", b"")])
def test_isam_create_refuses_what_makes_no_administrator(tmp_path, administrator, password):
    assert create(tmp_path / "new.db", administrator, password).returncode == 1
    assert not (tmp_path / "new.db").exists()


def test_isam_create_shows_its_usage(tmp_path):
    assert subprocess.run([CREATE], capture_output=True).returncode == 2


def test_the_sample_is_made_once(tmp_path):
    first = subprocess.run([SAMPLE, tmp_path / "made", BUILD], capture_output=True, text=True)
    assert first.returncode == 0, first.stderr
    second = subprocess.run([SAMPLE, tmp_path / "made", BUILD], capture_output=True, text=True)
    assert second.returncode == 1 and "exists already" in second.stderr
    environment = {**os.environ, "ODBCSYSINI": str(tmp_path / "made"), "ODBCINI": "/dev/null"}
    output = subprocess.run(["isql", "sample", "anna", "anna_pw", "-b"], input="select * from country\n", text=True,
                            env=environment, capture_output=True).stdout
    assert "Germany" in output
