"""What other programs ask of the driver reaches psqlODBC as it is."""

import pytest

from support.postgresql import DRIVER
from support.source import ADMINISTRATOR, PASSWORD


def answers(connection_string):
    """In a process of its own: what psqlODBC says to some calls."""
    import pyodbc

    pyodbc.pooling = False
    with pyodbc.connect(connection_string, autocommit=True) as connection:
        connection.setdecoding(pyodbc.SQL_CHAR, encoding="utf-8", ctype=pyodbc.SQL_CHAR)
        connection.setdecoding(pyodbc.SQL_WCHAR, encoding="utf-8", ctype=pyodbc.SQL_CHAR)
        cursor = connection.cursor()
        return {
            "prepared": cursor.execute("select ?::int + 1", 41).fetchval(),
            "in another schema": [row.table_name for row in cursor.tables(schema="public")],
            "of one kind": sorted(row.table_name for row in cursor.tables(tableType="VIEW", schema="public")),
            "by a pattern": [row.table_name for row in cursor.tables(table="o%", schema="public")],
            "columns": [row.column_name for row in cursor.columns(table="orders", schema="public")],
            "other grants": cursor.execute("grant update (id) on public.orders to mary").rowcount,
        }


def strings(server):
    return {
        "a data source and options": f"DSN=accounts;UID={ADMINISTRATOR};PWD={PASSWORD};ReadOnly=0",
        "no data source": f"DRIVER={DRIVER};Servername=127.0.0.1;Port={server.port};Database=accounts;"
        f"UID={ADMINISTRATOR};PWD={PASSWORD}",
    }


@pytest.mark.parametrize("way", ["a data source and options", "no data source"])
def test_connection_strings_catalog_calls_and_prepared_statements(accounts, own_server, odbc_process, way):
    accounts.as_administrator("create table public.orders (id int, word text); create view public.list as select 1")
    assert odbc_process.submit(answers, strings(own_server)[way]).result() == {
        "prepared": 42,
        "in another schema": ["list", "orders"],
        "of one kind": ["list"],
        "by a pattern": ["orders"],
        "columns": ["id", "word"],
        "other grants": -1,
    }
    assert accounts.as_superuser("select attacl from pg_attribute where attacl is not null and attrelid = 'orders'::regclass") == [
        f"{{mary=w/{ADMINISTRATOR}}}"
    ]
