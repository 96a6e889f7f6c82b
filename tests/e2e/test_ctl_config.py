"""baywardctl config, beside a service that shows what it really makes of the file."""

import ast
import json
import sys
from pathlib import Path
from typing import Any, Callable, Dict, List, Tuple

import pytest
from watched import Watched

ROOT = Path(__file__).resolve().parents[2]
sys.path.append(str(ROOT / "ilorest/module"))
from _bayward_outcome import Failure  # noqa: E402
from _bayward_target import parse_target  # noqa: E402

CONFIGURATION = "/etc/opt/tarn/bayward/bayward.conf"
SECRET = "config-secret-4711"


@pytest.fixture
def bare(watch: Callable[..., Watched]) -> Watched:
    """A host without any account, configured as it should be for the in-band channel."""
    watched = watch(None, account=None, speed=1, config={"iLo": {"url": ""}})
    watched.secrets.append(SECRET)
    return watched


def check(watched: Watched, *arguments: str) -> Tuple[int, List[str]]:
    """Exit status and findings of a check, which shows no secret and says on standard error how many there are."""
    done = watched.ctl("config", "check", *arguments)
    assert SECRET not in done.stdout + done.stderr
    assert done.stderr.count("\n") == 1
    return done.returncode, done.stdout.splitlines()


def table_of_urls(test: str) -> List[Any]:
    """The cases of one of the helper module's own tests."""
    tree = ast.parse((ROOT / "tests/module/test_target.py").read_text(encoding="utf-8"))
    function = next(node for node in tree.body if isinstance(node, ast.FunctionDef) and node.name == test)
    return list(ast.literal_eval(function.decorator_list[0].args[1]))


def settings(watched: Watched) -> Dict[str, object]:
    done = watched.ctl("config", "show", "--format", "json")
    assert (done.returncode, done.stderr) == (0, "")
    assert SECRET not in done.stdout
    return {f"{each['section']}/{each['key']}": each["value"] for each in json.loads(done.stdout)["settings"]}


def test_a_host_in_order(bare: Watched) -> None:
    assert check(bare) == (0, [])
    done = bare.ctl("config", "check")
    assert done.stderr == f"{CONFIGURATION}: nothing to complain about\n"


def test_shipped_configuration_is_clean(bare: Watched) -> None:
    bare.host.write_config((ROOT / "share/bayward.conf").read_text(encoding="utf-8"))
    assert check(bare) == (0, [])


def test_everything_at_once(bare: Watched) -> None:
    bare.host.write_config("\r\n".join([
        "max trials=1", "[iLo]", "interval = 5000", "intervall=5", "interval=1000", "account=me", f"password={SECRET}",
        f"passwort {SECRET}", "[media error]", "check=False", "[ serial log ]", "[iLo]", "url=https://lost", ""]))
    bare.host.outer("/etc/locale.conf").unlink()
    bare.host.log_dir.rmdir()
    status, findings = check(bare)
    assert status == 2
    begins = [
        ":1: warning: the line ends in CR LF", ":1: warning: the line stands before any section",
        ':3: warning: blanks before "="', ':4: warning: unknown key "intervall" in section "iLo"; did you mean "interval"?',
        ':5: warning: "interval" is "1000": it is not in 3000 to 3600000; the service takes 3000 milliseconds',
        ":6: warning: no account is registered", ':8: warning: the line has no "="',
        ':10: warning: "check" is "False", which is not exactly "false"', ":11: warning: blanks inside the brackets",
        ':12: warning: section "iLo" begins in line 2 already']
    for finding, begin in zip(findings, begins):
        assert finding.startswith(CONFIGURATION + begin), finding
    assert [finding.split(":")[0] for finding in findings[len(begins):]] == ["/etc/default/locale", "/var/log/bayward"]
    assert ": error: " in findings[-2] and ": warning: " in findings[-1]
    shown = settings(bare)
    assert (shown["iLo/interval"], shown["iLo/url"], shown["media error/check"]) == (3000, "", True)


def test_what_is_said_is_what_the_service_does(watch: Callable[..., Watched]) -> None:
    """The findings that matter most, against the running service."""
    watched = watch(None, account=None, config="[media error]\ncheck=False\n[iLo]\nurl=https://127.0.0.1:9\n")
    assert check(watched)[0] == 1
    assert settings(watched)["media error/check"] is True
    watched.start().wait_line("Start cyclic Media Error search.")

    without = watch(None, account=None, speed=1, config="[media error]\ncheck=false\n", locale=None)
    locale = without.host.outer("/etc/default/locale")
    status, findings = check(without)
    assert status == 2 and findings[0].startswith("/etc/default/locale: error: ")
    without.start().wait_line("system-info")  # the service fails to detect the language, too
    assert without.count_line("Start ") == 0
    without.stop()
    locale.write_text("", encoding="ascii")
    assert check(without) == (0, [])
    without.start().wait_line("Start cyclic serial log saving.")
    assert without.count_line("Start cyclic Media Error search.") == 0


def test_no_configuration(bare: Watched) -> None:
    bare.host.outer(CONFIGURATION).unlink()
    status, findings = check(bare)
    assert (status, findings) == (2, [f"{CONFIGURATION}: error: cannot be read: No such file or directory; without its "
                                      "configuration the service does not start"])
    done = bare.ctl("config", "show")
    assert (done.returncode, done.stdout) == (1, "")
    assert done.stderr.startswith(f"baywardctl: The configuration {CONFIGURATION} cannot be read: ")


def test_another_file(bare: Watched) -> None:
    bare.host.outer("/etc/opt/tarn/bayward/new.conf").write_text("[ilo]\n", encoding="ascii")
    status, findings = check(bare, "/etc/opt/tarn/bayward/new.conf")
    assert (status, findings) == (1, ['/etc/opt/tarn/bayward/new.conf:1: warning: unknown section "ilo", nothing below it is '
                                      'read; did you mean "iLo"?'])
    assert check(bare) == (0, [])


def test_address_without_account(bare: Watched) -> None:
    """As somebody leaves it who has not read on: the service could not log in."""
    bare.host.write_config("[iLo]\nurl=https://ilo\n")
    status, findings = check(bare)
    assert status == 1 and len(findings) == 1
    assert findings[0].startswith(f"{CONFIGURATION}:2: warning: no account is registered; ")
    bare.register("monitor", "another-secret")
    assert check(bare) == (0, [])


def test_registered_account(bare: Watched) -> None:
    bare.host.write_config(f"[iLo]\naccount=me\npassword={SECRET}\n")
    assert "no account is registered" in check(bare)[1][0]
    assert settings(bare)["iLo/account"] == ""
    bare.register("monitor", "another-secret")
    status, findings = check(bare)
    assert status == 1 and "the account that is registered replaces" in findings[0]
    bare.host.outer("/etc/.TARNiLO1").write_bytes(b"damaged")
    status, findings = check(bare)
    assert status == 2 and findings[1].startswith(f"{CONFIGURATION}: error: no usable account: ")
    assert settings(bare)["iLo/account"] == ""
    bare.register("monitor", "another-secret")
    done = bare.ctl("config", "show")
    assert SECRET not in done.stdout and "another-secret" not in done.stdout
    rows = {tuple(line.split()[:2]): line for line in done.stdout.splitlines()}
    assert rows[("iLo", "password")].endswith("the registered account") and "***" in rows[("iLo", "password")]


def test_table_goes_into_a_pipe_without_colours(bare: Watched) -> None:
    done = bare.ctl("config", "show", env={"TERM": "xterm"})
    assert (done.returncode, done.stderr) == (0, "") and "\033" not in done.stdout
    lines = done.stdout.splitlines()
    assert lines[0].split() == ["SECTION", "KEY", "VALUE", "DEFAULT", "UNIT", "FROM"]
    assert len(lines) == len(settings(bare)) + 1
    assert lines[2].split() == ["iLo", "interval", "3000", "60000", "milliseconds", f"{CONFIGURATION}:3"]
    assert len({line.index(word) for line, word in zip(lines, ("KEY", "max log size", "interval"))}) == 1


@pytest.mark.parametrize("arguments, status", [
    (["config"], 2), (["config", "chek"], 2), (["config", "check", "--format", "json"], 3), (["config", "check", "a", "b"], 3),
    (["config", "show", "a", "b"], 2), (["config", "show", "--format", "yaml"], 2), (["config", "show", "--format"], 2),
], ids=lambda given: " ".join(given) if isinstance(given, list) else "")
def test_wrong_use(bare: Watched, arguments: List[str], status: int) -> None:
    """One sentence; a check that was not made has an exit status of its own."""
    done = bare.ctl(*arguments)
    assert (done.returncode, done.stdout) == (status, "")
    assert done.stderr.startswith("baywardctl: ") and done.stderr.count("\n") == 1


def test_urls_are_judged_as_the_helper_module_judges_them(bare: Watched) -> None:
    refused = {}
    for url in [case[0] for case in table_of_urls("test_https_url_names_host_and_port")] + \
            list(table_of_urls("test_malformed_url_is_another_error_said_in_one_line")) + \
            ["blobstore://.", "BLOBSTORE://x", "https://me@ilo", "https://ilo:00443", "https", "https:443", "[::1%]", "-a"]:
        if not url or any(character in url for character in "\r\n"):
            continue  # the configuration cannot hold it, or means the in-band channel with it
        try:
            parse_target(url)
            refused[url] = False
        except Failure:
            refused[url] = True
        bare.host.write_config(f"[iLo]\nurl={url}\n")
        findings = check(bare)[1]
        assert any('error: "url" is refused' in finding for finding in findings) == refused[url], (url, findings)
    assert list(refused.values()).count(True) > 20 and list(refused.values()).count(False) > 10


def test_folder_is_read_as_the_service_reads_it(watch: Callable[..., Watched]) -> None:
    """As an empty configuration: the service starts with every default."""
    watched = watch(None, account=None)
    configuration = watched.host.outer(CONFIGURATION)
    configuration.unlink()
    configuration.mkdir()
    assert check(watched) == (1, [f"{CONFIGURATION}: warning: it is a folder, which the service reads as an empty file: every "
                               "setting has its default"])
    watched.start().wait_line("Start cyclic Media Error search.")


def test_nothing_is_changed(bare: Watched) -> None:
    def state() -> List[Tuple[str, int, int]]:
        found = [path for folder in ("etc", "var-log") for path in sorted((bare.host.work / folder).rglob("*"))]
        return [(str(path), path.lstat().st_mtime_ns, path.lstat().st_size) for path in found]
    before = state()
    for arguments in (["check"], ["show"], ["show", "--format", "json"]):
        assert bare.ctl("config", *arguments).returncode == 0
    assert state() == before
