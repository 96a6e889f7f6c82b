"""The verbs of the control socket: their arguments, how each is read, and what they do (data only)."""

from __future__ import annotations

import json
from typing import Any, Callable, Dict, List, NamedTuple, Sequence

from simtools.store import SSACLI, TOOLS
from simtools.tools import ARCHIVES, ENTRIES, HEADINGS, LINE_ENDS

from .errors import UseError
from .service import EXPAND_MODES

FOREVER = "forever"


class Parameter(NamedTuple):
    name: str
    read: Callable[[Any], Any]
    # Left out, the verb's own default holds.
    optional: bool = False


class Verb(NamedTuple):
    name: str
    parameters: Sequence[Parameter]
    help: str

    @property
    def usage(self) -> str:
        words = [f"[{p.name}]" if p.optional else p.name for p in self.parameters]
        return " ".join([self.name, *words])

    def read(self, given: Sequence[Any]) -> List[Any]:
        """The arguments, each read as its parameter says."""
        required = sum(not p.optional for p in self.parameters)
        if not required <= len(given) <= len(self.parameters):
            raise UseError(f"The verb {self.name} got {len(given)} arguments; write: {self.usage}.")
        values = []
        for parameter, value in zip(self.parameters, given):
            try:
                values.append(parameter.read(value))
            except ValueError as error:
                raise UseError(f"The {parameter.name} of {self.name} is wrong: {error}; write: {self.usage}.") from None
        return values


def _text(value: Any) -> str:
    if not isinstance(value, str):
        raise ValueError(f"{value!r} is no text")
    return value


def _whole(least: int, most: int) -> Callable[[Any], int]:
    def read(value: Any) -> int:
        try:
            number = int(str(value))
        except ValueError:
            raise ValueError(f"{value!r} is no whole number") from None
        if not least <= number <= most:
            raise ValueError(f"{number} is not within {least} to {most}")
        return number
    return read


def _times(value: Any) -> Any:
    return None if value == FOREVER else _whole(1, 10**9)(value)


def _seconds(value: Any) -> Any:
    if value == FOREVER:
        return None
    try:
        seconds = float(str(value))
    except ValueError:
        raise ValueError(f"{value!r} is neither seconds nor {FOREVER}") from None
    if not 0 <= seconds <= 86400:
        raise ValueError(f"{seconds} is not within 0 to 86400 seconds")
    return seconds


def _duration(value: Any) -> float:
    seconds = None if value == FOREVER else _seconds(value)
    if seconds is None:
        raise ValueError(f"{value!r} is no number of seconds")
    return float(seconds)


def _header(value: Any) -> str:
    """A text that may stand in a header."""
    text = _text(value)
    if not (text.isascii() and text.isprintable()):
        raise ValueError(f"{value!r} is no printable ASCII text")
    return text


def _one_of(*words: str) -> Callable[[Any], str]:
    def read(value: Any) -> str:
        if value not in words:
            raise ValueError(f"{value!r} is none of {', '.join(words)}")
        return str(value)
    return read


def _json(value: Any) -> Any:
    """JSON, or a bare word as the text it is: Critical is the same as "Critical"."""
    if not isinstance(value, str):
        return value
    try:
        return json.loads(value)
    except ValueError as error:
        if value.lstrip()[:1] in ("{", "[", '"'):
            raise ValueError(f"{value!r} is not JSON ({error})") from None
        return value


def _word(value: Any) -> Any:
    """A text, or null."""
    return None if value in (None, "null") else _text(value)


_MANY = 10**6
_PATH = Parameter("PATH", _text)
_PATTERN = Parameter("PATTERN", _text)
_MEMBER = Parameter("MEMBER", _text)
_VALUE = Parameter("VALUE", _json)
_TIMES = Parameter("TIMES", _times, True)
_CONTROLLER = Parameter("C", _whole(1, _MANY))
_DRIVE = Parameter("D", _whole(1, _MANY))
_VOLUME = Parameter("V", _whole(1, _MANY))
_WORD = Parameter("WORD", _word)
_TOOL = Parameter("|".join(TOOLS), _one_of(*TOOLS))
_COMMANDS = Parameter("COMMANDS", _text, True)

VERBS: Dict[str, Verb] = {verb.name: verb for verb in (
    # Shortcuts: controller, drive and volume are counted from 1.
    Verb("fail-drive", (_CONTROLLER, _DRIVE), "a drive fails"),
    Verb("predict-drive", (_CONTROLLER, _DRIVE), "a drive predicts its failure"),
    Verb("wear-drive", (_CONTROLLER, _DRIVE, Parameter("PERCENT", _whole(0, 100))), "an SSD is worn to PERCENT"),
    Verb("heal-drive", (_CONTROLLER, _DRIVE), "a drive is as new again"),
    Verb("offline-volume", (_CONTROLLER, _VOLUME), "a volume goes offline"),
    Verb("heal-volume", (_CONTROLLER, _VOLUME), "a volume is as new again"),
    Verb("add-drive", (_CONTROLLER, Parameter("ssd|hdd", _one_of("ssd", "hdd"), True)),
         "add an unconfigured drive (an SSD unless hdd is said)"),
    Verb("remove-drive", (_CONTROLLER, _DRIVE), "pull a drive: the resource and every link to it"),
    Verb("restore-drive", (_CONTROLLER, _DRIVE), "put a pulled drive back"),
    Verb("remove-volume", (_CONTROLLER, _VOLUME), "delete a volume: the resource and every link to it"),
    Verb("restore-volume", (_CONTROLLER, _VOLUME), "put a deleted volume back"),
    Verb("drive-health", (_CONTROLLER, _DRIVE, _WORD), "give a drive's Status.Health a word, or null"),
    Verb("drive-state", (_CONTROLLER, _DRIVE, _WORD), "the same for its Status.State, such as UnavailableOffline"),
    Verb("volume-health", (_CONTROLLER, _VOLUME, _WORD), "give a volume's Status.Health a word, or null"),
    Verb("volume-state", (_CONTROLLER, _VOLUME, _WORD), "the same for its Status.State"),
    Verb("empty-bay", (_CONTROLLER, _DRIVE), "pull a drive; its bay is listed as empty (MR Gen11, SR)"),
    Verb("remove-controller", (_CONTROLLER,), "a whole controller is gone, with all that it has and every link to it"),
    Verb("restore-controller", (_CONTROLLER,), "it is back"),
    Verb("list", (), "the controllers with the paths of their drives and volumes"),
    # Any resource.
    Verb("paths", (Parameter("PATTERN", _text, True),), "the paths of all resources"),
    Verb("get", (_PATH,), "a resource as it stands"),
    Verb("set", (_PATH, _MEMBER, _VALUE), "give a member (Status.Health, Drives.0, . for all) a new value"),
    Verb("add-member", (_PATH, _MEMBER, _VALUE), "add a member, or a list element, that is not there"),
    Verb("delete-member", (_PATH, _MEMBER), "delete a member or a list element"),
    Verb("remove", (_PATH,), "remove a resource, all below it and every link to it"),
    Verb("restore", (_PATH,), "put a removed resource back"),
    # Faults.
    Verb("status", (_PATTERN, Parameter("CODE", _whole(200, 599)), _TIMES, Parameter("BODY", _text, True)),
         "answer with a status"),
    Verb("not-ready", (_PATTERN, _TIMES), "answer 503 ResourceNotReadyRetry"),
    Verb("missing", (_PATTERN, _TIMES), "answer 404 ResourceMissingAtURI"),
    Verb("body", (_PATTERN, Parameter("TEXT", _text), _TIMES), "answer 200 with TEXT as it stands"),
    Verb("wire", (_PATTERN, Parameter("TEXT", _text), _TIMES), "send TEXT in place of a whole HTTP answer, then close"),
    Verb("hang", (_PATTERN, Parameter("headers|body", _one_of("headers", "body")),
                  Parameter("SECONDS", _seconds, True), _TIMES), "hang before the headers or in mid-body"),
    Verb("drop", (_PATTERN, Parameter("before|during", _one_of("before", "during")), _TIMES),
         "drop the connection before or during an answer"),
    Verb("cut", (_PATTERN, Parameter("BYTES", _whole(0, 10**9)), _TIMES), "drop the connection after BYTES of the body"),
    Verb("redirect", (_PATTERN, Parameter("LOCATION", _header), _TIMES, Parameter("CODE", _whole(300, 399), True)),
         "send the client elsewhere (308 unless CODE is given)"),
    Verb("trickle", (_PATTERN, Parameter("SECONDS", _duration), _TIMES), "send an answer with SECONDS after each byte"),
    Verb("close", (_PATTERN, _TIMES), "close the connection after a whole answer, unannounced"),
    Verb("faults", (), "the faults in force"),
    Verb("release", (), "let hanging answers go on"),
    Verb("clear-faults", (), "forget all faults and let hanging answers go on"),
    # The tools on the server, ssacli and storcli64.
    Verb("medium-errors", (_CONTROLLER, _DRIVE, Parameter("COUNT", _whole(0, _MANY)),
                           Parameter("MINUTES", _whole(0, _MANY), True)),
         "a drive's log holds COUNT medium errors of the last MINUTES (60)"),
    Verb("tool-drive", (_CONTROLLER, _DRIVE, _MEMBER, _VALUE),
         "give a member of a drive (serial, state ...) a new value for the tools"),
    Verb("tool-controller", (_CONTROLLER, _MEMBER, _VALUE), "the same for a controller (model, slot, serial, absent)"),
    Verb("tool-layout", (Parameter("|".join(HEADINGS), _one_of(*HEADINGS)),
                         Parameter("|".join(ENTRIES), _one_of(*ENTRIES), True),
                         Parameter("|".join(LINE_ENDS), _one_of(*LINE_ENDS), True)), "how ssacli's report is written"),
    Verb("tool-fail", (_TOOL, Parameter("STATUS", _whole(1, 255)), _COMMANDS, _TIMES),
         "a tool prints an error and ends with STATUS"),
    Verb("tool-hang", (_TOOL, _COMMANDS, _TIMES), "a tool never ends unless killed"),
    Verb("tool-takes", (_TOOL, Parameter("SECONDS", _duration), _COMMANDS, _TIMES), "a tool takes SECONDS"),
    Verb("tool-cut", (_TOOL, Parameter("BYTES", _whole(0, 10**9)), _COMMANDS, _TIMES),
         "a listing, or the report in the archive, ends after BYTES"),
    Verb("tool-quiet", (_TOOL, _COMMANDS, _TIMES), "a tool finds no controller"),
    Verb("tool-answer", (_TOOL, Parameter("TEXT", _text), Parameter("STATUS", _whole(0, 255), True), _COMMANDS,
                         _TIMES),
         "TEXT is the listing, or the report in the archive"),
    Verb("tool-archive", (Parameter("|".join(ARCHIVES), _one_of(*ARCHIVES)), _COMMANDS, _TIMES),
         f"what becomes of the archive that {SSACLI} writes"),
    Verb("tool-late", (Parameter("SECONDS", _duration), _COMMANDS, _TIMES),
         f"the archive is there SECONDS after {SSACLI} has ended"),
    Verb("tool-clear", (Parameter(_TOOL.name, _TOOL.read, True),), "forget the faults of a tool, or of both"),
    Verb("tool-commands", (Parameter(_TOOL.name, _TOOL.read, True),), "the command lines that were run"),
    # The controller as a whole.
    Verb("latency", (Parameter("MS", _whole(0, 600000)),), "an answer comes MS after its request, or as soon as it is made"),
    Verb("expand", (Parameter("|".join(EXPAND_MODES), _one_of(*EXPAND_MODES)),), "how ?$expand is met"),
    Verb("shuffle", (Parameter("on|off", _one_of("on", "off")), Parameter("SEED", _whole(0, _MANY), True)),
         "serve links, such as Members, in another order each time (SEED: 1), or as built"),
    Verb("account", (Parameter("NAME", _text), Parameter("PASSWORD", _text)),
         "change account and password; every session ends"),
    Verb("session-limit", (Parameter("N", _whole(0, _MANY)),), "the most sessions at a time"),
    Verb("expire-sessions", (), "end every session"),
    Verb("close-connections", (), "cut every open connection"),
    Verb("counters", (), "requests, connections, log-ins, open sessions"),
    Verb("reset-counters", (), "set the counters to nothing"),
    Verb("shutdown", (), "end the controller"),
)}


def find(name: Any) -> Verb:
    verb = VERBS.get(name) if isinstance(name, str) else None
    if verb is None:
        raise UseError(f"There is no verb {name!r}; the verbs are {', '.join(VERBS)}.")
    return verb
