"""What an ordinary user may try to get round the privileges: every statement here is refused and changes nothing."""
import sqlite3

import pytest

from conftest import Source

SECRET = "select a, b from (select null as a, null as b) q "
USERS = "select username, password from (select null as username, null as password) q "

READING = [
    # The table under another spelling of its name.
    "select * from secret", "select * from SECRET", "select * from \"secret\"", "select * from [secret]", "select * from `secret`",
    "select * from/**/secret", "select*from\"secret\"", "select * from -- x\nsecret", "select * from main.secret",
    "select * from \"..secret\"", "select * from main.\"..secret\"", "select * from \"main\".\"..secret\"", "select * from '..secret'",
    "select * from main.'..secret'", "select * from ('..secret')", "select * from mine, '..secret'",
    "select * from mine join '..secret' on 1", "select * from (mine, \"..secret\")", "select 1 where 'x1' in '..secret'",
    "select 1 where 'x1' not in main.'..secret'", "select * from \ufeff\"..secret\"", "select *\ufefffrom\"..secret\"",
    "select * from \u017fecret", "select * from secret\ufeff", "\ufeffselect * from secret", "select 1 from secret indexed by x",
    "select * from temp.\"..secret\"", "select * from \"..secret\"()", "select * from secret(1)",
    # SQLite asks nobody about columns that are joined by their names.
    SECRET + "natural full join secret", SECRET + "natural full join '..secret'", SECRET + "full join '..secret' using (a, b)",
    SECRET + "natural join '..secret'", SECRET + "natural right join \"..secret\"", SECRET + "natural full join main.'..secret'",
    SECRET + "natural full join (secret)", SECRET + "natural full join ('..secret')",
    SECRET + "natural full join \"..secret\" where (with \"..secret\" as (select 1) select 1)",
    SECRET + "natural full join secret where (with \"secret\" as (values (1)) select 1 from mine, secret)",
    "select a, b from mine as window, \"..secret\" natural full join (select null as a, null as b) q",
    "select a, b from (select 1) window, \"..secret\" natural full join (select null as a, null as b) q",
    "select a, b, q.delete from secret natural full join (select null as a, null as b, 1 as \"delete\") q",
    USERS + "natural full join nordvale.system.user", USERS + "natural full join 'nordvale.system.user'",
    USERS + "natural left join 'nordvale.system.user' u", USERS + "full join '' using (username)",
    USERS + "natural full join \"nordvale.system.user\" where (with \"nordvale.system.user\" as (select 1) select 1)",
    USERS + "natural full join \"nordvale.system.USER\" where 1 in (with \"Nordvale.System.User\" as (select 1) select 1)",
    "select username, password from (select 1) as window, \"nordvale.system.user\" natural full join (select null as username, "
    "null as password) q",
    "select username, password, q.delete from nordvale.system.user natural full join (select null as username, "
    "null as password, 1 as \"delete\") q",
    "select sql from (select null as sql) q natural full join sqlite_schema where (with sqlite_schema as (select 1) select 1)",
    "select sql from (select null as sql) q natural full join SQLite_Master where (with \"sqlite_master\" as (select 1) select 1)",
    "select name from (select null as name) q natural full join dbstat where (with dbstat as (select 1) select 1)",
    "select sql from (select null as sql) q natural full join sqlite_stmt where (with sqlite_stmt as (select 1) select 1)",
    "select value from (select null as value) q natural full join json_each where (with json_each as (select 1) select 1)",
    # In every place where a query may stand.
    "select (select b from secret)", "select exists (select 1 from secret)", "select count(*) from secret", "select 1 from secret",
    "select 1 where 1 in (select a from secret)", "select 1 order by (select b from secret)", "select 1 limit (select 1 from secret)",
    "select 1 group by (select b from secret)", "select 1 having (select b from secret)", "values ((select b from secret))",
    "select case when (select 1 from secret) then 1 end", "select max(a) over (order by (select b from secret)) from mine",
    "select 1 union all select b from secret", "select b from mine except select b from secret", "select mine.a, (select b from "
    "secret where secret.a = mine.a) from mine", "with q as (select * from secret) select * from q",
    "with recursive q (a, b) as (select a, b from secret union all select a, b from q) select * from q limit 1",
    "with q as not materialized (select * from \"..secret\") select * from q", "with '..secret' as (select 1) select * from secret",
    "with a as (with b as (select * from secret) select * from b) select * from a", "select * from mine where a = secret.a",
    "select secret.b from mine", "select \"..secret\".b from mine", "select {fn upper((select b from secret))}",
    "select * from {oj mine left join secret on 1}",
    # Tables that are SQLite's or nobody's.
    "select * from sqlite_master", "select * from main.sqlite_schema", "select count(*) from sqlite_schema", "select 1 from sqlite_master", "select * from sqlite_temp_schema", "select * from dbstat",
    "select * from sqlite_stmt", "select * from json_each('[1]')", "select * from pragma_table_info('..secret')",
    "select * from pragma_database_list", "select * from sqlite_sequence", "select * from fts3tokenize", "select load_extension('x')",
    "select 1 from nordvale.system.tableprv", "select password from nordvale.system.user", "select * from nordvale.\"system\".[user]",
    "select rtreecheck('main', '..secret')", "select fts3_tokenizer('simple')", "select fts3_tokenizer('simple', x'00')", "select readfile('/etc/passwd')", "select edit('x')",
    # Parameters whose names would hide what follows, and other differences between our tokens and SQLite's.
    "select $x(')from\"..secret\"--')", "select :x", "select @x", "select #1", "select :a::b(')' from \"..secret\"--')",
    "select 1from\"..secret\"", "select 1.5from\"..secret\"", "select 1e5from secret", "select 0x1from \"..secret\"",
    "select x'00'from\"..secret\"", "select 'a'from'..secret'", "select 1 /*/ from mine */ from secret",
    "select 1 --\r from mine\n from secret", "select 1\x0bfrom secret", "select 1\x1cfrom \"..secret\"", "select 1\0 from secret",
]

CHANGING = [
    "insert into secret values ('x', 'y')", "update secret set b = 'y'", "delete from secret", "replace into secret values ('x', 'y')",
    "insert into '..secret' values ('x', 'y')", "update '..secret' set b = 'y'", "delete from '..secret'", "delete from main.\"..secret\"",
    "insert into mine select * from secret", "insert into mine select * from '..secret'", "insert into mine select * from ('..secret')",
    "insert into mine select *\ufefffrom\"..secret\"", "insert into mine select * from main.'..secret'", "insert into mine select * from "
    "(secret)", "insert into mine table secret", "insert into mine values ((select a from secret), 1)", "with q as (select * from secret) insert into mine select * from q", "insert into mine values (1, 2) on conflict "
    "do update set a = (select b from secret)", "insert into mine values (1, 2) returning (select b from secret)",
    "update mine set b = (select b from secret)", "update mine set b = s.b from secret s", "update mine set (a, b) = (select * from secret)",
    "update mine set b = q.b from (select null as a, null as b) q natural full join '..secret'", "update mine set b = 1 from '..secret'",
    "delete from mine where a in (select a from secret)", "delete from mine where exists (select 1 from secret)", "delete from mine order "
    "by (select b from secret) limit 1", "delete from mine returning (select b from secret)", "delete from mine limit (select 1 from secret)",
    # One privilege does not stand for another.
    "select * from filled", "replace into filled values (1, 'x')", "insert or replace into filled values (1, 'x')",
    "insert or\ufeff replace into filled values (1, 'x')", "with q as (select 1) replace into filled select 1, 'x'",
    "with q as (select $x(')) replace into \"..filled\" values (1, 2) --')) select 1 from filled",
    "insert into filled values (1, 'x') on conflict (id) do update set b = 'x'", "insert into filled values (2, 'x') returning *",
    "insert into filled values (2, 'x') returning rowid", "insert into filled select * from filled", "update filled set b = 'x'",
    "delete from filled", "update changed set b = b || 'x'", "update changed set b = 'x' where id = 1", "update changed set b = 'x' "
    "returning b", "update or replace changed set id = 1", "update changed set b = 'x' order by id limit 1", "update changed set b = 'x' "
    "where rowid = 1", "update changed set b = 'x' where _rowid_ > 0", "update changed set b = 'x' where oid > 0", "insert into changed "
    "values (3, 'x')", "delete from changed", "delete from emptied where id = 1", "delete from emptied returning *",
    "delete from emptied order by b limit 1", "update emptied set b = 'x'",
    # What is the administrator's.
    "update nordvale.system.user set password = 'x'", "update 'nordvale.system.user' set password = 'x'", "delete from nordvale.system.user",
    "insert into nordvale.system.user values ('eve', '', 'x')", "replace into nordvale.system.user values ('anna', '', 'x')",
    "update nordvale.system.sysinfo set \"VALUE\" = 'anna'", "insert into nordvale.system.sysinfo values ('dbo_user', 'anna')",
    "update 'nordvale.system.sysinfo' set \"VALUE\" = 'anna'", "insert into nordvale.system.tableprv values ('', '', 'secret', 'admin', "
    "'anna', 'SELECT')", "insert into 'nordvale.system.tableprv' values ('', '', 'secret', 'admin', 'anna', 'SELECT')",
    "delete from nordvale.system.table", "delete from sqlite_master", "update sqlite_schema set sql = ''", "insert into sqlite_sequence "
    "values ('x', 1)", "grant all on secret to anna", "grant select on secret to public", "revoke all on mine from public",
    "grant select on nordvale.system.user to anna", "create table new (a)", "create table if not exists new (a)", "create temp table new "
    "(a)", "create table new as select * from secret", "create view v as select 1", "create temp view v as select 1", "create trigger t "
    "after insert on mine begin delete from secret; end", "create temp trigger t after insert on mine begin select 1; end", "create index "
    "i on mine (a)", "create virtual table v using fts5 (a)", "drop table secret", "drop table mine", "drop table if exists nothing",
    "alter table mine rename to other", "alter table mine add c", "attach 'x.db' as x", "detach main", "vacuum", "vacuum into 'copy.db'",
    "pragma writable_schema = 1", "pragma main.user_version = 9", "analyze", "reindex", "begin", "begin exclusive", "commit", "rollback",
    "savepoint s", "release s", "explain select 1", "explain query plan select 1", "select 1; delete from secret", "select 1;;select 2",
    ";", "--", "/*", "/* x */", "with", "select", "(select 1)", "do", "replace", "insert into", "values",
]


def contents(database):
    connection = sqlite3.connect(database)
    dump = list(connection.iterdump())
    connection.close()
    return dump


@pytest.fixture(scope="module")
def walled(odbc_folder):
    """anna, who has all privileges on the table mine and one each on filled, changed and emptied, but none on secret."""
    with pytest.MonkeyPatch.context() as environment:
        environment.setenv("ODBCSYSINI", str(odbc_folder))
        environment.setenv("ODBCINI", "/dev/null")
        source = Source(odbc_folder)
        source.add_user("anna")
        for table in ("secret", "mine"):
            source.execute(f"create table {table} (a varchar(9), b varchar(9))", f"insert into {table} values ('x1', 'in {table}')")
        for table in ("filled", "changed", "emptied"):
            source.execute(f"create table {table} (id integer primary key, b varchar(9))", f"insert into {table} values (1, 'one')",
                           f"insert into {table} values (2, 'two')")
        source.execute("grant all on mine to anna", "grant insert on filled to anna", "grant update on changed to anna",
                       "grant delete on emptied to anna")
        connection = source.connect("anna", "pw")
        yield source, connection, contents(source.database)
        connection.close()


@pytest.mark.parametrize("statement", READING + CHANGING)
def test_a_statement_of_a_user_without_the_privilege_is_refused_and_changes_nothing(walled, statement):
    import pyodbc
    source, connection, before = walled
    with pytest.raises(pyodbc.Error) as raised:
        connection.execute(statement)
    assert raised.value.args[0] in ("42000", "42S02", "42S22")
    assert contents(source.database) == before


@pytest.mark.parametrize("statement, rows", [
    ("select mine.b from mine window, mine", [("in mine",)]), ("select * from mine\"secret\"", [("x1", "in mine")]), ("select a from mine natural join (select 'x1' as a) q", [("x1",)]),
    ("select ?1from mine", [(7,)]), ("select ?1e--'\n from mine", [(7,)]), ("with q as (select b from mine) select * from q", [("in mine",)]),
    ("select a, row_number() over w from mine window w as (order by a), v as (order by b)", [("x1", 1)]),
    ("select \ufeffb, 'in ''..secret''' from mine where '..secret' <> a", [("in mine", "in '..secret'")]),
    ("with q as (select 1) select count(*) from q", [(1,)]),
    ("select [window].\"b\"from mine[window]", [("in mine",)]), ("select \"a\"\"b\" from (select 5 as 'a\"b')", [(5,)]),
    ("select [a]\"b\" from mine", [("x1",)]), ("select a [x]from mine[y]where[y].a>''", [("x1",)]),
])
def test_a_statement_that_only_looks_like_a_trick_is_served(walled, statement, rows):
    parameters = [7] if "?" in statement else []
    assert [tuple(row) for row in walled[1].execute(statement, *parameters).fetchall()] == rows


@pytest.mark.parametrize("user, password, table", [("anna", "pw", "mine"), ("admin", "secret", "mine"),
                                                   ("admin", "secret", "nordvale.system.user")])
def test_a_table_of_sqlite_s_own_is_not_opened_beside_any_other(walled, user, password, table):
    import pyodbc
    connection = walled[0].connect(user, password)
    with pytest.raises(pyodbc.Error) as raised:
        connection.execute(f"select value from (select null as value from {table}) q natural full join json_each "
                           "where (with json_each as (select 1) select 1)")
    assert "reads a table that it does not name" in raised.value.args[1]
    connection.close()


def test_an_autoincrement_column_counts(staffed):
    staffed.execute("create table counted (id integer primary key autoincrement, b)", "grant all on counted to anna")
    staffed.execute("insert into counted (b) values (1)", "insert into counted (b) values (2)", user="anna", password="pw")
    assert staffed.rows("select max(id) from counted") == [(2,)]
