"""The scenario parser: every step, every error with its place."""

import pytest
from sim_rest import SIM
from simcontroller import scenario
from simcontroller.errors import UseError


def one(line):
    steps = scenario.parse(line, "t")
    assert len(steps) == 1
    return steps[0]


@pytest.mark.parametrize("line, step", [
    ("server --ilo 6 --mr 2", scenario.Server(1, ("--ilo", "6", "--mr", "2"))),
    ('configure "media error" check false', scenario.Configure(1, "media error", "check", "false")),
    ("scene It's  late", scenario.Scene(1, "It's late")),
    ('say He said "no".', scenario.Say(1, 'He said "no".')),
    ("pause 2.5", scenario.Pause(1, 2.5)),
    ("sim fail-drive 1 2", scenario.Sim(1, "fail-drive", ("1", "2"))),
    ("run baywardctl check", scenario.Run(1, ("baywardctl", "check"), "")),
    ('run tool "a b" <<< "one\\ntwo\\n"', scenario.Run(1, ("tool", "a b"), "one\ntwo\n")),
    ('wait-for "Start to" in trace within 3', scenario.WaitFor(1, "Start to", "trace", 3.0)),
    ("wait-for x in syslog", scenario.WaitFor(1, "x", "syslog", scenario.DEFAULT_WITHIN)),
    ('expect event 0xC0008151 containing "1I:1:2" containing PD within 9',
     scenario.ExpectEvent(1, 0xC0008151, ("1I:1:2", "PD"), 9.0)),
    ("expect event 0x80008152", scenario.ExpectEvent(1, 0x80008152, (), scenario.DEFAULT_WITHIN)),
    ("expect no event for 4", scenario.ExpectQuiet(1, 4.0)),
    ("restart", scenario.Restart(1, 1.0, ())),
    ('restart faster 120 with iLo interval 3000 with "serial log" "max file count" 10',
     scenario.Restart(1, 120.0, (("iLo", "interval", "3000"), ("serial log", "max file count", "10")))),
    ('place "/var/log/bayward/x{}.zip" 12', scenario.Place(1, "/var/log/bayward/x{}.zip", 12)),
    ('expect 9 files "/var/log/bayward/*.zip" within 60', scenario.ExpectFiles(1, 9, "/var/log/bayward/*.zip", 60.0)),
    ("expect 0 files /var/log/x", scenario.ExpectFiles(1, 0, "/var/log/x", scenario.DEFAULT_WITHIN))])
def test_each_step(line, step):
    found = one(line)
    assert found == step and type(found) is type(step)


def test_blank_lines_and_comments_keep_the_line_numbers():
    steps = scenario.parse("# title\n\n  say one\n\t# inner\nsay two\n", "t")
    assert [(step.line, step.text) for step in steps] == [(3, "one"), (5, "two")]


@pytest.mark.parametrize("line, words", [
    ("jump 3", ["there is no such step", "wait-for"]),
    ("say", ["the text is missing"]),
    ("pause soon", ["'soon'", "seconds"]),
    ("pause 0", ["'0'"]),
    ("pause 1 2", ["'2' is too much"]),
    ("sim explode 1", ["no verb 'explode'"]),
    ("sim fail-drive 1", ["fail-drive C D"]),
    ("sim fail-drive one 1", ["'one'"]),
    ("run", ["the command is missing"]),
    ("run a <<<", ["<<< takes one text"]),
    ("wait-for x at trace", ["'at' stands where 'in' belongs"]),
    ("wait-for x in kernel", ["'kernel'", "'syslog' or 'trace'"]),
    ("wait-for x in trace within", ["a number of seconds is missing"]),
    ("expect event C0008151", ["no event identifier"]),
    ("expect event 0x1C0008151", ["no event identifier"]),
    ("expect event 0xC0008151 containing", ["the text is missing"]),
    ("expect no events for 3", ["'events'"]),
    ("restart faster", ["how many times as fast is missing"]),
    ("restart faster soon", ["'soon'", "1 to 1000"]),
    ("restart faster 0.5", ["'0.5'"]),
    ("restart faster nan", ["'nan'"]),
    ("restart with iLo interval", ["the value is missing"]),
    ("restart 3", ["'3' is too much"]),
    ("place /var/log/x", ["the number of files is missing"]),
    ("place /var/log/x{} many", ["'many'", "0 to 99"]),
    ("place /etc/passwd 1", ["'/etc/passwd'", "/var/log/"]),
    ("place /var/log/../../etc/passwd 1", ["does not lie below"]),
    ("expect 3 things /var/log/x", ["'things' stands where 'files' belongs"]),
    ("expect 300 files /var/log/x", ["'300'"]),
    ("expect 3 files *.zip", ["'*.zip'"]),
    ('wait-for "open in trace', ["quotation"]),
    ("server --ilo 5", ["must stand before line 2"]),
    ("configure a b c", ["must stand before line 2"]),
    ("configure a b", ["the value is missing"])])
def test_errors_name_file_line_and_step(line, words):
    with pytest.raises(UseError) as error:
        scenario.parse(f"say hello\npause 1\n{line}\n", "bad.scenario")
    assert str(error.value).startswith(f"bad.scenario:3: {line.split()[0]}: ")
    for word in words:
        assert word in str(error.value)


def test_empty_scenario_is_an_error():
    with pytest.raises(UseError, match="empty.scenario:1: .*no step"):
        scenario.parse("# nothing\n", "empty.scenario")


def test_every_shipped_scenario_parses_and_fits_its_server(start):
    files = sorted((SIM / "scenarios").glob("*.scenario"))
    assert files
    for file in files:
        steps = scenario.parse(file.read_text(encoding="utf-8"), file.name)
        sim = start(*[option for step in steps if isinstance(step, scenario.Server) for option in step.options])
        for step in steps:
            if isinstance(step, scenario.Sim):
                sim.control.call(step.verb, *step.arguments)
