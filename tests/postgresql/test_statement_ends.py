"""Where a statement ends: the adapter has to see it as PostgreSQL does, which would run whatever stands behind."""

import subprocess

from support.server import BUILD

COMPARE = BUILD / "tests" / "postgresql" / "statement_ends"


def test_texts_of_quotes_comments_and_semicolons_are_several_statements_exactly_where_postgresql_says_so(postgresql):
    connection = f"host=127.0.0.1 port={postgresql.port} user=postgres password={postgresql.password} dbname=postgres"
    result = subprocess.run([COMPARE, connection, "50000"], capture_output=True, text=True)
    assert result.returncode == 0, result.stdout + result.stderr
    several, one = (int(part.split()[0]) for part in result.stdout.splitlines()[-1].split(","))
    assert several > 1000 and one > 1000
