"""baywardctl events: the catalogue, and test events through a real system log."""

import json
from typing import Any, Callable, List

import pytest
from watched import ERROR, WARNING, Event, Watched, wait_until

PARAMETERS = {
    "drive": ("CTRL(TEST by baywardctl)", "PD(TEST)", " TEST of the alerting, nothing has happened"),
    "volume": ("CTRL(TEST by baywardctl)", "LD(TEST)"),
    "controller": (),
}
DRIVE_FAILED = Event(0xC0008151, PARAMETERS["drive"])
VOLUME_DEGRADED = Event(0x800081BB, PARAMETERS["volume"])
LOGIN_FAILED = Event(0xC00081D1, PARAMETERS["controller"])


def assert_written(watched: Watched, *events: Event, language: str = "default", encoding: str = "utf-8") -> None:
    """The system log holds these events as the service writes them, each line marked; the trace log holds nothing."""
    wanted = [(event.priority, "daemon", "bayward", f"{sentence} [TEST]".encode(encoding))
              for event in events for sentence in event.sentences(language)]
    wait_until(lambda: len(watched.host.syslog_entries()) >= len(wanted), "system log entries", 10, watched.host)
    assert [(e.priority, e.facility, e.identity, e.message) for e in watched.host.syslog_entries()] == wanted
    assert list(watched.host.log_dir.iterdir()) == []


@pytest.mark.parametrize("locale, language, encoding", [
    ("LANG=en_US.UTF-8", "default", "utf-8"),
    ("LANG=ja_JP.UTF-8", "ja_JP", "utf-8"),
    ("LANG=ja_JP.eucJP", "ja_JP", "euc_jp"),
])
def test_test_event_is_what_the_service_would_write(watch: Callable[..., Watched], locale: str, language: str,
                                                    encoding: str) -> None:
    watched = watch(None, account=None, speed=1, locale=locale)
    for name in ("0xC0008151", "VK0443", "3221258705"):
        done = watched.ctl("events", "--test", name)
        assert (done.returncode, done.stderr) == (0, "")
    assert_written(watched, DRIVE_FAILED, VOLUME_DEGRADED, LOGIN_FAILED, language=language, encoding=encoding)


def test_output_says_what_was_written(watch: Callable[..., Watched]) -> None:
    watched = watch(None, account=None, speed=1)
    done = watched.ctl("events", "--test", "443")
    assert (done.returncode, done.stderr) == (0, "")
    first, *rest = done.stdout.splitlines()
    assert first == ('Written to the system log as "bayward", facility daemon, priority warning, language default; test of '
                     "VK0443 (0x800081BB):")
    assert rest == [f"{sentence} [TEST]" for sentence in VOLUME_DEGRADED.sentences()]
    assert VOLUME_DEGRADED.priority == WARNING and LOGIN_FAILED.priority == ERROR


def test_another_language_than_the_systems(watch: Callable[..., Watched]) -> None:
    watched = watch(None, account=None, speed=1)
    assert watched.ctl("events", "--test", "465", "--language", "ja_JP").returncode == 0
    assert_written(watched, LOGIN_FAILED, language="ja_JP")


def test_trace_log_of_a_running_service_is_untouched(watch: Callable[..., Watched]) -> None:
    watched = watch(None, account=None, speed=1)
    watched.start().wait_line("PrepareSysLog succeeded.")
    watched.ctl("events", "--test", "337")
    watched.host.wait_syslog("[TEST]", count=2)
    watched.stop()
    assert watched.count_line("[EV]") == 0 and watched.count_line("TEST") == 0


def test_without_log_daemon(watch: Callable[..., Watched]) -> None:
    watched = watch(None, account=None, speed=1, syslog=False)
    done = watched.ctl("events", "--test", "337")
    assert (done.returncode, done.stdout) == (1, "")
    assert done.stderr == \
        "baywardctl: Nobody listens at /dev/log, so no event reaches the system log; start the log daemon.\n"


def catalogue(watched: Watched, *arguments: str) -> List[Any]:
    done = watched.ctl("events", "--format", "json", *arguments)
    assert (done.returncode, done.stderr) == (0, "")
    return json.loads(done.stdout)["events"]


def test_catalogue(watch: Callable[..., Watched]) -> None:
    watched = watch(None, account=None, speed=1)
    events = catalogue(watched)
    assert [event["number"] for event in events] == [337, 338, 339, 340, 341, 345, 347, 439, 441, 442, 443, 465]
    for event in events:
        identifier = int(event["identifier"], 16)
        named = next(kind for kind in ({"PD(location)": ("CTRL(controller)", "PD(location)", " drive"),
                                        "LD(number)": ("CTRL(controller)", "LD(number)"), "": ()}).items()
                     if kind[0] in event["sentences"]["default"])[1]
        for language in ("default", "ja_JP"):
            assert event["sentences"][language].split("\n") == Event(identifier, named).sentences(language)
        assert event["severity"] == {3: "error", 2: "warning"}[identifier >> 30]
        assert event["trace"] == f"VK0{event['number']}"
    assert [event["number"] for event in events if not event["raised"]] == [441, 442, 443]
    assert {tuple(event["sentences"]) for event in catalogue(watched, "--language", "ja_JP")} == {("ja_JP",)}


def test_catalogue_for_people(watch: Callable[..., Watched]) -> None:
    watched = watch(None, account=None, speed=1)
    done = watched.ctl("events", env={"TERM": "xterm"})
    assert (done.returncode, done.stderr) == (0, "") and "\033" not in done.stdout
    blocks = done.stdout.split("\n\n")
    assert len(blocks) == 12 and blocks[0].startswith("VK0337  0xC0008151  error\n  raised   ")


def test_missing_catalogue(watch: Callable[..., Watched]) -> None:
    watched = watch(None, account=None, speed=1, copy_runtime=True)
    (watched.host.runtime / "bayward.msg").unlink()
    for arguments in ([], ["--test", "337"]):
        done = watched.ctl("events", *arguments)
        assert (done.returncode, done.stdout) == (1, "")
        assert done.stderr.startswith(f"baywardctl: The message catalogue {watched.host.runtime}/bayward.msg cannot be read")


@pytest.mark.parametrize("arguments", [
    ["--test"], ["--test", ""], ["--test", "0xC00081B8"], ["--test", "%s%n"], ["--test", "337", "338"], ["--language", "de_DE"],
    ["--test", "337", "--language", "de_DE"], ["--format", "yaml"], ["--test", "337", "--format", "json"], ["337"],
], ids=" ".join)
def test_wrong_use(watch: Callable[..., Watched], arguments: List[str]) -> None:
    """One sentence, and nothing is written."""
    watched = watch(None, account=None, speed=1)
    done = watched.ctl("events", *arguments)
    assert (done.returncode, done.stdout) == (2, "")
    assert done.stderr.startswith("baywardctl: ") and done.stderr.count("\n") == 1
    assert watched.host.syslog_entries() == []
