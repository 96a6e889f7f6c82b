"""The controller's library: when it is absent or another one, and what it writes or raises."""

from __future__ import annotations

import logging
import sys

import pytest
from fake_library import FAKE, HOST, names

SYSTEMS = "/redfish/v1/Systems/"


STREAMS = """\
import logging, os, sys

for stream in (sys.stdout, sys.stderr):
    assert stream.isatty() is False and stream.encoding and stream.errors and stream.writable()
    stream.writelines(["noise\\n", "\\u65e5\\ud800\\n"])
    stream.buffer.write(b"noise")
    stream.flush()
    try:
        os.isatty(stream.fileno())
    except OSError:
        pass
kept = logging.StreamHandler()
"""


def test_nothing_the_library_writes_reaches_terminal_or_log(module, library, capfd, caplog):
    module.init(HOST, "user", "pass")
    module.get(SYSTEMS)
    module.close()
    written = capfd.readouterr()
    assert "noise" not in written.out + written.err + caplog.text


def test_library_may_use_its_streams_as_those_of_a_terminal(module, package, capfd):
    package(STREAMS + FAKE + '        kept.stream.write("noise")\n')
    assert module.init(HOST, "user", "pass") == 200
    module.close()
    import redfish

    assert names(redfish) == ["new", "login", "logout"]
    written = capfd.readouterr()
    assert written.out + written.err == ""


@pytest.mark.parametrize("error, advice", [
    ("HpIloInitialError", "run as root"), ("ChifDllMissingError", "ilorest_chif.so"),
    ("NewerLoginError", '"baywardctl account set ACCOUNT"'), ("HpIloChifPacketExchangeError", "PacketExchangeError."),
])
def test_reported_line_says_what_to_do(module, library, caplog, error, advice):
    library.plan["new"] = getattr(library, error)("s3cret")
    module.init(HOST, "user", "s3cret")
    line, = [record.getMessage() for record in caplog.records]
    assert line.startswith("In-band log-in failed: " + error) and advice in line and "s3cret" not in line


def test_absent_library_is_said_in_one_line_that_tells_how_to_install_it(module, package, caplog, capfd):
    sys.modules["redfish"] = None  # as if nothing of that name were installed
    for _ in range(3):
        assert module.init(HOST, "None", "None") == 10001
    assert [record.levelno for record in caplog.records] == [logging.WARNING]
    assert "python3-ilorest" in caplog.text
    assert "Traceback" not in capfd.readouterr().err


def test_generic_library_of_the_same_name_is_not_taken_for_it(module, package, caplog):
    package(FAKE, hpilo=False)
    assert module.init(HOST, "None", "None") == 10001
    assert "not the controller's library" in caplog.text and "python3-ilorest" in caplog.text


@pytest.mark.parametrize("source", ["raise RuntimeError('broken')", "import sys; sys.exit(4)", "def (",
                                    "import a_missing_package"])
def test_library_that_does_not_load_is_another_error(module, package, caplog, source):
    package(source)
    assert module.init(HOST, "None", "None") == 10001
    assert "does not load" in caplog.text
