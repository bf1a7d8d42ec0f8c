"""Header blocks as they have to come out, with a mark in place of every date."""

import re

DATE = re.compile(
    rb"(?:Sun|Mon|Tue|Wed|Thu|Fri|Sat), \d\d (?:Jan|Feb|Mar|Apr|May|Jun|Jul|Aug|Sep|Oct|Nov|Dec) \d{4} "
    rb"\d\d:\d\d:\d\d GMT"
)

NOT_CACHED = ("Cache-Control: must-revalidate", "Cache-Control: max-age=3600", "Cache-Control: no-cache")
NOT_CACHED_BY_OLD_BROWSERS = ("Expires: DATE", "Expires: 0", "Pragma: no-cache")
CACHED = ("Cache-Control: public",)

CHALLENGE = 'WWW-Authenticate: Basic realm="Isam Permissions Administration"'


def undated(response):
    return DATE.sub(b"DATE", response)


def header_block(status="200 OK", cache=NOT_CACHED, content_type="text/html", length=0):
    lines = [
        f"HTTP/1.1 {status}",
        "Date: DATE",
        "Server: Skiffhttp 1.0 (unix)",
        "Last-Modified: DATE",
        "Accept-Ranges: bytes",
        *([f"Content-Length: {length}"] if length else []),
        *cache,
        f"Content-Type: {content_type}",
    ]
    return "".join(f"{line}\r\n" for line in [*lines, ""]).encode()


def refusal_block(cache=NOT_CACHED):
    """That of a refused log-in: no blank line, what follows stands right behind the challenge."""
    return header_block("401 Authorization Required", cache)[:-2] + f"{CHALLENGE}\r\n".encode()


def file_block(content_type, length):
    return header_block("500 Internal Server Error", CACHED, content_type, length)
