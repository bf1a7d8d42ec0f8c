"""What the documents show for a machine with the packages and systemd, in an order in which it can be run there."""

BEGINNING = """
drop_ins=/etc/systemd/system/tabwarden.service.d
log=/var/log/tabwarden/kelvohttp.log
# systemd is done before the program listens, or has opened its log.
wait_for() {
    until eval "$1" 2>/dev/null; do sleep 0.1; done
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
wait_for 'ss -Hltn sport = 8451 | grep -q .'
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
wait_for 'ss -Hltn sport = 8451 | grep -q .'

cat >$drop_ins/port.conf <<'END'
[Service]
ExecStart=
ExecStart=/usr/sbin/tabwarden -p 80
AmbientCapabilities=CAP_NET_BIND_SERVICE
CapabilityBoundingSet=CAP_NET_BIND_SERVICE
PrivateUsers=no
END
systemctl daemon-reload && systemctl restart tabwarden
wait_for 'ss -Hltn sport = 80 | grep -q .'
rm -r $drop_ins
systemctl daemon-reload

install -m 600 -o tabwarden -g tabwarden /dev/null /var/log/tabwarden/kelvohttp.log
systemctl restart tabwarden
wait_for 'grep -q "Logging started" $log'
touch $log.1
rm /var/log/tabwarden/kelvohttp.log*
systemctl restart tabwarden
wait_for 'ss -Hltn sport = 8451 | grep -q .'
! ls $log*

systemctl disable --now tabwarden
! systemctl is-enabled tabwarden
"""

# Of README.md and docs/postgresql.md. The packages are in build/package.
INSTALLATION = BEGINNING + r"""
apt install ./build/package/tabwarden_*.deb
wait_for 'ss -Hltn sport = 8451 | grep -q .'
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
