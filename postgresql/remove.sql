-- Takes away what install.sql has added, and nothing else: users, their comments and everything granted stay. Run by the
-- database's owner. Whatever somebody else has put into the schema tabwarden stops it.

\set ON_ERROR_STOP on
begin;
set local search_path = pg_catalog, pg_temp;

drop procedure tabwarden.change_privilege, tabwarden.open_way;
drop function tabwarden.held, tabwarden.relation_of, tabwarden.grantee_oid;
drop view tabwarden."user", tabwarden.sysinfo, tabwarden.tableprv, tabwarden."table";
drop function tabwarden.insert_user, tabwarden.update_user, tabwarden.delete_user;
drop procedure tabwarden.revoke_everything, tabwarden.expect_same_everywhere;
drop function tabwarden.tables;
drop view tabwarden.managed_role, tabwarden.relation;
drop table tabwarden.turn;
drop schema tabwarden;

commit;
