#include "schema.h"

#include "database.h"

#include <sqlite3.h>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

// application_id tells our files from other SQLite files; user_version counts changes of these tables.
//
// A user's name is unique without regard to case, as log-in compares it; only the name of everybody, "public", leaves
// room for an ordinary user "Public". Catalog, schema and table have the collation of SQLite's own names. The tables
// without rowid are kept in the order of their keys, so lists of tables come by name without sorting, and each of the
// four privileges of a table is one look-up. With "in" instead of "or", each insert would fill a temporary table first.
constexpr const char *schema = R"(
pragma application_id = 1413632846;
pragma user_version = 1;

create table "nordvale.system.user" (
    username varchar(128) not null unique check (username <> ''),
    description varchar(128),
    password varchar(128));

create unique index "nordvale.system.user.folded" on "nordvale.system.user" (username collate nocase)
    where username <> 'public';

create table "nordvale.system.table" (
    "catalog" varchar(128) not null collate nocase,
    "schema" varchar(128) not null collate nocase,
    "table" varchar(128) not null collate nocase,
    primary key ("catalog", "schema", "table")) without rowid;

create table "nordvale.system.tableprv" (
    "catalog" varchar(128) not null collate nocase,
    "schema" varchar(128) not null collate nocase,
    "table" varchar(128) not null collate nocase,
    grantor varchar(128) not null,
    grantee varchar(128) not null,
    privilege varchar(6) not null check (privilege = 'SELECT' or privilege = 'INSERT' or privilege = 'UPDATE' or
                                         privilege = 'DELETE'),
    primary key ("catalog", "schema", "table", grantee, privilege)) without rowid;

create table "nordvale.system.sysinfo" (
    attribute varchar(128) not null primary key,
    "VALUE" varchar(128)) without rowid;

create trigger "nordvale.system.user.keep_administrator" before delete on "nordvale.system.user"
    when old.username = (select "VALUE" from "nordvale.system.sysinfo" where attribute = 'dbo_user')
    begin select raise(abort, 'The administrator cannot be deleted'); end;

create trigger "nordvale.system.user.keep_name" before update of username on "nordvale.system.user"
    when old.username <> new.username and
         old.username = (select "VALUE" from "nordvale.system.sysinfo" where attribute = 'dbo_user')
    begin select raise(abort, 'The administrator cannot be renamed'); end;
)";

constexpr int application_id = 1413632846;
constexpr int schema_version = 1;

static int number_of(sqlite3 *database, const char *pragma)
{
    Query query(database, pragma);
    return step(query) ? sqlite3_column_int(query.prepared, 0) : -1;
}

bool is_our_database(sqlite3 *database)
{
    return number_of(database, "pragma application_id") == application_id &&
           number_of(database, "pragma user_version") == schema_version;
}

static bool fill(sqlite3 *database, std::string_view administrator, std::string_view password)
{
    return sqlite3_exec(database, "pragma journal_mode = wal; begin immediate", nullptr, nullptr, nullptr) ==
               SQLITE_OK &&
           sqlite3_exec(database, schema, nullptr, nullptr, nullptr) == SQLITE_OK &&
           run(database, "insert into \"nordvale.system.user\" values (?, 'Administrator', ?)",
               {administrator, password}) &&
           run(database, "insert into \"nordvale.system.user\" values ('public', 'Everybody', null)") &&
           run(database, "insert into \"nordvale.system.sysinfo\" values ('dbo_user', ?)", {administrator}) &&
           run(database, "commit");
}

int create_database(const std::string &path, std::string_view administrator, std::string_view password,
                    std::string &problem)
{
    if (administrator.empty() || administrator == "public") {
        problem = "The administrator needs a name other than \"public\"";
        return -1;
    }
    // SQLite would open an existing file; O_EXCL also settles who wins when two create it at once.
    int descriptor = open(path.c_str(), O_CREAT | O_EXCL | O_RDWR | O_CLOEXEC, 0600);
    if (descriptor < 0) {
        problem = path + ": " + std::strerror(errno);
        return -1;
    }
    close(descriptor);

    sqlite3 *database = nullptr;
    bool filled = sqlite3_open_v2(path.c_str(), &database, SQLITE_OPEN_READWRITE, nullptr) == SQLITE_OK &&
                  fill(database, administrator, password);
    if (!filled)
        problem = path + ": " + sqlite3_errmsg(database);
    sqlite3_close(database);
    // SQLite keeps what it could not write back in files of its own, and the password may be in there.
    for (const char *suffix : {"", "-wal", "-shm"})
        if (!filled)
            unlink((path + suffix).c_str());
    return filled ? 0 : -1;
}
