insert into nordvale.system.user (username, password, description) values ('anna', 'anna_pw', 'Anna Berger, accounts')
insert into nordvale.system.user (username, password, description) values ('bernd', 'bernd_pw', 'Bernd Falk, warehouse')
insert into nordvale.system.user (username, password, description) values ('carla', 'carla_pw', 'Carla Winter, sales')
insert into nordvale.system.user (username, password, description) values ('david', 'david_pw', 'David Moor, sales')
insert into nordvale.system.user (username, password, description) values ('elena', 'elena_pw', 'Elena Roth, head of sales')
insert into nordvale.system.user (username, password, description) values ('felix', 'felix_pw', 'Felix Brandt, dispatch')
insert into nordvale.system.user (username, password, description) values ('greta', 'greta_pw', 'Greta Lind, personnel')
insert into nordvale.system.user (username, password, description) values ('henry', 'henry_pw', 'Henry Stone, audit')
insert into nordvale.system.user (username, password, description) values ('irene', 'irene_pw', 'Irene Vogel, purchasing')
insert into nordvale.system.user (username, password, description) values ('jonas', 'jonas_pw', 'Jonas Keller, trainee')
insert into nordvale.system.user (username, password, description) values ('karin', 'karin_pw', 'Karin Holm, reports')
insert into nordvale.system.user (username, password, description) values ('leo', 'leo_pw', 'Leo Marsh, night shift')
create table sales.crm.customer (id integer primary key, name varchar(40), city varchar(30))
insert into sales.crm.customer values (1, 'Arctic Tools', 'Oslo')
insert into sales.crm.customer values (2, 'Blue Harbour', 'Kiel')
insert into sales.crm.customer values (3, 'Copper and Sons', 'Leeds')
create table sales.crm.contact (id integer primary key, customer integer, name varchar(40), phone varchar(20))
insert into sales.crm.contact values (1, 1, 'Ole Dahl', '555 0101')
insert into sales.crm.contact values (2, 2, 'Rita Behn', '555 0102')
create table sales.crm.visit (id integer primary key, customer integer, day date, remark varchar(80))
insert into sales.crm.visit values (1, 1, '2024-03-04', 'wants a new price list')
create table sales.crm.complaint (id integer primary key, customer integer, text varchar(200))
insert into sales.crm.complaint values (1, 3, 'two boxes were wet')
create table sales.orders.header (id integer primary key, customer integer, day date)
insert into sales.orders.header values (100, 1, '2024-04-01')
insert into sales.orders.header values (101, 2, '2024-04-03')
create table sales.orders.line (header integer, position integer, article varchar(12), quantity integer, price double)
insert into sales.orders.line values (100, 1, 'BOLT08', 200, 0.12)
insert into sales.orders.line values (100, 2, 'NUT08', 200, 0.05)
insert into sales.orders.line values (101, 1, 'ROPE12', 50, 1.9)
create table sales.orders.delivery (id integer primary key, header integer, day date)
insert into sales.orders.delivery values (1, 100, '2024-04-05')
create table sales.orders.invoice (id integer primary key, header integer, total double)
insert into sales.orders.invoice values (9001, 100, 34.0)
create table sales.pricing.list (article varchar(12), price double)
insert into sales.pricing.list values ('BOLT08', 0.12)
insert into sales.pricing.list values ('NUT08', 0.05)
insert into sales.pricing.list values ('ROPE12', 1.9)
create table sales.pricing.discount (customer integer, percent double)
insert into sales.pricing.discount values (1, 2.5)
create table stock.main.article (article varchar(12) primary key, text varchar(60), unit varchar(8))
insert into stock.main.article values ('BOLT08', 'Bolt M8, galvanised', 'piece')
insert into stock.main.article values ('NUT08', 'Nut M8, galvanised', 'piece')
insert into stock.main.article values ('ROPE12', 'Rope 12 mm', 'metre')
create table stock.main.location (id integer primary key, hall varchar(10), shelf integer)
insert into stock.main.location values (1, 'north', 4)
insert into stock.main.location values (2, 'south', 11)
create table stock.main.quantity (article varchar(12), location integer, quantity integer)
insert into stock.main.quantity values ('BOLT08', 1, 4200)
insert into stock.main.quantity values ('ROPE12', 2, 380)
create table stock.main.movement (id integer primary key, article varchar(12), change integer, day date)
insert into stock.main.movement values (1, 'BOLT08', -200, '2024-04-05')
create table stock.purchase.supplier (id integer primary key, name varchar(40))
insert into stock.purchase.supplier values (1, 'Northern Steel')
insert into stock.purchase.supplier values (2, 'Ropeworks')
create table stock.purchase.order (id integer primary key, supplier integer, day date)
insert into stock.purchase.order values (1, 1, '2024-02-20')
create table stock.purchase.receipt (id integer primary key, order_id integer, day date)
insert into stock.purchase.receipt values (1, 1, '2024-03-01')
create table staff.personnel.employee (id integer primary key, name varchar(40), since date)
insert into staff.personnel.employee values (1, 'Anna Berger', '2011-05-01')
insert into staff.personnel.employee values (2, 'Bernd Falk', '2016-09-15')
insert into staff.personnel.employee values (3, 'Carla Winter', '2019-01-07')
create table staff.personnel.department (id integer primary key, name varchar(30))
insert into staff.personnel.department values (1, 'Accounts')
insert into staff.personnel.department values (2, 'Warehouse')
insert into staff.personnel.department values (3, 'Sales')
create table staff.personnel.absence (employee integer, first date, last date)
insert into staff.personnel.absence values (2, '2024-07-01', '2024-07-14')
create table staff.payroll.salary (employee integer primary key, monthly double)
insert into staff.payroll.salary values (1, 4100.0)
insert into staff.payroll.salary values (2, 3300.0)
insert into staff.payroll.salary values (3, 3650.0)
create table staff.payroll.bonus (employee integer, year integer, amount double)
insert into staff.payroll.bonus values (3, 2023, 500.0)
create table reports.turnover (year integer, month integer, amount double)
insert into reports.turnover values (2024, 1, 18250.4)
insert into reports.turnover values (2024, 2, 17003.9)
create table reports.backlog (day date, orders integer)
insert into reports.backlog values ('2024-04-30', 12)
create table reports.stock_value (day date, amount double)
insert into reports.stock_value values ('2024-03-31', 90211.75)
create table audit.event (id integer primary key, day date, text varchar(80))
insert into audit.event values (1, '2024-01-02', 'inventory signed')
create table country (code char(2) primary key, name varchar(40))
insert into country values ('DE', 'Germany')
insert into country values ('NO', 'Norway')
insert into country values ('GB', 'United Kingdom')
create table currency (code char(3) primary key, name varchar(40))
insert into currency values ('EUR', 'Euro')
insert into currency values ('NOK', 'Norwegian krone')
insert into currency values ('GBP', 'Pound sterling')
create table holiday (day date, name varchar(40))
insert into holiday values ('2024-12-25', 'Christmas Day')
create table notice (id integer primary key, text varchar(200))
insert into notice values (1, 'Stocktaking on the last Friday of the month')
create table "archive".""."orders_2019" (id integer primary key, customer integer, total double)
insert into "archive".""."orders_2019" values (1, 1, 810.0)
create table "archive".""."orders_2020" (id integer primary key, customer integer, total double)
insert into "archive".""."orders_2020" values (1, 2, 1240.5)
grant select on country to public
grant select on currency to public
grant select on holiday to public
grant select on notice to public
grant select on sales.pricing.list to public
grant insert on sales.crm.complaint to public
grant select on sales.orders.header to anna
grant select on sales.orders.line to anna
grant select on sales.orders.delivery to anna
grant select on sales.orders.invoice to anna
grant all on sales.orders.invoice to anna
grant select on staff.payroll.salary to anna
grant select on staff.payroll.bonus to anna
grant all on stock.main.article to bernd
grant all on stock.main.location to bernd
grant all on stock.main.quantity to bernd
grant all on stock.main.movement to bernd
grant select on stock.purchase.supplier to bernd
grant select on stock.purchase.order to bernd
grant select on stock.purchase.receipt to bernd
grant select on sales.crm.customer to carla
grant select on sales.crm.contact to carla
grant select on sales.crm.visit to carla
grant select on sales.crm.complaint to carla
grant insert on sales.crm.customer to carla
grant insert on sales.crm.contact to carla
grant insert on sales.crm.visit to carla
grant insert on sales.crm.complaint to carla
grant update on sales.crm.customer to carla
grant all on sales.crm.visit to carla
grant select on sales.orders.header to carla
grant select on sales.orders.line to carla
grant select on sales.orders.delivery to carla
grant select on sales.orders.invoice to carla
grant select on sales.crm.customer to david
grant select on sales.crm.contact to david
grant select on sales.crm.visit to david
grant select on sales.crm.complaint to david
grant insert on sales.crm.customer to david
grant insert on sales.crm.contact to david
grant insert on sales.crm.visit to david
grant insert on sales.crm.complaint to david
grant update on sales.crm.customer to david
grant all on sales.crm.visit to david
grant select on sales.orders.header to david
grant select on sales.orders.line to david
grant select on sales.orders.delivery to david
grant select on sales.orders.invoice to david
grant insert on sales.orders.header to carla
grant insert on sales.orders.line to carla
grant all on sales.crm.customer to elena
grant all on sales.crm.contact to elena
grant all on sales.crm.visit to elena
grant all on sales.crm.complaint to elena
grant all on sales.orders.header to elena
grant all on sales.orders.line to elena
grant all on sales.orders.delivery to elena
grant all on sales.orders.invoice to elena
grant all on sales.pricing.list to elena
grant all on sales.pricing.discount to elena
grant select on reports.turnover to elena
grant select on reports.backlog to elena
grant select on reports.stock_value to elena
grant select on sales.orders.header to felix
grant select on sales.orders.line to felix
grant select on sales.orders.delivery to felix
grant select on sales.orders.invoice to felix
grant all on sales.orders.delivery to felix
grant update on stock.main.quantity to felix
grant insert on stock.main.movement to felix
grant all on staff.personnel.employee to greta
grant all on staff.personnel.department to greta
grant all on staff.personnel.absence to greta
grant all on staff.payroll.salary to greta
grant all on staff.payroll.bonus to greta
grant select on sales.crm.customer to henry
grant select on sales.crm.contact to henry
grant select on sales.crm.visit to henry
grant select on sales.crm.complaint to henry
grant select on sales.orders.header to henry
grant select on sales.orders.line to henry
grant select on sales.orders.delivery to henry
grant select on sales.orders.invoice to henry
grant select on sales.pricing.list to henry
grant select on sales.pricing.discount to henry
grant select on stock.main.article to henry
grant select on stock.main.location to henry
grant select on stock.main.quantity to henry
grant select on stock.main.movement to henry
grant select on stock.purchase.supplier to henry
grant select on stock.purchase.order to henry
grant select on stock.purchase.receipt to henry
grant select on staff.personnel.employee to henry
grant select on staff.personnel.department to henry
grant select on staff.personnel.absence to henry
grant select on staff.payroll.salary to henry
grant select on staff.payroll.bonus to henry
grant select on reports.turnover to henry
grant select on reports.backlog to henry
grant select on reports.stock_value to henry
grant select on audit.event to henry
grant select on country to henry
grant select on currency to henry
grant select on holiday to henry
grant select on notice to henry
grant select on "archive".""."orders_2019" to henry
grant select on "archive".""."orders_2020" to henry
grant insert on audit.event to henry
grant all on stock.purchase.supplier to irene
grant all on stock.purchase.order to irene
grant all on stock.purchase.receipt to irene
grant select on stock.main.article to irene
grant select on stock.main.location to irene
grant select on stock.main.quantity to irene
grant select on stock.main.movement to irene
grant select on stock.main.article to jonas
grant select on reports.turnover to karin
grant select on reports.backlog to karin
grant select on reports.stock_value to karin
grant insert on reports.turnover to karin
grant insert on reports.backlog to karin
grant insert on reports.stock_value to karin
grant delete on reports.turnover to karin
grant delete on reports.backlog to karin
grant delete on reports.stock_value to karin
grant select on "archive".""."orders_2019" to karin
grant select on "archive".""."orders_2020" to karin
grant insert on stock.main.movement to leo
grant update on stock.main.quantity to leo
grant delete on notice to leo
