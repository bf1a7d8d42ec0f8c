"""Two data sources, and a server whose calls fail as a test wants it."""

import os
import re
import signal
import sqlite3
from contextlib import closing

import pytest

from support import faults, pages
from support.fault_requests import ADMINISTRATOR_PASSWORD, USERS
from support.pages import HELD, TABLES, quoted_name
from support.sample import SampleSource, Visitor, user_statement
from support.server import HTML_DIR, RunningServer, install_html, write_product_ini
from support.source import ODBC_DIR, list_sources

FOLDER = ODBC_DIR / "faults"


def pytest_terminal_summary(terminalreporter):
    if faults.injected:
        by_call = ", ".join(f"{call} {count}" for call, count in sorted(faults.injected.items()))
        terminalreporter.write_line(f"faults injected: {faults.injected.total()} ({by_call})")


class Laboratory:
    """Requests to the server on data sources that start each of them as they were prepared."""

    def __init__(self, calls, server, sources):
        self.calls = calls
        self.server = server
        self.sources = sources
        self.visitor = Visitor(server, FOLDER)
        self.descriptors = self._descriptors()
        self.words = 0

    def _descriptors(self):
        folder = f"/proc/{self.server.process.pid}/fd"
        return sorted((name, os.readlink(f"{folder}/{name}")) for name in os.listdir(folder))

    def send(self, request):
        """The answer to the request, and the statements that it led to."""
        for source in self.sources:
            source.reset()
        answer = request(self.visitor)
        return answer, [statement for source in self.sources for _, _, statement in source.statements()]

    def send_with_fault(self, request, call, kind, number):
        with self.calls.fault(call, kind, number):
            return self.send(request)

    def count(self, request):
        """send() and how often the request calls each function."""
        with self.calls.counting() as reached:
            answer, statements = self.send(request)
        return answer, statements, reached

    def harm(self):
        """What the last fault has done to the server."""
        if self.server.process.poll() is not None:
            yield "the server is gone"
            return
        status = self.calls.child_status
        # Aborting is how a request ends on purpose; anything else but 0 is a crash.
        if status and not (os.WIFSIGNALED(status) and os.WTERMSIG(status) == signal.SIGABRT):
            yield f"the child ended with status {status:#x}"
        if children := self.server.children():
            yield f"children are left: {children}"
        if self._descriptors() != self.descriptors:
            yield f"descriptors are left: {self._descriptors()}"
        words = self.server.standard_error()[self.words :]
        self.words += len(words)
        if words:
            yield f"there is an error message: {words}"

    def stored_users(self):
        """All but "public", as the first data source has them now."""
        with closing(sqlite3.connect(self.sources[0].database)) as database:
            rows = database.execute('select username, description, password from "nordvale.system.user"')
            return [row for row in rows if row[0] != "public"]

    def stored_rights(self):
        """The privileges by user and table."""
        held = {}
        with closing(sqlite3.connect(self.sources[0].database)) as database:
            for *table, grantee, privilege in database.execute(
                'select "catalog", "schema", "table", grantee, privilege from "nordvale.system.tableprv"'
            ):
                held.setdefault((grantee, tuple(table)), []).append(privilege.lower())
        return held


def prepare(source):
    source.prepare(
        *(user_statement(*user) for user in USERS[1:]),
        *(f"create table {quoted_name(table)} (id integer)" for table in TABLES),
        *(
            f"grant {privilege} on {quoted_name(table)} to {user}"
            for (user, table), privileges in HELD.items()
            for privilege in privileges
        ),
    )
    source.change(f"update \"nordvale.system.user\" set password = '{ADMINISTRATOR_PASSWORD}' where username = 'admin'")
    source.prepared = source.database.read_bytes()


@pytest.fixture(scope="module")
def laboratory(tmp_path_factory):
    FOLDER.mkdir(parents=True, exist_ok=True)
    sources = [SampleSource(name, FOLDER) for name in pages.SOURCES]
    for source in sources:
        prepare(source)
    install_html()
    write_product_ini()
    calls = faults.FailingCalls(tmp_path_factory.mktemp("faults") / "calls")
    server = RunningServer(environment={**list_sources(pages.SOURCES, FOLDER), **calls.environment})
    try:
        yield Laboratory(calls, server, sources)
    finally:
        server.stop()


def leave_out_script():
    """Each of the many files that a page includes for its script would only fail in the same ways again."""
    for path in HTML_DIR.glob("*.html"):
        path.write_text(re.sub(r"<(script|template)\b.*?</\1>\n", "", path.read_text(), flags=re.DOTALL))


@pytest.fixture
def install(laboratory):
    """Puts the shipped files where the server looks for them, and others: texts by name, None to leave one out."""

    def change(files):
        install_html()
        leave_out_script()
        for name, text in files.items():
            if text is None:
                (HTML_DIR / name).unlink()
            else:
                (HTML_DIR / name).write_text(text)

    change({})
    yield change
    install_html()
