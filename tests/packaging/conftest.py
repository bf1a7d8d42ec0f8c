import subprocess

import pytest

from support.debian import debian_folder
from support.machine import booted_machine, quiet_machine, what_is_missing, what_is_missing_to_boot
from support.server import ROOT, uninstrumented
from support.service import Service, install

BUILT = ROOT / "build" / "package"


@pytest.fixture(scope="session")
def packages():
    """The files of tabwarden and tabwarden-postgresql."""
    subprocess.run([ROOT / "script" / "package"], check=True, env=uninstrumented(), stdout=subprocess.DEVNULL)
    return tuple(next(BUILT.glob(f"{name}_*.deb")) for name in ("tabwarden", "tabwarden-postgresql"))


@pytest.fixture(scope="session")
def debian():
    """The folder of a Debian that has what the packages depend on, and not them."""
    if missing := what_is_missing():
        pytest.skip(missing)
    with debian_folder() as folder:
        yield folder


@pytest.fixture
def machine(debian):
    """Without the packages, and without systemd running."""
    with quiet_machine(debian) as machine:
        yield machine


@pytest.fixture(scope="session")
def bootable(debian):
    if missing := what_is_missing_to_boot():
        pytest.skip(missing)
    return debian


@pytest.fixture
def booted(bootable):
    """Without the packages."""
    with booted_machine(bootable) as machine:
        yield machine


@pytest.fixture(scope="session")
def running_machine(bootable, packages):
    """With both packages, the service stopped."""
    with booted_machine(bootable) as machine:
        install(machine, *packages)
        machine.run("systemctl", "stop", "tabwarden")
        yield machine


@pytest.fixture
def stopped_service(running_machine):
    service = Service(running_machine)
    yield service
    service.reset()


@pytest.fixture
def service(stopped_service):
    stopped_service.start()
    return stopped_service
