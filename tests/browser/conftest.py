import pytest

from support import browser as browsers


@pytest.fixture(scope="session")
def shared_browser():
    with browsers.started_browser() as driver:
        yield driver


@pytest.fixture
def browser(shared_browser):
    browsers.reset(shared_browser)
    return shared_browser


@pytest.fixture
def site(relay):
    """The address of a server with the sample as its data source, once of each kind.

    Behind a relay: connections that the browser opens ahead and does not use would hold the server for 30 seconds each.
    """
    return relay.address
