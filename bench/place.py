"""Where the benchmark's servers run: installation folder and data sources in memory, as a disk's flushes would outweigh
everything else."""

import os
import shutil
import socket
import subprocess
import sys
import time
from contextlib import contextmanager
from pathlib import Path

from support.server import BUILD, INSTALL_DIR, free_port, install_html, write_product_ini

PROGRAMS = BUILD / "bench"


# The preset compiles the installation folder in it into the program. A page opens eleven files: a longer path to them, or
# a link on the way, would be measured, too.
MEMORY = Path("/dev/shm/tabwarden-bench")


@contextmanager
def memory_folder():
    """Gives a folder in memory; in it is the installation folder, with the html folder as it is shipped."""
    try:
        MEMORY.mkdir()
    except FileExistsError:
        sys.exit(f"bench: another one is running, or was killed: then remove {MEMORY}")
    try:
        INSTALL_DIR.unlink(missing_ok=True)
        INSTALL_DIR.symlink_to(MEMORY / "isam")
        (MEMORY / "isam").mkdir()
        install_html()
        write_product_ini()
        yield MEMORY
    finally:
        INSTALL_DIR.unlink()
        shutil.rmtree(MEMORY)


class Floor:
    """A floor or peer on a port of its own, which stands as {port} in its command."""

    def __init__(self, *command, environment=None):
        self.port = free_port()
        self.process = subprocess.Popen(
            [str(word).format(port=self.port) for word in command], env={**os.environ, **(environment or {})}
        )
        try:
            self._wait_until_listening()
        except BaseException:
            self.stop()
            raise

    def _wait_until_listening(self):
        end = time.monotonic() + 20
        while True:
            try:
                socket.create_connection(("127.0.0.1", self.port)).close()
                return
            except ConnectionRefusedError:
                assert self.process.poll() is None and time.monotonic() < end, "the server does not listen"

    def stop(self):
        self.process.kill()
        self.process.wait()


@contextmanager
def stopped(*servers):
    """Stops them in the end."""
    try:
        yield
    finally:
        for server in servers:
            server.stop()
