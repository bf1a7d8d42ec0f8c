"""A browser that remembers a log-in, and another site in it."""

import socket
import threading
from contextlib import contextmanager
from http.server import BaseHTTPRequestHandler, ThreadingHTTPServer

from support.browser import field, wait_until
from support.kinds import NAME
from support.source import ADMINISTRATOR, PASSWORD

SEND_FORM = """
const [action, fields, target] = arguments;
const form = document.createElement("form");
form.method = "post";
form.action = action;
form.target = target ?? "";
for (const [name, value] of fields)
    form.append(Object.assign(document.createElement("input"), {name, value}));
document.body.append(form);
form.submit();
"""


def log_in(driver, address):
    """A log-in that the browser remembers, as it does that of its dialog, which no program can fill in."""
    driver.get(address)
    with_name = address.replace("://", f"://{ADMINISTRATOR}:{PASSWORD}@")
    driver.execute_script(SEND_FORM, with_name + "isam.cgi", [("initial_datasource", NAME), ("users.x", "1")])
    wait_until(driver, lambda: field(driver, "__newuser"))
    driver.get(address)


class EmptyPage(BaseHTTPRequestHandler):
    def do_GET(self):
        self.server.paths.append(self.path)
        self.send_response(200)
        self.send_header("Content-Type", "text/html")
        self.end_headers()

    def log_message(self, *_):
        pass


class OnIpv6(ThreadingHTTPServer):
    address_family = socket.AF_INET6


@contextmanager
def other_site(kind=ThreadingHTTPServer, place=("127.0.0.1", 0)):
    """Empty pages at its `address`; `paths` has what was asked for."""
    with kind(place, EmptyPage) as site:
        site.address = f"http://127.0.0.1:{site.server_port}/"
        site.paths = []
        threading.Thread(target=site.serve_forever, daemon=True).start()
        yield site
        site.shutdown()
