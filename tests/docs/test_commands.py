"""Every command and every line of configuration that the documents show is executed, in a machine that is thrown away."""

import re
import subprocess
import tempfile

import pytest

from support.machine import quiet_machine, what_is_missing
from support.packaged_commands import INSTALLATION, SERVICE
from support.server import BUILD, ROOT

DOCUMENTS = ["README.md", *(f"docs/{path.name}" for path in sorted((ROOT / "docs").glob("*.md"))), "embedded/README.md"]

# The blocks of the one are the program's statements, which test_data_sources.py compares with it; those of the other
# configurations, with which tests/security starts the programs that they are for.
DOCUMENTS.remove("docs/data-sources.md")
DOCUMENTS.remove("docs/security.md")

# What the scripts below leave out, and why.
NOT_RUN = {
    "script/test": "it runs this",
    "script/bench": "it measures for minutes; so do the other two",
    "bench/instructions": "measures",
    "bench/pages": "measures",
    **dict.fromkeys(
        [
            "grant  {all | select | insert | update | delete} on name to   {user | \"user\" | public}",
            "revoke {all | select | insert | update | delete} on name from {user | \"user\" | public}",
        ],
        "grammar",
    ),
}

# As a clone would be: without what is built. A user of a lesser kind can reach it, too.
CLONE = "/srv/tabwarden"

# The tree's files on standard output. What is removed and not committed is still listed.
PACK = "git ls-files -z --cached --others --exclude-standard | tar --null --ignore-failed-read -T - -c"

# With what was built. tar gives 1 where another test has changed one of its own files meanwhile.
PACK_WITH_TESTS = f"mkdir -p build/tests && {PACK} build/tests || [ $? = 1 ]"

# What each script begins with: a request as the user "NAME:PASSWORD", and a server that answers before it goes on.
BEGINNING = """
trap 'kill $(jobs -p); wait' EXIT
ask() {
    curl --silent --fail-with-body --user "$1" --data "$2" --output /tmp/page http://localhost:8451/isam.cgi
}
serve() {
    "$@" >/tmp/served 2>&1 &
    until curl --silent --output /dev/null http://localhost:8451/; do
        kill -0 $! || { cat /tmp/served; exit 1; }
        sleep 0.1
    done
}
"""

README = rf"""
cd {CLONE}
{BEGINNING}
cmake -S . -B build && cmake --build build && cmake --install build

cat >/etc/odbcinst.ini <<'END'
[NORDVALE_ISAM]
Driver=/usr/local/lib/odbc/libtabwarden_isam.so
END
cat >/etc/odbc.ini <<'END'
[accounts]
Driver=NORDVALE_ISAM
Database=/var/lib/tabwarden/accounts.db
END
mkdir -p /var/lib/tabwarden
echo 'a secret' | isam_create /var/lib/tabwarden/accounts.db admin
install -m 600 /dev/null /tmp/kelvohttp.log

serve /usr/local/nordvale/isam/bin/tabwarden
ask 'admin:a secret' 'datasource=accounts&users.x=1&submit_users=Submit&__newuser=anna&__newpass=tulip&__newfile=Anna'
grep -q 'name="anna_password" value="tulip"' /tmp/page

isql accounts admin 'a secret' -b <<'END'
create table orders (id integer)
grant  select on orders to   anna
grant all on orders to public
revoke insert on orders from public
END
echo 'delete from orders' | isql accounts anna tulip -b
! echo 'insert into orders values (1)' | isql accounts anna tulip -b
grep -q 'datasource = accounts' /tmp/kelvohttp.log
"""

SAMPLES = rf"""
cd {CLONE}
{BEGINNING}
serve \
script/server
grep -q 'Log in as  admin, password sample_admin' /tmp/served
ask admin:sample_admin 'datasource=sample&users.x=1'
grep -q submit_users /tmp/page
"""

POSTGRESQL = rf"""
cd {CLONE}
{BEGINNING}
script/private-postgresql start /tmp/database 5432 >/dev/null
data=/tmp/database/data
superuser() {{
    PGHOST=127.0.0.1 PGPASSWORD=$(cat /tmp/database/superuser_password) psql -U postgres -qAt -v ON_ERROR_STOP=1 "$@"
}}
superuser <<'END'
create role accounts_admin login createrole;
\password accounts_admin
a secret
a secret
create database accounts owner accounts_admin;
create role bernd login password 'tulip';
\c accounts
create table orders (id integer);
alter table orders owner to bernd;
END
cat >$data/first.conf <<'END'
host  accounts  all  127.0.0.1/32  scram-sha-256
END
cat $data/first.conf $data/pg_hba.conf >/tmp/hba && cat /tmp/hba >$data/pg_hba.conf
superuser -c 'select pg_reload_conf()' >/dev/null

truncate -s 0 /etc/odbcinst.ini /etc/odbc.ini
export PGPASSWORD='a secret'
script/bootstrap program && cmake -S . -B build && cmake --build build && cmake --install build
printf '[NORDVALE_ISAM]\nDriver=/usr/local/lib/odbc/libtabwarden_postgresql.so\n' | odbcinst -i -d -r
psql -h 127.0.0.1 -U accounts_admin -f postgresql/install.sql accounts
printf '[accounts]\nDriver=NORDVALE_ISAM\nServername=127.0.0.1\nPort=5432\nDatabase=accounts\n' | odbcinst -i -s -l -r
unset PGPASSWORD
serve env \
/usr/local/nordvale/isam/bin/tabwarden
ask 'accounts_admin:a secret' 'datasource=accounts&users.x=1'
grep -q 'name="bernd_file"' /tmp/page

# Encrypted, the server's certificate checked.
openssl req -x509 -newkey rsa:2048 -nodes -subj /CN=127.0.0.1 -addext subjectAltName=IP:127.0.0.1 \
    -keyout $data/server.key -out $data/server.crt 2>/dev/null
chown postgres $data/server.key $data/server.crt
cp $data/server.crt /etc/ssl/certs/accounts-ca.crt
superuser -c 'alter system set ssl = on' -c 'select pg_reload_conf()' >/dev/null
cat >>/etc/odbc.ini <<'END'
SSLmode=verify-full
pqopt=sslrootcert=/etc/ssl/certs/accounts-ca.crt
END
superuser <<'END'
alter role accounts_admin in database accounts set log_statement = 'none';
alter role accounts_admin in database accounts set log_min_duration_statement = -1;
alter role accounts_admin in database accounts set log_min_error_statement = 'panic';
alter role accounts_admin in database accounts set log_error_verbosity = 'terse';
END
ask 'accounts_admin:a secret' 'datasource=accounts&users.x=1&submit_users=Submit&bernd_checkbox=ON'
! grep -q 'name="bernd_file"' /tmp/page

# A deleted user who owns a table is still there.
export PGHOST=127.0.0.1 PGPASSWORD='a secret'
psql -qAt -U accounts_admin accounts >/tmp/left <<'END'
select rolname from pg_roles where not rolcanlogin and rolname !~ '^pg_';
END
grep -qx bernd /tmp/left
psql -q -v ON_ERROR_STOP=1 -U accounts_admin accounts <<'END'
grant bernd to accounts_admin;
reassign owned by bernd to accounts_admin;
drop owned by bernd;
drop role bernd;
END

psql -h 127.0.0.1 -U accounts_admin -f postgresql/remove.sql accounts
odbcinst -u -s -l -n accounts
odbcinst -u -d -n NORDVALE_ISAM
! grep -q . /etc/odbc.ini /etc/odbcinst.ini
script/private-postgresql stop /tmp/database
"""

# In the place of this tree itself, for which the tests have been built.
TESTS = rf"""
cd {ROOT}
cmake --preset tests && cmake --build build/tests
ctest --test-dir build/tests -R Template
TABWARDEN_BUILD=$PWD/build/tests /usr/bin/python3 -m pytest tests/pages/test_templates.py
"""

SCRIPTS = {"readme": README, "samples": SAMPLES, "postgresql": POSTGRESQL, "tests": TESTS}


def shown_lines(document):
    """The lines of the document's indented and fenced blocks, without what stands behind a command for the reader."""
    lines, fenced, indented, blank = [], False, False, True
    for line in (ROOT / document).read_text().splitlines():
        if line.startswith("```"):
            fenced = not fenced
            continue
        indented = bool(re.match(r" {4,}\S", line)) and (indented or blank)
        blank = not line.strip()
        if line.strip() and (fenced or indented):
            lines.append(re.sub(r"  +#.*", "", line).strip())
    return lines


@pytest.fixture(scope="module")
def machine():
    """This one's system, with the tree in CLONE and, whatever folder that is here, in its own place."""
    if missing := what_is_missing():
        pytest.skip(missing)
    with quiet_machine("/") as machine:
        unpack(machine, CLONE, PACK)
        unpack(machine, ROOT, PACK_WITH_TESTS)
        yield machine


def unpack(machine, folder, pack):
    """Puts the tree there, and nothing else: of what lies there outside, the layer would show what others write now."""
    packed = subprocess.run(pack, shell=True, cwd=ROOT, stdout=subprocess.PIPE, check=True).stdout
    machine.run("mkdir", "-p", folder)
    machine.run("mount", "-t", "tmpfs", "-o", "mode=0755", "tmpfs", folder)
    machine.run("tar", "-xC", folder, typed=packed)


@pytest.mark.parametrize("document", DOCUMENTS)
def test_each_line_of_a_document_is_run_by_a_script(document):
    # The packaged ones need a machine with the packages: test_package.py has it.
    scripts = (*SCRIPTS.values(), SERVICE, INSTALLATION)
    run = {line.strip() for script in scripts for line in script.splitlines()}
    assert [line for line in shown_lines(document) if line not in run and line not in NOT_RUN] == []


def test_the_scripts_do_not_see_what_other_tests_write_meanwhile(machine):
    with tempfile.TemporaryDirectory(dir=BUILD) as folder:
        assert machine.attempt("test", "-e", folder).returncode == 1


@pytest.mark.parametrize("name", SCRIPTS)
def test_what_the_documents_say_works_as_it_stands(machine, name):
    machine.shell(SCRIPTS[name])
