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
def site(kinds_server, either):
    """The address of a server with the sample as its data source, once of each kind."""
    return f"http://localhost:{kinds_server.port}/"
