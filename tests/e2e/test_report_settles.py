"""The pause in which ssacli may still write its report, between its command and the searches."""

from tooled import OVERVIEW, REPORT, Tooled

SPEED = 60
PAUSE = 30.0  # seconds of the service's time


def test_searches_begin_half_a_minute_after_the_report() -> None:
    with Tooled(speed=SPEED) as watched:
        watched.tools.add_mega_raid()
        watched.start()
        watched.wait_cycles(2)
        watched.stop_search()
        commands = [command for command in watched.tools.commands() if command.line in (REPORT, OVERVIEW)]
    assert [command.line for command in commands] == [REPORT, OVERVIEW] * (len(commands) // 2)
    gaps = [later.at - earlier.at for earlier, later in zip(commands, commands[1:]) if later.line == OVERVIEW]
    assert len(gaps) >= 3
    assert min(gaps) * SPEED >= PAUSE
