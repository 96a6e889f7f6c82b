"""The recipes of docs/recipes/, as they stand, on a host whose rsyslogd takes them from /etc/rsyslog.d."""

import email
import glob
import os
import re
import shutil
import socket
import subprocess
import sys
import time
from contextlib import contextmanager
from pathlib import Path
from typing import Callable, Dict, Iterator, List

import pytest
from watched import ROOT, Event, Watched, smart_disk, wait_until

from simcontroller.client import ControlClient

RECIPES = ROOT / "docs/recipes"
RSYSLOG = RECIPES / "rsyslog"
PROMETHEUS = RECIPES / "prometheus"
HERE = Path(__file__).resolve().parent
CONTROLLER = "127.0.0.1:8443"
DRIVES = 8

# What Debian's rsyslog.conf does, as far as the recipes are concerned.
RSYSLOG_CONF = """\
global(workDirectory="{spool}")
module(load="imuxsock" SysSock.Name="{socket}" SysSock.RateLimit.Interval="0")
$IncludeConfig {include}/*.conf
"""


class Site:
    """A server with the real service, its rsyslogd with the recipes, a mail server and a central log server.

    All of it in one host with a network of its own, so the recipes keep their names and ports.
    """

    def __init__(self, watch: Callable[..., Watched]) -> None:
        self.watched = watch(None, account=("simadmin", "simpassword"), url=f"https://{CONTROLLER}", speed=15,
                             addresses=["127.0.0.2"], syslog=False)
        self.host = self.watched.host
        self.work = self.host.work
        self._daemons: Dict[str, int] = {}
        self._place_files()
        self.mails = self.work / "mails"
        self.sent = self.work / "sent"
        for folder in (self.mails, self.sent):
            folder.mkdir()
        self._start_controller()
        self.start_mail_server()
        self._start_own_rsyslogd()
        self.watched.start()

    # Files

    def _own_folder(self, path: str) -> Path:
        """A folder of the host's /etc in the place of the machine's."""
        outer = self.host.outer(path)
        if outer.is_symlink():
            outer.unlink()
        outer.mkdir(exist_ok=True)
        return outer

    def _place_files(self) -> None:
        recipes = self._own_folder("/etc/rsyslog.d")
        for name in ("30-bayward-script", "30-bayward-mail", "40-bayward-forward-tls"):
            shutil.copy(RSYSLOG / f"{name}.conf", recipes)
        shutil.copy(RSYSLOG / "bayward-on-event", self.host.outer("/etc/opt/tarn/bayward"))
        hosts = self.host.outer("/etc/hosts")
        hosts.unlink()
        hosts.write_text("127.0.0.1 localhost\n127.0.0.2 log.example.com\n", encoding="ascii")
        self.tls = self._own_folder("/etc/rsyslog-tls")
        make_authority(self.tls, "ca")
        make_certificate(self.tls, "ca", "server1.example.com", "")
        make_certificate(self.tls, "ca", "log.example.com", "central-")
        programs = self.host.outer("/opt/tarn/bayward")
        programs.mkdir(parents=True)
        (programs / "bin").symlink_to(self.host.runtime)
        # The folder of programs that comes first for a shell without PATH, as rsyslogd starts its programs.
        for command in (["mount", "-t", "tmpfs", "tmpfs", "/usr/local/sbin"],
                        # A mail is in its folder once it is whole.
                        ["sh", "-c", f"printf '%s\\n' '#!/bin/sh' 'cat >{self.work}/mail-$$ && mv {self.work}/mail-$$ "
                                     f"{self.work}/sent/$$' >/usr/local/sbin/sendmail && chmod 755 /usr/local/sbin/sendmail"]):
            done = self.host.run(command)
            assert done.returncode == 0, done.stderr

    # Daemons

    def start_rsyslogd(self, name: str, include: Path, log_socket: str = "") -> None:
        folder = self.work / f"rsyslogd-{name}"
        folder.mkdir(exist_ok=True)
        configuration = folder / "rsyslog.conf"
        place = log_socket or str(folder / "log")
        configuration.write_text(RSYSLOG_CONF.format(spool=folder, socket=place, include=include), encoding="ascii")
        checked = self.host.run(["rsyslogd", "-N1", "-f", str(configuration)])
        assert checked.returncode == 0, checked.stderr
        assert "warning" not in checked.stderr and "error" not in checked.stderr, checked.stderr
        self._daemons[name] = self.host.spawn(["rsyslogd", "-n", "-f", str(configuration), "-i", str(folder / "pid")],
                                              output=folder / "output")
        wait_until(lambda: self.host.run(["test", "-S", place]).returncode == 0, f"rsyslogd ({name})", 20)

    def _start_own_rsyslogd(self) -> None:
        self.start_rsyslogd("server", Path("/etc/rsyslog.d"), "/dev/log")

    @contextmanager
    def central(self) -> Iterator[None]:
        """A central rsyslogd that has the receiving recipe, for the time of the `with` block."""
        include = self.work / "include-central"
        include.mkdir(exist_ok=True)
        shutil.copy(RSYSLOG / "central-tls.conf", include)
        self.start_rsyslogd("central", include)
        try:
            yield
        finally:
            self.stop("central")

    def stop(self, name: str) -> None:
        pid = self._daemons.pop(name)
        os.kill(pid, 15)
        wait_until(lambda: not any(process.pid == pid for process in self.host.processes()), f"end of {name}", 20)

    def start_mail_server(self) -> None:
        self._spawn("mail", [sys.executable, str(HERE / "mail_server.py"), str(self.mails)])

    def _start_controller(self) -> None:
        self._spawn("controller", ["/usr/bin/python3", str(ROOT / "sim/controller.py"), "--listen", CONTROLLER, "--drives",
                                   str(DRIVES), "--ssd", "0", "--work-dir", str(self.work), "--control",
                                   str(self.work / "control"), "--ready-file", str(self.work / "ready.json")])
        wait_until((self.work / "ready.json").exists, "controller", 20)
        self.control = ControlClient(str(self.work / "control"))

    def _spawn(self, name: str, argv: List[str]) -> None:
        self._daemons[name] = self.host.spawn(argv, output=self.work / f"{name}.output")

    # What the service does, and what came of it

    def wait_baseline(self) -> "Site":
        def walks() -> int:
            return self.control.call("counters")["requests"].get("GET /redfish/v1/Systems/", 0)
        wait_until(lambda: walks() >= 3, "baseline", 60, self.host)
        return self

    def fail_drive(self, number: int) -> Event:
        """A drive fails; returns the event once the service has reported it."""
        self.control.call("fail-drive", 1, number)
        event = smart_disk(number).failed
        self.watched.wait_line(event.line)
        return event

    def received(self) -> List[str]:
        """The messages in the central server's file, without stamp, host and process."""
        files = list(self.host.outer("/var/log/remote").glob("*/bayward-tls.log"))
        lines = [line for file in files for line in file.read_text(encoding="utf-8").splitlines()]
        heads = [re.match(r"\S+ \S+ bayward(\[\d+\])?:? ", line) for line in lines]
        assert None not in heads, lines
        return [line[head.end():] for line, head in zip(lines, heads) if head is not None]

    def wait_received(self, text: str) -> None:
        wait_until(lambda: text in self.received(), "message at the central server", 40, self.host)


def openssl(folder: Path, *arguments: str) -> None:
    subprocess.run(["openssl", *arguments], cwd=folder, check=True, capture_output=True)


def make_authority(folder: Path, name: str) -> None:
    openssl(folder, "req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:P-256", "-nodes", "-days", "2",
            "-keyout", f"{name}.key", "-out", f"{name}.pem", "-subj", f"/CN={name}")


def make_certificate(folder: Path, authority: str, name: str, prefix: str) -> None:
    extensions = folder / f"{prefix}extensions"
    extensions.write_text(f"subjectAltName=DNS:{name}\n", encoding="ascii")
    openssl(folder, "req", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:P-256", "-nodes", "-keyout", f"{prefix}key.pem",
            "-out", f"{prefix}request.pem", "-subj", f"/CN={name}")
    openssl(folder, "x509", "-req", "-in", f"{prefix}request.pem", "-CA", f"{authority}.pem", "-CAkey", f"{authority}.key",
            "-CAcreateserial", "-days", "2", "-extfile", extensions.name, "-out", f"{prefix}cert.pem")


@pytest.fixture(scope="module", autouse=True)
def module_is_there() -> None:
    """rsyslogd's module for TLS is a package of its own."""
    if not glob.glob("/usr/lib/*/rsyslog/lmnsd_gtls.so") + glob.glob("/usr/lib*/rsyslog/lmnsd_gtls.so"):
        reason = "rsyslogd's module lmnsd_gtls is missing; install the package rsyslog-gnutls."
        pytest.fail(reason) if os.environ.get("CI") == "true" else pytest.skip(reason)


@pytest.fixture(scope="module")
def site(watch_file: Callable[..., Watched]) -> Site:
    return Site(watch_file).wait_baseline()


# ---- Mail ----

def bodies(folder: Path) -> List[str]:
    """The bodies of all mails, oldest first."""
    found = []
    for path in sorted(folder.iterdir(), key=lambda path: path.stat().st_mtime_ns):
        mail = email.message_from_bytes(path.read_bytes())
        found.append(mail.get_payload(decode=True).decode("utf-8"))
    return found


def test_script_sends_one_mail_for_what_comes_together(site: Site) -> None:
    first, second = site.fail_drive(1), site.fail_drive(2)
    wait_until(lambda: list(site.sent.iterdir()), "mail", 30, site.host)
    wanted = [*first.sentences(), *second.sentences()]
    assert bodies(site.sent) == ["\n".join(wanted) + "\n"]
    mail = email.message_from_bytes(next(site.sent.iterdir()).read_bytes())
    assert mail["To"] == "root"
    assert mail["Subject"] == f"[bayward] {socket.gethostname()}: error (4 messages)"
    assert mail["Content-Type"] == "text/plain; charset=UTF-8"


def test_script_keeps_a_mail_that_cannot_be_sent(tmp_path: Path) -> None:
    """Run by itself with shorter pauses: nothing is sent twice, and what the mail server refused comes later."""
    script = (RSYSLOG / "bayward-on-event").read_text(encoding="utf-8")
    script = script.replace("quiet=5 ", "quiet=0.2 ").replace("again=60 ", "again=0.2 ")
    sendmail = tmp_path / "sendmail"
    sendmail.write_text(f"#!/bin/sh\n[ -e {tmp_path}/refuse ] && exit 75\nexec cat >{tmp_path}/mail-$$\n", encoding="ascii")
    logger = tmp_path / "logger"
    logger.write_text(f"#!/bin/sh\necho \"$*\" >>{tmp_path}/logged\n", encoding="ascii")
    for program in (sendmail, logger):
        program.chmod(0o755)
    (tmp_path / "refuse").touch()
    with subprocess.Popen(["bash", "-c", script, "bayward-on-event", "ops@example.com"], stdin=subprocess.PIPE,
                          env={"PATH": f"{tmp_path}:{os.environ['PATH']}"}) as process:
        assert process.stdin is not None
        process.stdin.write("4\thost1\t A drive \"$(touch x)\" %s `id`\nno message\n3\thost1\t Replace it.\n".encode())
        process.stdin.flush()
        wait_until((tmp_path / "logged").exists, "complaint", 10)
        assert not list(tmp_path.glob("mail-*"))
        (tmp_path / "refuse").unlink()
        wait_until(lambda: list(tmp_path.glob("mail-*")), "mail", 10)
        time.sleep(0.6)
        process.stdin.write(b"4\thost1\tThe last one.\n")
        process.stdin.close()
        assert process.wait(10) == 0
    mails = [path.read_text() for path in sorted(tmp_path.glob("mail-*"), key=lambda path: path.stat().st_mtime_ns)]
    assert len(mails) == 2
    assert mails[0].startswith("To: ops@example.com\nSubject: [bayward] host1: error (2 messages)\n")
    assert mails[0].endswith("\n\nA drive \"$(touch x)\" %s `id`\nReplace it.\n")
    assert "Subject: [bayward] host1: warning (1 messages)\n" in mails[1] and mails[1].endswith("\n\nThe last one.\n")
    assert "could not be sent to ops@example.com." in (tmp_path / "logged").read_text()


def test_mail_server_gets_each_message(site: Site) -> None:
    before = len(list(site.mails.iterdir()))
    event = site.fail_drive(3)
    wait_until(lambda: len(list(site.mails.iterdir())) >= before + 2, "mails", 30, site.host)
    texts = [path.read_text(encoding="utf-8") for path in site.mails.iterdir()]
    for sentence in event.sentences():
        found = [text for text in texts if sentence in text]
        assert len(found) >= 1
        assert f"Subject: [bayward] {socket.gethostname()}: err\n" in found[0]
        assert "To: root@example.com\n" in found[0].replace("<", "").replace(">", "")


# ---- Forwarding ----

def test_central_server_gets_what_was_reported_while_it_was_away(site: Site) -> None:
    away = site.fail_drive(4)
    with site.central():
        for sentence in away.sentences():
            site.wait_received(sentence)
        there = site.fail_drive(5)
        site.wait_received(there.sentences()[0])
        for event in (away, there):
            assert site.received().count(event.sentences()[0]) == 1


def test_server_with_another_name_gets_nothing(site: Site) -> None:
    """The right authority, the wrong name: somebody else's server that answers in the central one's place.

    Nothing is lost by it: the right one gets the message.
    """
    make_certificate(site.tls, "ca", "other.example.com", "central-")
    try:
        with site.central():
            sentence = site.fail_drive(6).sentences()[0]
            time.sleep(8)  # longer than the sender's pause between two trials
            assert sentence not in site.received()
    finally:
        make_certificate(site.tls, "ca", "log.example.com", "central-")
    with site.central():
        site.wait_received(sentence)


def test_test_event_takes_every_road(site: Site) -> None:
    with site.central():
        done = site.watched.ctl("events", "--test", "443")
        assert done.returncode == 0, done.stderr
        for sentence in Event(0x800081BB, ("CTRL(TEST by baywardctl)", "LD(TEST)")).sentences():
            site.wait_received(f"{sentence} [TEST]")
    wait_until(lambda: any("[TEST]" in body for body in bodies(site.sent)), "mail of the script", 30)
    wait_until(lambda: sum("[TEST]" in mail for mail in bodies(site.mails)) == 2, "mails", 30)


# ---- Prometheus and Nagios ----

@pytest.fixture
def promtool() -> str:
    found = shutil.which("promtool")
    if found is None:
        reason = "The program promtool is missing; install the package prometheus."
        pytest.fail(reason) if os.environ.get("CI") == "true" else pytest.skip(reason)
    return str(found)


def test_alert_rules_do_what_they_say(promtool: str) -> None:
    done = subprocess.run([promtool, "test", "rules", "bayward-alerts-test.yml"], cwd=PROMETHEUS, capture_output=True,
                          text=True, check=False)
    assert done.returncode == 0, done.stdout + done.stderr


def command_of(file: Path, pattern: str) -> List[str]:
    """The command line that stands in a recipe."""
    match = re.search(pattern, file.read_text(encoding="utf-8"), re.M)
    assert match is not None, file
    return match[1].split()


def test_metrics_have_what_the_alert_rules_ask_for(site: Site, promtool: str) -> None:
    site.control.call("fail-drive", 1, 7)
    command = command_of(PROMETHEUS / "bayward-metrics.service", "^ExecStart=(.*)$")
    target = command[-1]
    made = site.host.run(["sh", "-c", f"mount -t tmpfs tmpfs /var/lib && mkdir -p {os.path.dirname(target)}"])
    assert made.returncode == 0, made.stderr
    done = site.host.run(command)
    assert (done.returncode, done.stdout, done.stderr) == (0, "", "")
    metrics = site.host.run(["cat", target]).stdout

    rules = (PROMETHEUS / "bayward-alerts.yml").read_text(encoding="utf-8")
    asked = set(re.findall(r"\bbayward_\w+", rules))
    # Hard disks tell no wear, and this server has no SSD.
    assert asked - {"bayward_drive_life_left_ratio"} <= set(re.findall(r"^\w+", metrics, re.M))
    labels = set(re.findall(r"\$labels\.(\w+)", rules)) - {"instance", "item"}
    assert labels <= set(re.findall(r'(\w+)="', metrics))
    place = re.escape(smart_disk(7).location)
    assert re.search(rf'^bayward_drive_level\{{[^}}]*location="{place}"[^}}]*\}} 2$', metrics, re.M), metrics
    checked = subprocess.run([promtool, "check", "metrics"], input=metrics, capture_output=True, text=True, check=False)
    assert (checked.returncode, checked.stdout + checked.stderr) == (0, "")


def test_unreadable_controller_is_in_the_metrics(site: Site) -> None:
    """With the exit status that the unit takes as a success."""
    unit = PROMETHEUS / "bayward-metrics.service"
    command = command_of(unit, "^ExecStart=(.*)$")
    command = command[:command.index("--output")]
    account = site.host.outer("/etc/.TARNiLO0")
    hidden = account.with_name("hidden")
    account.rename(hidden)
    try:
        done = site.host.run(command)
    finally:
        hidden.rename(account)
    assert str(done.returncode) == command_of(unit, "^SuccessExitStatus=(.*)$")[0]
    assert "\nbayward_up 0\n" in done.stdout


def test_nagios_check_is_critical_while_a_drive_is_failed(site: Site) -> None:
    site.control.call("fail-drive", 1, 8)
    command = command_of(RECIPES / "nagios/bayward-nrpe.cfg", r"^command\[check_bayward\]=/usr/bin/sudo -n (.*)$")
    allowed = command_of(RECIPES / "nagios/bayward-sudoers", r"NOPASSWD: (.*)$")
    assert command == allowed
    done = site.host.run(command)
    assert done.returncode == 2 and done.stderr == ""
    assert re.match(r"BAYWARD CRITICAL - [^|\n]+ \| [^|\n]+\n$", done.stdout), done.stdout
