from contextlib import ExitStack

import pytest

from support import browser as browsers
from support import guide
from support.guide import Front
from support.kinds import Embedded
from support.relay import Relay


@pytest.fixture(scope="session")
def prepared_kind():
    """Of one kind alone: what stands between browser and program does not see which it is."""
    return Embedded()


@pytest.fixture(scope="module")
def front_of(kinds_server, tmp_path_factory):
    """Gives the front of a name, started when it is first asked for. Behind a browser's there is a relay: connections that
    the browser opens ahead and does not use would hold the server for 30 seconds each."""
    started = {}

    def start(name, for_browser=False):
        if (name, for_browser) not in started:
            port = relay.port if for_browser else kinds_server.port
            front = Front(tmp_path_factory.mktemp(name), port)
            fronts.enter_context(getattr(guide, name)(front))
            started[name, for_browser] = front
        return started[name, for_browser]

    with Relay(kinds_server.port) as relay, ExitStack() as fronts:
        yield start


@pytest.fixture(scope="module")
def browser():
    """One that remembers log-ins, as the others do not: they get theirs put into each request."""
    with browsers.started_browser(accept_insecure_certs=True) as driver:
        yield driver


@pytest.fixture
def rights(either):
    """Gives every privilege that the data source has recorded."""
    return lambda: sorted(either.source.rows("select * from nordvale.system.tableprv"))
