-- A trading firm's users, tables and rights, for trying the pages. Run by a new database's owner after install.sql:
--
--     psql -f sample.sql DATABASE
--
-- Each user's password is the name followed by "_pw".

\set ON_ERROR_STOP on

begin;

insert into tabwarden."user" (username, password, description) values
    ('anna', 'anna_pw', 'Anna Berger, accounts'),
    ('bernd', 'bernd_pw', 'Bernd Falk, warehouse'),
    ('carla', 'carla_pw', 'Carla Winter, sales'),
    ('david', 'david_pw', 'David Moor, sales'),
    ('elena', 'elena_pw', 'Elena Roth, head of sales'),
    ('felix', 'felix_pw', 'Felix Brandt, dispatch'),
    ('greta', 'greta_pw', 'Greta Lind, personnel'),
    ('henry', 'henry_pw', 'Henry Stone, audit'),
    ('irene', 'irene_pw', 'Irene Vogel, purchasing'),
    ('jonas', 'jonas_pw', 'Jonas Keller, trainee'),
    ('karin', 'karin_pw', 'Karin Holm, reports'),
    ('leo', 'leo_pw', 'Leo Marsh, night shift');

create schema crm;
create table crm.customer (id integer primary key, name varchar(40), city varchar(30));
insert into crm.customer values
    (1, 'Arctic Tools', 'Oslo'),
    (2, 'Blue Harbour', 'Kiel'),
    (3, 'Copper and Sons', 'Leeds');
create table crm.contact (id integer primary key, customer integer, name varchar(40), phone varchar(20));
insert into crm.contact values
    (1, 1, 'Ole Dahl', '555 0101'),
    (2, 2, 'Rita Behn', '555 0102');
create table crm.visit (id integer primary key, customer integer, day date, remark varchar(80));
insert into crm.visit values (1, 1, '2024-03-04', 'wants a new price list');
create table crm.complaint (id integer primary key, customer integer, text varchar(200));
insert into crm.complaint values (1, 3, 'two boxes were wet');

create schema orders;
create table orders.header (id integer primary key, customer integer, day date);
insert into orders.header values
    (100, 1, '2024-04-01'),
    (101, 2, '2024-04-03');
create table orders.line (header integer, position integer, article varchar(12), quantity integer,
    price double precision);
insert into orders.line values
    (100, 1, 'BOLT08', 200, 0.12),
    (100, 2, 'NUT08', 200, 0.05),
    (101, 1, 'ROPE12', 50, 1.9);
create table orders.delivery (id integer primary key, header integer, day date);
insert into orders.delivery values (1, 100, '2024-04-05');
create table orders.invoice (id integer primary key, header integer, total double precision);
insert into orders.invoice values (9001, 100, 34.0);

create schema pricing;
create table pricing.list (article varchar(12), price double precision);
insert into pricing.list values
    ('BOLT08', 0.12),
    ('NUT08', 0.05),
    ('ROPE12', 1.9);
create table pricing.discount (customer integer, percent double precision);
insert into pricing.discount values (1, 2.5);

create schema stock;
create table stock.article (article varchar(12) primary key, text varchar(60), unit varchar(8));
insert into stock.article values
    ('BOLT08', 'Bolt M8, galvanised', 'piece'),
    ('NUT08', 'Nut M8, galvanised', 'piece'),
    ('ROPE12', 'Rope 12 mm', 'metre');
create table stock.location (id integer primary key, hall varchar(10), shelf integer);
insert into stock.location values
    (1, 'north', 4),
    (2, 'south', 11);
create table stock.quantity (article varchar(12), location integer, quantity integer);
insert into stock.quantity values
    ('BOLT08', 1, 4200),
    ('ROPE12', 2, 380);
create table stock.movement (id integer primary key, article varchar(12), change integer, day date);
insert into stock.movement values (1, 'BOLT08', -200, '2024-04-05');

create schema purchase;
create table purchase.supplier (id integer primary key, name varchar(40));
insert into purchase.supplier values
    (1, 'Northern Steel'),
    (2, 'Ropeworks');
create table purchase."order" (id integer primary key, supplier integer, day date);
insert into purchase."order" values (1, 1, '2024-02-20');
create table purchase.receipt (id integer primary key, order_id integer, day date);
insert into purchase.receipt values (1, 1, '2024-03-01');

create schema personnel;
create table personnel.employee (id integer primary key, name varchar(40), since date);
insert into personnel.employee values
    (1, 'Anna Berger', '2011-05-01'),
    (2, 'Bernd Falk', '2016-09-15'),
    (3, 'Carla Winter', '2019-01-07');
create table personnel.department (id integer primary key, name varchar(30));
insert into personnel.department values
    (1, 'Accounts'),
    (2, 'Warehouse'),
    (3, 'Sales');
create table personnel.absence (employee integer, first date, last date);
insert into personnel.absence values (2, '2024-07-01', '2024-07-14');

create schema payroll;
create table payroll.salary (employee integer primary key, monthly double precision);
insert into payroll.salary values
    (1, 4100.0),
    (2, 3300.0),
    (3, 3650.0);
create table payroll.bonus (employee integer, year integer, amount double precision);
insert into payroll.bonus values (3, 2023, 500.0);

create schema reports;
create table reports.turnover (year integer, month integer, amount double precision);
insert into reports.turnover values
    (2024, 1, 18250.4),
    (2024, 2, 17003.9);
create table reports.backlog (day date, orders integer);
insert into reports.backlog values ('2024-04-30', 12);
create table reports.stock_value (day date, amount double precision);
insert into reports.stock_value values ('2024-03-31', 90211.75);

create schema audit;
create table audit.event (id integer primary key, day date, text varchar(80));
insert into audit.event values (1, '2024-01-02', 'inventory signed');

create table country (code char(2) primary key, name varchar(40));
insert into country values
    ('DE', 'Germany'),
    ('NO', 'Norway'),
    ('GB', 'United Kingdom');
create table currency (code char(3) primary key, name varchar(40));
insert into currency values
    ('EUR', 'Euro'),
    ('NOK', 'Norwegian krone'),
    ('GBP', 'Pound sterling');
create table holiday (day date, name varchar(40));
insert into holiday values ('2024-12-25', 'Christmas Day');
create table notice (id integer primary key, text varchar(200));
insert into notice values (1, 'Stocktaking on the last Friday of the month');

create schema archive;
create table archive.orders_2019 (id integer primary key, customer integer, total double precision);
insert into archive.orders_2019 values (1, 1, 810.0);
create table archive.orders_2020 (id integer primary key, customer integer, total double precision);
insert into archive.orders_2020 values (1, 2, 1240.5);

grant usage on schema pricing, crm to public;
grant select on country, currency, holiday, notice, pricing.list to public;
grant insert on crm.complaint to public;

grant usage on schema orders, payroll to anna;
grant select on orders.header, orders.line, orders.delivery, payroll.salary, payroll.bonus to anna;
grant select, insert, update, delete on orders.invoice to anna;

grant usage on schema stock, purchase to bernd;
grant select, insert, update, delete on stock.article, stock.location, stock.quantity, stock.movement to bernd;
grant select on purchase.supplier, purchase."order", purchase.receipt to bernd;

grant usage on schema crm, orders to carla;
grant select, insert, update on crm.customer to carla;
grant select, insert on crm.contact, crm.complaint, orders.header, orders.line to carla;
grant select, insert, update, delete on crm.visit to carla;
grant select on orders.delivery, orders.invoice to carla;

grant usage on schema crm, orders to david;
grant select, insert, update on crm.customer to david;
grant select, insert on crm.contact, crm.complaint to david;
grant select, insert, update, delete on crm.visit to david;
grant select on orders.header, orders.line, orders.delivery, orders.invoice to david;

grant usage on schema crm, orders, pricing, reports to elena;
grant select, insert, update, delete on crm.customer, crm.contact, crm.visit, crm.complaint, orders.header, orders.line,
    orders.delivery, orders.invoice, pricing.list, pricing.discount to elena;
grant select on reports.turnover, reports.backlog, reports.stock_value to elena;

grant usage on schema orders, stock to felix;
grant select on orders.header, orders.line, orders.invoice to felix;
grant select, insert, update, delete on orders.delivery to felix;
grant update on stock.quantity to felix;
grant insert on stock.movement to felix;

grant usage on schema personnel, payroll to greta;
grant select, insert, update, delete on personnel.employee, personnel.department, personnel.absence, payroll.salary,
    payroll.bonus to greta;

grant usage on schema crm, orders, pricing, stock, purchase, personnel, payroll, reports, archive, audit to henry;
grant select on crm.customer, crm.contact, crm.visit, crm.complaint, orders.header, orders.line, orders.delivery,
    orders.invoice, pricing.list, pricing.discount, stock.article, stock.location, stock.quantity, stock.movement,
    purchase.supplier, purchase."order", purchase.receipt, personnel.employee, personnel.department, personnel.absence,
    payroll.salary, payroll.bonus, reports.turnover, reports.backlog, reports.stock_value, country, currency, holiday,
    notice, archive.orders_2019, archive.orders_2020 to henry;
grant select, insert on audit.event to henry;

grant usage on schema purchase, stock to irene;
grant select, insert, update, delete on purchase.supplier, purchase."order", purchase.receipt to irene;
grant select on stock.article, stock.location, stock.quantity, stock.movement to irene;

grant usage on schema stock to jonas;
grant select on stock.article to jonas;

grant usage on schema reports, archive to karin;
grant select, insert, delete on reports.turnover, reports.backlog, reports.stock_value to karin;
grant select on archive.orders_2019, archive.orders_2020 to karin;

grant usage on schema stock to leo;
grant insert on stock.movement to leo;
grant update on stock.quantity to leo;
grant delete on notice to leo;

commit;
