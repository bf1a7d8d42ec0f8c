"""What is measured: a request to tabwarden, and what is asked in turn with it."""

from collections.abc import Callable
from dataclasses import dataclass


@dataclass
class Side:
    """A running server, which is anything that has a `.port` and a `.process`, and the bytes that it is asked."""

    name: str
    server: object
    request: bytes
    # Of a floor or peer: the least ratio of requests/s, the greatest ratio of ms. None where it is only looked at.
    aim: float | None = None


@dataclass
class Case:
    """`size` counts rows, or says what it counts; `block` requests are timed as one, from so many clients at once.

    The unit is "requests/s", or "ms" for one request. `before` runs before each block of either side, untimed.
    """

    name: str
    source: str
    size: int | str
    ours: Side
    floors: list[Side]
    before: Callable[[], None] | None = None
    unit: str = "requests/s"
    block: int = 1
    clients: int = 1
    # It is measured for so long, and so often at least.
    seconds: float = 10
    least_turns: int = 5
