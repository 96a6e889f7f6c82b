"""baywardctl beside the service."""

import os
import stat
from pathlib import Path
from typing import Callable, List

import pytest
from watched import Watched, smart_disk

REGISTER = 'register the account with "baywardctl account set".'
SECRET = "tool-secret-4711"


@pytest.fixture
def bare(watch: Callable[..., Watched]) -> Watched:
    """A host without any account."""
    watched = watch(None, account=None, speed=1)
    watched.secrets.append(SECRET)
    return watched


def account_files(watched: Watched) -> List[Path]:
    return [watched.host.outer(f"/etc/.TARNiLO{record}") for record in (0, 1)]


def contents(watched: Watched) -> List[bytes]:
    return [path.read_bytes() for path in account_files(watched)]


def test_set_writes_both_files_for_root_alone(bare: Watched) -> None:
    done = bare.ctl("account", "set", "monitor", stdin=f"{SECRET}\n")
    assert (done.returncode, done.stderr) == (0, "")
    assert done.stdout == \
        'Account "monitor" is registered; the service uses it from its next look at the controller on.\n'
    for path, size in zip(account_files(bare), (16, 32)):
        status = path.lstat()
        assert stat.S_ISREG(status.st_mode) and stat.S_IMODE(status.st_mode) == 0o600
        assert (status.st_uid, status.st_gid) == (os.geteuid(), os.getegid())
        assert status.st_size == size  # padded to whole blocks
    assert b"monitor" not in contents(bare)[0] and SECRET.encode() not in contents(bare)[1]
    leftovers = [path.name for path in bare.host.outer("/etc").iterdir() if path.name.startswith(".TARN")]
    assert sorted(leftovers) == [".TARNiLO0", ".TARNiLO1"]


def test_check_shows_the_account_and_never_the_password(bare: Watched) -> None:
    bare.ctl("account", "set", "monitor", stdin=SECRET)  # without line feed
    done = bare.ctl("account", "check")
    assert (done.returncode, done.stdout, done.stderr) == (0, 'Account "monitor" is registered.\n', "")


def test_check_without_account(bare: Watched) -> None:
    done = bare.ctl("account", "check")
    assert (done.returncode, done.stdout, done.stderr) == (
        1, "", f"baywardctl: No account is registered; {REGISTER}\n")


@pytest.mark.parametrize("record", [0, 1])
def test_check_with_half_an_account(bare: Watched, record: int) -> None:
    bare.register("monitor", SECRET)
    account_files(bare)[record].unlink()
    done = bare.ctl("account", "check")
    assert (done.returncode, done.stdout, done.stderr) == (
        1, "", f"baywardctl: The account file /etc/.TARNiLO{record} is missing; {REGISTER}\n")


def test_check_on_another_machine(bare: Watched, tmp_path: Path) -> None:
    bare.register("monitor", SECRET)
    uuid = tmp_path / "uuid"
    uuid.write_text("ffeeddcc-bbaa-9988-7766-554433221100\n", encoding="ascii")
    done = bare.ctl("account", "check", env={"BAYWARD_SIM_UUID_FILE": str(uuid)})
    assert (done.returncode, done.stdout) == (1, "")
    assert done.stderr == ("baywardctl: The account file /etc/.TARNiLO0 cannot be deciphered, it is damaged or was made on "
                           f"another machine; {REGISTER}\n")


def test_remove(bare: Watched) -> None:
    bare.register("monitor", SECRET)
    done = bare.ctl("account", "remove")
    assert (done.returncode, done.stdout, done.stderr) == (0, "The account is removed.\n", "")
    assert not any(path.exists() for path in account_files(bare))
    done = bare.ctl("account", "remove")
    assert (done.returncode, done.stdout, done.stderr) == (0, "No account was registered.\n", "")


@pytest.mark.parametrize("mode", ["fail", "no-uuid", "garbage"])
def test_set_without_system_uuid_changes_nothing(bare: Watched, mode: str) -> None:
    bare.register("monitor", SECRET)
    before = contents(bare)
    done = bare.ctl("account", "set", "other", stdin="another\n", env={"BAYWARD_SIM_DMIDECODE": mode})
    assert (done.returncode, done.stdout) == (1, "")
    # What dmidecode itself complains about comes before it.
    assert done.stderr.splitlines()[-1].startswith("baywardctl: The system UUID")
    assert contents(bare) == before


@pytest.mark.parametrize("arguments, password", [
    ([], ""),
    (["account"], ""),
    (["acount", "set"], SECRET),
    (["account", "set"], SECRET),
    (["account", "set", ""], SECRET),
    (["account", "set", "monitor", SECRET], SECRET),
    (["account", "set", "--password", SECRET, "monitor"], SECRET),
    (["account", "set", "x" * 41], SECRET),
    (["account", "set", "two\nlines"], SECRET),
    (["account", "set", "monitor"], "\n"),
    (["account", "set", "monitor"], "x" * 41),
    (["account", "check", "--log-in"], ""),
    (["account", "remove", "monitor"], ""),
], ids=lambda given: " ".join(given)[:40].replace("\n", " ") if isinstance(given, list) else "")
def test_wrong_use(bare: Watched, arguments: List[str], password: str) -> None:
    """One sentence, exit status 2, and nothing is registered; the sentence repeats no password."""
    done = bare.ctl(*arguments, stdin=password)
    assert (done.returncode, done.stdout) == (2, "")
    assert done.stderr.startswith("baywardctl: ") and done.stderr.count("\n") == 1
    assert SECRET not in done.stderr
    assert not any(path.exists() for path in account_files(bare))


def test_log_in_with_the_registered_account(start_sim: Callable, watch: Callable[..., Watched]) -> None:
    sim = start_sim("--drives", 1)
    watched = watch(sim, speed=1)
    done = watched.ctl("account", "check", "--login")
    assert (done.returncode, done.stderr) == (0, "")
    assert done.stdout == ('Account "simadmin" is registered.\n'
                           f"The controller at {sim.url} accepted the account (200).\n")
    counters = watched.counters()
    assert (counters["logins"], counters["open_sessions"]) == (1, 0)

    watched.register("simadmin", "wrong-secret")
    done = watched.ctl("account", "check", "--login")
    assert (done.returncode, done.stdout) == (1, 'Account "simadmin" is registered.\n')
    assert done.stderr == f"baywardctl: The controller at {sim.url} refused the account (401); {REGISTER}\n"


def test_log_in_where_nobody_answers(bare: Watched) -> None:
    bare.register("monitor", SECRET)
    done = bare.ctl("account", "check", "--login")
    assert (done.returncode, done.stdout) == (1, 'Account "monitor" is registered.\n')
    sentence, = done.stderr.splitlines()
    assert sentence.startswith("baywardctl: The controller at https://127.0.0.1:9 could not be asked (https://127.0.0.1:9: ")
    assert "Connection refused); " in sentence
    assert SECRET not in done.stderr


def test_account_and_password_of_forty_bytes(start_sim: Callable, watch: Callable[..., Watched]) -> None:
    """The longest ones that can be registered work for the service too."""
    sim = start_sim("--drives", 1, account="a" * 40, password="p" * 40)
    watched = watch(sim).start().wait_baseline()
    sim.control.call("fail-drive", 1, 1)
    watched.expect(smart_disk(1).failed)
