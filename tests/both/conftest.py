"""The same tests on both kinds of data source; support/kinds.py tells where they differ."""

import pytest

from support import pages
from support.kinds import HELD, TABLES
from support.pages import OFFERED, USERS
from support.sample import Visitor


@pytest.fixture
def visitor(kinds_server, either):
    return Visitor(kinds_server, None)


@pytest.fixture
def users_page(either):
    """The users page for users as they are stored."""
    return lambda users=USERS: pages.users_page(either.listed(users))


@pytest.fixture
def rights_page(either):
    """The rights page for a user and what is held by whom."""

    def compose(user, held=HELD, tables=TABLES, users=OFFERED):
        return pages.rights_page(user, held, either.ordered(tables), users, either.grantors)

    return compose
