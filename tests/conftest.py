import os
import sys
from pathlib import Path

import pytest

sys.path.insert(0, str(Path(__file__).parent))

from support import kinds  # noqa: E402
from support.postgresql import PrivatePostgresql  # noqa: E402
from support.relay import Relay  # noqa: E402
from support.server import REPORTS, RunningServer, install_html, write_product_ini  # noqa: E402


@pytest.fixture(autouse=True)
def no_sanitizer_reports():
    """Fails the test in which a process of an instrumented build reported a fault."""
    yield
    text = ""
    for report in sorted(REPORTS.iterdir()) if REPORTS else []:
        # A process that goes on writes behind what has been cut off here.
        text += report.read_text(errors="replace").lstrip("\0")
        os.truncate(report, 0)
    assert not text, text


@pytest.fixture
def installed_html():
    """The html folder as it is shipped, for this test to change."""
    install_html()
    write_product_ini()


@pytest.fixture
def no_data_sources(tmp_path, monkeypatch):
    """A driver manager without data sources, whatever the machine has. Gives the folder for a test's own odbc.ini."""
    folder = tmp_path / "odbc"
    folder.mkdir()
    monkeypatch.setenv("ODBCSYSINI", str(folder))
    monkeypatch.setenv("ODBCINI", "/dev/null")
    return folder


@pytest.fixture
def running_server(installed_html, no_data_sources):
    server = RunningServer()
    yield server
    server.stop()


@pytest.fixture
def logging_server(installed_html, no_data_sources):
    server = RunningServer(logging=True)
    yield server
    server.stop()


@pytest.fixture(scope="session")
def postgresql():
    server = PrivatePostgresql()
    yield server
    server.stop()


@pytest.fixture(scope="session", params=["embedded", "postgresql"])
def prepared_kind(request):
    """A data source of each kind in turn."""
    if request.param == "embedded":
        return kinds.Embedded()
    return kinds.Postgresql(request.getfixturevalue("postgresql"))


@pytest.fixture(scope="module")
def kinds_server(prepared_kind):
    install_html()
    write_product_ini()
    server = RunningServer(environment=prepared_kind.environment)
    yield server
    server.stop()


@pytest.fixture
def either(prepared_kind):
    """The data source with the sample in it."""
    prepared_kind.reset()
    return prepared_kind


@pytest.fixture
def relay(kinds_server, either):
    """Between the browser and a server with the sample as its data source."""
    with Relay(kinds_server.port) as between:
        yield between
