"""The recorder is only worth its tests if no call escapes it."""

import subprocess

from support.server import BUILD, PROGRAM


def odbc_functions(file, *options):
    symbols = subprocess.run(["nm", "-D", *options, file], capture_output=True, text=True, check=True).stdout
    return {name for name in symbols.split() if name.startswith("SQL")}


def test_every_odbc_function_that_the_program_calls_is_recorded():
    called = odbc_functions(PROGRAM, "--undefined-only")
    recorded = odbc_functions(BUILD / "tests" / "support" / "libodbc_recorder.so", "--defined-only")
    assert called and called == recorded
