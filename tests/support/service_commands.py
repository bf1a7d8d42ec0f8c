"""What docs/service.md shows, in an order in which it can be run on a machine with the service."""

SERVICE = """
drop_ins=/etc/systemd/system/tabwarden.service.d
log=/var/log/tabwarden/kelvohttp.log
# systemd is done before the program listens, or has opened its log.
wait_for() {
    until eval "$1" 2>/dev/null; do sleep 0.1; done
}

systemctl enable --now tabwarden
wait_for 'exec 3<>/dev/tcp/127.0.0.1/8451'
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
wait_for 'exec 3<>/dev/tcp/127.0.0.1/8451'

cat >$drop_ins/port.conf <<'END'
[Service]
ExecStart=
ExecStart=/usr/sbin/tabwarden -p 80
AmbientCapabilities=CAP_NET_BIND_SERVICE
CapabilityBoundingSet=CAP_NET_BIND_SERVICE
PrivateUsers=no
END
systemctl daemon-reload && systemctl restart tabwarden
wait_for 'exec 3<>/dev/tcp/127.0.0.1/80'
rm -r $drop_ins
systemctl daemon-reload

install -m 600 -o tabwarden -g tabwarden /dev/null /var/log/tabwarden/kelvohttp.log
systemctl restart tabwarden
wait_for 'grep -q "Logging started" $log'
rm /var/log/tabwarden/kelvohttp.log
systemctl restart tabwarden
wait_for 'exec 3<>/dev/tcp/127.0.0.1/8451'
! test -e $log

systemctl disable --now tabwarden
! systemctl is-enabled tabwarden
"""
