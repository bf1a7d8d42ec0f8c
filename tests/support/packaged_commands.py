"""What the documents show for a machine with the packages and systemd, in an order in which it can be run there."""

BEGINNING = """
drop_ins=/etc/systemd/system/tabwarden.service.d
log=/var/log/tabwarden/kelvohttp.log
# systemd is done before the program listens, or has opened its log.
wait_for() {
    until eval "$1" 2>/dev/null; do sleep 0.1; done
}
wait_for_port() {
    wait_for "ss -Hltn sport = $1 | grep -q ."
}
"""

# Of docs/service.md.
SERVICE = BEGINNING + """
# As in a clone, with the program installed from there.
cd "$(mktemp -d)"
install -D -t /usr/local/nordvale/isam/bin /usr/sbin/tabwarden
install -D -t packaging /lib/systemd/system/tabwarden.service /etc/tabwarden/nareproduct.ini
adduser --system --group --no-create-home --home /var/lib/tabwarden tabwarden
install /usr/local/nordvale/isam/bin/tabwarden /usr/sbin
install -m 644 packaging/tabwarden.service /etc/systemd/system
install -m 644 -D packaging/nareproduct.ini /usr/local/nordvale/bare_product/nareproduct.ini
systemctl daemon-reload

systemctl enable --now tabwarden
wait_for_port 8451
systemctl status tabwarden
journalctl -u tabwarden
{
runuser -u tabwarden -- isam_create /var/lib/tabwarden/accounts.db boss
} <<<'a secret'

mkdir -p $drop_ins /srv/databases
cat >$drop_ins/folder.conf <<'END'
[Service]
ReadWritePaths=/srv/databases
END
systemctl daemon-reload && systemctl restart tabwarden
wait_for_port 8451

cat >$drop_ins/port.conf <<'END'
[Service]
ExecStart=
ExecStart=/usr/sbin/tabwarden -p 80
AmbientCapabilities=CAP_NET_BIND_SERVICE
CapabilityBoundingSet=CAP_NET_BIND_SERVICE
PrivateUsers=no
END
systemctl daemon-reload && systemctl restart tabwarden
wait_for_port 80
rm -r $drop_ins
systemctl daemon-reload

install -m 600 -o tabwarden -g tabwarden /dev/null /var/log/tabwarden/kelvohttp.log
systemctl restart tabwarden
wait_for 'grep -q "Logging started" $log'
touch $log.1
rm /var/log/tabwarden/kelvohttp.log*
systemctl restart tabwarden
wait_for_port 8451
! ls $log*

systemctl disable --now tabwarden
! systemctl is-enabled tabwarden
"""

# Of README.md and docs/postgresql.md. The packages are in build/package.
INSTALLATION = BEGINNING + r"""
apt install ./build/package/tabwarden_*.deb
wait_for_port 8451
{
apt install ./build/package/tabwarden_*.deb ./build/package/tabwarden-postgresql_*.deb
} <<<y

systemctl start postgresql
runuser -u postgres -- psql -q -v ON_ERROR_STOP=1 <<'END'
create role accounts_admin login createrole password 'a secret';
create database accounts owner accounts_admin;
END
export PGPASSWORD='a secret'
psql -h 127.0.0.1 -U accounts_admin -f /usr/share/tabwarden/postgresql/install.sql accounts
printf '[accounts]\nDriver=Tabrin\nServername=127.0.0.1\nPort=5432\nDatabase=accounts\n' | odbcinst -i -s -l -r
psql -q -h 127.0.0.1 -U accounts_admin -c 'create table orders (id integer)' accounts
"""

# Of the manual pages.
MANUAL_PAGES = BEGINNING + r"""
cat >make <<'END'
cd /var/lib/tabwarden
systemd-ask-password | runuser -u tabwarden -- isam_create accounts.db admin
END
script --quiet --return --command 'bash -e make' /dev/null <<<'a secret'
rm /var/lib/tabwarden/accounts.db

cat >/etc/odbc.ini <<'END'
[accounts]
Driver=NORDVALE_ISAM
Database=/var/lib/tabwarden/accounts.db
StatementLog=/var/lib/tabwarden/accounts.log
END
cd /var/lib/tabwarden
{
runuser -u tabwarden -- isam_create accounts.db admin
} <<<PASSWORD
{
runuser -u tabwarden -- isql accounts admin PASSWORD
} <<<"insert into nordvale.system.user values ('anna', '', 'a;b}c')"
read -r connection <<'END'
DSN=accounts;UID=anna;PWD={a;b}}c}
END
isql -b -k "$connection" <<<'select 1'
grep -q $'\tanna\tok\t{connect}' accounts.log

cat >/usr/local/nordvale/bare_product/nareproduct.ini <<'END'
[Settings]
LogDir=/var/log/tabwarden
END
install -m 600 -o tabwarden -g tabwarden /dev/null /var/log/tabwarden/kelvohttp.log
systemctl restart tabwarden
wait_for 'grep -q "Logging started" $log'

mkdir /srv/odbc
cat >/srv/odbc/odbcinst.ini <<'END'
[NORDVALE_ISAM]
Driver=/usr/local/lib/odbc/libtabwarden_isam.so
END
printf '[elsewhere]\nDriver=NORDVALE_ISAM\n' >/srv/odbc/odbc.ini
cat >serve <<'END'
ODBCSYSINI=/srv/odbc ODBCINI=/dev/null tabwarden -p 9000
END
bash serve >/dev/null 2>&1 &
wait_for_port 9000
exec 3<>/dev/tcp/127.0.0.1/9000
printf 'GET / HTTP/1.1\r\nHost: localhost\r\n\r\n' >&3
grep -q '<option[^>]*>elsewhere' <&3
"""
