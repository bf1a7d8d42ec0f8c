"""docs/service.md as it stands, on a machine with systemd."""

from support.service_commands import SERVICE


def test_what_the_document_says_works_as_it_stands(stopped_service):
    stopped_service.machine.run("timeout", "100", "bash", "-euo", "pipefail", "-c", SERVICE)
