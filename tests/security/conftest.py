import pytest

from support import browser as browsers
from support import guide
from support.guide import Front
from support.kinds import Embedded


@pytest.fixture(scope="session")
def prepared_kind():
    """Of one kind alone: what stands between browser and program does not see which it is."""
    return Embedded()


@pytest.fixture(scope="module")
def front_of(kinds_server, tmp_path_factory):
    """Gives the front of a name, started when it is first asked for."""
    started, contexts = {}, []

    def start(name):
        if name not in started:
            front = Front(tmp_path_factory.mktemp(name), kinds_server.port)
            contexts.append(getattr(guide, name)(front))
            contexts[-1].__enter__()
            started[name] = front
        return started[name]

    yield start
    for context in contexts:
        context.__exit__(None, None, None)


@pytest.fixture(scope="module")
def browser():
    """One that remembers log-ins, as the others do not: they get theirs put into each request."""
    with browsers.started_browser(accept_insecure_certs=True) as driver:
        yield driver
