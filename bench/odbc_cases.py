"""The pages and actions that need the data source, beside a bare program that makes the same ODBC calls."""

from cases import Case, Side
from deeds import deeds_by_source
from place import stopped
from same_calls import check_same_calls
from sources import KINDS, filled_source

from support.server import RunningServer

# How many times the bare program's time is aimed at, with few rows and with many.
FEW_AIM, MANY, MANY_AIM = 1.25, 1000, 1.1

# Some cases take seconds, and there are many of them.
SECONDS, LEAST_TURNS = 5, 3


def block(source, deed):
    """Requests that take some 30 milliseconds together; one alone where something is put back before each."""
    return 5 if source.kind == "embedded" and deed.size <= MANY and not deed.put_back else 1


def case(source, deed):
    ours = RunningServer(source.environment)
    with stopped(ours):
        bare = deed.bare_odbc(source)
        with stopped(bare):
            yield Case(
                deed.name,
                source.kind,
                deed.size,
                Side("tabwarden", ours, deed.request()),
                [Side("bare ODBC program", bare, deed.request(), MANY_AIM if deed.size >= MANY else FEW_AIM)],
                before=deed.before(source),
                unit="ms",
                block=block(source, deed),
                seconds=SECONDS,
                least_turns=LEAST_TURNS,
            )


def cases(wants, _):
    """Each with its servers, which end when the next one is asked for, and the data source with the last of its cases."""
    check_same_calls(wants)
    for kind in KINDS:
        for filled, same_source in deeds_by_source(wants):
            with filled_source(kind, filled) as source:
                for deed in same_source:
                    yield from case(source, deed)
