"""The SQL texts that the pages send, typed here once more on purpose."""

from support import pages

ADMINISTRATOR_NAME = "select \"VALUE\" from nordvale.system.sysinfo where attribute = 'dbo_user';"

# In the table's own order for the page, in name order where a form is applied.
LISTED_USERS = "select username, description, password from nordvale.system.user;"
SORTED_USERS = "select username, description, password from nordvale.system.user order by 1;"

OFFERED_USERS = "select username from nordvale.system.user order by 1;"

# The user goes where "%s" stands.
PRIVILEGES_HELD = (
    "select a.catalog, a.schema, a.table, b.grantor, b.grantee, b.privilege, c.privilege, d.privilege, e.privilege"
    "   from nordvale.system.table a"
    "     left outer join nordvale.system.tableprv b on a.catalog = b.catalog and a.schema = b.schema and"
    "       a.table = b.table and b.privilege = 'SELECT' and b.grantee = '%s'"
    "    left outer join nordvale.system.tableprv c on a.catalog = c.catalog and a.schema = c.schema and"
    "       a.table = c.table and c.privilege = 'INSERT' and c.grantee = '%s'"
    "    left outer join nordvale.system.tableprv d on a.catalog = d.catalog and a.schema = d.schema and"
    "       a.table = d.table and d.privilege = 'UPDATE' and d.grantee = '%s'"
    "    left outer join nordvale.system.tableprv e on a.catalog = e.catalog and a.schema = e.schema and"
    "       a.table = e.table and e.privilege = 'DELETE' and e.grantee = '%s'"
)


def update(name, description, password):
    return (
        f"update nordvale.system.user set password='{password}', description='{description}' where username='{name}';"
    )


def insert(name, description, password):
    columns = "(username, password, description)"
    return f"insert into nordvale.system.user {columns} values ('{name}','{password}','{description}');"


def delete(name):
    return f"delete from nordvale.system.user where username = '{name}'"


def all_at_once(verb, grantee, tables=pages.TABLES):
    """`grantee` with its preposition."""
    return [f"{verb} all on {pages.quoted_name(table)} {grantee}" for table in tables]


def singly(table, ticked=(), to='to "mary"', from_='from "mary"'):
    """The four statements of one table of a submitted list."""
    return [
        f"grant {privilege} on {pages.quoted_name(table)} {to}"
        if privilege in ticked
        else f"revoke {privilege} on {pages.quoted_name(table)} {from_}"
        for privilege in pages.PRIVILEGES
    ]
