-- Gives a PostgreSQL database the system tables that tabwarden reads and changes, as views over PostgreSQL's own catalog
-- in the schema tabwarden. Run once by the database's owner:
--
--     psql -f install.sql DATABASE
--
-- Everything here runs with the rights of who calls it, so the schema gives nobody a right that PostgreSQL would not
-- give. remove.sql takes all of it away again.

\set ON_ERROR_STOP on
begin;

-- What somebody has put into another schema must not be taken for PostgreSQL's own.
set local search_path = pg_catalog, pg_temp;

do $$
declare
    administrator text := pg_get_userbyid(datdba) from pg_database where datname = current_database();
begin
    if current_user <> administrator then
        raise exception 'install.sql is run by the owner of the database, %', quote_ident(administrator);
    end if;
end
$$;

create schema tabwarden;

-- Who changes something first locks this table, because two changes of one role, or of the rights on one object, fail in
-- PostgreSQL when they are made at once. It is nobody else's to lock, as an advisory lock would be.
create table tabwarden.turn ();

-- Every table and view of the users, the owner's own rights written out.
create view tabwarden.relation (oid, schema, name, kind, owner, acl) as
select c.oid, n.nspname, c.relname, case when c.relkind in ('v', 'm') then 'VIEW' else 'TABLE' end, c.relowner,
       coalesce(c.relacl, acldefault('r', c.relowner))
from pg_class c join pg_namespace n on n.oid = c.relnamespace
where c.relkind in ('r', 'p', 'f', 'v', 'm')
  and n.nspname !~ '^pg_' and n.nspname not in ('information_schema', 'tabwarden');

-- The same in the order of their names. The number of rows is told to the planner in place of a guess: with a small one
-- the list of rights is joined row by row, which takes minutes where there are many tables, or comes in no order.
create function tabwarden.tables()
returns table (schema name, name name, kind text, acl aclitem[])
language sql stable rows 50000 set search_path = pg_catalog, pg_temp
as $$ select r.schema, r.name, r.kind, r.acl from tabwarden.relation r order by r.schema, r.name $$;

create view tabwarden."table" (catalog, schema, "table") as
select current_database()::text, schema, name from tabwarden.tables();

-- Of several grantors the first is named: a list has one row for each table.
create view tabwarden.tableprv (catalog, schema, "table", grantor, grantee, privilege) as
select current_database()::text, t.schema, t.name, min(pg_get_userbyid(a.grantor)::text),
       case a.grantee when 0 then 'public' else pg_get_userbyid(a.grantee)::text end, a.privilege_type
from tabwarden.tables() t cross join aclexplode(t.acl) a
group by t.schema, t.name, 5, a.privilege_type;

create view tabwarden.sysinfo (attribute, "VALUE") as
select 'dbo_user', pg_get_userbyid(datdba)::text from pg_database where datname = current_database();

-- The roles that the pages may change: those that log in, but neither PostgreSQL's own, nor any that can do more than an
-- ordinary one, be it as a member of another. A single quote in a name would end the text that the pages put the name into.
create view tabwarden.managed_role (oid, name, is_administrator) as
select r.oid, r.rolname, r.oid = d.datdba
from pg_roles r cross join pg_database d
where d.datname = current_database()
  and r.rolcanlogin
  and strpos(r.rolname::text, '''') = 0
  and (r.oid = d.datdba
       or r.oid >= 16384
          and not exists (
              with recursive member_of (oid) as (
                  select r.oid
                  union
                  select m.roleid from member_of join pg_auth_members m on m.member = member_of.oid
              )
              select from member_of
              where (select p.rolsuper or p.rolcreaterole or p.rolreplication or p.rolbypassrls or p.oid = d.datdba
                     from pg_roles p where p.oid = member_of.oid)));

create view tabwarden."user" (username, description, password) as
select name::text collate "C", coalesce(shobj_description(oid, 'pg_authid'), ''), ''
from tabwarden.managed_role
union all select 'public', 'Everybody', ''
order by 1;

-- Names and password hashes are kept as bytes, for all databases of the server. In one that is not UTF8, letters beyond
-- ASCII would become others to who logs in.
create procedure tabwarden.expect_same_everywhere(value text)
language plpgsql set search_path = pg_catalog, pg_temp
as $$
begin
    if convert_to(value, 'UTF8') <> convert_to(value, getdatabaseencoding()) then
        raise untranslatable_character using message = 'names and passwords are ASCII in a database that is not UTF8';
    end if;
end
$$;

create function tabwarden.insert_user() returns trigger
language plpgsql set search_path = pg_catalog, pg_temp set lock_timeout = '10s'
as $$
begin
    -- PostgreSQL would cut the name, and a role whose name has a single quote would not be listed.
    if octet_length(new.username) > 63 or strpos(new.username, '''') > 0 then
        raise invalid_name using message = 'a user name has at most 63 bytes and no single quote';
    end if;
    call tabwarden.expect_same_everywhere(new.username || new.password);
    execute format('create role %I login', new.username);
    if new.password <> '' then
        execute format('alter role %I password %L', new.username, new.password);
    end if;
    if new.description <> '' then
        execute format('comment on role %I is %L', new.username, new.description);
    end if;
    return new;
end
$$;

create function tabwarden.update_user() returns trigger
language plpgsql set search_path = pg_catalog, pg_temp set lock_timeout = '10s'
as $$
begin
    if new.username is distinct from old.username then
        raise feature_not_supported using message = 'users are not renamed here';
    end if;
    call tabwarden.expect_same_everywhere(new.password);
    lock table tabwarden.turn in exclusive mode;
    if new.password <> '' then
        execute format('alter role %I password %L', old.username, new.password);
    end if;
    if new.description is distinct from old.description then
        execute format('comment on role %I is %L', old.username, new.description);
    end if;
    return new;
end
$$;

-- Takes back from a role what the pages can have granted in this database, as far as the administrator can.
create procedure tabwarden.revoke_everything(role_name text)
language plpgsql set search_path = pg_catalog, pg_temp
as $$
declare
    role_oid oid := to_regrole(quote_ident(role_name));
    object record;
begin
    for object in
        select format('%s on %I.%I', a.privilege_type, r.schema, r.name) as what
        from tabwarden.relation r, aclexplode(r.acl) a
        where a.grantee = role_oid and r.owner <> role_oid and pg_has_role(a.grantor, 'usage')
        union
        select format('usage on schema %I', n.nspname)
        from pg_namespace n, aclexplode(n.nspacl) a
        where a.grantee = role_oid and n.nspowner <> role_oid and pg_has_role(a.grantor, 'usage')
        union
        select format('connect on database %I', d.datname)
        from pg_database d, aclexplode(d.datacl) a
        where a.grantee = role_oid and d.datname = current_database()
    loop
        begin
            execute format('revoke %s from %I', object.what, role_name);
        exception when dependent_objects_still_exist then
            -- Somebody else has it from the role.
            null;
        end;
    end loop;
end
$$;

create function tabwarden.delete_user() returns trigger
language plpgsql set search_path = pg_catalog, pg_temp set lock_timeout = '10s'
as $$
begin
    if exists (select from tabwarden.managed_role where name = old.username and is_administrator) then
        raise insufficient_privilege using message = 'the owner of the database is not deleted here';
    end if;
    lock table tabwarden.turn in exclusive mode;
    execute format('alter role %I nologin', old.username);
    call tabwarden.revoke_everything(old.username);
    begin
        execute format('drop role %I', old.username);
    exception when dependent_objects_still_exist then
        -- What the role owns or may do elsewhere is not ours to take. Without its log-in it is listed no more.
        null;
    end;
    return old;
end
$$;

create trigger insert_user instead of insert on tabwarden."user" for each row execute function tabwarden.insert_user();
create trigger update_user instead of update on tabwarden."user" for each row execute function tabwarden.update_user();
create trigger delete_user instead of delete on tabwarden."user" for each row execute function tabwarden.delete_user();

-- The role behind a grantee as SQL names it, 0 for public.
create function tabwarden.grantee_oid(grantee text) returns oid
language plpgsql stable set search_path = pg_catalog, pg_temp
as $$
declare
    role_name text := (parse_ident(grantee))[1];
    role_oid oid;
begin
    if role_name = 'public' then
        return 0;
    end if;
    -- Compared as a text: PostgreSQL would cut a name that is too long, and the cut one may be another's.
    select r.oid into role_oid from tabwarden.managed_role r where r.name = role_name;
    if role_oid is null then
        raise undefined_object using message = format('%s is none of the users that are managed here', grantee);
    end if;
    return role_oid;
end
$$;

create function tabwarden.relation_of(table_name text) returns tabwarden.relation
language plpgsql stable set search_path = pg_catalog, pg_temp
as $$
declare
    parts text[] := parse_ident(table_name);
    found_relation tabwarden.relation;
begin
    select r.* into found_relation from tabwarden.relation r where r.schema = parts[2] and r.name = parts[3];
    if found_relation is null or cardinality(parts) <> 3 or parts[1] <> current_database() then
        raise undefined_table using message = format('there is no table %s', table_name);
    end if;
    return found_relation;
end
$$;

-- The privileges that the grantee has been granted on the relation, whoever granted them.
create function tabwarden.held(relation_oid oid, grantee_oid oid) returns text[]
language sql stable set search_path = pg_catalog, pg_temp
as $$
    select coalesce(array_agg(a.privilege_type), '{}')
    from tabwarden.relation r, aclexplode(r.acl) a
    where r.oid = relation_oid and a.grantee = grantee_oid
$$;

-- A grantee can only use a table whose schema and database are open to it. Everybody's way into a database is left as
-- it is: who closed it had a reason.
create procedure tabwarden.open_way(schema_name name, role_oid oid, role_name name)
language plpgsql set search_path = pg_catalog, pg_temp
as $$
begin
    if not has_schema_privilege(role_name, schema_name, 'usage') then
        lock table tabwarden.turn in exclusive mode;
        execute format('grant usage on schema %I to %I', schema_name, role_name);
        -- PostgreSQL only warns where the administrator has no right to grant.
        if not has_schema_privilege(role_name, schema_name, 'usage') then
            raise insufficient_privilege using message = format('no right to grant usage on schema %I', schema_name);
        end if;
    end if;
    if role_oid <> 0 and not has_database_privilege(role_oid, current_database(), 'connect') then
        lock table tabwarden.turn in exclusive mode;
        execute format('grant connect on database %I to %I', current_database(), role_name);
    end if;
end
$$;

-- The grant and revoke of the pages: "grant" or "revoke", a privilege or "all", the table's name in three parts and the
-- grantee, both as SQL has them. What would change nothing leaves the catalog alone, so that a list of many tables can be
-- submitted whole.
create procedure tabwarden.change_privilege(verb text, privilege text, table_name text, grantee text)
language plpgsql set search_path = pg_catalog, pg_temp set lock_timeout = '10s'
as $$
declare
    -- All but references, truncate and trigger: who may make a trigger has code run as whoever changes the table.
    wanted text[] := case privilege when 'all' then '{SELECT,INSERT,UPDATE,DELETE}' else array[upper(privilege)] end;
    role_oid oid := tabwarden.grantee_oid(grantee);
    role_name name := case role_oid when 0 then 'public' else pg_get_userbyid(role_oid) end;
    relation tabwarden.relation := tabwarden.relation_of(table_name);
    held text[] := tabwarden.held(relation.oid, role_oid);
begin
    if verb = 'grant' then
        call tabwarden.open_way(relation.schema, role_oid, role_name);
        if held @> wanted then
            return;
        end if;
        lock table tabwarden.turn in exclusive mode;
        execute format('grant %s on %I.%I to %I', array_to_string(wanted, ', '), relation.schema, relation.name, role_name);
        -- Here, too, PostgreSQL may only have warned.
        if not tabwarden.held(relation.oid, role_oid) @> wanted then
            raise insufficient_privilege using message = format('no right to grant on %s', table_name);
        end if;
    elsif privilege = 'all' and held <> '{}' or held && wanted then
        lock table tabwarden.turn in exclusive mode;
        execute format('revoke %s on %I.%I from %I', privilege, relation.schema, relation.name, role_name);
    end if;
end
$$;

-- PostgreSQL gives functions to everybody, and whatever the owner's default privileges say to whomever they name.
do $$
declare
    grantee name;
begin
    for grantee in
        select 'public'
        union select pg_get_userbyid(a.grantee)
        from pg_default_acl d, aclexplode(d.defaclacl) a
        where pg_get_userbyid(d.defaclrole) = current_user and a.grantee <> 0 and a.grantee <> d.defaclrole
    loop
        execute format('revoke all on schema tabwarden from %I cascade', grantee);
        execute format('revoke all on all tables in schema tabwarden from %I cascade', grantee);
        execute format('revoke all on all routines in schema tabwarden from %I cascade', grantee);
    end loop;
end
$$;

commit;
