"""Statements in whose middle SQLite runs out of memory or is cancelled, at each place once."""
import subprocess
import sys
from pathlib import Path

import pytest

PROGRAM = Path(__file__).with_name("failing_memory.py")
COUNT = "select count(*) from nordvale.system."


def outcomes(source, kind, user, password, statement, query="select 'done'"):
    result = subprocess.run([sys.executable, PROGRAM, kind, user, password, statement, query], env=source.environment,
                            capture_output=True, text=True, check=True)
    return result.stdout.split()


@pytest.mark.parametrize("kind", ["cancel", "refuse"])
def test_a_statement_that_may_not_run_does_not_run_when_its_check_does_not_end(staffed, kind):
    found = outcomes(staffed, kind, "anna", "pw", "select value from (select null as value) q natural full join json_each "
                     "where (with json_each as (select 1) select 1)")
    assert len(found) > 50 and "done" not in found


@pytest.mark.parametrize("statement, query, done", [
    ("grant select on shop.stock.item to anna", COUNT + "tableprv", "2"),
    ("revoke insert on shop.stock.item from bernd", COUNT + "tableprv", "0"),
    ("drop table if exists shop.stock.item", COUNT + "table", "0"),
    ("create table if not exists new (a)", COUNT + "table", "2"),
])
def test_what_ran_out_of_memory_is_either_done_or_failed(staffed, statement, query, done):
    staffed.execute("grant insert on shop.stock.item to bernd")
    found = outcomes(staffed, "refuse", "admin", "secret", statement, query)
    assert len(found) > 30 and set(found) == {"HY001", done}


def test_a_parameter_that_finds_no_memory_is_not_called_out_of_range(staffed):
    found = outcomes(staffed, "refuse", "admin", "secret", "delete from nordvale.system.user where username = ?")
    assert len(found) > 30 and set(found) == {"HY001", "HY008", "done"}


def test_a_list_of_tables_is_whole_or_failed(staffed):
    staffed.execute("create table another (a)")
    found = outcomes(staffed, "refuse", "admin", "secret", "{SQLTables}")
    assert len(found) > 10 and set(found) == {"HY001", "2"}
