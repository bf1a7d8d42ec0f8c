"""Whether the floors of the ODBC pages are honest: what tabwarden calls for a request, and what bare_odbc calls for it."""

import itertools
import socket
import sys

from deeds import deeds_by_source
from sources import KINDS, filled_source

from support.server import BUILD, RunningServer, read_all

RECORDER = BUILD / "tests" / "support" / "libodbc_recorder.so"

# More boxes than are ticked.
TABLES = 60


def ask(server, request):
    with socket.create_connection(("127.0.0.1", server.port)) as connection:
        connection.sendall(request)
        return read_all(connection)


def recorded_calls(source, deed, start):
    """What the server that start() gives calls for the deed."""
    record = source.folder / "calls"
    if before := deed.before(source):
        before()
    server = start({"LD_PRELOAD": str(RECORDER), "ODBC_CALLS": str(record)})
    try:
        record.write_text("")
        ask(server, deed.request())
        return record.read_text().splitlines()
    finally:
        server.stop()


def compare(source, deed):
    ours = recorded_calls(source, deed, lambda further: RunningServer({**source.environment, **further}))
    bare = recorded_calls(source, deed, lambda further: deed.bare_odbc(source, **further))
    for number, (one, other) in enumerate(itertools.zip_longest(ours, bare), 1):
        if one != other:
            sys.exit(f"bench: {deed.name}, {source.kind}: call {number} is {one} in tabwarden, {other} in bare_odbc")
    return len(ours)


def check_same_calls(wants):
    """Ends the program where the two differ in a deed of such a name."""
    for kind in KINDS:
        for filled, same_source in deeds_by_source(wants, (TABLES,), TABLES):
            with filled_source(kind, filled) as source:
                calls = {deed.name: compare(source, deed) for deed in same_source}
            print(f"bench: {kind}: same calls:", ", ".join(f"{name} {count:,}" for name, count in calls.items()))
