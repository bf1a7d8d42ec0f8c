"""Calls of the program that fail: the other side of tests/faults/failing_calls.cpp."""

import mmap
import os
import struct
from collections import Counter
from contextlib import contextmanager

from support.server import BUILD

LIBRARY = BUILD / "tests" / "faults" / "libfailing_calls.so"

FAULT = struct.Struct("24s24sIIi")
COUNTER = struct.Struct("24sI")
COUNTERS = 40

injected = Counter()


class FailingCalls:
    """The memory that a server and this process share. `environment` is what the server is to be started with.

    `child_status` tells how the child that met the last fault ended, as os.waitpid() does.
    """

    def __init__(self, path):
        path.write_bytes(bytes(FAULT.size + COUNTERS * COUNTER.size))
        with path.open("r+b") as file:
            self.memory = mmap.mmap(file.fileno(), 0)
        # An address sanitizer wants to be the first library; it works as the second one.
        options = f"{os.environ.get('ASAN_OPTIONS', '')}:verify_asan_link_order=0"
        self.environment = {"LD_PRELOAD": str(LIBRARY), "FAILING_CALLS": str(path), "ASAN_OPTIONS": options}

    def _set(self, call="", kind="", number=0):
        self.memory[:] = FAULT.pack(call.encode(), kind.encode(), number, 0, 0).ljust(len(self.memory), b"\0")

    @contextmanager
    def fault(self, call, kind, number):
        """The number-th call made inside fails; there has to be one."""
        self._set(call, kind, number)
        yield
        count, self.child_status = FAULT.unpack_from(self.memory)[3:]
        self._set()
        assert count == 1, "the fault met no call"
        injected[call] += 1

    @contextmanager
    def counting(self):
        """Gives the number of calls made inside, by function, when they have been made."""
        self._set()
        reached = {}
        yield reached
        for index in range(COUNTERS):
            call, count = COUNTER.unpack_from(self.memory, FAULT.size + index * COUNTER.size)
            if count:
                reached[call.rstrip(b"\0").decode()] = count
