"""The language and the bytes of what reaches the system log."""

from typing import Callable, Optional

import pytest
from watched import LOGIN_FAILED, SMART_ARRAY, Watched, smart_disk, volume_offline


@pytest.mark.parametrize("locale, language, encoding", [
    ("LANG=ja_JP.eucJP", "ja_JP", "euc_jp"),
    ('LANG="ja_JP.eucJP"', "ja_JP", "euc_jp"),
    ("LANG=ja_JP.UTF-8", "ja_JP", "utf-8"),
    ("LANG=en_US.UTF-8", "default", "utf-8"),
])
def test_locale(start_sim: Callable, watch: Callable[..., Watched], locale: str, language: str, encoding: str) -> None:
    sim = start_sim("--drives", 2, "--ssd", 1)
    watched = watch(sim, locale=locale, speed=15)
    watched.language, watched.encoding = language, encoding
    watched.start().wait_baseline()
    with watched.held():
        sim.control.call("wear-drive", 1, 1, 80)
        sim.control.call("fail-drive", 1, 2)
        sim.control.call("offline-volume", 1, 1)
    watched.expect(smart_disk(1, ssd=True).worn_80, smart_disk(2).failed, volume_offline(SMART_ARRAY, 1))
    watched.unregister()
    watched.expect(LOGIN_FAILED, walks=0)
    assert watched.stop() == 0


def test_japanese_text_byte_for_byte(start_sim: Callable, watch: Callable[..., Watched]) -> None:
    sim = start_sim("--drives", 1)
    watched = watch(sim, locale="LANG=ja_JP.eucJP")
    watched.start().wait_baseline()
    sim.control.call("offline-volume", 1, 1)
    entry = watched.host.wait_syslog(b"LD(1)")
    assert entry.priority == 3
    # "論理ドライブがオフラインになりました: " in EUC-JP.
    assert entry.message == (
        b"\xcf\xc0\xcd\xfd\xa5\xc9\xa5\xe9\xa5\xa4\xa5\xd6\xa4\xac\xa5\xaa\xa5\xd5\xa5\xe9\xa5\xa4\xa5\xf3"
        b"\xa4\xcb\xa4\xca\xa4\xea\xa4\xde\xa4\xb7\xa4\xbf: "
        b"CTRL(HPE Smart Array P408i-a SR Gen10 [Slot 0]) LD(1)")


@pytest.mark.parametrize("file, line, locale", [
    ("/etc/default/locale", "LANG=ja_JP.eucJP", None),
    ("/etc/sysconfig/language", 'RC_LANG="ja_JP.eucJP"', "LANG=en_US.UTF-8"),
])
def test_other_distributions_keep_it_elsewhere(start_sim: Callable, watch: Callable[..., Watched], file: str, line: str,
                                               locale: Optional[str]) -> None:
    sim = start_sim("--drives", 1)
    watched = watch(sim, locale=locale, speed=15)
    watched.host.outer(file).write_text(f"# language\n{line}\n", encoding="ascii")
    if file == "/etc/sysconfig/language":
        watched.host.outer("/etc/SuSE-release").write_text("SUSE Linux Enterprise Server\n", encoding="ascii")
    watched.language, watched.encoding = "ja_JP", "euc_jp"
    watched.start().wait_baseline()
    sim.control.call("fail-drive", 1, 1)
    watched.expect(smart_disk(1).failed)
