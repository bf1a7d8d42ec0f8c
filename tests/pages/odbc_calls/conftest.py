"""Servers whose ODBC calls are written down."""

import os

import pytest

from support.server import BUILD
from support.source import ODBC_DIR

RECORDER = BUILD / "tests" / "support" / "libodbc_recorder.so"
RECORD = ODBC_DIR / "calls"
FAILURE = ODBC_DIR / "failure"


@pytest.fixture(scope="session")
def program_environment():
    ODBC_DIR.mkdir(parents=True, exist_ok=True)
    # A sanitizer's run time that is preloaded has to stay the first.
    preloaded = f"{os.environ.get('LD_PRELOAD', '')} {RECORDER}"
    return {"LD_PRELOAD": preloaded, "ODBC_CALLS": str(RECORD), "ODBC_FAILURE": str(FAILURE)}


@pytest.fixture
def compare_calls():
    """Compares what the program calls during the action with Calls, the composed expectation.

    Where the expectation contains a failure that no data source gives at will, it is made to happen.
    """

    def compare(action, expected):
        RECORD.write_text("")
        FAILURE.write_text(expected.failure)
        action()
        recorded = RECORD.read_text().splitlines()
        assert recorded == expected.lines_beside(recorded)

    return compare
