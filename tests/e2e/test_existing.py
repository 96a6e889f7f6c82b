"""States that began while nobody watched, with "report existing"."""

from typing import Callable

from watched import Watched, mega_disk, smart_disk, wait_until

ON = {"iLo": {"report existing": "true"}}
BACK = "<VK0950> [TR] Initializing RaidManager succeed."


def test_states_before_the_service_are_reported_once(start_sim: Callable, watch: Callable[..., Watched]) -> None:
    sim = start_sim("--drives", 3, "--ssd", 0, "--mr", 1, "--mr-drives", 2)
    sim.control.call("fail-drive", 1, 2)
    sim.control.call("fail-drive", 2, 1)
    watched = watch(sim, speed=15, config=ON).start()
    watched.expect(mega_disk(1).failed, smart_disk(2).failed, walks=4)
    sim.control.call("fail-drive", 1, 3)
    watched.expect(smart_disk(3).failed)


def test_without_the_key_they_stay_silent(start_sim: Callable, watch: Callable[..., Watched]) -> None:
    sim = start_sim("--drives", 2, "--ssd", 0)
    sim.control.call("fail-drive", 1, 2)
    watched = watch(sim, speed=15).start().wait_baseline()
    watched.expect(walks=2)


def test_drive_that_fails_during_an_outage_is_reported_once_after_it(start_sim: Callable, watch: Callable[..., Watched]
                                                                     ) -> None:
    sim = start_sim("--drives", 3, "--ssd", 0)
    watched = watch(sim, speed=15, config=ON).start().wait_baseline()
    sim.control.call("fail-drive", 1, 1)
    watched.expect(smart_disk(1).failed)
    with watched.held():
        sim.control.call("status", "*", 500, "forever")
    wait_until(lambda: watched.count_line("<VK0956>") >= 2, "failed log-ins", 30, watched.host)
    sim.control.call("fail-drive", 1, 2)
    sim.control.call("clear-faults")
    watched.wait_line(BACK)
    watched.expect(smart_disk(2).failed, walks=3)
