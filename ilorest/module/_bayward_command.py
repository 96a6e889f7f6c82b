"""Running a system tool for what it lists, within limits on time and size and untouched by the service's signals."""

from __future__ import annotations

import os
import select
import signal
import time

from _bayward_outcome import OTHER, Deadline, Failure

MAX_OUTPUT_BYTES = 1024 * 1024  # some thousand interfaces
KILL_SECONDS = 1.0              # for a killed tool to be gone; one that hangs in the kernel is left to itself

_SYSTEM_FOLDERS = ("/usr/sbin", "/sbin")  # not on every PATH
_PIECE_BYTES = 64 * 1024
_WAIT_SECONDS = 0.01
# The service blocks its stop signals and the interpreter ignores SIGPIPE; the tool is to know nothing of that.
_DEFAULT_SIGNALS = signal.valid_signals() - {signal.SIGKILL, signal.SIGSTOP}


def output_of(tool: str, *arguments: str, seconds: float) -> bytes | None:
    """What the tool writes; None when it is absent, fails, takes longer than `seconds` or writes too much."""
    reader, writer = os.pipe()
    try:
        try:
            child = _start([tool, *arguments], writer)
        finally:
            os.close(writer)
        return None if child is None else _finish(child, reader, Deadline(seconds))
    finally:
        os.close(reader)


def _start(command: list[str], writer: int) -> int | None:
    """The process's id; it leads a process group of its own. None when the tool is nowhere."""
    # The writer first: its descriptor may be one of the three.
    actions = [(os.POSIX_SPAWN_DUP2, writer, 1), (os.POSIX_SPAWN_OPEN, 0, os.devnull, os.O_RDONLY, 0),
               (os.POSIX_SPAWN_OPEN, 2, os.devnull, os.O_WRONLY, 0)]
    environment = dict(os.environ, LC_ALL="C")
    for folder in (*os.get_exec_path(), *_SYSTEM_FOLDERS):
        if not folder.startswith("/"):
            continue  # the working folder is no place for tools
        try:
            # Not subprocess: in a process with threads it could set neither mask nor group safely.
            return os.posix_spawn(os.path.join(folder, command[0]), command, environment, file_actions=actions,
                                  setpgroup=0, setsigmask=(), setsigdef=_DEFAULT_SIGNALS)
        except OSError:
            pass
    return None


def _finish(child: int, reader: int, deadline: Deadline) -> bytes | None:
    status = None
    try:
        output = _read_all(reader, deadline)
        status = _exit_status(child, deadline)
        return output if status == 0 else None
    except Failure:
        return None
    finally:
        if status is None:
            _end_group(child)


def _read_all(reader: int, deadline: Deadline) -> bytes:
    poll = select.poll()
    poll.register(reader, select.POLLIN)
    output = bytearray()
    while len(output) <= MAX_OUTPUT_BYTES:
        if not poll.poll(deadline.left(1.0) * 1000):
            continue
        piece = os.read(reader, _PIECE_BYTES)
        if not piece:
            return bytes(output)
        output += piece
    raise Failure(OTHER, "The tool writes too much.")


def _exit_status(child: int, deadline: Deadline) -> int:
    while True:
        ended, status = os.waitpid(child, os.WNOHANG)
        if ended:
            return status
        time.sleep(deadline.left(_WAIT_SECONDS))


def _end_group(leader: int) -> None:
    try:
        os.killpg(leader, signal.SIGKILL)
        _exit_status(leader, Deadline(KILL_SECONDS))
    except (OSError, Failure):
        pass
