#include "registry.h"

#include "authorisation.h"
#include "database.h"

bool find_table(OwnStatements &own, const TableName &name, TableName &registered)
{
    Query query(own, "select catalog, schema, \"table\" from \"nordvale.system.table\" "
                          "where catalog = ? and schema = ? and \"table\" = ?");
    bind(query, {name.catalog, name.schema, name.table});
    if (!step(query))
        return false;
    registered = {text_column(query, 0), text_column(query, 1), text_column(query, 2)};
    return true;
}

bool register_table(OwnStatements &own, const TableName &name)
{
    return run(own, "insert into \"nordvale.system.table\" values (?, ?, ?)",
               {name.catalog, name.schema, name.table});
}

bool unregister_table(OwnStatements &own, const TableName &name)
{
    return run(own, "delete from \"nordvale.system.tableprv\" where catalog = ? and schema = ? and \"table\" = ?",
               {name.catalog, name.schema, name.table}) &&
           run(own, "delete from \"nordvale.system.table\" where catalog = ? and schema = ? and \"table\" = ?",
               {name.catalog, name.schema, name.table});
}

bool find_user(OwnStatements &own, const std::string &name, std::string &spelled)
{
    for (const char *sql : {"select username from \"nordvale.system.user\" where username = ?",
                            "select username from \"nordvale.system.user\" "
                            "where username = ? collate nocase and username <> 'public'"}) {
        Query query(own, sql);
        bind(query, {name});
        if (!step(query))
            continue;
        spelled = text_column(query, 0);
        return true;
    }
    return false;
}

bool grant_privileges(OwnStatements &own, const TableName &table, unsigned privileges, const std::string &grantor,
                      const std::string &grantee)
{
    for (unsigned privilege = privilege_select; privilege <= privilege_delete; privilege <<= 1) {
        if ((privileges & privilege) != 0 &&
            !run(own, "insert or ignore into \"nordvale.system.tableprv\" values (?, ?, ?, ?, ?, ?)",
                 {table.catalog, table.schema, table.table, grantor, grantee, recorded_privilege(privilege)}))
            return false;
    }
    return true;
}

bool revoke_privileges(OwnStatements &own, const TableName &table, unsigned privileges, const std::string &grantee)
{
    std::string spelled;
    bool known = grantee == "public" || find_user(own, grantee, spelled);
    std::string sql = "delete from \"nordvale.system.tableprv\" where catalog = ? and schema = ? and \"table\" = ? "
                      "and privilege = ? and ";
    sql += known ? "grantee = ?" : "grantee = ? collate nocase and grantee <> 'public'";
    for (unsigned privilege = privilege_select; privilege <= privilege_delete; privilege <<= 1) {
        if ((privileges & privilege) != 0 &&
            !run(own, sql, {table.catalog, table.schema, table.table, recorded_privilege(privilege),
                                 spelled.empty() ? grantee : spelled}))
            return false;
    }
    return true;
}
